#pragma once

#include <QHash>
#include <QString>
#include <any>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace tw {

// User info travels as text keys and text values.
using UserInfo = QHash<QString, QString>;

struct Notification {
  QString name;
  std::any object;                   // empty when the post carries no object
  std::optional<UserInfo> userInfo;  // absent when the post carries none
};

// Process-wide named notifications. A post is delivered synchronously, on the
// posting thread, to every observer of that name before post() returns.
// Observers are never removed; adding one twice makes it run twice. Posting and
// adding are safe from any thread; an observer may itself post or add observers.
class NotificationCenter {
 public:
  using Handler = std::function<void(const Notification&)>;

  static NotificationCenter& defaultCenter();

  void addObserver(const QString& name, Handler handler);
  void post(const QString& name, std::any object = {},
            std::optional<UserInfo> userInfo = std::nullopt);

 private:
  // Each name's handler list is copied on write, so delivery walks a snapshot
  // that later additions never touch.
  using HandlerList = std::vector<std::shared_ptr<const Handler>>;
  std::mutex mutex_;
  QHash<QString, std::shared_ptr<const HandlerList>> observers_;
};

}  // namespace tw
