#pragma once

#include <memory>

#include "pen/CentralManager.h"

namespace tw::pen {

namespace bluez {
struct BluezShared;
class BluezWorker;
}  // namespace bluez

// The central over BlueZ (org.bluez) on the D-Bus system bus. The object tree of
// org.bluez is mirrored from GetManagedObjects and kept current from the
// ObjectManager and Properties signals, so queries answer from the mirror and
// every bus call is asynchronous; all bus traffic happens on the queue thread.
// The pieces: ObjectMirror (the tree, no bus), DeviceLink (this central's link
// to one device), BluezInterfaces (one thin wrapper per BlueZ interface),
// BluezShared (the handles and what they share with the worker) and
// BluezWorker (the queue thread's side).
//
// Mapping:
// - State: no org.bluez or no adapter: unsupported; first adapter (lowest
//   path) Powered false: powered off; true: powered on. BlueZ or an adapter
//   coming or going, or a change of Powered, is a new report.
// - Identifier: 00000000-0000-0000-0000- and the device address's twelve
//   hexadecimal digits, upper case.
// - Scan: SetDiscoveryFilter (UUIDs when given, Transport "le"), StartDiscovery;
//   discoveries are Device1 objects added, or updated in an advertisement
//   property, while the scan runs. stopScan sends StopDiscovery when a scan runs;
//   discoveries already on their way count until BlueZ has answered the stop.
// - Connect: Device1.Connect with no reply time-out; connected when Connected
//   turns true while the request is out, or at once when the request succeeds
//   on a device that was connected already.
// - Services: once ServicesResolved is true, the GattService1 children in path
//   order. A device with Battery1 and no exported service 0x180F gets a
//   presented Battery Service with Battery Level 0x2A19 whose reads come from
//   Battery1.Percentage. Battery1 may appear after ServicesResolved: while the
//   device lists 0x180F in UUIDs and neither is there yet, the service report
//   waits for Battery1 (at most one second).
// - BlueZ leaving the bus, or the device object going, ends this central's
//   connection to it: reported as a disconnection.
// - Malformed replies and signals (unexpected signatures or property types) are
//   ignored, never trusted.
class BluezCentral : public CentralManager {
 public:
  BluezCentral(CentralDelegate* delegate, QThread* queue);
  ~BluezCentral() override;

  int state() const override;
  QList<PeripheralPtr> retrievePeripheralsWithIdentifiers(const QList<QUuid>& identifiers) override;
  QList<PeripheralPtr> retrieveConnectedPeripheralsWithServices(
      const QList<QUuid>& services) override;
  void scanForPeripheralsWithServices(const std::optional<QList<QUuid>>& services) override;
  void stopScan() override;
  void connectPeripheral(const PeripheralPtr& peripheral) override;

  // The identifier of a device address ("AA:BB:CC:DD:EE:01"); null when the
  // text is not an address.
  static QUuid identifierForAddress(const QString& address);

 private:
  std::shared_ptr<bluez::BluezShared> shared_;
  bluez::BluezWorker* worker_;
};

}  // namespace tw::pen
