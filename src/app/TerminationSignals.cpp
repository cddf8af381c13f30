#include "app/TerminationSignals.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <cerrno>

#include "app/AppDelegate.h"
#include "common/Fatal.h"

namespace tw {

namespace {

int signalPipe[2] = {-1, -1};

void onTerminationSignal(int) {
  const int savedErrno = errno;
  const char byte = 1;
  // Async-signal-safe; a full pipe already holds a pending wake-up.
  [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
  errno = savedErrno;
}

}  // namespace

void installTerminationSignalHandlers(AppDelegate& delegate) {
  if (signalPipe[0] >= 0) fatalStop("termination signals are already routed");
  if (::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
    fatalStop("the termination signal pipe cannot be made");

  auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &delegate);
  QObject::connect(notifier, &QSocketNotifier::activated, &delegate, [&delegate] {
    char buffer[64];
    while (::read(signalPipe[0], buffer, sizeof buffer) > 0) {
    }
    delegate.terminate();
  });

  struct sigaction action = {};
  action.sa_handler = onTerminationSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  if (::sigaction(SIGINT, &action, nullptr) != 0 || ::sigaction(SIGTERM, &action, nullptr) != 0)
    fatalStop("the termination signal handlers cannot be installed");
}

}  // namespace tw
