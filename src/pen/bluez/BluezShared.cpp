#include "pen/bluez/BluezShared.h"

#include "pen/BluetoothUuid.h"
#include "pen/Mailbox.h"
#include "pen/bluez/BluezWorker.h"

namespace tw::pen::bluez {

QString presentedServicePath(const QString& devicePath) {
  return devicePath + QStringLiteral("/tintwell_battery");
}

QString presentedLevelPath(const QString& devicePath) {
  return devicePath + QStringLiteral("/tintwell_battery/level");
}

std::shared_ptr<BluezPeripheral> BluezShared::peripheralFor(const QString& path) {
  auto& handle = peripherals[path];
  if (!handle)
    handle = std::make_shared<BluezPeripheral>(shared_from_this(), path, mirror.identifierOf(path));
  return handle;
}

ServicePtr BluezShared::serviceFor(const QString& path, const QUuid& uuid) {
  auto& handle = services[path];
  if (!handle || handle->uuid() != uuid)
    handle = std::make_shared<BluezService>(shared_from_this(), path, uuid);
  return handle;
}

CharacteristicPtr BluezShared::characteristicFor(const QString& path, const QUuid& uuid) {
  auto& handle = characteristics[path];
  if (!handle || handle->uuid() != uuid)
    handle = std::make_shared<BluezCharacteristic>(shared_from_this(), path, uuid);
  return handle;
}

bool BluezShared::scanAdmits(const QString& path) const {
  if (!scan.filter || !mirror.isDevice(path)) return false;
  return !*scan.filter || mirror.offersAny(path, **scan.filter);
}

void BluezShared::post(std::function<void(BluezWorker&)> work) {
  if (mailbox == nullptr) return;
  mailbox->post([self = shared_from_this(), work = std::move(work)] {
    BluezWorker* w = nullptr;
    {
      std::lock_guard lock(self->mutex);
      w = self->worker;
    }
    if (w != nullptr) work(*w);
  });
}

QString BluezCharacteristic::description() const {
  return QStringLiteral("<Characteristic UUID = %1>").arg(shortUuidText(uuid_));
}

std::optional<QByteArray> BluezCharacteristic::value() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->values.value(path_);
}

QString BluezService::description() const {
  return QStringLiteral("<Service UUID = %1>").arg(shortUuidText(uuid_));
}

std::optional<QList<CharacteristicPtr>> BluezService::characteristics() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->discoveredChars.value(path_);
}

std::optional<QString> BluezPeripheral::name() const {
  std::lock_guard lock(shared_->mutex);
  return stringProp(shared_->mirror.device(path_), QStringLiteral("Name"));
}

int BluezPeripheral::state() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->links.value(path_).peripheralState();
}

void BluezPeripheral::setDelegate(PeripheralDelegate* delegate) {
  std::lock_guard lock(shared_->mutex);
  shared_->links[path_].setDelegate(delegate);
}

std::optional<QList<ServicePtr>> BluezPeripheral::services() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->links.value(path_).services();
}

void BluezPeripheral::discoverServices() {
  const QString path = path_;
  std::lock_guard lock(shared_->mutex);
  shared_->links[path_].wantServices();
  shared_->post([path](BluezWorker& w) { w.evaluateServices(path); });
}

void BluezPeripheral::discoverCharacteristics(const ServicePtr& service) {
  auto self = shared_from_this();
  std::lock_guard lock(shared_->mutex);
  shared_->post([self, service](BluezWorker& w) { w.discoverCharacteristics(self, service); });
}

void BluezPeripheral::setNotifyValue(bool enabled, const CharacteristicPtr& characteristic) {
  if (!enabled) return;  // the link never switches notifications off
  const QString path = std::static_pointer_cast<BluezCharacteristic>(characteristic)->path();
  std::lock_guard lock(shared_->mutex);
  shared_->post([path](BluezWorker& w) { w.startNotify(path); });
}

void BluezPeripheral::readValue(const CharacteristicPtr& characteristic) {
  auto self = shared_from_this();
  std::lock_guard lock(shared_->mutex);
  shared_->post([self, characteristic](BluezWorker& w) { w.read(self, characteristic); });
}

}  // namespace tw::pen::bluez
