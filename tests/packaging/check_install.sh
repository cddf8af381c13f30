#!/bin/bash
# Installs the build into a temporary prefix as `cmake --install` would for a
# package, and checks that a desktop would find the application: the binary,
# the launcher entry (valid, pointing at the binary and the icon), the icons
# and the AppStream metadata (valid), the manual page (rendering without
# warnings), the post helper, and nothing else: test and tool programs stay out of the install.
#   check_install.sh BUILD_DIR VERSION
set -euo pipefail
build=$1
expected_version=$2
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null

fail() { echo "check_install: $*" >&2; exit 1; }
# Exactly the files listed in installed_files.txt (sorted, relative to the
# prefix; the package check uses the same list), none of them empty: a test
# helper or tool given an install rule would end up in the package.
expected_files=$(LC_ALL=C sort "$(dirname "$0")/installed_files.txt")
while read -r f; do
  [ -s "$prefix/$f" ] || fail "missing or empty: $f"
done <<<"$expected_files"
installed_files=$(cd "$prefix" && find . ! -type d | sed 's|^\./||' | LC_ALL=C sort)
[ "$installed_files" = "$expected_files" ] ||
  fail "installed files differ from the expected list:
$(diff <(echo "$expected_files") <(echo "$installed_files") || true)"

desktop=$prefix/share/applications/org.orlo.Tintwell.desktop
desktop-file-validate "$desktop" || fail "the launcher entry is not valid"
grep -qx 'Exec=tintwell' "$desktop" || fail "the launcher entry does not start tintwell"
grep -qx 'Icon=org.orlo.Tintwell' "$desktop" || fail "the launcher entry names another icon"
appstreamcli validate --no-net "$prefix/share/metainfo/org.orlo.Tintwell.metainfo.xml" >/dev/null ||
  fail "the AppStream metadata is not valid"

# The manual page: renders without a warning from troff or man, at the usual
# 80 columns and at a narrow 60, names the command, and carries this version.
manpage=$prefix/share/man/man1/tintwell.1.gz
gzip -t "$manpage" || fail "the manual page is not a valid gzip file"
# A fixed locale that every Debian system has, so the locale of the caller
# cannot add a warning of its own.
export LC_ALL=C.UTF-8
for width in 80 60; do
  warnings=$(MANWIDTH=$width man --warnings -l "$manpage" 2>&1 >/dev/null) ||
    fail "man cannot render the manual page"
  [ -z "$warnings" ] || fail "the manual page renders with warnings at $width columns: $warnings"
done
warnings=$(zcat "$manpage" | groff -man -ww -z 2>&1) || fail "groff cannot read the manual page"
[ -z "$warnings" ] || fail "groff warns about the manual page: $warnings"
rendered=$(MANWIDTH=80 man -l "$manpage" 2>/dev/null)
grep -q '^ *tintwell - desktop companion' <<<"$rendered" || fail "the manual page has no NAME line"
zcat "$manpage" | grep -q "^\.TH TINTWELL 1 .* \"Tintwell $expected_version\"" ||
  fail "the manual page does not carry version $expected_version"

# The installed binary runs from the prefix, as the launcher would start it.
version=$(PATH="$prefix/bin:$PATH" tintwell --version)
[ "$version" = "tintwell $expected_version" ] || fail "unexpected version line: $version"
# The post helper is installed in the libexec folder, and runs from there.
status=0
"$prefix/libexec/tintwell/tintwell-post" </dev/null 2>/dev/null || status=$?
[ "$status" = 2 ] || fail "the installed post helper does not run (exit status $status)"
echo "check_install: ok"
