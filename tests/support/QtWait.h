#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEvent>
#include <QThread>
#include <functional>

namespace tw::testing {

// Runs the calling thread's events (deferred deletions too) until `done`
// holds or `ms` pass; whether it held.
inline bool waitFor(const std::function<bool()>& done, int ms = 5000) {
  QDeadlineTimer deadline(ms);
  while (!done()) {
    if (deadline.hasExpired()) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QThread::msleep(1);
  }
  return true;
}

// Runs the calling thread's events for `ms`, whatever happens.
inline void spin(int ms) {
  waitFor([] { return false; }, ms);
}

// Runs deferred deletions and queued work a few rounds.
inline void settle() {
  for (int i = 0; i < 3; ++i) {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
  }
}

}  // namespace tw::testing
