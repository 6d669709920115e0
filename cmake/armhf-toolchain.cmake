# Cross toolchain for the camera's ARMv7 hard-float Linux userland.
#
# Compiles with Debian's arm-linux-gnueabihf GCC against a sysroot holding the
# armhf builds of Qt 5.15 Core/Test and their run-time libraries (the tree
# that scripts/cross-test has mmdebstrap unpack), and runs target programs
# (tests included) under qemu-arm, so `ctest` works on an x86 host without any
# change to the tests.
#
# Sysroot location, first one set wins:
#   -DPRODCONFIG_ARMHF_SYSROOT=<dir>
#   environment variable PRODCONFIG_ARMHF_SYSROOT
#   <build dir>/sysroot
#
# Qt's code generators (moc, rcc) must run on the build host, yet the Qt CMake
# packages in the sysroot point at <sysroot>/usr/lib/qt5/bin/{moc,rcc}.  The
# sysroot preparation links those paths to the host's /usr/lib/qt5/bin tools
# (same Qt 5.15 release), replacing the armhf moc that Debian's packages put
# there; this file only checks that the paths exist, so a half-made sysroot
# fails here with a clear message instead of deep inside find_package.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(PRODCONFIG_ARMHF_TRIPLE arm-linux-gnueabihf)

# try_compile() projects see neither this project's cache nor its build dir,
# so the resolved sysroot travels to them through the platform variables.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PRODCONFIG_ARMHF_SYSROOT)

if(NOT PRODCONFIG_ARMHF_SYSROOT)
    if(DEFINED ENV{PRODCONFIG_ARMHF_SYSROOT} AND NOT "$ENV{PRODCONFIG_ARMHF_SYSROOT}" STREQUAL "")
        set(_prodconfig_sysroot "$ENV{PRODCONFIG_ARMHF_SYSROOT}")
    else()
        set(_prodconfig_sysroot "${CMAKE_BINARY_DIR}/sysroot")
    endif()
    get_filename_component(_prodconfig_sysroot "${_prodconfig_sysroot}" ABSOLUTE)
    set(PRODCONFIG_ARMHF_SYSROOT "${_prodconfig_sysroot}" CACHE PATH
        "Root of the armhf file system to compile, link and run against")
    unset(_prodconfig_sysroot)
endif()

if(NOT EXISTS "${PRODCONFIG_ARMHF_SYSROOT}/usr/lib/${PRODCONFIG_ARMHF_TRIPLE}/libQt5Core.so")
    message(FATAL_ERROR
        "No armhf Qt 5 found in sysroot '${PRODCONFIG_ARMHF_SYSROOT}'. "
        "Prepare one with scripts/cross-test, or point PRODCONFIG_ARMHF_SYSROOT at it.")
endif()

foreach(_prodconfig_tool moc rcc)
    if(NOT EXISTS "${PRODCONFIG_ARMHF_SYSROOT}/usr/lib/qt5/bin/${_prodconfig_tool}")
        message(FATAL_ERROR
            "Sysroot '${PRODCONFIG_ARMHF_SYSROOT}' lacks usr/lib/qt5/bin/${_prodconfig_tool}: "
            "it must be a link to the build host's /usr/lib/qt5/bin/${_prodconfig_tool} "
            "(scripts/cross-test creates these links).")
    endif()
endforeach()
unset(_prodconfig_tool)

set(CMAKE_C_COMPILER   ${PRODCONFIG_ARMHF_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${PRODCONFIG_ARMHF_TRIPLE}-g++)

set(CMAKE_SYSROOT "${PRODCONFIG_ARMHF_SYSROOT}")
set(CMAKE_LIBRARY_ARCHITECTURE ${PRODCONFIG_ARMHF_TRIPLE})
set(CMAKE_FIND_ROOT_PATH "${PRODCONFIG_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# 64-bit file offsets and inode numbers, as 32-bit code needs on today's file
# systems: without them readdir() and stat() fail with EOVERFLOW as soon as a
# directory cookie or inode number needs more than 32 bits, which ext4 on a
# 64-bit kernel (the emulated case) hands out routinely.  Qt's ABI does not
# depend on it.  -Wno-psabi silences GCC's notes that argument passing changed
# in GCC 7.1, which concern only mixing objects with pre-7.1 builds.
set(CMAKE_C_FLAGS_INIT   "-D_FILE_OFFSET_BITS=64 -Wno-psabi")
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -Wno-psabi")

# Every target program, tests included, runs under user-mode emulation.  With
# -L, qemu serves an absolute path from the sysroot when it exists there
# (the loader, the libraries, and "/" itself) and from the host otherwise, so
# /factory_data, /run, /tmp and /proc are the real ones the tests' mount
# namespaces work on.  A program that needs the real root directory must open
# /proc/self/root rather than "/".
find_program(PRODCONFIG_QEMU_ARM qemu-arm NO_CMAKE_FIND_ROOT_PATH)
if(NOT PRODCONFIG_QEMU_ARM)
    message(FATAL_ERROR "qemu-arm not found (Debian package qemu-user)")
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR "${PRODCONFIG_QEMU_ARM};-L;${PRODCONFIG_ARMHF_SYSROOT}")
