#pragma once

#include "app/PanelLogic.h"

namespace tw {

// The platform parts of the desktop panel: BlueZ, the Wine host under /proc,
// message boxes, HTTPS telemetry and the screen picker of the session.
PanelParts desktopPanelParts();

// Runs the desktop application: the main panel in its window, the dropper, the
// pen link, the bridge and telemetry, until a quit has gone through the
// handshake. Returns the process's exit code.
int runDesktopApplication(int argc, char** argv);

}  // namespace tw
