#!/bin/bash
# Installs the Debian package into a freshly bootstrapped Debian 12 (minbase)
# with apt, as a user would, and runs it there. This proves that the declared
# dependencies are enough to run it and that apt resolves them from the mirror,
# which a build machine with every -dev package installed cannot show.
#   tools/deb_check.sh [BUILD_DIR]        as root; BUILD_DIR defaults to build-pkg
# Environment:
#   DEB_CHECK_MIRROR  Debian mirror (default http://deb.debian.org/debian)
#   DEB_CHECK_CACHE   a folder (outside the repository) to keep the bootstrapped
#                     system in as a tarball and start from next time; apt still
#                     updates its lists from the mirror. Unset: from nothing.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

build=${1:-build-pkg}
mirror=${DEB_CHECK_MIRROR:-http://deb.debian.org/debian}
suite=bookworm

fail() {
  echo "deb_check: $*" >&2
  exit 1
}
now() { date +%s.%N; }
seconds_since() { awk -v a="$1" -v b="$(now)" 'BEGIN { printf "%.1f", b - a }'; }

[ "$(id -u)" = 0 ] || fail "needs root (debootstrap, chroot, mount)"
shopt -s nullglob
debs=("$build"/tintwell_*_amd64.deb)
shopt -u nullglob
[ ${#debs[@]} = 1 ] || fail "expected one tintwell_*_amd64.deb in $build (make deb), found ${#debs[@]}"
deb=${debs[0]}
version=$(dpkg-deb -f "$deb" Version)
# The program's own version: the package's without the Debian revision.
upstream_version=${version%-*}

work=$(mktemp -d /var/tmp/tintwell-deb-check.XXXXXX)
root=$work/root
mkdir "$root"

# Mount points below the chroot, deepest first.
mounts_below_root() {
  awk -v r="$root" '$2 == r || index($2, r "/") == 1 { print $2 }' /proc/self/mounts | sort -r
}
xvfb_pid=
panel_pid=
cleanup() {
  local m
  # Our own processes first: a program still running in the chroot would keep
  # its /proc busy.
  for pid in $panel_pid $xvfb_pid; do
    kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null
  done
  for m in $(mounts_below_root); do
    umount "$m" 2>/dev/null || umount -l "$m" || true
  done
  if [ -n "$(mounts_below_root)" ]; then
    echo "deb_check: $root is still mounted; left in place" >&2
    return
  fi
  # --one-file-system: never into anything that could still be mounted there.
  rm -rf --one-file-system "$work"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# A clean environment, but a proxy the machine needs for the mirror still applies.
in_chroot() {
  chroot "$root" /usr/bin/env -i PATH=/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin HOME=/root \
    LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive ${http_proxy:+http_proxy=$http_proxy} "$@"
}
show_log_and_fail() {
  tail -n 30 "$1" >&2
  fail "$2 (full log above, last lines)"
}

started=$(now)
echo "deb_check: $deb ($(stat -c %s "$deb") bytes)"
echo "deb_check: Depends: $(dpkg-deb -f "$deb" Depends)"

# 1. A fresh Debian 12.
step=$(now)
cache_tar=${DEB_CHECK_CACHE:+$DEB_CHECK_CACHE/$suite-minbase.tar}
if [ -n "$cache_tar" ] && [ -s "$cache_tar" ]; then
  tar -xpf "$cache_tar" -C "$root"
  echo "deb_check: $suite minbase from the cache $cache_tar in $(seconds_since "$step") s"
else
  debootstrap --variant=minbase "$suite" "$root" "$mirror" >"$work/debootstrap.log" 2>&1 ||
    show_log_and_fail "$work/debootstrap.log" "debootstrap failed"
  echo "deb_check: debootstrap --variant=minbase $suite from $mirror in $(seconds_since "$step") s"
  if [ -n "$cache_tar" ]; then
    mkdir -p "$DEB_CHECK_CACHE"
    tar -cpf "$cache_tar.part" -C "$root" . && mv "$cache_tar.part" "$cache_tar"
  fi
fi
bootstrap_seconds=$(seconds_since "$step")

# 2. What apt and dpkg need inside: /proc, working device nodes, name
# resolution, and no service started by a package's scripts.
mount -t proc proc "$root/proc"
if ! chroot "$root" /bin/sh -c 'echo > /dev/null' 2>/dev/null; then
  mount --bind /dev "$root/dev"
fi
cp -L /etc/resolv.conf "$root/etc/resolv.conf"
printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d"
chmod 755 "$root/usr/sbin/policy-rc.d"
cp "$deb" "$root/tmp/"

# 3. apt installs the package and what it declares. Recommends are left out:
# the check is that Depends alone make a working program.
step=$(now)
in_chroot apt-get update -q >"$work/apt.log" 2>&1 || show_log_and_fail "$work/apt.log" "apt-get update failed"
in_chroot apt-get install -y -q --no-install-recommends "/tmp/$(basename "$deb")" >>"$work/apt.log" 2>&1 ||
  show_log_and_fail "$work/apt.log" "apt-get install of the package failed"
install_seconds=$(seconds_since "$step")
echo "deb_check: apt-get update and install in $install_seconds s:" \
  "$(grep -E '^[0-9]+ upgraded, [0-9]+ newly installed' "$work/apt.log")"

# 4. It runs.
step=$(now)
echo "--- in the chroot: tintwell --help"
in_chroot tintwell --help
echo "--- in the chroot: tintwell convert 171 205 239"
in_chroot tintwell convert 171 205 239 >"$work/convert.out"
cat "$work/convert.out"
printf 'ABCDEF\t171  205  239\t28  14  0  6\t210  28  94\t81.0  -3.7  -20.5 \n' >"$work/convert.expected"
cmp -s "$work/convert.expected" "$work/convert.out" ||
  fail "tintwell convert printed other bytes than expected: $(od -c "$work/convert.out")"
echo "---"
[ "$(in_chroot tintwell --version)" = "tintwell $upstream_version" ] ||
  fail "tintwell --version does not say $upstream_version"

# The package holds exactly the program, its manual page and its desktop
# files, and the Debian files (copyright, changelog, lintian overrides): no
# test, benchmark or tool program.
expected_files=$({
  sed 's|^|/usr/|' "$here/../tests/packaging/installed_files.txt"
  printf '%s\n' /usr/share/doc/tintwell/copyright /usr/share/doc/tintwell/changelog.Debian.gz \
    /usr/share/lintian/overrides/tintwell
} | LC_ALL=C sort)
listed_files=$(in_chroot dpkg -L tintwell | while read -r f; do
  [ -d "$root$f" ] || echo "$f"
done | LC_ALL=C sort)
[ "$listed_files" = "$expected_files" ] ||
  fail "dpkg -L tintwell lists other files than expected:
$(diff <(echo "$expected_files") <(echo "$listed_files") || true)"
[ -s "$root/usr/share/man/man1/tintwell.1.gz" ] || fail "the manual page is not installed"
gzip -t "$root/usr/share/man/man1/tintwell.1.gz" || fail "the installed manual page is not valid gzip"

# What the program loads at run time besides its linked libraries: the xcb
# platform plugin, the TLS backend with the OpenSSL library it opens, the
# SQLite driver of the colour history, and the CA store.
plugins=/usr/lib/x86_64-linux-gnu/qt6/plugins
for plugin in platforms/libqxcb.so tls/libqopensslbackend.so sqldrivers/libqsqlite.so; do
  [ -f "$root$plugins/$plugin" ] || fail "Qt plugin $plugin is missing"
  if in_chroot ldd "$plugins/$plugin" | grep 'not found'; then
    fail "Qt plugin $plugin lacks libraries"
  fi
done
# (grep reads everything: with -q it would stop early and fail the pipe.)
in_chroot ldconfig -p | grep 'libssl\.so\.3 ' >/dev/null || fail "libssl.so.3 (for the TLS backend) is missing"
[ -s "$root/etc/ssl/certs/ca-certificates.crt" ] || fail "the CA store is missing"
if in_chroot ldd /usr/bin/tintwell | grep 'not found'; then fail "tintwell lacks libraries"; fi
if in_chroot ldd /usr/libexec/tintwell/tintwell-post | grep 'not found'; then
  fail "the post helper lacks libraries"
fi
# The post helper runs there: given no request it says so and exits with 2.
status=0
in_chroot /usr/libexec/tintwell/tintwell-post </dev/null 2>"$work/post.err" || status=$?
[ "$status" = 2 ] && grep -q 'holds no request' "$work/post.err" ||
  fail "the post helper does not run (status $status): $(cat "$work/post.err")"
echo "deb_check: package contents, plugins, OpenSSL and CA store checked in $(seconds_since "$step") s"

# 5. The panel starts on an X display with the xcb plugin and the fonts of the
# fresh system, and a SIGTERM ends it normally. The display is an Xvfb on this
# machine, reached from the chroot through its abstract socket.
step=$(now)
Xvfb -displayfd 3 -nolisten tcp -screen 0 1024x768x24 3>"$work/display" >"$work/xvfb.log" 2>&1 &
xvfb_pid=$!
for _ in $(seq 100); do
  [ -s "$work/display" ] && break
  sleep 0.1
done
[ -s "$work/display" ] || show_log_and_fail "$work/xvfb.log" "Xvfb did not start"
display=:$(head -n1 "$work/display")
chroot "$root" /usr/bin/env -i PATH=/usr/bin:/bin HOME=/root LC_ALL=C.UTF-8 DISPLAY="$display" \
  tintwell >"$work/panel.log" 2>&1 &
panel_pid=$!
if ! DISPLAY=$display timeout 30 xdotool search --sync --onlyvisible --classname tintwell >/dev/null; then
  show_log_and_fail "$work/panel.log" "the panel's window did not show within 30 s"
fi
window=$(DISPLAY=$display xdotool search --onlyvisible --classname tintwell | head -n1)
echo "deb_check: the panel shows on $display: window \"$(DISPLAY=$display xdotool getwindowname "$window")\"," \
  "$(DISPLAY=$display xwininfo -id "$window" | awk '/Width:/ { w = $2 } /Height:/ { h = $2 } END { print w "x" h }')"
kill -TERM "$panel_pid"
panel_status=0
wait "$panel_pid" || panel_status=$?
panel_pid=
[ "$panel_status" = 0 ] || show_log_and_fail "$work/panel.log" "the panel ended with status $panel_status on SIGTERM"
kill "$xvfb_pid" && wait "$xvfb_pid" 2>/dev/null || true
xvfb_pid=
echo "deb_check: the panel started and quit in $(seconds_since "$step") s"

echo "deb_check: ok in $(seconds_since "$started") s" \
  "(bootstrap $bootstrap_seconds s, apt $install_seconds s)"
