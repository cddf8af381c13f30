#pragma once

#include <QList>
#include <optional>

#include "pen/CentralManager.h"

namespace tw::pen::bluez {

// This central's link to one device, apart from what BlueZ says of it:
// connect requests out, whether the connection was reported, and the service
// discovery the link asked for. BlueZ's own Connected is only an input: a
// device the system connected is not connected for the pen link until this
// central asked and was told so.
class DeviceLink {
 public:
  // Peripheral's state code, as this central sees it.
  int peripheralState() const;

  void connectRequested() { ++connectsOut_; }
  // Device1.Connect answered. True when the answer itself makes the link
  // connected: the request succeeded on a device the system had connected
  // already, which sends no change of Connected.
  bool connectAnswered(bool succeeded, bool deviceConnected);

  enum class Report { None, Connected, Disconnected };
  // Device1.Connected changed. Connected counts only while a request is out.
  Report connectedChanged(bool connected);
  // The device or BlueZ went, or the link went down: forgets the pending
  // service discovery. True when this central had reported the link connected
  // (so a disconnection is due).
  bool drop();

  void wantServices() { wantServices_ = true; }
  // A service report is due once the link is connected.
  bool servicesWanted() const { return wantServices_ && reportedConnected_; }
  // The one-second wait for an announced Battery1 is over.
  void batteryWaitOver() { batteryWaitExpired_ = true; }
  bool mayWaitForBattery() const { return !batteryWaitExpired_; }
  void servicesFound(QList<ServicePtr> services);
  const std::optional<QList<ServicePtr>>& services() const { return services_; }

  PeripheralDelegate* delegate() const { return delegate_; }
  void setDelegate(PeripheralDelegate* delegate) { delegate_ = delegate; }

 private:
  int connectsOut_ = 0;
  bool reportedConnected_ = false;
  bool wantServices_ = false;
  bool batteryWaitExpired_ = false;
  std::optional<QList<ServicePtr>> services_;
  PeripheralDelegate* delegate_ = nullptr;
};

}  // namespace tw::pen::bluez
