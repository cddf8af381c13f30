#include "pen/Mailbox.h"

namespace tw::pen {

Mailbox::Mailbox(QObject* parent) : QObject(parent) {}

void Mailbox::post(std::function<void()> work) {
  bool wake = false;
  {
    std::lock_guard lock(mutex_);
    pending_.push_back(std::move(work));
    wake = !wakeQueued_;
    wakeQueued_ = true;
  }
  if (wake) QMetaObject::invokeMethod(this, "drain", Qt::QueuedConnection);
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
