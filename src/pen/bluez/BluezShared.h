#pragma once

#include <QHash>
#include <QString>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "pen/CentralManager.h"
#include "pen/bluez/DeviceLink.h"
#include "pen/bluez/ObjectMirror.h"

namespace tw::pen {

class Mailbox;

namespace bluez {

class BluezWorker;
class BluezPeripheral;

// Paths of the presented battery service and its level, below the device's
// path; BlueZ never uses these names.
QString presentedServicePath(const QString& devicePath);
QString presentedLevelPath(const QString& devicePath);

// The scan in force. A stop takes effect when BlueZ has answered it, so
// discoveries already on their way are still reported.
struct ScanState {
  // Absent: no scan; absent list: every device.
  std::optional<std::optional<QList<QUuid>>> filter;
  quint64 generation = 0;
  bool discoveryStarted = false;
};

// What the handles (called from any thread) and the worker (on the queue
// thread) share, all guarded by `mutex`.
struct BluezShared : std::enable_shared_from_this<BluezShared> {
  std::mutex mutex;
  Mailbox* mailbox = nullptr;     // on the queue thread; null once the central is gone
  BluezWorker* worker = nullptr;  // likewise
  ObjectMirror mirror;
  ScanState scan;
  QHash<QString, DeviceLink> links;                                         // by device path
  QHash<QString, std::optional<QByteArray>> values;                         // by path
  QHash<QString, std::optional<QList<CharacteristicPtr>>> discoveredChars;  // by service
  // One handle per path, so the same object is always the same pointer.
  QHash<QString, std::shared_ptr<BluezPeripheral>> peripherals;
  QHash<QString, ServicePtr> services;
  QHash<QString, CharacteristicPtr> characteristics;

  // The rest assume `mutex` is held.
  std::shared_ptr<BluezPeripheral> peripheralFor(const QString& path);
  ServicePtr serviceFor(const QString& path, const QUuid& uuid);
  CharacteristicPtr characteristicFor(const QString& path, const QUuid& uuid);
  // The scan in force reports this device.
  bool scanAdmits(const QString& path) const;
  // Runs `work` on the queue thread with the worker, if it is still there.
  void post(std::function<void(BluezWorker&)> work);
};

class BluezCharacteristic : public Characteristic {
 public:
  BluezCharacteristic(std::shared_ptr<BluezShared> shared, QString path, QUuid uuid)
      : shared_(std::move(shared)), path_(std::move(path)), uuid_(uuid) {}
  QUuid uuid() const override { return uuid_; }
  QString description() const override;
  std::optional<QByteArray> value() const override;
  const QString& path() const { return path_; }

 private:
  const std::shared_ptr<BluezShared> shared_;
  const QString path_;
  const QUuid uuid_;
};

class BluezService : public Service {
 public:
  BluezService(std::shared_ptr<BluezShared> shared, QString path, QUuid uuid)
      : shared_(std::move(shared)), path_(std::move(path)), uuid_(uuid) {}
  QUuid uuid() const override { return uuid_; }
  QString description() const override;
  std::optional<QList<CharacteristicPtr>> characteristics() const override;
  const QString& path() const { return path_; }

 private:
  const std::shared_ptr<BluezShared> shared_;
  const QString path_;
  const QUuid uuid_;
};

class BluezPeripheral : public Peripheral, public std::enable_shared_from_this<BluezPeripheral> {
 public:
  BluezPeripheral(std::shared_ptr<BluezShared> shared, QString path, QUuid identifier)
      : shared_(std::move(shared)), path_(std::move(path)), identifier_(identifier) {}

  std::optional<QString> name() const override;
  QUuid identifier() const override { return identifier_; }
  int state() const override;
  void setDelegate(PeripheralDelegate* delegate) override;
  void discoverServices() override;
  std::optional<QList<ServicePtr>> services() const override;
  void discoverCharacteristics(const ServicePtr& service) override;
  void setNotifyValue(bool enabled, const CharacteristicPtr& characteristic) override;
  void readValue(const CharacteristicPtr& characteristic) override;
  const QString& path() const { return path_; }

 private:
  const std::shared_ptr<BluezShared> shared_;
  const QString path_;
  const QUuid identifier_;
};

}  // namespace bluez
}  // namespace tw::pen
