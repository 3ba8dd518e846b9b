# Two commands for a newcomer: `make run` renders the default card, `make test` runs every test.
BUILD_PACKAGES := cmake g++ make pkg-config libpng-dev libtiff-dev nlohmann-json3-dev libeigen3-dev libcairo2-dev \
                  libpango1.0-dev libfreetype-dev libfontconfig-dev fonts-dejavu-core \
                  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-tools \
                  gstreamer1.0-plugins-base gstreamer1.0-plugins-good
TEST_PACKAGES  := libgtest-dev python3 python3-numpy python3-pytest python3-venv python3-setuptools pngcheck libtiff-tools ffmpeg man-db groff-base bash-completion
EXAMPLE_PACKAGES := python3-numpy python3-png ffmpeg
JOBS           ?= 2
OUTPUT         ?= pm5544.png

.PHONY: run test tsan build bench check-arm examples deps deps-test deps-examples clean install package

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
	cmake --build build -j $(JOBS) --target pm5544 pm5544_analyse

bench: deps build
	cmake --build build -j $(JOBS) --target pm5544_bench pm5544_bench_library pm5544_bench_analysis
	./build/pm5544_bench
	./build/pm5544_bench --light
	./build/pm5544_bench_library
	./build/pm5544_bench_analysis
	./bench/bench_analyse.sh build
	cmake --build build -j $(JOBS) --target gstpm5544 && ./bench/bench_gstreamer.sh build/gstreamer

# The program, its manual page and its bash completion, the library libpm5544, its headers, pm5544.pc
# and CMake package, and the GStreamer plugin, under $(PREFIX) in $(DESTDIR): PREFIX=$$HOME/.local needs
# no root. The build is configured for the prefix, which picks the library directory (Debian's multiarch
# one under /usr, where the plugin's directory is GStreamer's own; elsewhere the install ends by saying
# how to set GST_PLUGIN_PATH).
PREFIX         ?= /usr/local
INSTALLED      := pm5544 pm5544_docs pm5544_analyse pm5544_analyse_docs libpm5544 gstpm5544
install: deps build
	cmake -S . -B build -DCMAKE_INSTALL_PREFIX="$(PREFIX)"
	cmake --build build -j $(JOBS) --target $(INSTALLED)
	DESTDIR="$(DESTDIR)" cmake --install build

# Debian packages in build/: pm5544, libpm5544-1, libpm5544-dev and gstreamer1.0-pm5544, their Depends
# worked out by dpkg-shlibdeps.
package: deps build
	@./scripts/install-packages.sh dpkg-dev
	cmake -S . -B build -DCMAKE_INSTALL_PREFIX=/usr
	cmake --build build -j $(JOBS) --target $(INSTALLED)
	cd build && cpack -G DEB

# The program and the tests cross-built for 32-bit ARM hard-float in build/armhf, the suite run under qemu-arm.
check-arm:
	JOBS=$(JOBS) ./scripts/check-arm.sh

# The library's examples (examples/) built with pkg-config and CMake against an install of it staged in
# build/stage, their frames checked against the program's files, and where render_v210 writes.
examples: deps-examples build
	cmake --build build -j $(JOBS) --target libpm5544
	./scripts/check-examples.sh build

deps:
	@./scripts/install-packages.sh $(BUILD_PACKAGES)

deps-test:
	@./scripts/install-packages.sh $(BUILD_PACKAGES) $(TEST_PACKAGES)

deps-examples:
	@./scripts/install-packages.sh $(BUILD_PACKAGES) $(EXAMPLE_PACKAGES)

clean:
	rm -rf build
