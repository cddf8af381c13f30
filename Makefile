# Quick start on a fresh Debian 12 machine (as root, or with sudo):
#   make run    installs what is missing, builds, starts tintwell
#   make test   installs what is missing, builds, runs every test
# Build trees live in build/ (release), build-asan/ (AddressSanitizer + UBSan),
# build-tsan/ (ThreadSanitizer), build-fuzz/ (clang, libFuzzer) and build-pkg/
# (the Debian package); make clean removes them all.

SHELL := /bin/bash
JOBS ?= $(shell nproc)
BUILD ?= build
PKG_BUILD := build-pkg
CMAKE_FLAGS ?=
# CI (CI=true) turns compiler warnings into errors in every build tree.
WERROR_FLAGS := $(if $(filter true,$(CI)),-DTINTWELL_WERROR=ON)

# Debian 12 packages the build, the tests and the tools need.
DEB_PACKAGES := cmake ninja-build g++ pkg-config clang-format \
  qt6-base-dev qt6-base-dev-tools libgtest-dev libgmock-dev libbenchmark-dev \
  dbus python3-dbus python3-gi xvfb xdotool xclip x11-utils x11-xserver-utils trayer libxi-dev libxcb-xinput-dev libx11-dev libfontconfig-dev \
  openssl ca-certificates iproute2 bc desktop-file-utils appstream xcompmgr \
  man-db groff-base dpkg-dev debootstrap mount lintian
# The colour history: Qt's SQLite driver (a plug-in), SQLite's headers (the
# whole history is read through its own interface) and the sqlite3 program
# the tests hold a lock with.
DEB_PACKAGES += libqt6sql6-sqlite libsqlite3-dev sqlite3
# Screen picks are checked against an outside screenshot (xwd).
DEB_PACKAGES += x11-apps
# The click-to-panel bench clicks through XTest.
DEB_PACKAGES += libxtst-dev
# The accessibility test: at-spi2-core's bus launcher and registry, and the
# AT-SPI client library for the Python reader.
DEB_PACKAGES += at-spi2-core gir1.2-atspi-2.0

# make fuzz: clang with libFuzzer and its symbolizer; libdbus for the D-Bus target.
DEB_PACKAGES += clang-14 libclang-rt-14-dev llvm-14 libdbus-1-dev
# make tidy: clang-tidy-14 and its parallel runner.
DEB_PACKAGES += clang-tidy-14

# The design applications the bridge is tested against (about 730 MB, so not
# in `make deps`): make design-apps-deps installs them; make test runs their
# tests when they are there and says which it left out.
DESIGN_APP_PACKAGES := gimp inkscape krita python3-pyqt5 python3-sip x11-apps
DESIGN_APP_PROGRAMS := gimp inkscape krita xwd

SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

# Installs the Debian packages named in $(1) that are missing.
define install_missing
	@missing=""; \
	for p in $(1); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'install ok installed' || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing:$$missing"; \
	  $(SUDO) apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq --no-install-recommends $$missing; \
	fi
endef

# Says which real-application tests a run leaves out, and why.
define report_design_apps
	@absent=""; for p in $(DESIGN_APP_PROGRAMS); do command -v $$p >/dev/null || absent="$$absent $$p"; done; \
	if [ -n "$$absent" ]; then \
	  echo "NOTE: the tests against the real design applications were left out (not installed:$$absent);" \
	       "make design-apps-deps installs them, make design-apps-test runs them."; \
	fi
endef

.PHONY: deps configure build run test soak asan-test tsan-test bench convert-bench startup-bench startup-phases format format-check tidy clean

deps:
	$(call install_missing,$(DEB_PACKAGES))

.PHONY: design-apps-deps design-apps-test
design-apps-deps: deps
	$(call install_missing,$(DESIGN_APP_PACKAGES))

# The bridge against the real GIMP, Inkscape and Krita under Xvfb.
design-apps-test: build
	$(call report_design_apps)
	cd $(BUILD) && ctest --output-on-failure -L design_apps

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release $(WERROR_FLAGS) $(CMAKE_FLAGS)

configure: deps $(BUILD)/build.ninja

build: configure
	cmake --build $(BUILD) -j $(JOBS)

# Starts the desktop panel on the session's display.
run: build
	@if [ -z "$${DISPLAY:-}$${WAYLAND_DISPLAY:-}" ]; then \
	  echo "make run: no display (DISPLAY or WAYLAND_DISPLAY); run it from a desktop session," \
	       "or try ./$(BUILD)/tintwell --help for the command-line tools" >&2; exit 1; fi
	./$(BUILD)/tintwell

# Everything but the ten-minute telemetry soak (make soak); the real design
# applications' tests when they are installed.
test: build
	$(call report_design_apps)
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -LE soak
	$(call report_design_apps)

# 1,000 telemetry ticks against a server that fails every third request.
soak: build
	cd $(BUILD) && ctest --output-on-failure -L soak

# A day of the desktop application's timers in about seven minutes, under Xvfb
# with the fake BlueZ, a failing server and faults injected (docs/SOAK.md).
SOAK_HOURS ?= 24
SOAK_SCALE ?= 0.005
.PHONY: desktop-soak
desktop-soak: build
	./$(BUILD)/tests/soak/desktop_soak --hours $(SOAK_HOURS) --scale $(SOAK_SCALE) \
	  --report $(BUILD)/desktop-soak.md

# An hour of real time (the timers at their real schedule: a telemetry post
# every 600 s) with the pen at 50 Hz and a dropper pick every minute. Judged:
# the resident memory a second after each renewal of the colour record (a
# successful post, or the panel's return after a pick) rises less than 1 MiB
# above its size at the end of the first minute. The report, with the VmRSS
# series, is $(BUILD)/memory-soak.md. Not part of `make test`.
MEMORY_SOAK_MINUTES ?= 60
.PHONY: memory-soak
memory-soak: build
	./$(BUILD)/tests/soak/desktop_soak --minutes $(MEMORY_SOAK_MINUTES) --scale 1 \
	  --pick-every 60 --link-every 0 --memory-growth-kib 1024 --network own \
	  --report $(BUILD)/memory-soak.md

# AddressSanitizer and UndefinedBehaviorSanitizer over the whole suite but the
# exhaustive colour walk (the release run covers that).
asan-test:
	$(MAKE) build BUILD=build-asan CMAKE_FLAGS="-DCMAKE_BUILD_TYPE=Debug -DTINTWELL_SANITIZE=address,undefined -DTINTWELL_BUILD_BENCH=OFF"
	cd build-asan && ctest --output-on-failure -j $(JOBS) -LE "exhaustive|soak"

# ThreadSanitizer over the same suite: the pen thread, the main thread and the
# network completions share state.
tsan-test:
	$(MAKE) build BUILD=build-tsan CMAKE_FLAGS="-DCMAKE_BUILD_TYPE=Debug -DTINTWELL_SANITIZE=thread -DTINTWELL_BUILD_BENCH=OFF"
	cd build-tsan && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" ctest --output-on-failure -j $(JOBS) -LE "exhaustive|soak"

bench: build
	./$(BUILD)/bench/tintwell_bench

# Colour accepted -> confirmed in the real GIMP, Inkscape and Krita (200 pushes
# each, median and p99), and how long the accepting thread is busy per push.
.PHONY: design-apps-bench
design-apps-bench: build
	./$(BUILD)/bench/design_app_latency --pushes 200

# The history window over 100,000 colours, a search over them, and the pen to
# panel time with the history on and off.
.PHONY: pick-bench
# Screen picks: click -> colour on the panel without and with a compositor,
# and the magnifier's frame rate while the pointer moves.
pick-bench: build
	./$(BUILD)/bench/pick_latency --picks 40 | grep '^click ->'
	./$(BUILD)/bench/pick_latency --picks 40 --compositor | grep '^click ->'
	./$(BUILD)/bench/pick_latency --lens 5 | grep '^magnifier'

.PHONY: post-bench
# One usage post through the post helper and in-process, interleaved.
post-bench: build
	./$(BUILD)/bench/post_latency --posts 40
	$(SUDO) ./$(BUILD)/bench/post_latency --posts 40 --system-store

.PHONY: history-bench
history-bench: build
	./$(BUILD)/bench/history_window_bench && ./$(BUILD)/bench/history_bench

# Throughput of `tintwell convert` over every 8-bit colour.
convert-bench: build
	bench/convert_throughput.sh $(BUILD)

# Start-up time and memory of the panel next to gcolor3, gpick, kcolorchooser
# and an empty Qt window (INSTALL=1 installs the missing comparison programs).
startup-bench: build
	bench/startup_compare.sh $(BUILD)/tintwell

# Exec to the end of loading and to the first map request, for the panel and
# the two floors of startup-bench, without that bench's fixed costs.
startup-phases: build
	bench/startup_phases.sh $(BUILD)/tintwell

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

format-check:
	git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

# clang-tidy (.clang-tidy) over src/ with the release tree's compile commands
# (the build makes the moc output and configured headers it reads); any
# finding fails. About three minutes of two cores.
tidy: build
	run-clang-tidy-14 -p $(BUILD) -j $(JOBS) -quiet '^$(CURDIR)/src/'

clean:
	rm -rf build build-asan build-tsan build-fuzz $(PKG_BUILD) $(BUILD)

# The pen link end to end: a private bus, the fake BlueZ with a pen named
# "QUILLA-Pen 02" sending a colour every second, and `tintwell listen` against
# it (Ctrl-C ends it; DEMO_SECONDS=N stops it after N seconds).
# The README's screenshots, under Xvfb with the fake BlueZ (docs/images).
.PHONY: screenshots
screenshots: build
	tools/screenshots.sh $(BUILD) docs/images

.PHONY: design-app-screenshot
design-app-screenshot: build
	tools/design_app_screenshot.sh $(BUILD) docs/images

.PHONY: demo
demo: build
	tools/demo.sh $(BUILD)

# libFuzzer over every parser of outside input, built with clang in build-fuzz/
# (fuzz/run.sh): each target runs FUZZ_SECONDS against a copy of its committed
# corpus, two at a time, and any crash, leak, timeout or broken property fails.
FUZZ_SECONDS ?= 60
.PHONY: fuzz
fuzz: deps
	cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++-14 \
	  -DTINTWELL_SANITIZE=address,undefined -DTINTWELL_BUILD_FUZZ=ON -DTINTWELL_BUILD_TESTS=OFF \
	  -DTINTWELL_BUILD_BENCH=OFF $(WERROR_FLAGS)
	cmake --build build-fuzz -j $(JOBS) --target fuzzers
	FUZZ_JOBS=2 fuzz/run.sh build-fuzz $(FUZZ_SECONDS)

# The Debian package, from a Release build of the application alone in
# build-pkg/ (left there as tintwell_<version>_amd64.deb).
.PHONY: deb deb-check lintian
# The shipped binary gets Debian's hardening flags (stack protector, fortified
# libc calls, read-only relocations bound at start), as a Debian-built package
# would; the Release build's -O3 follows them, so -g and -O2 are left out.
HARDENING := DEB_BUILD_MAINT_OPTIONS=hardening=+all
PKG_CXXFLAGS = $(filter-out -g -O2,$(shell $(HARDENING) dpkg-buildflags --get CXXFLAGS)) \
  $(shell $(HARDENING) dpkg-buildflags --get CPPFLAGS)
PKG_LDFLAGS = $(shell $(HARDENING) dpkg-buildflags --get LDFLAGS)
deb: deps
	cmake -S . -B $(PKG_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release -DTINTWELL_BUILD_TESTS=OFF \
	  -DTINTWELL_BUILD_BENCH=OFF -DCMAKE_CXX_FLAGS="$(PKG_CXXFLAGS)" \
	  -DCMAKE_EXE_LINKER_FLAGS="$(PKG_LDFLAGS)" $(WERROR_FLAGS) $(CMAKE_FLAGS)
	cmake --build $(PKG_BUILD) -j $(JOBS)
	rm -f $(PKG_BUILD)/tintwell_*.deb
	cd $(PKG_BUILD) && cpack -G DEB

# Debian's package checker over that package: any error or warning fails (the
# overrides, each with its reason, are in resources/linux/debian/).
lintian: deb
	lintian --fail-on error,warning $(PKG_BUILD)/tintwell_*_amd64.deb

# That package, once lintian passes it, installed with apt into a freshly
# bootstrapped Debian 12 and run there (tools/deb_check.sh; root and the Debian
# mirror; one to two minutes).
deb-check: lintian
	$(SUDO) tools/deb_check.sh $(PKG_BUILD)
