#include "bridge/linux/KritaChannel.h"

#include <QDeadlineTimer>
#include <QLocalSocket>
#include <QStandardPaths>

namespace tw {

namespace {

// The plug-in's longest answer is "tintwell-krita N"; anything far longer is
// not the plug-in talking.
constexpr qsizetype kLongestAnswer = 256;
const char kSocketName[] = "tintwell-krita.socket";

int remainingMs(const QDeadlineTimer& deadline) {
  return static_cast<int>(std::max<qint64>(0, deadline.remainingTime()));
}

}  // namespace

QString kritaSocketPath() {
  QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
  if (folder.isEmpty()) {
    folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
  }
  return folder + QLatin1Char('/') + QLatin1String(kSocketName);
}

KritaExchange askKrita(const QString& socketPath, const QList<QByteArray>& requests,
                       std::chrono::milliseconds timeout) {
  KritaExchange exchange;
  const QDeadlineTimer deadline(timeout);
  QLocalSocket socket;
  socket.connectToServer(socketPath);
  if (!socket.waitForConnected(remainingMs(deadline))) {
    switch (socket.error()) {
      case QLocalSocket::ServerNotFoundError:
      case QLocalSocket::ConnectionRefusedError:
        exchange.status = KritaExchange::Status::NoServer;
        break;
      case QLocalSocket::SocketTimeoutError:
        exchange.status = KritaExchange::Status::TimedOut;
        break;
      default:
        exchange.status = KritaExchange::Status::CannotConnect;
        exchange.error = socket.errorString();
        break;
    }
    return exchange;
  }

  QByteArray out;
  for (const QByteArray& request : requests) out += request + '\n';
  socket.write(out);
  while (socket.bytesToWrite() > 0) {
    if (!socket.waitForBytesWritten(remainingMs(deadline))) break;
  }

  while (exchange.answers.size() < requests.size()) {
    if (socket.canReadLine()) {
      QByteArray line = socket.readLine(kLongestAnswer + 2);
      if (!line.endsWith('\n')) {
        exchange.status = KritaExchange::Status::TooLong;
        socket.abort();
        return exchange;
      }
      line.chop(line.endsWith("\r\n") ? 2 : 1);
      exchange.answers.push_back(line);
      continue;
    }
    if (socket.bytesAvailable() > kLongestAnswer) {
      exchange.status = KritaExchange::Status::TooLong;
      socket.abort();
      return exchange;
    }
    if (socket.state() != QLocalSocket::ConnectedState) {
      exchange.status = KritaExchange::Status::Closed;
      return exchange;
    }
    if (!socket.waitForReadyRead(remainingMs(deadline))) {
      exchange.status = socket.state() == QLocalSocket::ConnectedState
                            ? KritaExchange::Status::TimedOut
                            : KritaExchange::Status::Closed;
      socket.abort();
      return exchange;
    }
  }
  exchange.status = KritaExchange::Status::Answered;
  socket.abort();
  return exchange;
}

}  // namespace tw
