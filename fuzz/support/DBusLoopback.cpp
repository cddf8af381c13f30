#include "DBusLoopback.h"

#include <QCoreApplication>
#include <QDBusPendingCallWatcher>
#include <QDBusServer>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QTimer>
#include <cstdio>
#include <cstdlib>

namespace tw::testing {

namespace {

const char kInterface[] = "org.orlo.Tintwell.Loopback";
const char kSentinel[] = "Sentinel";
const char kAsk[] = "Ask";
// Far above any single delivery; reaching it means the loop is stuck.
constexpr int kHangMs = 10000;

[[noreturn]] void hang(const char* what) {
  std::fprintf(stderr, "DBusLoopback: %s\n", what);
  std::abort();
}

}  // namespace

DBusLoopback::DBusLoopback(const QList<SignalName>& signalNames) : signalNames_(signalNames) {
  server_ = new QDBusServer(QStringLiteral("unix:tmpdir=") + QDir::tempPath(), this);
  if (!server_->isConnected()) return;
  connect(server_, &QDBusServer::newConnection, this, [this](const QDBusConnection& connection) {
    peer_ = connection;
    for (const SignalName& name : std::as_const(signalNames_))
      peer_->connect(QString(), QString(), name.interface, name.member, this,
                     SLOT(onSignal(QDBusMessage)));
    peer_->connect(QString(), QString(), QLatin1String(kInterface), QLatin1String(kSentinel), this,
                   SLOT(onSignal(QDBusMessage)));
  });

  DBusError error;
  dbus_error_init(&error);
  client_ = dbus_connection_open_private(server_->address().toUtf8().constData(), &error);
  if (client_ == nullptr) {
    std::fprintf(stderr, "DBusLoopback: %s\n", error.message);
    dbus_error_free(&error);
    return;
  }
  dbus_connection_set_exit_on_disconnect(client_, FALSE);
  // Sentinels sent before the Qt side has its hooks are dropped; keep asking.
  const QDeadlineTimer deadline(kHangMs);
  while (!deadline.hasExpired()) {
    sendSentinel();
    if (waitForSentinel(100)) {
      ready_ = true;
      break;
    }
  }
}

bool DBusLoopback::carries(DBusMessage* message) {
  // A copy is marshalled: marshalling locks a message, and a locked one could
  // no longer be given its serial when sent.
  DBusMessage* copy = dbus_message_copy(message);
  // Serial 0 is no message's: sending gives it one.
  if (copy != nullptr && dbus_message_get_serial(copy) == 0) dbus_message_set_serial(copy, 1);
  char* bytes = nullptr;
  int length = 0;
  const bool marshalled = copy != nullptr && dbus_message_marshal(copy, &bytes, &length);
  if (copy != nullptr) dbus_message_unref(copy);
  if (!marshalled) return false;
  DBusError error;
  dbus_error_init(&error);
  DBusMessage* back = dbus_message_demarshal(bytes, length, &error);
  dbus_free(bytes);
  if (back == nullptr) {
    dbus_error_free(&error);
    return false;
  }
  dbus_message_unref(back);
  return true;
}

void DBusLoopback::onSignal(const QDBusMessage& message) {
  if (message.interface() == QLatin1String(kInterface) &&
      message.member() == QLatin1String(kSentinel) && message.path() == QLatin1String("/")) {
    sentinelsSeen_ = message.arguments().value(0).toULongLong();
    return;
  }
  received_.append(message);
}

void DBusLoopback::sendSentinel() {
  DBusMessage* sentinel = dbus_message_new_signal("/", kInterface, kSentinel);
  const dbus_uint64_t number = ++sentinelsSent_;
  dbus_message_append_args(sentinel, DBUS_TYPE_UINT64, &number, DBUS_TYPE_INVALID);
  dbus_connection_send(client_, sentinel, nullptr);
  dbus_connection_flush(client_);
  dbus_message_unref(sentinel);
}

bool DBusLoopback::waitForSentinel(int timeoutMs) {
  // The timer wakes the wait below when nothing else arrives.
  QTimer timer;
  timer.setSingleShot(true);
  timer.start(timeoutMs);
  while (sentinelsSeen_ != sentinelsSent_ && timer.isActive())
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  return sentinelsSeen_ == sentinelsSent_;
}

std::optional<QDBusMessage> DBusLoopback::deliverSignal(DBusMessage* signal) {
  received_.clear();
  dbus_connection_send(client_, signal, nullptr);
  sendSentinel();
  if (!waitForSentinel(kHangMs)) {
    std::fprintf(stderr, "DBusLoopback: peer connected %d, client connected %d\n",
                 int(peer_ && peer_->isConnected()),
                 int(dbus_connection_get_is_connected(client_)));
    hang("no sentinel after a signal");
  }
  if (received_.isEmpty()) return std::nullopt;
  if (received_.size() > 1) hang("one signal sent, several received");
  return received_.takeFirst();
}

QDBusMessage DBusLoopback::deliverReply(
    const std::function<DBusMessage*(DBusMessage* call)>& answer) {
  const QDBusMessage ask = QDBusMessage::createMethodCall(
      QString(), QStringLiteral("/"), QLatin1String(kInterface), QLatin1String(kAsk));
  QDBusPendingCallWatcher watcher(peer_->asyncCall(ask, kHangMs));

  const QDeadlineTimer deadline(kHangMs);
  DBusMessage* call = nullptr;
  while (call == nullptr) {
    if (deadline.hasExpired()) {
      // Say what the Qt side knows: a call it failed to send ends at once.
      std::fprintf(stderr, "DBusLoopback: peer connected %d, call finished %d, error %s\n",
                   int(peer_->isConnected()), int(watcher.isFinished()),
                   qPrintable(watcher.error().message()));
      hang("the call never reached the client");
    }
    dbus_connection_read_write(client_, 1);
    call = dbus_connection_pop_message(client_);
    if (call != nullptr && !dbus_message_is_method_call(call, kInterface, kAsk)) {
      dbus_message_unref(call);
      call = nullptr;
    }
    QCoreApplication::processEvents();
  }
  DBusMessage* reply = answer(call);
  dbus_connection_send(client_, reply, nullptr);
  dbus_connection_flush(client_);
  dbus_message_unref(reply);
  dbus_message_unref(call);

  QTimer timer;
  timer.setSingleShot(true);
  timer.start(kHangMs);
  while (!watcher.isFinished() && timer.isActive())
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  if (!watcher.isFinished()) hang("the reply never reached the Qt side");
  return watcher.reply();
}

}  // namespace tw::testing
