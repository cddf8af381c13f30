#include "bridge/linux/KritaHost.h"

#include "bridge/linux/KritaChannel.h"

namespace tw {

namespace {

PushOutcome outcome(PushStatus status, QString reason = {}) {
  return PushOutcome{status, std::move(reason)};
}

// A failed conversation as the user reads it after "Krita: ".
PushOutcome notAnswered(const KritaExchange& exchange, std::chrono::milliseconds timeout) {
  switch (exchange.status) {
    case KritaExchange::Status::NoServer:
      return outcome(PushStatus::NotRunning,
                     QStringLiteral("plug-in not answering (restart Krita after the install)"));
    case KritaExchange::Status::CannotConnect:
      return outcome(PushStatus::Failed,
                     QStringLiteral("cannot reach the plug-in: %1").arg(exchange.error));
    case KritaExchange::Status::TimedOut:
      return outcome(PushStatus::Failed,
                     QStringLiteral("no answer within %1 ms").arg(timeout.count()));
    case KritaExchange::Status::Closed:
      return outcome(PushStatus::Failed, QStringLiteral("plug-in closed the connection"));
    case KritaExchange::Status::TooLong:
    case KritaExchange::Status::Answered:
      break;
  }
  return outcome(PushStatus::Failed, QStringLiteral("unexpected answer"));
}

}  // namespace

KritaHost::KritaHost() : installer_(KritaPluginInstaller()) {}

KritaHost::KritaHost(QString socketPath, KritaPluginInstaller installer)
    : socketPath_(std::move(socketPath)), installer_(std::move(installer)) {}

const QString& KritaHost::socketPath() const {
  if (!socketPath_) socketPath_ = kritaSocketPath();
  return *socketPath_;
}

bool KritaHost::isHostProcess(const RunningApplication& application) const {
  return application.localizedName == QStringLiteral("krita");
}

std::optional<QString> KritaHost::preparationNotice() {
  if (installer_.isCurrent()) return std::nullopt;
  return installer_.notice();
}

std::optional<QString> KritaHost::prepare() {
  if (installer_.isCurrent()) return std::nullopt;
  if (const std::optional<QString> failed = installer_.install()) {
    return QStringLiteral("the plug-in could not be installed: ") + *failed;
  }
  return std::nullopt;
}

std::optional<QString> KritaHost::installWithNotice() {
  const std::optional<QString> notice = preparationNotice();
  if (!notice) return std::nullopt;
  QString text = *notice;
  if (const std::optional<QString> failed = installer_.install()) {
    text += QStringLiteral("\nThe plug-in could not be installed: ") + *failed;
  }
  return text;
}

PushOutcome KritaHost::push(const HostColor& color, std::chrono::milliseconds timeout) {
  // "ok" says the plug-in handed the colour to the view; the "get" in the same
  // conversation says what Krita then reports, which is what Confirmed
  // promises (a view in another colour space may not hold it exactly).
  const QByteArray hex = color.hex().toLatin1();
  const KritaExchange exchange =
      askKrita(socketPath(), {QByteArrayLiteral("set ") + hex, QByteArrayLiteral("get")}, timeout);
  if (exchange.status != KritaExchange::Status::Answered) return notAnswered(exchange, timeout);
  const QByteArray& set = exchange.answers.at(0);
  const QByteArray& get = exchange.answers.at(1);
  if (set == "queued") {
    return outcome(PushStatus::Queued,
                   QStringLiteral("no document open; the colour waits for one"));
  }
  if (set != "ok") return outcome(PushStatus::Failed, QStringLiteral("unexpected answer"));
  const std::optional<HostColor> shown = HostColor::fromHex(QString::fromLatin1(get));
  if (!shown || !get.startsWith('#')) {
    return outcome(PushStatus::Failed, QStringLiteral("unexpected answer"));
  }
  if (*shown != color) {
    return outcome(PushStatus::Failed, QStringLiteral("Krita reports %1").arg(shown->hex()));
  }
  return outcome(PushStatus::Confirmed);
}

std::optional<HostColor> KritaHost::readBack(std::chrono::milliseconds timeout) {
  const KritaExchange exchange = askKrita(socketPath(), {QByteArrayLiteral("get")}, timeout);
  if (exchange.status != KritaExchange::Status::Answered) return std::nullopt;
  const QByteArray& get = exchange.answers.at(0);
  if (!get.startsWith('#')) return std::nullopt;
  return HostColor::fromHex(QString::fromLatin1(get));
}

}  // namespace tw
