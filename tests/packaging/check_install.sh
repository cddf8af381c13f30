#!/bin/bash
# Installs the build into a temporary prefix as `cmake --install` would for a
# package, and checks that a desktop would find the application: the binary,
# the launcher entry (valid, pointing at the binary and the icon), the icons
# and the AppStream metadata (valid).
#   check_install.sh BUILD_DIR VERSION
set -euo pipefail
build=$1
expected_version=$2
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null

fail() { echo "check_install: $*" >&2; exit 1; }
expect_file() { [ -s "$prefix/$1" ] || fail "missing $1"; }

expect_file bin/tintwell
expect_file share/applications/org.orlo.Tintwell.desktop
expect_file share/metainfo/org.orlo.Tintwell.metainfo.xml
expect_file share/icons/hicolor/scalable/apps/org.orlo.Tintwell.svg
expect_file share/icons/hicolor/64x64/apps/org.orlo.Tintwell.png
expect_file share/icons/hicolor/128x128/apps/org.orlo.Tintwell.png

desktop=$prefix/share/applications/org.orlo.Tintwell.desktop
desktop-file-validate "$desktop" || fail "the launcher entry is not valid"
grep -qx 'Exec=tintwell' "$desktop" || fail "the launcher entry does not start tintwell"
grep -qx 'Icon=org.orlo.Tintwell' "$desktop" || fail "the launcher entry names another icon"
appstreamcli validate --no-net "$prefix/share/metainfo/org.orlo.Tintwell.metainfo.xml" >/dev/null ||
  fail "the AppStream metadata is not valid"

# The installed binary runs from the prefix, as the launcher would start it.
version=$(PATH="$prefix/bin:$PATH" tintwell --version)
[ "$version" = "tintwell $expected_version" ] || fail "unexpected version line: $version"
echo "check_install: ok"
