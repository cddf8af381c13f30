#pragma once

// The fake BlueZ (tests/pen/fake_bluez) as a child process on a private
// system bus, driven through its control interface.

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QProcess>
#include <QProcessEnvironment>
#include <QUuid>
#include <memory>

#include "tests/support/ChildProcess.h"
#include "tests/support/PrivateBus.h"

namespace tw::testing {

// Started with the bus address; ready() once it has taken its name.
class FakeBluez {
 public:
  explicit FakeBluez(const QString& busAddress, const QStringList& args = {})
      : name_(QStringLiteral("control-") + QUuid::createUuid().toString(QUuid::Id128)),
        bus_(QDBusConnection::connectToBus(busAddress, name_)) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), busAddress);
    process_.setProcessEnvironment(env);
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    endWithParent(process_);
    process_.start(QStringLiteral(FAKE_BLUEZ_BIN), args);
    process_.waitForReadyRead(10000);
    ready_ = process_.readLine().trimmed() == "ready";
  }
  ~FakeBluez() {
    call(QStringLiteral("Quit"));
    if (!process_.waitForFinished(3000)) process_.kill();
    process_.waitForFinished(3000);
    QDBusConnection::disconnectFromBus(name_);
  }
  bool ready() const { return ready_; }

  QDBusMessage call(const QString& method, const QVariantList& args = {}) {
    QDBusMessage m = QDBusMessage::createMethodCall(
        QStringLiteral("org.tintwell.FakeBluez"), QStringLiteral("/org/tintwell/FakeBluez"),
        QStringLiteral("org.tintwell.FakeBluez1"), method);
    m.setArguments(args);
    return bus_.call(m, QDBus::Block, 10000);
  }
  void addAdapter(const QString& name, bool powered = true) {
    call(QStringLiteral("AddAdapter"), {name, powered});
  }
  void addDevice(const QString& address, const QVariantMap& options,
                 const QString& adapter = QStringLiteral("hci0")) {
    call(QStringLiteral("AddDevice"), {adapter, address, options});
  }
  bool sendColor(const QString& address, const QByteArray& packet) {
    return call(QStringLiteral("SendColor"), {address, packet}).arguments().value(0).toBool();
  }
  QStringList calls() { return call(QStringLiteral("Calls")).arguments().value(0).toStringList(); }
  // When each of calls() came, in milliseconds of a monotonic clock.
  QList<qint64> callTimes() {
    QList<qint64> times;
    for (const QString& t : call(QStringLiteral("CallTimes")).arguments().value(0).toStringList())
      times << t.toLongLong();
    return times;
  }
  void clearCalls() { call(QStringLiteral("ClearCalls")); }

 private:
  QString name_;
  QDBusConnection bus_;
  QProcess process_;
  bool ready_ = false;
};

}  // namespace tw::testing
