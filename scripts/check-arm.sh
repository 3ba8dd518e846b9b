#!/bin/sh
# Cross-builds the program and its tests for 32-bit ARM hard-float (without sanitizers) into build/armhf
# and runs the suite there under qemu-arm. As root it installs what it needs (the cross compiler,
# qemu-user, armhf in apt's lists); otherwise it prints the command that would.
set -e
cd "$(dirname "$0")/.."
JOBS=${JOBS:-2}
BUILD=build/armhf
ROOT=$PWD/$BUILD/root

./scripts/install-packages.sh cmake make pkg-config g++-arm-linux-gnueabihf qemu-user dpkg-dev file
if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "armhf packages are not in apt's lists. Please run:"
        echo "  sudo dpkg --add-architecture armhf && sudo apt-get update"
        exit 1
    fi
    dpkg --add-architecture armhf
    apt-get update -qq || true  # an index that fails to fetch leaves the others usable
fi
./scripts/armhf-root.sh "$ROOT"

cmake -S . -B $BUILD -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake -DPM5544_ARMHF_ROOT="$ROOT" \
      -DCMAKE_BUILD_TYPE=Release -DPM5544_BUILD_TESTS=ON
cmake --build $BUILD -j "$JOBS"
file $BUILD/pm5544 | grep -q 'ARM, EABI5' || { echo "$BUILD/pm5544 is not a 32-bit ARM program"; exit 1; }
ctest --test-dir $BUILD --output-on-failure -j "$JOBS"
