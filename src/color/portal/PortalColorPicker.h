#pragma once

#include <QColor>
#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QVariantMap>
#include <optional>
#include <vector>

#include "color/ColorHelper.h"

namespace tw::portal {

// A component of the portal's colour as the pick reads it: the double as the
// portal sent it, limited to 0 to 1, never rounded to QColor's 16 bits first.
double portalComponent(double value);
// Its 8-bit channel: the component × 255 truncated toward zero (0.5 gives 127,
// 0.999999 gives 254, 1.0 gives 255).
qint64 portalChannel(double value);

// Screen picking where there is no global click monitor (Wayland): the desktop
// portal's interactive org.freedesktop.portal.Screenshot.PickColor. Arming a
// pick asks the portal; the user's click in the portal's picker is reported as
// the global click, and the colour it returns is what the sampler reads. The
// portal gives no pointer position, so mouseLocation() reports the top-left
// corner (flipped y 0).
//
// Before each PickColor the portal's Screenshot version is read: where no
// portal answers, or its version predates PickColor (2), or PickColor itself
// fails, the armed pick is reported unanswered and no colour is ever made up.
// A portal that does not answer the version read within checkTimeoutMs() (8 s,
// scaled by TINTWELL_TIME_SCALE) counts as none: a portal whose backend hangs
// would otherwise keep the dropper waiting for D-Bus's 25 s.
class PortalColorPicker : public QObject,
                          public GlobalClickMonitor,
                          public PointerSource,
                          public ScreenSampler {
  Q_OBJECT

 public:
  explicit PortalColorPicker(QDBusConnection bus = QDBusConnection::sessionBus());

  void addHandler(Handler handler) override;
  void pickArmed() override;
  void setUnansweredHandler(const Handler& handler) override;
  QPointF mouseLocation() override;
  qint64 mainDisplayPixelsHigh() override;
  // The colour of the last answered PickColor (nullopt before the first one),
  // at once.
  void sample(QPointF at, Completion done) override;

  int checkTimeoutMs() const { return checkTimeoutMs_; }
  void setCheckTimeoutMs(int ms) { checkTimeoutMs_ = ms; }

 private Q_SLOTS:
  void onResponse(uint response, const QVariantMap& results);

 private:
  void listenOn(const QString& requestPath);
  void stopListening();
  void askPickColor();
  void unanswered(const QString& why);

  QDBusConnection bus_;
  std::vector<Handler> handlers_;
  Handler unansweredHandler_;
  bool checking_ = false;  // the version read is out
  QString requestPath_;    // the request we wait for; empty when none is out
  std::optional<ScreenSample> picked_;
  unsigned tokenCounter_ = 0;
  int checkTimeoutMs_;
};

}  // namespace tw::portal
