#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <QVariantMap>

#include "pen/bluez/BluezProperties.h"

namespace tw::pen::bluez {

extern const QString kAdapter1;
extern const QString kDevice1;
extern const QString kGattService1;
extern const QString kGattCharacteristic1;
extern const QString kBattery1;

// The identifier of a device address ("AA:BB:CC:DD:EE:01"):
// 00000000-0000-0000-0000- and the twelve digits, upper case. Null when the
// text is not an address.
QUuid identifierForAddress(const QString& address);

// BlueZ's object tree as BlueZ last reported it: adapters, devices, GATT
// services and characteristics, and batteries, kept current from the object
// manager's answers and signals. No bus here: the backend feeds it what
// arrives, and asks it what the central needs to know. Not thread-safe by
// itself; the backend guards it.
class ObjectMirror {
 public:
  // GetManagedObjects answered. A malformed answer (nothing) leaves BlueZ
  // counted as absent.
  void load(std::optional<ObjectTree> tree);
  // BlueZ left the bus: absent, nothing mirrored. Returns the paths it held.
  QStringList vanish();
  // InterfacesAdded. Ignored while BlueZ is absent (the next load brings it).
  // True when the central's state may have changed: an adapter came, or the
  // adapter in use is another one.
  bool add(const QString& path, const Interfaces& interfaces);
  // InterfacesRemoved; true as for add. An object left without interfaces is
  // forgotten.
  bool remove(const QString& path, const QStringList& interfaces);
  // PropertiesChanged. False (and nothing kept) when the object does not
  // have that interface.
  bool change(const QString& path, const QString& interface, const QVariantMap& changed,
              const QStringList& invalidated);

  bool present() const { return present_; }
  // Some interface of the object is mirrored.
  bool holds(const QString& path) const { return objects_.contains(path); }
  // The adapter in use: the first (lowest path) that has Adapter1; empty when none.
  QString adapterPath() const;
  // CentralManager's state code: unsupported without BlueZ or an adapter,
  // then the adapter's Powered.
  int stateCode() const;
  // Devices of the adapter in use, in path order.
  QStringList devicePaths() const;
  bool isDevice(const QString& path) const;
  bool has(const QString& path, const QString& interface) const;
  QVariantMap properties(const QString& path, const QString& interface) const;
  QVariantMap device(const QString& path) const { return properties(path, kDevice1); }
  QUuid identifierOf(const QString& devicePath) const;
  // The device's UUIDs property holds one of `services`.
  bool offersAny(const QString& devicePath, const QList<QUuid>& services) const;

  // A GATT object below a device or a service: its path and its UUID (null
  // when BlueZ gave none that reads as a UUID).
  struct Child {
    QString path;
    QUuid uuid;
    bool operator==(const Child&) const = default;
  };
  // GattService1 objects directly below the device, in path order.
  QList<Child> servicesOf(const QString& devicePath) const;
  // GattCharacteristic1 objects directly below the service, in path order.
  QList<Child> characteristicsOf(const QString& servicePath) const;

  // Among servicesOf: a Battery Service (0x180F).
  bool hasExportedBattery(const QString& devicePath) const;
  // The device has Battery1 but exports no Battery Service: the backend
  // presents one in its place.
  bool presentsBattery(const QString& devicePath) const;
  // The device lists 0x180F in UUIDs while neither Battery1 nor the exported
  // service is there yet: BlueZ may still add Battery1.
  bool batteryAnnouncedButMissing(const QString& devicePath) const;

 private:
  bool present_ = false;
  ObjectTree objects_;  // in path order
};

}  // namespace tw::pen::bluez
