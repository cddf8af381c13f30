#!/usr/bin/env bash
# The layer check over a copy of the tree: the copy as it is passes, and each
# deliberately wrong include below fails it with a line naming the file and why.
set -uo pipefail
src_root=$1
checker=$src_root/tools/check_layers.py
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fresh_copy() {
  rm -rf "$work/tree"
  mkdir -p "$work/tree"
  cp -r "$src_root/src" "$src_root/resources" "$work/tree/"
}

# expect_wrong NAME FILE INCLUDE EXPECTED: adds `#include "INCLUDE"` to FILE of
# a fresh copy; the check must fail and print EXPECTED.
expect_wrong() {
  local name=$1 file=$2 include=$3 expected=$4
  fresh_copy
  printf '#include "%s"\n' "$include" >>"$work/tree/$file"
  local out status
  out=$(python3 "$checker" "$work/tree")
  status=$?
  if [ "$status" -ne 1 ] || ! grep -qF -- "$expected" <<<"$out"; then
    echo "FAIL $name: status $status, output:"
    echo "$out"
    failures=$((failures + 1))
  else
    echo "ok   $name"
  fi
}

fresh_copy
if out=$(python3 "$checker" "$work/tree"); then
  echo "ok   TheTreeAsItIsPasses: $out"
else
  echo "FAIL TheTreeAsItIsPasses:"
  echo "$out"
  failures=$((failures + 1))
fi

expect_wrong ColourIncludingThePanelFails src/color/ColorStruct.cpp app/PanelLogic.h \
  "src/color/ColorStruct.cpp:"
expect_wrong TheSenderIncludingTheBridgeFails src/telemetry/API_Logger.cpp bridge/Commander.h \
  "telemetry includes bridge/Commander.h (bridge): parts of the same layer are independent"
expect_wrong EventsIncludingColourFails src/events/Notifications.cpp color/ColorStruct.h \
  "color is above events"
expect_wrong TheToolsIncludingTheDesktopFail src/tools/CsvCommand.cpp \
  app/desktop/DesktopApplication.h "desktop is above tools"
expect_wrong TheCommandLineIncludingTheDesktopFails src/app/cli/Cli.cpp \
  app/desktop/DesktopApplication.h "parts of the same layer are independent"
expect_wrong ProductCodeIncludingTestCodeFails src/pen/CoreQuilla.cpp \
  tests/pen/simulated/SimulatedCentral.h "product code never includes test code"
expect_wrong AnUnknownFolderFails src/common/Log.cpp widgets/Thing.h \
  "a folder outside the layer order"
# The one kept edge is kept for the records alone.
expect_wrong TheBridgeIncludingTheSenderFails src/bridge/Commander.cpp telemetry/API_Logger.h \
  "bridge includes telemetry/API_Logger.h (telemetry)"

echo "$failures failed"
[ "$failures" -eq 0 ]
