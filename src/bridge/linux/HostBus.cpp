#include "bridge/linux/HostBus.h"

#include <QDBusError>
#include <QDir>
#include <algorithm>

namespace tw {

QDBusMessage callWithin(const QDBusConnection& bus, const QDBusMessage& call,
                        std::chrono::steady_clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  const int ms = static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 1));
  return bus.call(call, QDBus::Block, ms);
}

std::unique_ptr<QTemporaryDir> privateFolder(const QString& prefix) {
  const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
  const QString base = runtime.isEmpty() ? QDir::tempPath() : runtime;
  return std::make_unique<QTemporaryDir>(base + QLatin1Char('/') + prefix +
                                         QStringLiteral("-XXXXXX"));
}

QString noAnswerReason(std::chrono::milliseconds timeout) {
  return QStringLiteral("no answer within %1 ms").arg(timeout.count());
}

std::optional<PushOutcome> callFailure(const QDBusMessage& reply,
                                       std::chrono::milliseconds timeout) {
  if (reply.type() == QDBusMessage::ReplyMessage) return std::nullopt;
  if (reply.type() != QDBusMessage::ErrorMessage) {
    return PushOutcome{PushStatus::Failed, QStringLiteral("unexpected answer on the bus")};
  }
  const QDBusError::ErrorType type = QDBusError(reply).type();
  if (type == QDBusError::ServiceUnknown ||
      reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner")) {
    return PushOutcome{PushStatus::NotRunning, QStringLiteral("not running on this session bus")};
  }
  if (type == QDBusError::NoReply || type == QDBusError::Timeout || type == QDBusError::TimedOut) {
    return PushOutcome{PushStatus::Failed, noAnswerReason(timeout)};
  }
  if (type == QDBusError::Disconnected) {
    return PushOutcome{PushStatus::Failed, QStringLiteral("no session bus")};
  }
  const QString message = reply.errorMessage().isEmpty() ? reply.errorName() : reply.errorMessage();
  return PushOutcome{PushStatus::Failed, QStringLiteral("error from the application: ") + message};
}

}  // namespace tw
