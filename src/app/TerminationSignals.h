#pragma once

namespace tw {

class AppDelegate;

// Routes SIGINT and SIGTERM into `delegate.terminate()` on the main thread:
// the signal handler only writes a byte to a pipe, which a socket notifier
// reads in the event loop. Call once, on the main thread, after the
// application object exists; the delegate must live until the loop ends.
// A failure to set this up stops the process.
void installTerminationSignalHandlers(AppDelegate& delegate);

}  // namespace tw
