# Cross build for the board: 32-bit ARM, hard-float (Debian armhf).
#
#   cmake -S . -B build/armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake
#
# QV_BOARD_NEON (default ON): code for the board's ARMv7-A NEON/VFPv4 core
# instead of Debian's armhf baseline (see below).
#
# Compilers come from g++-arm-linux-gnueabihf; libraries and their pkg-config
# files from the Debian multiarch packages (libasound2-dev:armhf,
# libkissfft-dev:armhf, ...) in /usr/lib/arm-linux-gnueabihf. Programs built
# here run on the build machine under qemu-user, so CTest can run the tests.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(QV_CROSS_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${QV_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${QV_CROSS_TRIPLE}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${QV_CROSS_TRIPLE})
# GCC notes that passing some std::vector iterators changed ABI in GCC 7.1;
# everything here is built by one compiler, so the note says nothing.
set(CMAKE_C_FLAGS_INIT -Wno-psabi)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# The board's CPU: ARMv7-A with NEON and VFPv4 (Cortex-A7 class), hard-float.
# Debian's armhf baseline (VFPv3-D16, no NEON) runs on any ARMv7 core but leaves
# the vector unit idle; with this option the compilers define __ARM_NEON and
# code may use NEON intrinsics. -DQV_BOARD_NEON=OFF builds for the baseline.
# (GCC still does not auto-vectorise single-precision float code for 32-bit
# NEON, which flushes subnormals to zero; NEON is used where the code asks.)
set(QV_BOARD_NEON ON CACHE BOOL "Target ARMv7-A with NEON/VFPv4 (the board's CPU)")
if(QV_BOARD_NEON)
  string(APPEND CMAKE_C_FLAGS_INIT " -march=armv7-a -mfpu=neon-vfpv4 -mfloat-abi=hard")
  string(APPEND CMAKE_CXX_FLAGS_INIT " -march=armv7-a -mfpu=neon-vfpv4 -mfloat-abi=hard")
endif()

# The target's own root (C library, libstdc++) first, then the machine's root,
# where the multiarch packages live under lib/arm-linux-gnueabihf. Libraries,
# headers and CMake packages are looked up only there; build tools (pkg-config,
# qemu) are the build machine's.
set(CMAKE_FIND_ROOT_PATH /usr/${QV_CROSS_TRIPLE} /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config must see only the armhf .pc files, never the build machine's.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/${QV_CROSS_TRIPLE}/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# Test programs (and gtest's test discovery) run through the user-mode
# emulator. It finds the target's dynamic loader at /lib/ld-linux-armhf.so.3
# (libc6:armhf), the same build as the C library that the multiarch libraries
# resolve to. Pointing it at the cross toolchain's copy instead
# (-L /usr/arm-linux-gnueabihf) pairs that loader with libc6:armhf's libc.so.6
# whenever the two packages differ in version, and threads then crash at start.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
