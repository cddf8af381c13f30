#include "pen/bluez/ObjectMirror.h"

#include <QRegularExpression>

#include "pen/BluetoothUuid.h"
#include "pen/CentralManager.h"

namespace tw::pen::bluez {

const QString kAdapter1 = QStringLiteral("org.bluez.Adapter1");
const QString kDevice1 = QStringLiteral("org.bluez.Device1");
const QString kGattService1 = QStringLiteral("org.bluez.GattService1");
const QString kGattCharacteristic1 = QStringLiteral("org.bluez.GattCharacteristic1");
const QString kBattery1 = QStringLiteral("org.bluez.Battery1");

QUuid identifierForAddress(const QString& address) {
  static const QRegularExpression form(QStringLiteral("^[0-9A-Fa-f]{2}(:[0-9A-Fa-f]{2}){5}$"));
  if (!form.match(address).hasMatch()) return {};
  QString digits = address;
  digits.remove(QLatin1Char(':'));
  return QUuid::fromString(QStringLiteral("00000000-0000-0000-0000-") + digits.toUpper());
}

void ObjectMirror::load(std::optional<ObjectTree> tree) {
  present_ = tree.has_value();
  objects_ = std::move(tree).value_or(ObjectTree());
}

QStringList ObjectMirror::vanish() {
  QStringList paths = objects_.keys();
  present_ = false;
  objects_.clear();
  return paths;
}

bool ObjectMirror::add(const QString& path, const Interfaces& interfaces) {
  if (!present_) return false;
  const QString adapterBefore = adapterPath();
  Interfaces& entry = objects_[path];
  for (auto it = interfaces.constBegin(); it != interfaces.constEnd(); ++it)
    entry.insert(it.key(), it.value());
  return interfaces.contains(kAdapter1) || adapterPath() != adapterBefore;
}

bool ObjectMirror::remove(const QString& path, const QStringList& interfaces) {
  const auto it = objects_.find(path);
  if (it == objects_.end()) return false;
  const QString adapterBefore = adapterPath();
  for (const QString& name : interfaces) it->remove(name);
  if (it->isEmpty()) objects_.erase(it);
  return interfaces.contains(kAdapter1) || adapterPath() != adapterBefore;
}

bool ObjectMirror::change(const QString& path, const QString& interface, const QVariantMap& changed,
                          const QStringList& invalidated) {
  const auto it = objects_.find(path);
  if (it == objects_.end() || !it->contains(interface)) return false;
  QVariantMap& props = (*it)[interface];
  for (auto c = changed.constBegin(); c != changed.constEnd(); ++c)
    props.insert(c.key(), c.value());
  for (const QString& name : invalidated) props.remove(name);
  return true;
}

QString ObjectMirror::adapterPath() const {
  for (auto it = objects_.constBegin(); it != objects_.constEnd(); ++it)
    if (it->contains(kAdapter1)) return it.key();
  return {};
}

int ObjectMirror::stateCode() const {
  const QString adapter = adapterPath();
  if (!present_ || adapter.isEmpty()) return CentralManager::kUnsupported;
  return boolProp(properties(adapter, kAdapter1), QStringLiteral("Powered")).value_or(false)
             ? CentralManager::kPoweredOn
             : CentralManager::kPoweredOff;
}

QStringList ObjectMirror::devicePaths() const {
  const QString adapter = adapterPath();
  QStringList paths;
  if (adapter.isEmpty()) return paths;
  for (auto it = objects_.constBegin(); it != objects_.constEnd(); ++it)
    if (it->contains(kDevice1) && isChildOf(it.key(), adapter)) paths.append(it.key());
  return paths;
}

bool ObjectMirror::isDevice(const QString& path) const {
  const QString adapter = adapterPath();
  return !adapter.isEmpty() && has(path, kDevice1) && isChildOf(path, adapter);
}

bool ObjectMirror::has(const QString& path, const QString& interface) const {
  const auto it = objects_.constFind(path);
  return it != objects_.constEnd() && it->contains(interface);
}

QVariantMap ObjectMirror::properties(const QString& path, const QString& interface) const {
  return objects_.value(path).value(interface);
}

QUuid ObjectMirror::identifierOf(const QString& devicePath) const {
  return identifierForAddress(
      stringProp(device(devicePath), QStringLiteral("Address")).value_or(QString()));
}

bool ObjectMirror::offersAny(const QString& devicePath, const QList<QUuid>& services) const {
  for (const QString& text : stringListProp(device(devicePath), QStringLiteral("UUIDs")))
    if (services.contains(parseBluetoothUuid(text))) return true;
  return false;
}

namespace {

QList<ObjectMirror::Child> childrenWith(const ObjectTree& objects, const QString& parent,
                                        const QString& interface) {
  QList<ObjectMirror::Child> children;
  for (auto it = objects.constBegin(); it != objects.constEnd(); ++it)
    if (isChildOf(it.key(), parent) && it->contains(interface))
      children.append({it.key(), uuidOf(it->value(interface))});
  return children;
}

}  // namespace

QList<ObjectMirror::Child> ObjectMirror::servicesOf(const QString& devicePath) const {
  return childrenWith(objects_, devicePath, kGattService1);
}

QList<ObjectMirror::Child> ObjectMirror::characteristicsOf(const QString& servicePath) const {
  return childrenWith(objects_, servicePath, kGattCharacteristic1);
}

bool ObjectMirror::hasExportedBattery(const QString& devicePath) const {
  for (const Child& service : servicesOf(devicePath))
    if (service.uuid == batteryServiceUUID()) return true;
  return false;
}

bool ObjectMirror::presentsBattery(const QString& devicePath) const {
  return has(devicePath, kBattery1) && !hasExportedBattery(devicePath);
}

bool ObjectMirror::batteryAnnouncedButMissing(const QString& devicePath) const {
  const bool announced =
      stringListProp(device(devicePath), QStringLiteral("UUIDs"))
          .contains(batteryServiceUUID().toString(QUuid::WithoutBraces), Qt::CaseInsensitive);
  return announced && !hasExportedBattery(devicePath) && !has(devicePath, kBattery1);
}

}  // namespace tw::pen::bluez
