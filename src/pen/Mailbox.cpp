#include "pen/Mailbox.h"

namespace tw::pen {

Mailbox::Mailbox(QObject* parent) : QObject(parent) {}

void Mailbox::post(std::function<void()> work) {
  // The wake-up is posted under the lock: drain() takes the lock before it can
  // run the work (which may destroy this mailbox), so that ordering is one
  // ThreadSanitizer sees too. drain() never calls into Qt while holding it.
  std::lock_guard lock(mutex_);
  pending_.push_back(std::move(work));
  if (!wakeQueued_) QMetaObject::invokeMethod(this, "drain", Qt::QueuedConnection);
  wakeQueued_ = true;
}

void Mailbox::discard() {
  std::vector<std::function<void()>> dropped;
  std::lock_guard lock(mutex_);
  dropped.swap(pending_);
  // `dropped` is destroyed after the lock is released (declared first).
}

void Mailbox::drain() {
  std::vector<std::function<void()>> batch;
  {
    std::lock_guard lock(mutex_);
    batch.swap(pending_);
    wakeQueued_ = false;
  }
  for (auto& work : batch) work();
}

}  // namespace tw::pen
