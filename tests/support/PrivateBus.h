#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

namespace tw::testing {

// A dbus-daemon of the test's own, on a socket in a private folder, that lets
// every local client own any name and call anything. Configured as a system
// bus (what the pen link and the fake BlueZ use, through
// DBUS_SYSTEM_BUS_ADDRESS) or as a session bus (the desktop portal, the design
// applications, through DBUS_SESSION_BUS_ADDRESS). It ends with the test.
class PrivateBus {
 public:
  enum class Kind { System, Session };

  explicit PrivateBus(Kind kind = Kind::System);
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  // The daemon's address; empty when it did not start.
  const QString& address() const { return address_; }
  Kind kind() const { return kind_; }
  // The variable a client reads this bus's address from.
  QString addressVariable() const;
  // `environment` with this bus's address variable set.
  QProcessEnvironment environmentWithBus(
      QProcessEnvironment environment = QProcessEnvironment::systemEnvironment()) const;
  // Sets this bus's address variable in the test process itself.
  void exportAddress() const;

 private:
  Kind kind_;
  QTemporaryDir dir_;
  QProcess daemon_;
  QString address_;
};

}  // namespace tw::testing
