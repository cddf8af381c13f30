#pragma once

// What the sender tests share: a Qt application, a temporary home, the test
// CA and server, and a sender wired to a real Commander and the real HTTPS
// transport.

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <memory>

#include "bridge/Commander.h"
#include "telemetry/API_Logger.h"
#include "telemetry/network/NetworkUsageTransport.h"
#include "tests/telemetry/TelemetryTestServer.h"

namespace tw::testing {

inline QJsonObject bodyObject(const ServerEvent& e) {
  return QJsonDocument::fromJson(e.body).object();
}

inline bool isTimeText(const QString& text) {
  static const QRegularExpression pattern(
      QStringLiteral("^\\d{4}/\\d{2}/\\d{2} \\d{2}:\\d{2}:\\d{2}$"));
  return pattern.match(text).hasMatch();
}

// Set before anything reads the environment: the time scale is read once per
// process, and each GoogleTest case runs in its own process.
class SenderEnvironment {
 public:
  explicit SenderEnvironment(const char* timeScale) {
    if (timeScale) qputenv("TINTWELL_TIME_SCALE", timeScale);
    qputenv("HOME", home_.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (home_.path() + QStringLiteral("/config")).toLocal8Bit());
    qputenv("XDG_DATA_HOME", (home_.path() + QStringLiteral("/data")).toLocal8Bit());
    static int argc = 1;
    static char name[] = "sender_test";
    static char* argv[] = {name, nullptr};
    app_ = std::make_unique<QCoreApplication>(argc, argv);
  }
  QString home() const { return home_.path(); }

 private:
  QTemporaryDir home_;
  std::unique_ptr<QCoreApplication> app_;
};

// A sender as the panel sets it up, after the start-up colour.
struct WiredSender {
  explicit WiredSender(bool start = true) {
    logger.parentCommander = &commander;
    logger.setTransport(makeNetworkUsageTransport());
    if (start) {
      logger.startLogging();
      logger.countColor(250, 250, 250);
    }
  }
  bool bothDone() const { return logger.bColorApiDone && logger.bAppUsageApiDone; }
  ColorRecord::Fields color() const { return logger.colorRecord()->read(); }

  Commander commander;
  API_Logger logger;
};

}  // namespace tw::testing
