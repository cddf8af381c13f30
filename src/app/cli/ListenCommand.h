#pragma once

namespace tw {

// `tintwell listen`: the application without its window. It runs the panel's
// logic (pen link, bridge, telemetry) with the desktop's observers and lines:
// the start-up colour first, the hex text of every new colour, pushes and
// counts, and on SIGINT/SIGTERM the same quit handshake, so counted colours are
// posted before the process ends.
int runListenCommand(int argc, char** argv);

}  // namespace tw
