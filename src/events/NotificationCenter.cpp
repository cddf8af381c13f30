#include "events/NotificationCenter.h"

namespace tw {

NotificationCenter& NotificationCenter::defaultCenter() {
  static NotificationCenter center;
  return center;
}

void NotificationCenter::addObserver(const QString& name, Handler handler) {
  auto shared = std::make_shared<const Handler>(std::move(handler));
  std::lock_guard lock(mutex_);
  auto& list = observers_[name];
  auto grown = list ? std::make_shared<HandlerList>(*list) : std::make_shared<HandlerList>();
  grown->push_back(std::move(shared));
  list = std::move(grown);
}

void NotificationCenter::post(const QString& name, std::any object,
                              std::optional<UserInfo> userInfo) {
  std::shared_ptr<const HandlerList> handlers;
  {
    std::lock_guard lock(mutex_);
    const auto it = observers_.constFind(name);
    if (it == observers_.constEnd()) return;
    handlers = it.value();
  }
  const Notification notification{name, std::move(object), std::move(userInfo)};
  for (const auto& handler : *handlers) (*handler)(notification);
}

}  // namespace tw
