#include "app/desktop/DesktopNotifier.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QVariantMap>

namespace tw {

DesktopNotifier::DesktopNotifier(std::function<bool()> enabled, QObject* parent)
    : QObject(parent), enabled_(std::move(enabled)) {}

void DesktopNotifier::penConnected() {
  connected_ = true;
  toldTwenty_ = false;
  toldTen_ = false;
}

void DesktopNotifier::penDisconnected() {
  if (!connected_) return;
  connected_ = false;
  notify(tr("Pen disconnected"), tr("The Quilla pen is no longer connected."), 1);
}

void DesktopNotifier::batteryLevel(qint64 level) {
  if (!connected_ || level < 0 || level > 100) return;
  if (level <= 10 && !toldTen_) {
    toldTen_ = true;
    toldTwenty_ = true;
    notify(tr("Pen battery very low"),
           tr("The pen's battery is at %1 %. Charge it soon.").arg(level), 2);
  } else if (level <= 20 && !toldTwenty_) {
    toldTwenty_ = true;
    notify(tr("Pen battery low"), tr("The pen's battery is at %1 %.").arg(level), 1);
  }
}

void DesktopNotifier::notify(const QString& summary, const QString& body, int urgency) {
  if (enabled_ && !enabled_()) return;
  QDBusMessage call = QDBusMessage::createMethodCall(
      QStringLiteral("org.freedesktop.Notifications"),
      QStringLiteral("/org/freedesktop/Notifications"),
      QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
  const QVariantMap hints{{QStringLiteral("desktop-entry"), QStringLiteral("org.orlo.Tintwell")},
                          {QStringLiteral("urgency"), QVariant::fromValue(uchar(urgency))}};
  call << QStringLiteral("Tintwell") << uint(0) << QStringLiteral("org.orlo.Tintwell") << summary
       << body << QStringList() << hints << int(-1);
  // Not waited for: the answer (an id, or an error without the service) is
  // of no use to the panel.
  QDBusConnection::sessionBus().send(call);
  ++sent_;
}

}  // namespace tw
