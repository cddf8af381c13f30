#include "pen/bluez/BluezInterfaces.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QObject>
#include <limits>

#include "pen/bluez/ObjectMirror.h"

namespace tw::pen::bluez {

const QString kBluezService = QStringLiteral("org.bluez");
const QString kObjectManagerInterface = QStringLiteral("org.freedesktop.DBus.ObjectManager");
const QString kPropertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

void BluezObject::call(const QString& interface, const QString& method, const QVariantList& args,
                       std::function<void(const QDBusMessage&)> done, int timeout) const {
  QDBusMessage message = QDBusMessage::createMethodCall(kBluezService, path_, interface, method);
  message.setArguments(args);
  auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(message, timeout), context_);
  QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context_,
                   [done = std::move(done)](QDBusPendingCallWatcher* w) {
                     w->deleteLater();
                     if (done) done(w->reply());
                   });
}

ObjectManager::ObjectManager(QDBusConnection& bus, QObject* context)
    : BluezObject(bus, QStringLiteral("/"), context) {}

void ObjectManager::getManagedObjects(std::function<void(std::optional<ObjectTree>)> done) const {
  call(kObjectManagerInterface, QStringLiteral("GetManagedObjects"), {},
       [done = std::move(done)](const QDBusMessage& reply) {
         done(managedObjectsFromReply(reply));
       });
}

void Adapter1::setDiscoveryFilter(const std::optional<QList<QUuid>>& services) const {
  QVariantMap filter;
  if (services) {
    QStringList uuids;
    for (const QUuid& u : *services) uuids.append(u.toString(QUuid::WithoutBraces));
    filter.insert(QStringLiteral("UUIDs"), uuids);
  }
  filter.insert(QStringLiteral("Transport"), QStringLiteral("le"));
  call(kAdapter1, QStringLiteral("SetDiscoveryFilter"), {filter});
}

void Adapter1::startDiscovery() const { call(kAdapter1, QStringLiteral("StartDiscovery"), {}); }

void Adapter1::stopDiscovery(std::function<void()> done) const {
  call(kAdapter1, QStringLiteral("StopDiscovery"), {},
       [done = std::move(done)](const QDBusMessage&) { done(); });
}

void Device1::connect(std::function<void(bool)> done) const {
  call(
      kDevice1, QStringLiteral("Connect"), {},
      [done = std::move(done)](const QDBusMessage& reply) {
        done(reply.type() == QDBusMessage::ReplyMessage);
      },
      std::numeric_limits<int>::max());
}

void GattCharacteristic1::startNotify() const {
  call(kGattCharacteristic1, QStringLiteral("StartNotify"), {});
}

void GattCharacteristic1::readValue(std::function<void(const QByteArray&)> done) const {
  call(kGattCharacteristic1, QStringLiteral("ReadValue"), {QVariantMap()},
       [done = std::move(done)](const QDBusMessage& reply) {
         if (const std::optional<QByteArray> value = valueFromReadReply(reply)) done(*value);
       });
}

void Battery1::percentage(std::function<void(quint8)> done) const {
  call(kPropertiesInterface, QStringLiteral("Get"), {kBattery1, QStringLiteral("Percentage")},
       [done = std::move(done)](const QDBusMessage& reply) {
         if (const std::optional<quint8> level = percentageFromReply(reply)) done(*level);
       });
}

}  // namespace tw::pen::bluez
