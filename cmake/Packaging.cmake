# The Debian package (`cpack -G DEB` in a Release build; `make deb`).
# It holds what `cmake --install` puts in place: the binary, the manual page,
# the launcher entry, the icons and the AppStream metadata. Test, benchmark and
# tool programs have no install rules, so they stay out
# (tests/packaging/check_install.sh pins the list).

# Placeholders under the reserved .example domain until the real addresses are
# settled; a release build sets them on the command line.
set(TINTWELL_PACKAGE_MAINTAINER "Orlo Tintwell team <tintwell@orlo.example>" CACHE STRING
  "Maintainer field of the Debian package")
set(TINTWELL_HOMEPAGE "https://orlo.example/tintwell" CACHE STRING
  "Homepage field of the Debian package")

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

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
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
# the telemetry server's certificate. /bin/bash, which runs the launcher
# command, is Essential and so needs no declaration.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "ca-certificates")
# The pen is reached through BlueZ; without it only the screen dropper and the
# command line work.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "bluez")
# The design applications run under Wine; on Wayland the dropper needs Qt's
# Wayland platform plugin and the desktop portal's colour picker.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "wine, qt6-wayland, xdg-desktop-portal")

include(CPack)
