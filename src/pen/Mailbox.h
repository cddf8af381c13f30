#pragma once

#include <QObject>
#include <functional>
#include <mutex>
#include <vector>

namespace tw::pen {

// Runs work on the thread this object lives in. The work travels through a
// std::mutex-guarded list rather than inside a Qt event, so the hand-over is a
// synchronisation ThreadSanitizer can see; the event only wakes the thread.
// post() may be called from any thread, also the owning one (then the work runs
// later, never inside post()).
class Mailbox : public QObject {
  Q_OBJECT
 public:
  explicit Mailbox(QObject* parent = nullptr);
  void post(std::function<void()> work);
  // Drops the work not run yet, destroying it now (outside the lock). For an
  // owner going away whose pending work holds something others wait on.
  void discard();

 private Q_SLOTS:
  void drain();

 private:
  std::mutex mutex_;
  std::vector<std::function<void()>> pending_;
  bool wakeQueued_ = false;
};

}  // namespace tw::pen
