# Cross build for the board: 32-bit ARM, hard-float (Debian armhf).
#
#   cmake -S . -B build/armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake
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
