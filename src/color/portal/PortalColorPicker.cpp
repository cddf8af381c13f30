#include "color/portal/PortalColorPicker.h"

#include <QDBusArgument>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QPointer>
#include <QScreen>
#include <QTimer>
#include <algorithm>
#include <cmath>

#include "common/Log.h"
#include "common/TimeScale.h"

namespace tw::portal {

namespace {

const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");

}  // namespace

double portalComponent(double value) { return std::clamp(value, 0.0, 1.0); }

qint64 portalChannel(double value) { return channelFromComponent(portalComponent(value)); }

PortalColorPicker::PortalColorPicker(QDBusConnection bus)
    : bus_(std::move(bus)), checkTimeoutMs_(scaledMs(8.0)) {}

void PortalColorPicker::addHandler(Handler handler) { handlers_.push_back(std::move(handler)); }

qint64 PortalColorPicker::mainDisplayPixelsHigh() {
  const QScreen* screen = QGuiApplication::primaryScreen();
  if (!screen) return 0;
  return std::llround(screen->geometry().height() * screen->devicePixelRatio());
}

QPointF PortalColorPicker::mouseLocation() {
  return QPointF(0, static_cast<double>(mainDisplayPixelsHigh()));
}

void PortalColorPicker::sample(QPointF, Completion done) { done(picked_); }

void PortalColorPicker::listenOn(const QString& requestPath) {
  requestPath_ = requestPath;
  bus_.connect(kService, requestPath_, QStringLiteral("org.freedesktop.portal.Request"),
               QStringLiteral("Response"), this, SLOT(onResponse(uint, QVariantMap)));
}

void PortalColorPicker::stopListening() {
  if (requestPath_.isEmpty()) return;
  bus_.disconnect(kService, requestPath_, QStringLiteral("org.freedesktop.portal.Request"),
                  QStringLiteral("Response"), this, SLOT(onResponse(uint, QVariantMap)));
  requestPath_.clear();
}

void PortalColorPicker::setUnansweredHandler(const Handler& handler) {
  unansweredHandler_ = handler;
}

void PortalColorPicker::unanswered(const QString& why) {
  logLine(QStringLiteral("portal: PickColor failed: ") + why);
  if (unansweredHandler_) unansweredHandler_();
}

void PortalColorPicker::pickArmed() {
  if (!requestPath_.isEmpty() || checking_) return;  // a request is already out
  if (!bus_.isConnected()) {
    logLine(std::string_view("portal: no session bus; the screen cannot be picked"));
    // Later, as an answer would come: whoever armed the pick finishes first.
    QTimer::singleShot(0, this, [this] {
      if (unansweredHandler_) unansweredHandler_();
    });
    return;
  }
  // A cheap property read first: it tells a missing portal (or one without
  // PickColor) from one that is there, before the user is kept waiting.
  QDBusMessage get = QDBusMessage::createMethodCall(
      kService, kPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
  get << QStringLiteral("org.freedesktop.portal.Screenshot") << QStringLiteral("version");
  checking_ = true;
  auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(get, checkTimeoutMs_), this);
  connect(
      watcher, &QDBusPendingCallWatcher::finished, this,
      [this, self = QPointer(this)](QDBusPendingCallWatcher* finished) {
        finished->deleteLater();
        if (!self) return;
        checking_ = false;
        QDBusPendingReply<QDBusVariant> reply = *finished;
        if (reply.isError() && (reply.error().type() == QDBusError::NoReply ||
                                reply.error().type() == QDBusError::Timeout)) {
          unanswered(QStringLiteral("the desktop portal did not answer within %1 ms")
                         .arg(checkTimeoutMs_));
          return;
        }
        if (reply.isError()) {
          unanswered(QStringLiteral("no desktop portal with a Screenshot interface answered (") +
                     reply.error().message() + QLatin1Char(')'));
          return;
        }
        bool ok = false;
        const uint version = reply.value().variant().toUInt(&ok);
        if (!ok || version < 2) {
          unanswered(QStringLiteral("the Screenshot portal (version %1) has no PickColor")
                         .arg(reply.value().variant().toString()));
          return;
        }
        askPickColor();
      });
}

void PortalColorPicker::askPickColor() {
  // Listen before calling, so that a quick answer is not missed: the request
  // path follows from our unique name and the token.
  const QString token = QStringLiteral("tintwell%1").arg(++tokenCounter_);
  QString sender = bus_.baseService().mid(1);
  sender.replace(QLatin1Char('.'), QLatin1Char('_'));
  listenOn(kPath + QStringLiteral("/request/") + sender + QLatin1Char('/') + token);

  QDBusMessage call = QDBusMessage::createMethodCall(
      kService, kPath, QStringLiteral("org.freedesktop.portal.Screenshot"),
      QStringLiteral("PickColor"));
  call << QString() << QVariantMap{{QStringLiteral("handle_token"), token}};
  logLine(std::string_view("portal: asking PickColor"));
  auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this,
          [this, self = QPointer(this)](QDBusPendingCallWatcher* finished) {
            finished->deleteLater();
            if (!self) return;
            QDBusPendingReply<QDBusObjectPath> reply = *finished;
            if (reply.isError()) {
              stopListening();
              unanswered(reply.error().message());
              return;
            }
            // Older portals choose the path themselves.
            const QString path = reply.value().path();
            if (path != requestPath_) {
              stopListening();
              listenOn(path);
            }
          });
}

void PortalColorPicker::onResponse(uint response, const QVariantMap& results) {
  stopListening();
  if (response == 1) {
    // There is no way out of an armed pick but a click: ask again.
    logLine(std::string_view("portal: PickColor cancelled; asking again"));
    pickArmed();
    return;
  }
  if (response != 0 || !results.contains(QStringLiteral("color"))) {
    logLine(QStringLiteral("portal: PickColor ended with code %1").arg(response));
    if (unansweredHandler_) unansweredHandler_();
    return;
  }
  double red = 0;
  double green = 0;
  double blue = 0;
  const QDBusArgument color = results.value(QStringLiteral("color")).value<QDBusArgument>();
  color.beginStructure();
  color >> red >> green >> blue;
  color.endStructure();
  if (!std::isfinite(red) || !std::isfinite(green) || !std::isfinite(blue)) {
    logLine(std::string_view("portal: PickColor answered no usable colour"));
    if (unansweredHandler_) unansweredHandler_();
    return;
  }
  // Kept as the doubles they are: ColorHelper truncates component × 255, and a
  // detour through 16 bits would round some of them up a channel.
  picked_ = ScreenSample::fromComponents(portalComponent(red), portalComponent(green),
                                         portalComponent(blue));
  logLine(std::string_view("portal: PickColor answered"));
  const auto handlers = handlers_;
  for (const auto& handler : handlers) handler();
}

}  // namespace tw::portal
