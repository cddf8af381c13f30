#include "telemetry/API_Logger.h"

#include <QPointer>
#include <QThread>
#include <QTimer>
#include <QUrl>

#include "common/Fatal.h"
#include "common/FreedMemory.h"
#include "common/Log.h"
#include "common/TimeScale.h"
#include "telemetry/Reachability.h"
#include "telemetry/TelemetryConfig.h"

namespace tw {

namespace {

constexpr double kSendIntervalSeconds = 600.0;
constexpr double kRequestTimeoutSeconds = 60.0;

void closeList(QString& list, qint64 counter) {
  if (list.startsWith(QLatin1Char(','))) list = QLatin1Char('[') + list.mid(1) + QLatin1Char(']');
  if (counter == 0) list = QStringLiteral("[]");
}

// What sendLogs does to the colour record before it is sent.
void stampSessionEnd(ColorRecord::Fields& f, const QString& end) {
  f.debug = false;
  f.session_end = end;
}

void closeLists(ColorRecord::Fields& f) {
  closeList(f.colors_screen, f.counter_screen);
  closeList(f.colors_device, f.counter_device);
}

// What sendLogs copies from the colour record into the application record.
void shareSession(ApplicationRecord::Fields& f, const ColorRecord::Fields& color) {
  f.session_begin = color.session_begin;
  f.session_end = color.session_end;
  f.session_full = color.session_full;
  f.debug = color.debug;
}

}  // namespace

QString apiTypeName(API_Type type) {
  switch (type) {
    case API_Type::colorType:
      return QStringLiteral("colorType");
    case API_Type::appType:
      return QStringLiteral("appType");
  }
  fatalStop("an unknown usage post kind");
}

API_Logger::API_Logger(QObject* parent) : QObject(parent) {}

API_Logger::~API_Logger() = default;

void API_Logger::startLogging() {
  {
    auto color = std::make_shared<ColorRecord>();
    color->update([](ColorRecord::Fields& f) { f.session_begin = currentTimeText(); });
    std::lock_guard lock(recordsMutex_);
    colorRecord_ = std::move(color);
    applicationRecord_ = std::make_shared<ApplicationRecord>();
  }
  // A timer from an earlier start is not stopped: it keeps ticking beside the
  // new one, and the sender, its parent, frees it at the end.
  apiSenderTimer_ = new QTimer(this);
  apiSenderTimer_->setTimerType(Qt::PreciseTimer);
  apiSenderTimer_->setSingleShot(false);
  connect(apiSenderTimer_, &QTimer::timeout, this, &API_Logger::logWithTimer);
  apiSenderTimer_->setInterval(sendPeriodMs());
  senderTimers_.emplace_back(apiSenderTimer_);
  // Without an event loop (plain record tests) there is nothing to schedule on.
  if (thread()->eventDispatcher() && sendingEnabled_) apiSenderTimer_->start();
  releaseFreedMemoryLater();
}

int API_Logger::sendPeriodMs() { return scaledMs(kSendIntervalSeconds); }

void API_Logger::setSendingEnabled(bool enabled) {
  if (sendingEnabled_.exchange(enabled) == enabled) return;
  for (const QPointer<QTimer>& timer : senderTimers_) {
    if (!timer) continue;
    if (!enabled) {
      timer->stop();
    } else if (thread()->eventDispatcher()) {
      timer->start();
    }
  }
  if (!enabled) return;
  // Counted while reports were off: the user did not agree to send it.
  if (colorRecord()) startNewColorRecord();
  if (ApplicationUsageCounters* commander = parentCommander.load())
    commander->setTempApplicationRecord(std::make_shared<ApplicationRecord>());
}

void API_Logger::setTransport(std::shared_ptr<UsageTransport> transport) {
  transport_ = std::move(transport);
}

void API_Logger::setTerminationReply(TerminationReply* reply) { terminationReply_ = reply; }

ApplicationUsageCounters& API_Logger::requireCommander() const {
  ApplicationUsageCounters* commander = parentCommander.load();
  if (!commander) fatalStop("the telemetry sender has no commander");
  return *commander;
}

void API_Logger::logWithTimer() {
  logLine(std::string_view("Log Timer is trigger"));
  requireColorRecord()->update([](ColorRecord::Fields& f) { f.session_full = true; });
  sendLogs();
}

void API_Logger::sendLogs() {
  if (!sendingEnabled_) return;
  const std::shared_ptr<ColorRecord> color = requireColorRecord();
  const ColorRecord::Fields counted = color->read();
  if (counted.counter_device == 0 && counted.counter_screen == 0) return;
  if (!Reachability::isConnectedToNetwork()) {
    logLine(std::string_view("Internet Connection not Available!"));
    return;
  }
  logLine(std::string_view("Internet Connection Available!"));

  const ColorRecord::Fields stamped = color->update([](ColorRecord::Fields& f) {
    stampSessionEnd(f, currentTimeText());
    return f;
  });

  // The same object Commander counts pushes into, not a copy.
  std::shared_ptr<ApplicationRecord> application = requireCommander().tempApplicationRecord();
  if (!application) fatalStop("the application usage record is missing");
  setApplicationRecord(application);
  logLine(QStringLiteral("PS  Count : %1").arg(application->read().PS));
  application->update([&](ApplicationRecord::Fields& f) { shareSession(f, stamped); });

  closeColorLists();
  // Each body is one consistent copy of its record. Our encoder has no input it
  // fails on, so there is no encoding error to report here.
  const QByteArray colorBody = color->toJson();
  const QByteArray applicationBody = application->toJson();
  logLine(QStringLiteral("%1 bytes").arg(colorBody.size()));

  postUsage(QStringLiteral("/api/color_usage"), colorBody, API_Type::colorType);
  postUsage(QStringLiteral("/api/app_usage"), applicationBody, API_Type::appType);
}

void API_Logger::postUsage(const QString& urlText, const QByteArray& body, API_Type type) {
  QString base = telemetryBaseUrl();
  while (base.endsWith(QLatin1Char('/'))) base.chop(1);
  const QUrl url(base + urlText, QUrl::StrictMode);
  // Usage data travels over verified TLS only.
  if (!url.isValid() || url.scheme() != QLatin1String("https") || url.host().isEmpty())
    fatalStop("the telemetry address is not a usable https address");
  if (!transport_) fatalStop("the telemetry sender has no transport");

  UsageRequest request;
  request.url = url;
  request.method = "POST";
  request.headers = {{"Content-Type", "application/json"}, {"Accept", "application/json"}};
  request.body = body;
  request.timeoutMs = scaledMs(kRequestTimeoutSeconds);

  logLine(QStringLiteral(" API 開始 || Api Type : ") + apiTypeName(type));
  // Completions arrive on this object's thread; a sender that is gone by then
  // has nobody left to renew or answer.
  transport_->post(request, [self = QPointer<API_Logger>(this), type](
                                const std::optional<QByteArray>& data,
                                const std::optional<UsageResponse>& response,
                                const std::optional<QString>& error) {
    if (self) self->handleUsageResponse(data, response, error, type);
  });
}

void API_Logger::handleUsageResponse(const std::optional<QByteArray>& data,
                                     const std::optional<UsageResponse>& response,
                                     const std::optional<QString>& error, API_Type type) {
  releaseFreedMemoryLater();
  if (data && response && response->isHttp && !error) {
    if (response->statusCode >= 200 && response->statusCode <= 299) {
      logLine(QStringLiteral(" API 完成 || Api Type : ") + apiTypeName(type));
      switch (type) {
        case API_Type::appType:
          bAppUsageApiDone = true;
          // Push counts start from 0 again.
          requireCommander().setTempApplicationRecord(std::make_shared<ApplicationRecord>());
          break;
        case API_Type::colorType:
          bColorApiDone = true;
          startNewColorRecord();
          break;
      }
      usageSucceeded();
    } else {
      logLine(QStringLiteral("statusCode should be 2xx, but is %1").arg(response->statusCode));
      logLine(QStringLiteral("response = ") + response->description);
      usageFailed();
    }
    return;
  }
  logLine(QStringLiteral("error ") + (error ? *error : QStringLiteral("Unknown error")));
  usageFailed();
}

void API_Logger::releaseFreedMemoryLater() {
  // A second on, when the dropped record and the post's buffers (freed on the
  // network thread, after the reply) are gone.
  if (thread()->eventDispatcher()) QTimer::singleShot(1000, this, [] { releaseFreedMemory(); });
}

void API_Logger::usageSucceeded() {
  if (bAppShouldClose && bColorApiDone && bAppUsageApiDone) answerTerminationLater();
}

void API_Logger::usageFailed() {
  // One failure gives up on the other post as well.
  bColorApiDone = true;
  bAppUsageApiDone = true;
  if (bAppShouldClose) answerTerminationLater();
}

void API_Logger::answerTerminationLater() {
  QMetaObject::invokeMethod(
      this,
      [this] {
        TerminationReply* reply = terminationReply_.load();
        if (!reply) fatalStop("there is no application to answer the quit");
        reply->replyToApplicationShouldTerminate(true);
      },
      Qt::QueuedConnection);
}

std::shared_ptr<ColorRecord> API_Logger::colorRecord() const {
  std::lock_guard lock(recordsMutex_);
  return colorRecord_;
}

void API_Logger::setColorRecord(std::shared_ptr<ColorRecord> record) {
  std::lock_guard lock(recordsMutex_);
  colorRecord_ = std::move(record);
}

std::shared_ptr<ApplicationRecord> API_Logger::applicationRecord() const {
  std::lock_guard lock(recordsMutex_);
  return applicationRecord_;
}

void API_Logger::setApplicationRecord(std::shared_ptr<ApplicationRecord> record) {
  std::lock_guard lock(recordsMutex_);
  applicationRecord_ = std::move(record);
}

std::shared_ptr<ColorRecord> API_Logger::requireColorRecord() const {
  auto record = colorRecord();
  if (!record) fatalStop("the colour usage record is missing");
  return record;
}

void API_Logger::countColor(qint64 red, qint64 green, qint64 blue) {
  // The start-up colour is only shown, never counted.
  if (bFirstColor.exchange(false)) return;
  const QString entry = colorListEntry(red, green, blue);
  const bool fromScreen = bPickScreenColor.exchange(false);
  const QString screenList = requireColorRecord()->update([&](ColorRecord::Fields& f) {
    if (fromScreen) {
      f.colors_screen += QLatin1Char(',') + entry;
      incrementCounter(f.counter_screen);
    } else {
      f.colors_device += QLatin1Char(',') + entry;
      incrementCounter(f.counter_device);
    }
    return f.colors_screen;
  });
  // The screen list is printed whichever list grew.
  logLine(screenList);
}

void API_Logger::closeColorLists() { requireColorRecord()->update(closeLists); }

std::optional<API_Logger::PendingReport> API_Logger::pendingReport() const {
  const std::shared_ptr<ColorRecord> color = colorRecord();
  if (!color) return std::nullopt;
  ColorRecord::Fields colorFields = color->read();
  stampSessionEnd(colorFields, currentTimeText());
  // The record pushes are counted in now, as sendLogs would take it.
  std::shared_ptr<ApplicationRecord> application;
  if (ApplicationUsageCounters* commander = parentCommander.load())
    application = commander->tempApplicationRecord();
  if (!application) application = applicationRecord();
  ApplicationRecord::Fields applicationFields =
      application ? application->read() : ApplicationRecord::Fields{};
  shareSession(applicationFields, colorFields);
  closeLists(colorFields);
  PendingReport report;
  report.colors = colorFields.counter_device + colorFields.counter_screen;
  report.colorBody = toJson(colorFields);
  report.applicationBody = toJson(applicationFields);
  return report;
}

void API_Logger::startNewColorRecord() {
  const ColorRecord::Fields old = requireColorRecord()->read();
  auto fresh = std::make_shared<ColorRecord>();
  fresh->update([&](ColorRecord::Fields& f) {
    f.vender = old.vender;
    f.app = old.app;
    f.version = old.version;
  });
  setColorRecord(fresh);
  fresh->update([](ColorRecord::Fields& f) { f.session_begin = currentTimeText(); });
}

}  // namespace tw
