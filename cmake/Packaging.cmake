# The Debian package (`cpack -G DEB` in a Release build; `make deb`).
# It holds what `cmake --install` puts in place: the binary, the manual page,
# the launcher entry, the icons and the AppStream metadata. Test, benchmark and
# tool programs have no install rules, so they stay out
# (tests/packaging/check_install.sh pins the list). The package adds its own
# Debian files (component "debian", below), and `make lintian` checks it.

# Placeholders under the reserved .example domain until the real addresses are
# settled; a release build sets them on the command line.
set(TINTWELL_PACKAGE_MAINTAINER "Orlo Tintwell team <tintwell@orlo.example>" CACHE STRING
  "Maintainer field of the Debian package")
set(TINTWELL_HOMEPAGE "https://orlo.example/tintwell" CACHE STRING
  "Homepage field of the Debian package")

include(GNUInstallDirs)

# The Debian files, in the package only: a plain `cmake --install` into a
# prefix has no use for a Debian changelog or lintian's overrides.
set(tw_debian_source ${PROJECT_SOURCE_DIR}/resources/linux/debian)
set(tw_debian_build ${PROJECT_BINARY_DIR}/debian)

# The changelog's latest entry gives the package version: this project's
# version, a dash, and the Debian revision (a new package of the same version
# is a new entry with the next revision).
file(STRINGS ${tw_debian_source}/changelog.in tw_changelog_top LIMIT_COUNT 1)
if(NOT tw_changelog_top MATCHES "^tintwell \\(([^ ()-]+)-([^ ()-]+)\\) ")
  message(FATAL_ERROR "resources/linux/debian/changelog.in: no \"tintwell (VERSION-REVISION)\" "
    "on its first line: ${tw_changelog_top}")
endif()
set(tw_changelog_version ${CMAKE_MATCH_1})
set(tw_debian_revision ${CMAKE_MATCH_2})
if(NOT tw_changelog_version STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR "resources/linux/debian/changelog.in: the latest entry is for "
    "${tw_changelog_version}, the project is ${PROJECT_VERSION}; add an entry for it")
endif()
# The maintainer of each entry is the package's (a placeholder until settled).
configure_file(${tw_debian_source}/changelog.in ${tw_debian_build}/changelog @ONLY)
# Compressed as Debian installs it (-n: no name or time stamp inside).
add_custom_command(OUTPUT ${tw_debian_build}/changelog.Debian.gz
  COMMAND gzip -9 -n -c ${tw_debian_build}/changelog > ${tw_debian_build}/changelog.Debian.gz
  DEPENDS ${tw_debian_build}/changelog
  COMMENT "Compressing the Debian changelog" VERBATIM)
add_custom_target(tintwell_debian_changelog ALL DEPENDS ${tw_debian_build}/changelog.Debian.gz)

# The copyright file in Debian's machine-readable format, made from LICENSE
# so that the two cannot differ: its copyright line, and its terms as the
# licence text (each line indented by one blank, empty lines as " .").
file(READ ${PROJECT_SOURCE_DIR}/LICENSE tw_license)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/LICENSE)
if(NOT tw_license MATCHES "^MIT License\n\nCopyright \\(c\\) ([^\n]+)\n\n(.+)$")
  message(FATAL_ERROR "LICENSE: not the MIT licence text with one \"Copyright (c)\" line")
endif()
set(tw_copyright ${CMAKE_MATCH_1})
string(STRIP "${CMAKE_MATCH_2}" tw_license_terms)
string(REPLACE "\n\n" "\n.\n" tw_license_terms "${tw_license_terms}")
string(REPLACE "\n" "\n " tw_license_terms " ${tw_license_terms}")
configure_file(${tw_debian_source}/copyright.in ${tw_debian_build}/copyright @ONLY)

install(FILES ${tw_debian_build}/copyright ${tw_debian_build}/changelog.Debian.gz
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tintwell COMPONENT debian EXCLUDE_FROM_ALL)
# What lintian is told to accept, each with its reason (make lintian).
install(FILES ${tw_debian_source}/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
  RENAME tintwell COMPONENT debian EXCLUDE_FROM_ALL)

set(CPACK_PACKAGE_NAME tintwell)
set(CPACK_PACKAGE_VENDOR Orlo)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${TINTWELL_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "desktop companion for the Quilla colour pen")
set(CPACK_PACKAGE_DESCRIPTION
  "Tintwell shows the colour the Quilla Bluetooth LE pen touched, or any pixel of
the screen picked with its dropper, in HEX, RGB, CMYK, HSB and CIE Lab, and
pushes it into the design applications running under Wine. It shows the pen's
connection and battery level and reports usage counts over HTTPS.

The command line converts colours between the notations (tintwell convert),
reads colour library tables as JSON (tintwell csv) and runs the pen link
without a window (tintwell listen).")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
# ...and without the .comment and .note sections strip leaves in.
set(CPACK_TW_OBJCOPY ${CMAKE_OBJCOPY})
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/PackageSections.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${tw_debian_revision})
# One package of the application's files and the Debian files.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_COMPONENTS_ALL Unspecified debian)
# Directories as Debian has them, whatever the umask of the build.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${TINTWELL_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "${TINTWELL_HOMEPAGE}")
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The shared libraries (Qt 6, X11, xcb, libc, libstdc++) come from
# dpkg-shlibdeps. They also bring the two Qt plugins loaded at run time: the
# xcb platform plugin is part of libqt6gui6 and the OpenSSL TLS backend (with
# libssl3) part of libqt6network6.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Not libraries, still needed: the system's CA store, which Qt reads to check
# the telemetry server's certificate, and Qt's SQLite driver for the colour
# history, a plug-in loaded at run time that dpkg-shlibdeps cannot see.
# /bin/bash, which runs the launcher command, is Essential and so needs no
# declaration.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "ca-certificates, libqt6sql6-sqlite")
# The pen is reached through BlueZ; without it only the screen dropper and the
# command line work. In a Wayland session the dropper picks through the desktop
# portal (whether Qt runs on Wayland or on XWayland), and the window runs
# natively with Qt's Wayland platform plugin; without the portal the dropper
# says so and picks nothing.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "bluez, qt6-wayland, xdg-desktop-portal")
# The design applications run under Wine.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "wine")

include(CPack)
