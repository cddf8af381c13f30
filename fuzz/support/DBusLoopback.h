#pragma once

#include <dbus/dbus.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QList>
#include <QObject>
#include <QString>
#include <functional>
#include <optional>

class QDBusServer;

namespace tw::testing {

// Real D-Bus messages inside one process: a QDBusServer on a private socket and
// a plain libdbus client connected to it. Whatever the client builds with
// libdbus crosses the socket as wire bytes and comes out of QtDBus's own
// demarshalling, exactly as a message from BlueZ would (signals through signal
// hooks, replies through a pending call). Needs a QCoreApplication; main thread
// only. Make it once, with new, and keep it to the end of the process: QtDBus's
// own thread may still refer to it while a connection closes.
class DBusLoopback : public QObject {
  Q_OBJECT
 public:
  // The signals the Qt side listens to, on any path, besides its own sentinel.
  struct SignalName {
    QString interface;
    QString member;
  };
  explicit DBusLoopback(const QList<SignalName>& signalNames);
  DBusLoopback(const DBusLoopback&) = delete;
  DBusLoopback& operator=(const DBusLoopback&) = delete;

  // Both ends are connected and the Qt side's signal hooks are in place.
  bool isReady() const { return ready_; }

  // Whether D-Bus can carry `message` at all. libdbus builds some messages it
  // then refuses to read (a body signature over 255 bytes wraps its length
  // byte): a bus never delivers those, and the peer ends a connection that
  // sends one. The message itself is left as it was.
  static bool carries(DBusMessage* message);

  // Sends `signal` (a libdbus signal message, one of the names given at
  // creation) from the client and returns it as the Qt side received it;
  // nothing when QtDBus dropped it. Stops the process when the loop hangs.
  std::optional<QDBusMessage> deliverSignal(DBusMessage* signal);

  // The Qt side calls a method on the client; `answer` turns that call into
  // the reply (a method return or an error, made with libdbus); returns the
  // reply as the Qt side received it. Stops the process when the loop hangs.
  QDBusMessage deliverReply(const std::function<DBusMessage*(DBusMessage* call)>& answer);

 private Q_SLOTS:
  void onSignal(const QDBusMessage& message);

 private:
  void sendSentinel();
  bool waitForSentinel(int timeoutMs);

  QDBusServer* server_ = nullptr;
  std::optional<QDBusConnection> peer_;
  DBusConnection* client_ = nullptr;
  QList<SignalName> signalNames_;
  QList<QDBusMessage> received_;
  quint64 sentinelsSent_ = 0;
  quint64 sentinelsSeen_ = 0;
  bool ready_ = false;
};

}  // namespace tw::testing
