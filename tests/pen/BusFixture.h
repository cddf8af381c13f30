#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QUuid>
#include <csignal>
#include <memory>

#include "common/ChildProcess.h"

namespace tw::testing {

// A private dbus-daemon that calls itself a system bus.
class PrivateBus {
 public:
  PrivateBus() {
    QFile config(dir_.filePath(QStringLiteral("bus.conf")));
    config.open(QIODevice::WriteOnly);
    config.write(QStringLiteral(
                     "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration "
                     "1.0//EN\" \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                     "<busconfig><type>system</type><listen>unix:path=%1</listen>"
                     "<auth>EXTERNAL</auth><policy context=\"default\"><allow user=\"*\"/>"
                     "<allow own=\"*\"/><allow send_type=\"method_call\"/>"
                     "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
                     "</policy></busconfig>\n")
                     .arg(dir_.filePath(QStringLiteral("socket")))
                     .toUtf8());
    config.close();
    endWithParent(daemon_);
    daemon_.setProgram(QStringLiteral("dbus-daemon"));
    daemon_.setArguments({QStringLiteral("--config-file=") + config.fileName(),
                          QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
    daemon_.start();
    daemon_.waitForReadyRead(10000);
    address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
  }
  ~PrivateBus() {
    daemon_.terminate();
    daemon_.waitForFinished(5000);
  }
  const QString& address() const { return address_; }

 private:
  QTemporaryDir dir_;
  QProcess daemon_;
  QString address_;
};

// The fake BlueZ as a child process on that bus, with its control interface.
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
  void clearCalls() { call(QStringLiteral("ClearCalls")); }

 private:
  QString name_;
  QDBusConnection bus_;
  QProcess process_;
  bool ready_ = false;
};

}  // namespace tw::testing
