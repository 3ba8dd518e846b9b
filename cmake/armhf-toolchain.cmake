# Cross-building for 32-bit ARM hard-float with Debian's cross toolchain (g++-arm-linux-gnueabihf).
# The target's libraries are Debian's armhf packages unpacked under PM5544_ARMHF_ROOT (scripts/check-arm.sh
# makes it); programs built here run under qemu-arm with that tree as the root of their file lookups.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

if(NOT PM5544_ARMHF_ROOT)
  set(PM5544_ARMHF_ROOT "$ENV{PM5544_ARMHF_ROOT}")
endif()
if(NOT IS_DIRECTORY "${PM5544_ARMHF_ROOT}/usr/lib/arm-linux-gnueabihf")
  message(FATAL_ERROR "PM5544_ARMHF_ROOT must name the unpacked armhf packages (see scripts/check-arm.sh)")
endif()
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PM5544_ARMHF_ROOT)

# Headers and libraries of the target come from that tree, programs (pkg-config) from the host.
set(CMAKE_FIND_ROOT_PATH ${PM5544_ARMHF_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${PM5544_ARMHF_ROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    "${PM5544_ARMHF_ROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${PM5544_ARMHF_ROOT}/usr/share/pkgconfig")

# The libraries' own dependencies are found beside them when linking.
string(CONCAT _pm5544_link "-Wl,-rpath-link,${PM5544_ARMHF_ROOT}/usr/lib/arm-linux-gnueabihf"
              " -Wl,-rpath-link,${PM5544_ARMHF_ROOT}/lib/arm-linux-gnueabihf")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_pm5544_link}")

# Tests and test discovery run the built programs through the emulator.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${PM5544_ARMHF_ROOT})
