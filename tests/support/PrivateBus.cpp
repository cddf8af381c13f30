#include "tests/support/PrivateBus.h"

#include <QFile>

#include "tests/support/ChildProcess.h"

namespace tw::testing {

PrivateBus::PrivateBus(Kind kind) : kind_(kind) {
  QFile config(dir_.filePath(QStringLiteral("bus.conf")));
  if (!config.open(QIODevice::WriteOnly)) return;
  config.write(
      QStringLiteral("<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration "
                     "1.0//EN\" \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                     "<busconfig><type>%1</type><listen>unix:path=%2</listen>"
                     "<auth>EXTERNAL</auth><policy context=\"default\"><allow user=\"*\"/>"
                     "<allow own=\"*\"/><allow send_type=\"method_call\"/>"
                     "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
                     "<allow eavesdrop=\"true\"/></policy></busconfig>\n")
          .arg(kind == Kind::System ? QStringLiteral("system") : QStringLiteral("session"),
               dir_.filePath(QStringLiteral("socket")))
          .toUtf8());
  config.close();
  endWithParent(daemon_);
  daemon_.setProgram(QStringLiteral("dbus-daemon"));
  daemon_.setArguments({QStringLiteral("--config-file=") + config.fileName(),
                        QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
  daemon_.start();
  if (!daemon_.waitForReadyRead(10000)) return;
  address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
}

PrivateBus::~PrivateBus() {
  daemon_.terminate();
  if (!daemon_.waitForFinished(5000)) {
    daemon_.kill();
    daemon_.waitForFinished(5000);
  }
}

QString PrivateBus::addressVariable() const {
  return kind_ == Kind::System ? QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS")
                               : QStringLiteral("DBUS_SESSION_BUS_ADDRESS");
}

QProcessEnvironment PrivateBus::environmentWithBus(QProcessEnvironment environment) const {
  environment.insert(addressVariable(), address_);
  return environment;
}

void PrivateBus::exportAddress() const {
  qputenv(addressVariable().toUtf8().constData(), address_.toUtf8());
}

}  // namespace tw::testing
