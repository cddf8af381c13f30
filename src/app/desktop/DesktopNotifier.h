#pragma once

#include <QObject>
#include <QString>
#include <functional>

namespace tw {

// Desktop notifications about the pen, through the desktop's notification
// service (org.freedesktop.Notifications.Notify on the session bus): the
// battery at 20 % and at 10 % (each once per connection; a level that skips
// 20 % straight to 10 % or below gives the 10 % one only) and a pen that
// disconnects. The calls are not waited for, so a desktop without the service
// costs nothing but a failed call. Main thread.
class DesktopNotifier : public QObject {
 public:
  // `enabled` is asked before each notification (the preferences' switch).
  explicit DesktopNotifier(std::function<bool()> enabled, QObject* parent = nullptr);

  void penConnected();
  void penDisconnected();
  // A level the pen gave; ignored while no pen is connected.
  void batteryLevel(qint64 level);

  // The notifications sent so far (handed to the bus), for tests.
  int sent() const { return sent_; }

 private:
  void notify(const QString& summary, const QString& body, int urgency);

  std::function<bool()> enabled_;
  bool connected_ = false;
  bool toldTwenty_ = false;
  bool toldTen_ = false;
  int sent_ = 0;
};

}  // namespace tw
