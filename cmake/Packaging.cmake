# Installation and the Debian package of prodconfig.
#
#   cmake --install <build> --strip  bin/prodconfig, stripped, and bin/prodconfig-verdict;
#                                     share/man/man1/prodconfig.1.gz (and prodconfig-verdict.1.gz, a link
#                                     to it); share/doc/prodconfig/messages.md and changelog.gz, all under
#                                     the prefix
#   cpack --config <build>/CPackConfig.cmake -G DEB
#                                     prodconfig_<version>_<arch>.deb, for the build's target architecture:
#                                     the same files and the package's lintian overrides. Built with the
#                                     stand-in product-information library, its version is <version>~standin.
#
# scripts/package does both for the native build and, when there is a sysroot for the camera, for armhf.

include(GNUInstallDirs)

# Installing and packaging take what has been built and build nothing themselves: a package needs only
# the tool and its documents, not the tests of the build tree (under emulation, in a cross build).
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

install(TARGETS prodconfig RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# The test station's verdict on a run; it runs the prodconfig beside it.
install(PROGRAMS ${PROJECT_SOURCE_DIR}/station/prodconfig-verdict DESTINATION ${CMAKE_INSTALL_BINDIR})
# Stripping keeps the .comment section, in which the compiler and its version name themselves; nothing
# reads it at run time, and Debian's own packages are stripped of it too.
install(CODE "
    if(CMAKE_INSTALL_DO_STRIP)
        execute_process(COMMAND \"${CMAKE_STRIP}\" --remove-section=.comment
            \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/$<TARGET_FILE_NAME:prodconfig>\"
            COMMAND_ERROR_IS_FATAL ANY)
    endif()")

# Debian ships manual pages and changelogs compressed; -n leaves name and time out of the archive, so
# that two builds of the same file give the same bytes.
find_program(PRODCONFIG_GZIP gzip)
set(PRODCONFIG_DOCS)
function(prodconfig_install_compressed source name destination)
    if(PRODCONFIG_GZIP)
        set(copy ${CMAKE_CURRENT_BINARY_DIR}/${name})
        add_custom_command(OUTPUT ${copy}.gz
            COMMAND ${CMAKE_COMMAND} -E copy ${source} ${copy}
            COMMAND ${PRODCONFIG_GZIP} -9nf ${copy}
            DEPENDS ${source}
            COMMENT "Compressing ${name}"
            VERBATIM)
        install(FILES ${copy}.gz DESTINATION ${destination})
        set(PRODCONFIG_DOCS ${PRODCONFIG_DOCS} ${copy}.gz PARENT_SCOPE)
    else()
        install(FILES ${source} DESTINATION ${destination} RENAME ${name})
    endif()
endfunction()

prodconfig_install_compressed(${PROJECT_SOURCE_DIR}/docs/prodconfig.1 prodconfig.1
    ${CMAKE_INSTALL_MANDIR}/man1)
# The wrapper's manual is the tool's, which has a section on it.
if(PRODCONFIG_GZIP)
    set(suffix .gz)
endif()
set(link \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man1/prodconfig-verdict.1${suffix})
install(CODE "file(CREATE_LINK prodconfig.1${suffix} \"${link}\" SYMBOLIC)")

# The package's changelog, in Debian's format. Its newest entry must be this version.
set(PRODCONFIG_CHANGELOG ${PROJECT_SOURCE_DIR}/cmake/changelog)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PRODCONFIG_CHANGELOG})
file(STRINGS ${PRODCONFIG_CHANGELOG} changelog_head LIMIT_COUNT 1)
if(NOT changelog_head MATCHES "^prodconfig \\(${PROJECT_VERSION}\\) ")
    message(FATAL_ERROR "The newest entry of ${PRODCONFIG_CHANGELOG} is not version ${PROJECT_VERSION}: "
                        "'${changelog_head}'. Add an entry for this version.")
endif()
# A package without a Debian revision in its version is a native one, whose changelog is changelog.gz.
prodconfig_install_compressed(${PRODCONFIG_CHANGELOG} changelog ${CMAKE_INSTALL_DOCDIR})

add_custom_target(prodconfig_docs ALL DEPENDS ${PRODCONFIG_DOCS})
# The operator's reference of every message; the manual page points to it.
install(FILES ${PROJECT_SOURCE_DIR}/docs/messages.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
# What lintian reports of the package and is so on purpose, each with its reason. Only the package
# carries it: a component that a plain cmake --install leaves out, and that CPack puts into the one
# package with the rest.
install(FILES ${PROJECT_SOURCE_DIR}/cmake/lintian-overrides
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME prodconfig
    COMPONENT package EXCLUDE_FROM_ALL)
set(CPACK_COMPONENTS_ALL Unspecified package)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME prodconfig)
set(PRODCONFIG_PACKAGE_MAINTAINER "Production Config Tool maintainers <prodconfig@example.com>"
    CACHE STRING "Maintainer field of the Debian package")
set(CPACK_PACKAGE_CONTACT "${PRODCONFIG_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${PRODCONFIG_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
# A package built with the stand-in product-information library must never be taken for a camera's: on a
# camera the stand-in finds no camera model, and --init then removes serial, model and calibration. Its
# version says so, and sorts before the real package's, which therefore replaces it.
if(PRODCONFIG_PRODUCTINFO_LIBRARY)
    set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
    set(summary "reads and writes the camera's production configuration")
    set(standin "")
else()
    set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION}~standin)
    set(summary "camera production configuration tool, stand-in build: not for a camera")
    set(standin "
.
STAND-IN BUILD, NOT FOR A CAMERA: this package was built with the stand-in
for the camera's product-information library, which reads the camera model
from /run/product-info/camera-model. On a camera that file is missing, so
--init reports an unknown model and removes serial, model and calibration.")
endif()
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "${summary}
Production Config Tool reads and writes the production configuration of the
camera: identity, image-sensor, Telvar, accelerometer, proximity and Tessel DAC
calibration data, factory test-status bytes and debug settings. Everything is
kept in /factory_data/settings.ini on the read-only factory partition, which
the tool remounts writable for each change. It can reset the file to the
camera model's defaults and imports the factory EEPROM image when the file is
missing. It must run as root (CAP_SYS_ADMIN). prodconfig-verdict runs it and
exits non-zero when a value was not stored or a warning was logged.${standin}")

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

# Depends is worked out by dpkg-shlibdeps from the symbols files of the libraries the binary links, which
# give for each symbol the first version of its package that has it. A native build lets CPack run it. In
# a cross build the libraries are the sysroot's, of which the host's dpkg knows nothing: scripts/package
# works the list out from the sysroot and hands it to cpack (-D CPACK_DEBIAN_PACKAGE_DEPENDS=...), and
# cpack refuses to make the package without it.
if(CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
    set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_BINARY_DIR}/CPackDepends.cmake)
    file(WRITE ${CPACK_PROJECT_CONFIG_FILE} [[
if(NOT CPACK_DEBIAN_PACKAGE_DEPENDS)
    message(FATAL_ERROR "A cross build's package needs its Depends: scripts/package works them out with "
                        "dpkg-shlibdeps and passes -D CPACK_DEBIAN_PACKAGE_DEPENDS=... to cpack.")
endif()
]])
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

include(CPack)
