#pragma once

class QCoreApplication;

namespace tw {

namespace pen {
class CoreQuilla;
}

// `tintwell listen`: the application without its window. Runs the pen link with
// observers standing in for the panel's, prints each new colour's hex text on
// its own line (the start-up colour first), and ends cleanly on SIGINT/SIGTERM.
int runListenCommand(int argc, char** argv);

// The panel's observers, for now: the colour observer prints the hex text; the
// connection observers run the battery watch on the main thread. Call once,
// before the link starts.
void installListenObservers(pen::CoreQuilla& quilla);

// SIGINT and SIGTERM end `app`'s loop: the handler writes a byte to a pipe that a
// socket notifier reads on the main thread.
void installListenTermination(QCoreApplication& app);

}  // namespace tw
