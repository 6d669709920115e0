# Installation and the Debian package of prodconfig.
#
#   cmake --install <build>           bin/prodconfig, share/man/man1/prodconfig.1.gz and
#                                     share/doc/prodconfig/messages.md under the prefix
#   cpack --config <build>/CPackConfig.cmake -G DEB
#                                     prodconfig_<version>_<arch>.deb, for the build's target architecture
#
# scripts/package does both for the native build and, when there is one, for the armhf cross build.

include(GNUInstallDirs)

# Installing and packaging take what has been built and build nothing themselves: a package needs only
# the tool and its manual page, not the tests of the build tree (under emulation, in a cross build).
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

install(TARGETS prodconfig RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# Debian ships manual pages compressed; -n leaves name and time out of the archive, so that two builds
# of the same page give the same bytes.
set(PRODCONFIG_MANPAGE ${PROJECT_SOURCE_DIR}/docs/prodconfig.1)
find_program(PRODCONFIG_GZIP gzip)
if(PRODCONFIG_GZIP)
    set(manpage ${CMAKE_CURRENT_BINARY_DIR}/prodconfig.1)
    add_custom_command(OUTPUT ${manpage}.gz
        COMMAND ${CMAKE_COMMAND} -E copy ${PRODCONFIG_MANPAGE} ${manpage}
        COMMAND ${PRODCONFIG_GZIP} -9nf ${manpage}
        DEPENDS ${PRODCONFIG_MANPAGE}
        COMMENT "Compressing the manual page"
        VERBATIM)
    add_custom_target(prodconfig_manpage ALL DEPENDS ${manpage}.gz)
    install(FILES ${manpage}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
else()
    add_custom_target(prodconfig_manpage)
    install(FILES ${PRODCONFIG_MANPAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
# The operator's reference of every message; the manual page points to it.
install(FILES ${PROJECT_SOURCE_DIR}/docs/messages.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME prodconfig)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(PRODCONFIG_PACKAGE_MAINTAINER "Production Config Tool maintainers <prodconfig@example.com>"
    CACHE STRING "Maintainer field of the Debian package")
set(CPACK_PACKAGE_CONTACT "${PRODCONFIG_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${PRODCONFIG_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "reads and writes the camera's production configuration
Production Config Tool reads and writes the production configuration of the
camera: identity, image-sensor, Telvar, accelerometer, proximity and Tessel DAC
calibration data, factory test-status bytes and debug settings. Everything is
kept in /factory_data/settings.ini on the read-only factory partition, which
the tool remounts writable for each change. It can reset the file to the
camera model's defaults and imports the factory EEPROM image when the file is
missing. It must run as root (CAP_SYS_ADMIN).")

# The architecture is that of the build's target, not of the machine running cpack; a native build
# leaves it to dpkg. Pass -DCPACK_DEBIAN_PACKAGE_ARCHITECTURE=<arch> for a target not named here.
if(CMAKE_CROSSCOMPILING AND NOT CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
    # The camera's userland is hard-float.
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(arm|armv7.*|armhf)$")
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
    elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
    elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
    else()
        message(WARNING "No Debian architecture known for the target processor ${CMAKE_SYSTEM_PROCESSOR}: "
                        "set CPACK_DEBIAN_PACKAGE_ARCHITECTURE before packaging.")
    endif()
endif()

# Written out, the same way for every architecture, since dpkg-shlibdeps cannot see a cross build's
# sysroot; scripts/package checks the list against dpkg-shlibdeps on the native build. The floors come
# from the versioned symbols that the tool uses when built on Debian 12: __libc_start_main@GLIBC_2.34,
# CXXABI_1.3.9 (GCC 5), and libgcc_s symbols that every libgcc-s1 has. Qt's floor is the release built
# against: a Qt 5.15 build binds QString::split overloads that came with Qt 5.14, and on x86 Qt's
# version tag asks for 5.15 itself.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1, \
libqt5core5a (>= ${Qt5Core_VERSION_MAJOR}.${Qt5Core_VERSION_MINOR}), libstdc++6 (>= 5)")

include(CPack)
