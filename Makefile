# Two commands for a newcomer: `make run` renders the default card, `make test` runs every test.
BUILD_PACKAGES := cmake g++ make pkg-config libpng-dev libtiff-dev nlohmann-json3-dev libcairo2-dev \
                  libpango1.0-dev libfreetype-dev libfontconfig-dev fonts-dejavu-core
TEST_PACKAGES  := libgtest-dev pngcheck libtiff-tools ffmpeg man-db groff-base bash-completion
JOBS           ?= 2
OUTPUT         ?= pm5544.png

.PHONY: run test tsan build bench check-arm deps deps-test clean install package

run: deps build
	./build/pm5544 $(OUTPUT)
	@echo "Rendered the default card to $(OUTPUT)"

test: deps-test build
	cmake -S . -B build/asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g" \
	      -DPM5544_SANITIZE=ON -DPM5544_BUILD_TESTS=ON
	cmake --build build/asan -j $(JOBS)
	ctest --test-dir build/asan --output-on-failure -j $(JOBS)

# The library's tests under ThreadSanitizer: handles on threads share nothing.
tsan: deps-test
	cmake -S . -B build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPM5544_TSAN=ON -DPM5544_BUILD_TESTS=ON
	cmake --build build/tsan -j $(JOBS) --target test_library
	TSAN_OPTIONS=suppressions=$(CURDIR)/tests/support/tsan.supp ctest --test-dir build/tsan --output-on-failure -R '^Library'

build:
	cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DPM5544_BUILD_TESTS=OFF
	cmake --build build -j $(JOBS) --target pm5544

bench: deps build
	cmake --build build -j $(JOBS) --target pm5544_bench pm5544_bench_library
	./build/pm5544_bench
	./build/pm5544_bench --light
	./build/pm5544_bench_library

# The program, its manual page and its bash completion, under $(PREFIX) in $(DESTDIR).
PREFIX         ?= /usr/local
install: deps build
	cmake --build build -j $(JOBS) --target pm5544 pm5544_docs
	DESTDIR="$(DESTDIR)" cmake --install build --prefix "$(PREFIX)"

# A Debian package in build/, its Depends worked out by dpkg-shlibdeps.
package: deps build
	@./scripts/install-packages.sh dpkg-dev
	cmake --build build -j $(JOBS) --target pm5544 pm5544_docs
	cd build && cpack -G DEB

# The program and the tests cross-built for 32-bit ARM hard-float in build/armhf, the suite run under qemu-arm.
check-arm:
	JOBS=$(JOBS) ./scripts/check-arm.sh

deps:
	@./scripts/install-packages.sh $(BUILD_PACKAGES)

deps-test:
	@./scripts/install-packages.sh $(BUILD_PACKAGES) $(TEST_PACKAGES)

clean:
	rm -rf build
