#pragma once

namespace tw {

// Runs the desktop application: the main panel in its window, the dropper, the
// pen link, the bridge and telemetry, until a quit has gone through the
// handshake. Returns the process's exit code.
int runDesktopApplication(int argc, char** argv);

}  // namespace tw
