#include "bridge/linux/KritaChannel.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QDeadlineTimer>
#include <QFile>
#include <QStandardPaths>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

// A plain AF_UNIX stream socket, as the plug-in's QLocalServer listens on:
// the panel then needs no network library at all (QtNetwork and the
// libraries it brings are about a millisecond of every start and 1 MiB of
// memory, for a conversation of two lines).

namespace tw {

namespace {

// The plug-in's longest answer is "tintwell-krita N"; anything far longer is
// not the plug-in talking.
constexpr qsizetype kLongestAnswer = 256;
const char kSocketName[] = "tintwell-krita.socket";
// A listener whose queue is full refuses with EAGAIN; try again this often.
constexpr std::chrono::milliseconds kBusyRetry(5);

int remainingMs(const QDeadlineTimer& deadline) {
  return static_cast<int>(std::max<qint64>(0, deadline.remainingTime()));
}

class Socket {
 public:
  Socket() : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
  ~Socket() {
    if (fd_ >= 0) ::close(fd_);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

QString errnoText(int error) { return QString::fromLocal8Bit(std::strerror(error)); }

// Waits for `events` on `fd` until the deadline; false when the time is up.
bool waitFor(int fd, short events, const QDeadlineTimer& deadline) {
  for (;;) {
    pollfd entry{fd, events, 0};
    const int ready = ::poll(&entry, 1, remainingMs(deadline));
    if (ready > 0) return true;
    if (ready == 0) return false;
    if (errno != EINTR) return true;  // the next read or write reports it
  }
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

  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const QByteArray path = QFile::encodeName(socketPath);
  if (path.isEmpty() || path.size() >= static_cast<qsizetype>(sizeof(address.sun_path))) {
    exchange.status = KritaExchange::Status::CannotConnect;
    exchange.error = QStringLiteral("the socket path is longer than a socket address holds");
    return exchange;
  }
  std::memcpy(address.sun_path, path.constData(), path.size());

  Socket socket;
  if (socket.fd() < 0) {
    exchange.status = KritaExchange::Status::CannotConnect;
    exchange.error = errnoText(errno);
    return exchange;
  }
  for (;;) {
    if (::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0)
      break;
    const int error = errno;
    if (error == EINTR) continue;
    if (error == EAGAIN && !deadline.hasExpired()) {
      std::this_thread::sleep_for(std::min<std::chrono::milliseconds>(
          kBusyRetry, std::chrono::milliseconds(remainingMs(deadline))));
      continue;
    }
    switch (error) {
      case ENOENT:
      case ECONNREFUSED:
        exchange.status = KritaExchange::Status::NoServer;
        break;
      case EAGAIN:
        exchange.status = KritaExchange::Status::TimedOut;
        break;
      default:
        exchange.status = KritaExchange::Status::CannotConnect;
        exchange.error = errnoText(error);
        break;
    }
    return exchange;
  }

  QByteArray out;
  for (const QByteArray& request : requests) out += request + '\n';
  // A plug-in that closes early shows up below, as a closed connection.
  for (qsizetype sent = 0; sent < out.size();) {
    const ssize_t n = ::send(socket.fd(), out.constData() + sent,
                             static_cast<size_t>(out.size() - sent), MSG_NOSIGNAL);
    if (n > 0) {
      sent += n;
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else if (n < 0 && errno == EAGAIN) {
      if (!waitFor(socket.fd(), POLLOUT, deadline)) break;
    } else {
      break;
    }
  }

  QByteArray in;
  bool closed = false;
  while (exchange.answers.size() < requests.size()) {
    const qsizetype end = in.indexOf('\n');
    if (end >= 0) {
      if (end > kLongestAnswer) {
        exchange.status = KritaExchange::Status::TooLong;
        return exchange;
      }
      QByteArray line = in.left(end);
      in.remove(0, end + 1);
      if (line.endsWith('\r')) line.chop(1);
      exchange.answers.push_back(line);
      continue;
    }
    if (in.size() > kLongestAnswer) {
      exchange.status = KritaExchange::Status::TooLong;
      return exchange;
    }
    if (closed) {
      exchange.status = KritaExchange::Status::Closed;
      return exchange;
    }
    char buffer[1024];
    const ssize_t n = ::recv(socket.fd(), buffer, sizeof(buffer), 0);
    if (n > 0) {
      in.append(buffer, n);
    } else if (n < 0 && errno == EAGAIN) {
      if (!waitFor(socket.fd(), POLLIN, deadline)) {
        exchange.status = KritaExchange::Status::TimedOut;
        return exchange;
      }
    } else if (n == 0 || errno != EINTR) {
      closed = true;  // the end of the stream, or reset by the peer
    }
  }
  exchange.status = KritaExchange::Status::Answered;
  return exchange;
}

}  // namespace tw
