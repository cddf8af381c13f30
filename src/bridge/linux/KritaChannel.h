#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <chrono>

namespace tw {

// How one conversation with Tintwell's plug-in inside Krita ended.
struct KritaExchange {
  enum class Status {
    // One answer line per request.
    Answered,
    // No socket file, or nobody listens on it (a Krita that was killed
    // leaves its file behind).
    NoServer,
    // The socket is there but cannot be opened (another user's, say).
    CannotConnect,
    // Fewer answers than requests when the time was up.
    TimedOut,
    // The plug-in closed the connection before answering everything.
    Closed,
    // An answer line longer than any the plug-in gives.
    TooLong,
  };

  Status status = Status::NoServer;
  // The answer lines received, without their line ends.
  QList<QByteArray> answers;
  // The socket's own words for CannotConnect.
  QString error;
};

// The socket the plug-in listens on: $XDG_RUNTIME_DIR/tintwell-krita.socket
// (Qt's runtime folder when XDG_RUNTIME_DIR is unset, as the plug-in does).
QString kritaSocketPath();

// Connects to the plug-in's socket at `socketPath`, sends each request as a
// line, and reads one answer line per request, all within `timeout`. Waits
// with poll(2), so it needs no event loop and works on any thread (a plain
// std::thread too).
KritaExchange askKrita(const QString& socketPath, const QList<QByteArray>& requests,
                       std::chrono::milliseconds timeout);

}  // namespace tw
