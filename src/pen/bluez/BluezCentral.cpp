#include "pen/bluez/BluezCentral.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QHash>
#include <QMap>
#include <QRegularExpression>
#include <QThread>
#include <QTimer>
#include <limits>

#include "pen/BluetoothUuid.h"
#include "pen/Mailbox.h"
#include "pen/bluez/BluezProperties.h"

namespace tw::pen {

namespace {

const QString kBluez = QStringLiteral("org.bluez");
const QString kObjectManager = QStringLiteral("org.freedesktop.DBus.ObjectManager");
const QString kProperties = QStringLiteral("org.freedesktop.DBus.Properties");
const QString kAdapter = QStringLiteral("org.bluez.Adapter1");
const QString kDevice = QStringLiteral("org.bluez.Device1");
const QString kGattService = QStringLiteral("org.bluez.GattService1");
const QString kGattChar = QStringLiteral("org.bluez.GattCharacteristic1");
const QString kBattery = QStringLiteral("org.bluez.Battery1");
// Paths of the presented battery service, below the device's path; BlueZ never
// uses these names.
const QString kPresentedService = QStringLiteral("/tintwell_battery");
const QString kPresentedChar = QStringLiteral("/tintwell_battery/level");
// How long a service report waits for a Battery1 that the device announced.
constexpr int kBatteryWaitMs = 1000;

using bluez::boolProp;
using bluez::bytesProp;
using bluez::Interfaces;
using bluez::isChildOf;
using bluez::stringListProp;
using bluez::stringProp;
using bluez::uuidOf;

}  // namespace

class BluezPeripheral;

// Everything the handles and the worker share, guarded by `mutex`.
struct BluezShared {
  struct Link {
    int connectsOut = 0;
    bool reportedConnected = false;
    bool wantServices = false;
    bool batteryWaitExpired = false;
    std::optional<QList<ServicePtr>> services;
    PeripheralDelegate* delegate = nullptr;
  };

  std::mutex mutex;
  Mailbox* mailbox = nullptr;     // on the queue thread; null once the central is gone
  BluezWorker* worker = nullptr;  // likewise
  bool present = false;
  QMap<QString, Interfaces> objects;  // the mirror, in path order
  // The scan in force. A stop takes effect when BlueZ has answered it, so
  // discoveries already on their way are still reported.
  std::optional<std::optional<QList<QUuid>>> scan;
  quint64 scanGeneration = 0;
  bool discoveryStarted = false;
  QHash<QString, Link> links;
  QHash<QString, std::optional<QByteArray>> values;                         // by path
  QHash<QString, std::optional<QList<CharacteristicPtr>>> discoveredChars;  // by service
  QHash<QString, std::shared_ptr<BluezPeripheral>> peripherals;
  QHash<QString, ServicePtr> services;
  QHash<QString, CharacteristicPtr> characteristics;

  // The rest assume `mutex` is held.
  QString adapterPath() const {
    for (auto it = objects.constBegin(); it != objects.constEnd(); ++it)
      if (it->contains(kAdapter)) return it.key();
    return {};
  }
  int stateCode() const {
    const QString adapter = adapterPath();
    if (!present || adapter.isEmpty()) return CentralManager::kUnsupported;
    return boolProp(objects.value(adapter).value(kAdapter), QStringLiteral("Powered"))
                   .value_or(false)
               ? CentralManager::kPoweredOn
               : CentralManager::kPoweredOff;
  }
  QStringList devicePaths() const {
    const QString adapter = adapterPath();
    QStringList paths;
    if (adapter.isEmpty()) return paths;
    for (auto it = objects.constBegin(); it != objects.constEnd(); ++it)
      if (it->contains(kDevice) && isChildOf(it.key(), adapter)) paths.append(it.key());
    return paths;
  }
  QVariantMap device(const QString& path) const { return objects.value(path).value(kDevice); }
  bool hasExportedBattery(const QString& devicePath) const {
    for (auto it = objects.constBegin(); it != objects.constEnd(); ++it)
      if (isChildOf(it.key(), devicePath) && it->contains(kGattService) &&
          uuidOf(it->value(kGattService)) == batteryServiceUUID())
        return true;
    return false;
  }
  bool presentsBattery(const QString& devicePath) const {
    return objects.value(devicePath).contains(kBattery) && !hasExportedBattery(devicePath);
  }
  std::shared_ptr<BluezPeripheral> peripheralFor(const std::shared_ptr<BluezShared>& self,
                                                 const QString& path);
  ServicePtr serviceFor(const std::shared_ptr<BluezShared>& self, const QString& path,
                        const QUuid& uuid);
  CharacteristicPtr characteristicFor(const std::shared_ptr<BluezShared>& self, const QString& path,
                                      const QUuid& uuid);
  // Mutex held. Runs `work` on the queue thread with the worker, if it is still there.
  void post(const std::shared_ptr<BluezShared>& self, std::function<void(BluezWorker&)> work) {
    if (mailbox == nullptr) return;
    mailbox->post([self, work = std::move(work)] {
      BluezWorker* w = nullptr;
      {
        std::lock_guard lock(self->mutex);
        w = self->worker;
      }
      if (w != nullptr) work(*w);
    });
  }
};

class BluezCharacteristic : public Characteristic {
 public:
  BluezCharacteristic(std::shared_ptr<BluezShared> shared, QString path, QUuid uuid)
      : shared_(std::move(shared)), path_(std::move(path)), uuid_(uuid) {}
  QUuid uuid() const override { return uuid_; }
  QString description() const override {
    return QStringLiteral("<Characteristic UUID = %1>").arg(shortUuidText(uuid_));
  }
  std::optional<QByteArray> value() const override {
    std::lock_guard lock(shared_->mutex);
    return shared_->values.value(path_);
  }
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
  QString description() const override {
    return QStringLiteral("<Service UUID = %1>").arg(shortUuidText(uuid_));
  }
  std::optional<QList<CharacteristicPtr>> characteristics() const override {
    std::lock_guard lock(shared_->mutex);
    return shared_->discoveredChars.value(path_);
  }
  const QString& path() const { return path_; }

 private:
  const std::shared_ptr<BluezShared> shared_;
  const QString path_;
  const QUuid uuid_;
};

class BluezWorker;

class BluezPeripheral : public Peripheral, public std::enable_shared_from_this<BluezPeripheral> {
 public:
  BluezPeripheral(std::shared_ptr<BluezShared> shared, QString path, QUuid identifier)
      : shared_(std::move(shared)), path_(std::move(path)), identifier_(identifier) {}

  std::optional<QString> name() const override {
    std::lock_guard lock(shared_->mutex);
    return stringProp(shared_->device(path_), QStringLiteral("Name"));
  }
  QUuid identifier() const override { return identifier_; }
  int state() const override {
    std::lock_guard lock(shared_->mutex);
    const BluezShared::Link link = shared_->links.value(path_);
    if (link.reportedConnected) return kConnected;
    if (link.connectsOut > 0) return kConnecting;
    return kDisconnected;
  }
  void setDelegate(PeripheralDelegate* delegate) override {
    std::lock_guard lock(shared_->mutex);
    shared_->links[path_].delegate = delegate;
  }
  void discoverServices() override;
  std::optional<QList<ServicePtr>> services() const override {
    std::lock_guard lock(shared_->mutex);
    return shared_->links.value(path_).services;
  }
  void discoverCharacteristics(const ServicePtr& service) override;
  void setNotifyValue(bool enabled, const CharacteristicPtr& characteristic) override;
  void readValue(const CharacteristicPtr& characteristic) override;
  const QString& path() const { return path_; }

 private:
  const std::shared_ptr<BluezShared> shared_;
  const QString path_;
  const QUuid identifier_;
};

std::shared_ptr<BluezPeripheral> BluezShared::peripheralFor(
    const std::shared_ptr<BluezShared>& self, const QString& path) {
  auto& handle = peripherals[path];
  if (!handle) {
    const std::optional<QString> address = stringProp(device(path), QStringLiteral("Address"));
    handle = std::make_shared<BluezPeripheral>(
        self, path, BluezCentral::identifierForAddress(address.value_or(QString())));
  }
  return handle;
}

ServicePtr BluezShared::serviceFor(const std::shared_ptr<BluezShared>& self, const QString& path,
                                   const QUuid& uuid) {
  auto& handle = services[path];
  if (!handle || handle->uuid() != uuid) handle = std::make_shared<BluezService>(self, path, uuid);
  return handle;
}

CharacteristicPtr BluezShared::characteristicFor(const std::shared_ptr<BluezShared>& self,
                                                 const QString& path, const QUuid& uuid) {
  auto& handle = characteristics[path];
  if (!handle || handle->uuid() != uuid)
    handle = std::make_shared<BluezCharacteristic>(self, path, uuid);
  return handle;
}

// Lives on the queue thread and does all bus traffic there.
class BluezWorker : public QObject {
  Q_OBJECT
 public:
  BluezWorker(std::shared_ptr<BluezShared> shared, CentralDelegate* delegate,
              CentralManager* central)
      : shared_(std::move(shared)), delegate_(delegate), central_(central) {}

  void start() {
    bus_ = std::make_unique<QDBusConnection>(QDBusConnection::systemBus());
    if (!bus_->isConnected()) {
      reportState();
      return;
    }
    watcher_ =
        new QDBusServiceWatcher(kBluez, *bus_, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& newOwner) {
              if (newOwner.isEmpty())
                onVanished();
              else
                loadObjects();
            });
    bus_->connect(kBluez, QStringLiteral("/"), kObjectManager, QStringLiteral("InterfacesAdded"),
                  this, SLOT(onInterfacesAdded(QDBusMessage)));
    bus_->connect(kBluez, QStringLiteral("/"), kObjectManager, QStringLiteral("InterfacesRemoved"),
                  this, SLOT(onInterfacesRemoved(QDBusMessage)));
    bus_->connect(kBluez, QString(), kProperties, QStringLiteral("PropertiesChanged"), this,
                  SLOT(onPropertiesChanged(QDBusMessage)));
    loadObjects();
  }

  // Operations, on the queue thread.
  void scan(const std::optional<QList<QUuid>>& services) {
    QString adapter;
    {
      std::lock_guard lock(shared_->mutex);
      adapter = shared_->adapterPath();
    }
    if (adapter.isEmpty()) return;
    QVariantMap filter;
    if (services) {
      QStringList uuids;
      for (const QUuid& u : *services) uuids.append(u.toString(QUuid::WithoutBraces));
      filter.insert(QStringLiteral("UUIDs"), uuids);
    }
    filter.insert(QStringLiteral("Transport"), QStringLiteral("le"));
    call(adapter, kAdapter, QStringLiteral("SetDiscoveryFilter"), {filter});
    call(adapter, kAdapter, QStringLiteral("StartDiscovery"), {});
  }
  void stopScan(quint64 generation) {
    QString adapter;
    {
      std::lock_guard lock(shared_->mutex);
      adapter = shared_->adapterPath();
    }
    const auto stopped = [this, generation](const QDBusMessage&) {
      std::lock_guard lock(shared_->mutex);
      if (shared_->scanGeneration == generation) shared_->scan.reset();
    };
    if (adapter.isEmpty()) {
      stopped(QDBusMessage());
      return;
    }
    call(adapter, kAdapter, QStringLiteral("StopDiscovery"), {}, stopped);
  }
  void connectDevice(const std::shared_ptr<BluezPeripheral>& peripheral) {
    call(
        peripheral->path(), kDevice, QStringLiteral("Connect"), {},
        [this, peripheral](const QDBusMessage& reply) {
          bool report = false;
          {
            std::lock_guard lock(shared_->mutex);
            auto& link = shared_->links[peripheral->path()];
            link.connectsOut = std::max(0, link.connectsOut - 1);
            // A device the system had connected sends no Connected change.
            if (reply.type() == QDBusMessage::ReplyMessage && !link.reportedConnected &&
                boolProp(shared_->device(peripheral->path()), QStringLiteral("Connected"))
                    .value_or(false)) {
              link.reportedConnected = true;
              report = true;
            }
          }
          if (report) delegate_->centralManagerDidConnectPeripheral(*central_, peripheral);
        },
        std::numeric_limits<int>::max());
  }
  void evaluateServices(const QString& devicePath) {
    std::shared_ptr<BluezPeripheral> peripheral;
    PeripheralDelegate* delegate = nullptr;
    {
      std::lock_guard lock(shared_->mutex);
      const auto found = shared_->links.find(devicePath);
      if (found == shared_->links.end()) return;
      auto& link = *found;
      if (!link.wantServices || !link.reportedConnected) return;
      const QVariantMap device = shared_->device(devicePath);
      if (!boolProp(device, QStringLiteral("ServicesResolved")).value_or(false)) return;
      const bool announced =
          stringListProp(device, QStringLiteral("UUIDs"))
              .contains(batteryServiceUUID().toString(QUuid::WithoutBraces), Qt::CaseInsensitive);
      if (announced && !link.batteryWaitExpired && !shared_->hasExportedBattery(devicePath) &&
          !shared_->objects.value(devicePath).contains(kBattery)) {
        QTimer::singleShot(kBatteryWaitMs, this, [this, devicePath] {
          {
            std::lock_guard lock(shared_->mutex);
            const auto found = shared_->links.find(devicePath);
            if (found != shared_->links.end()) found->batteryWaitExpired = true;
          }
          evaluateServices(devicePath);
        });
        return;
      }
      QList<ServicePtr> list;
      for (auto it = shared_->objects.constBegin(); it != shared_->objects.constEnd(); ++it)
        if (isChildOf(it.key(), devicePath) && it->contains(kGattService))
          list.append(shared_->serviceFor(shared_, it.key(), uuidOf(it->value(kGattService))));
      if (shared_->presentsBattery(devicePath))
        list.append(
            shared_->serviceFor(shared_, devicePath + kPresentedService, batteryServiceUUID()));
      link.wantServices = false;
      link.services = list;
      delegate = link.delegate;
      peripheral = shared_->peripheralFor(shared_, devicePath);
    }
    if (delegate) delegate->peripheralDidDiscoverServices(peripheral);
  }
  void discoverCharacteristics(const std::shared_ptr<BluezPeripheral>& peripheral,
                               const ServicePtr& service) {
    const QString servicePath = std::static_pointer_cast<BluezService>(service)->path();
    PeripheralDelegate* delegate = nullptr;
    {
      std::lock_guard lock(shared_->mutex);
      QList<CharacteristicPtr> list;
      if (servicePath == peripheral->path() + kPresentedService) {
        list.append(shared_->characteristicFor(shared_, peripheral->path() + kPresentedChar,
                                               batteryLevelCharUUID()));
      } else {
        for (auto it = shared_->objects.constBegin(); it != shared_->objects.constEnd(); ++it)
          if (isChildOf(it.key(), servicePath) && it->contains(kGattChar))
            list.append(
                shared_->characteristicFor(shared_, it.key(), uuidOf(it->value(kGattChar))));
      }
      shared_->discoveredChars[servicePath] = list;
      delegate = shared_->links.value(peripheral->path()).delegate;
    }
    if (delegate) delegate->peripheralDidDiscoverCharacteristics(peripheral, service);
  }
  void startNotify(const QString& path) {
    if (!path.endsWith(kPresentedChar)) call(path, kGattChar, QStringLiteral("StartNotify"), {});
  }
  void read(const std::shared_ptr<BluezPeripheral>& peripheral,
            const CharacteristicPtr& characteristic) {
    const QString path = std::static_pointer_cast<BluezCharacteristic>(characteristic)->path();
    if (path == peripheral->path() + kPresentedChar) {
      // The presented level is refreshed from Battery1.Percentage.
      call(peripheral->path(), kProperties, QStringLiteral("Get"),
           {kBattery, QStringLiteral("Percentage")},
           [this, peripheral, characteristic](const QDBusMessage& reply) {
             const std::optional<quint8> level = bluez::percentageFromReply(reply);
             if (!level) return;
             storeAndReport(peripheral, characteristic, QByteArray(1, char(*level)));
           });
      return;
    }
    call(path, kGattChar, QStringLiteral("ReadValue"), {QVariantMap()},
         [this, peripheral, characteristic](const QDBusMessage& reply) {
           const std::optional<QByteArray> value = bluez::valueFromReadReply(reply);
           if (!value) return;
           storeAndReport(peripheral, characteristic, *value);
         });
  }

 public Q_SLOTS:
  void onInterfacesAdded(const QDBusMessage& message) {
    const std::optional<bluez::AddedInterfaces> signal = bluez::interfacesAddedFrom(message);
    if (!signal) return;
    const QString& path = signal->path;
    const Interfaces& added = signal->interfaces;
    bool stateChanged = false;
    bool discovered = false;
    {
      std::lock_guard lock(shared_->mutex);
      if (!shared_->present) return;
      const QString adapterBefore = shared_->adapterPath();
      auto& entry = shared_->objects[path];
      for (auto it = added.constBegin(); it != added.constEnd(); ++it)
        entry.insert(it.key(), it.value());
      stateChanged = added.contains(kAdapter) || shared_->adapterPath() != adapterBefore;
      discovered = added.contains(kDevice) && scanAdmits(path);
    }
    if (stateChanged) reportState();
    if (discovered) reportDiscovery(path);
    // A device's services may now be complete: Battery1 on the device itself,
    // or a late GATT service below it.
    if (added.contains(kBattery) || added.contains(kDevice)) evaluateServices(path);
    if (added.contains(kGattService)) evaluateServices(path.section(QLatin1Char('/'), 0, -2));
  }
  void onInterfacesRemoved(const QDBusMessage& message) {
    const std::optional<bluez::RemovedInterfaces> signal = bluez::interfacesRemovedFrom(message);
    if (!signal) return;
    const QString& path = signal->path;
    const QStringList& removed = signal->interfaces;
    bool stateChanged = false;
    std::shared_ptr<BluezPeripheral> lost;
    {
      std::lock_guard lock(shared_->mutex);
      const QString adapterBefore = shared_->adapterPath();
      auto it = shared_->objects.find(path);
      if (it == shared_->objects.end()) return;
      for (const QString& name : removed) it->remove(name);
      if (it->isEmpty()) shared_->objects.erase(it);
      stateChanged = removed.contains(kAdapter) || shared_->adapterPath() != adapterBefore;
      if (removed.contains(kDevice)) lost = takeConnected(path);
    }
    if (stateChanged) reportState();
    if (lost) delegate_->centralManagerDidDisconnectPeripheral(*central_, lost);
  }
  void onPropertiesChanged(const QDBusMessage& message) {
    const std::optional<bluez::ChangedProperties> signal = bluez::propertiesChangedFrom(message);
    if (!signal) return;
    const QString& path = signal->path;
    const QString& interface = signal->interface;
    const QVariantMap& changed = signal->changed;
    const QStringList& invalidated = signal->invalidated;
    enum class Then { Nothing, State, Connected, Disconnected, Value } then = Then::Nothing;
    bool discovered = false;
    bool servicesMayBeReady = false;
    std::shared_ptr<BluezPeripheral> peripheral;
    {
      std::lock_guard lock(shared_->mutex);
      auto it = shared_->objects.find(path);
      if (it == shared_->objects.end() || !it->contains(interface)) return;
      QVariantMap& props = (*it)[interface];
      for (auto c = changed.constBegin(); c != changed.constEnd(); ++c)
        props.insert(c.key(), c.value());
      for (const QString& name : invalidated) props.remove(name);
      if (interface == kAdapter && changed.contains(QStringLiteral("Powered")) &&
          path == shared_->adapterPath()) {
        then = Then::State;
      } else if (interface == kDevice) {
        if (const std::optional<bool> connected = boolProp(changed, QStringLiteral("Connected"))) {
          auto& link = shared_->links[path];
          if (*connected && link.connectsOut > 0 && !link.reportedConnected) {
            link.reportedConnected = true;
            then = Then::Connected;
            peripheral = shared_->peripheralFor(shared_, path);
          } else if (!*connected) {
            if ((peripheral = takeConnected(path))) then = Then::Disconnected;
          }
        }
        servicesMayBeReady = changed.contains(QStringLiteral("ServicesResolved")) ||
                             changed.contains(QStringLiteral("UUIDs"));
        static const QStringList advertised{QStringLiteral("RSSI"),
                                            QStringLiteral("Name"),
                                            QStringLiteral("ManufacturerData"),
                                            QStringLiteral("ServiceData"),
                                            QStringLiteral("TxPower"),
                                            QStringLiteral("AdvertisingData")};
        for (const QString& key : advertised) discovered |= changed.contains(key);
        discovered = discovered && scanAdmits(path);
      } else if (interface == kGattChar) {
        if (const std::optional<QByteArray> value = bytesProp(changed, QStringLiteral("Value"))) {
          shared_->values[path] = *value;
          const QString device = path.section(QLatin1Char('/'), 0, -3);
          if (shared_->peripherals.contains(device)) {
            peripheral = shared_->peripherals.value(device);
            then = Then::Value;
          }
        }
      }
    }
    switch (then) {
      case Then::State:
        reportState();
        break;
      case Then::Connected:
        delegate_->centralManagerDidConnectPeripheral(*central_, peripheral);
        break;
      case Then::Disconnected:
        delegate_->centralManagerDidDisconnectPeripheral(*central_, peripheral);
        break;
      case Then::Value: {
        CharacteristicPtr characteristic;
        PeripheralDelegate* delegate = nullptr;
        {
          std::lock_guard lock(shared_->mutex);
          characteristic = shared_->characteristics.value(path);
          delegate = shared_->links.value(peripheral->path()).delegate;
        }
        if (characteristic && delegate)
          delegate->peripheralDidUpdateValue(peripheral, characteristic);
        break;
      }
      case Then::Nothing:
        break;
    }
    if (discovered) reportDiscovery(path);
    if (servicesMayBeReady) evaluateServices(path);
  }

 private:
  void loadObjects() {
    QDBusMessage message = QDBusMessage::createMethodCall(
        kBluez, QStringLiteral("/"), kObjectManager, QStringLiteral("GetManagedObjects"));
    auto* watcher = new QDBusPendingCallWatcher(bus_->asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
      w->deleteLater();
      const std::optional<bluez::ObjectTree> objects = bluez::managedObjectsFromReply(w->reply());
      {
        std::lock_guard lock(shared_->mutex);
        // A malformed answer leaves BlueZ counted as absent.
        shared_->present = objects.has_value();
        shared_->objects = objects.value_or(bluez::ObjectTree());
      }
      reportState();
    });
  }
  void onVanished() {
    QList<std::shared_ptr<BluezPeripheral>> lost;
    {
      std::lock_guard lock(shared_->mutex);
      shared_->present = false;
      for (const QString& path : shared_->objects.keys())
        if (auto p = takeConnected(path)) lost.append(p);
      shared_->objects.clear();
    }
    reportState();
    for (const auto& p : lost) delegate_->centralManagerDidDisconnectPeripheral(*central_, p);
  }
  // Mutex held. Ends this central's connection to the device, if it had one.
  std::shared_ptr<BluezPeripheral> takeConnected(const QString& path) {
    auto it = shared_->links.find(path);
    if (it == shared_->links.end()) return {};
    it->wantServices = false;
    it->batteryWaitExpired = false;
    if (!it->reportedConnected) return {};
    it->reportedConnected = false;
    return shared_->peripheralFor(shared_, path);
  }
  // Mutex held.
  bool scanAdmits(const QString& path) const {
    if (!shared_->scan || !shared_->devicePaths().contains(path)) return false;
    if (!*shared_->scan) return true;
    const QStringList uuids = stringListProp(shared_->device(path), QStringLiteral("UUIDs"));
    for (const QString& text : uuids)
      if ((*shared_->scan)->contains(parseBluetoothUuid(text))) return true;
    return false;
  }
  void reportState() {
    {
      std::lock_guard lock(shared_->mutex);
      if (shared_->stateCode() != CentralManager::kPoweredOn) {
        shared_->scan.reset();
        shared_->discoveryStarted = false;
      }
    }
    delegate_->centralManagerDidUpdateState(*central_);
  }
  void reportDiscovery(const QString& path) {
    std::shared_ptr<BluezPeripheral> peripheral;
    {
      std::lock_guard lock(shared_->mutex);
      peripheral = shared_->peripheralFor(shared_, path);
    }
    delegate_->centralManagerDidDiscoverPeripheral(*central_, peripheral);
  }
  void storeAndReport(const std::shared_ptr<BluezPeripheral>& peripheral,
                      const CharacteristicPtr& characteristic, const QByteArray& value) {
    PeripheralDelegate* delegate = nullptr;
    {
      std::lock_guard lock(shared_->mutex);
      shared_->values[std::static_pointer_cast<BluezCharacteristic>(characteristic)->path()] =
          value;
      delegate = shared_->links.value(peripheral->path()).delegate;
    }
    if (delegate) delegate->peripheralDidUpdateValue(peripheral, characteristic);
  }
  void call(const QString& path, const QString& interface, const QString& method,
            const QVariantList& args, std::function<void(const QDBusMessage&)> done = {},
            int timeout = -1) {
    QDBusMessage message = QDBusMessage::createMethodCall(kBluez, path, interface, method);
    message.setArguments(args);
    auto* watcher = new QDBusPendingCallWatcher(bus_->asyncCall(message, timeout), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [done = std::move(done)](QDBusPendingCallWatcher* w) {
              w->deleteLater();
              if (done) done(w->reply());
            });
  }

  std::shared_ptr<BluezShared> shared_;
  CentralDelegate* delegate_;
  CentralManager* central_;
  std::unique_ptr<QDBusConnection> bus_;
  QDBusServiceWatcher* watcher_ = nullptr;
};

void BluezPeripheral::discoverServices() {
  const QString path = path_;
  std::lock_guard lock(shared_->mutex);
  shared_->links[path_].wantServices = true;
  shared_->post(shared_, [path](BluezWorker& w) { w.evaluateServices(path); });
}

void BluezPeripheral::discoverCharacteristics(const ServicePtr& service) {
  auto self = shared_from_this();
  std::lock_guard lock(shared_->mutex);
  shared_->post(shared_,
                [self, service](BluezWorker& w) { w.discoverCharacteristics(self, service); });
}

void BluezPeripheral::setNotifyValue(bool enabled, const CharacteristicPtr& characteristic) {
  if (!enabled) return;  // the link never switches notifications off
  const QString path = std::static_pointer_cast<BluezCharacteristic>(characteristic)->path();
  std::lock_guard lock(shared_->mutex);
  shared_->post(shared_, [path](BluezWorker& w) { w.startNotify(path); });
}

void BluezPeripheral::readValue(const CharacteristicPtr& characteristic) {
  auto self = shared_from_this();
  std::lock_guard lock(shared_->mutex);
  shared_->post(shared_, [self, characteristic](BluezWorker& w) { w.read(self, characteristic); });
}

BluezCentral::BluezCentral(CentralDelegate* delegate, QThread* queue)
    : shared_(std::make_shared<BluezShared>()) {
  worker_ = new BluezWorker(shared_, delegate, this);
  auto* mailbox = new Mailbox(worker_);
  worker_->moveToThread(queue);
  std::lock_guard lock(shared_->mutex);
  shared_->mailbox = mailbox;
  shared_->worker = worker_;
  shared_->post(shared_, [](BluezWorker& w) { w.start(); });
}

BluezCentral::~BluezCentral() {
  {
    std::lock_guard lock(shared_->mutex);
    shared_->mailbox = nullptr;
    shared_->worker = nullptr;
    // The handles point back at the shared state: let go of them here so the
    // last handle still held elsewhere frees everything.
    shared_->peripherals.clear();
    shared_->services.clear();
    shared_->characteristics.clear();
    shared_->links.clear();
    shared_->discoveredChars.clear();
  }
  // The queue thread has ended by now (its owner stops it first), or the
  // deletion is handed to it.
  if (worker_->thread() == QThread::currentThread() || worker_->thread() == nullptr ||
      !worker_->thread()->isRunning())
    delete worker_;
  else
    worker_->deleteLater();
}

int BluezCentral::state() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->stateCode();
}

QList<PeripheralPtr> BluezCentral::retrievePeripheralsWithIdentifiers(
    const QList<QUuid>& identifiers) {
  QList<PeripheralPtr> found;
  std::lock_guard lock(shared_->mutex);
  for (const QString& path : shared_->devicePaths()) {
    const QUuid id = identifierForAddress(
        stringProp(shared_->device(path), QStringLiteral("Address")).value_or(QString()));
    if (!id.isNull() && identifiers.contains(id))
      found.append(shared_->peripheralFor(shared_, path));
  }
  return found;
}

QList<PeripheralPtr> BluezCentral::retrieveConnectedPeripheralsWithServices(
    const QList<QUuid>& services) {
  QList<PeripheralPtr> found;
  std::lock_guard lock(shared_->mutex);
  for (const QString& path : shared_->devicePaths()) {
    const QVariantMap device = shared_->device(path);
    if (!boolProp(device, QStringLiteral("Connected")).value_or(false)) continue;
    for (const QString& text : stringListProp(device, QStringLiteral("UUIDs")))
      if (services.contains(parseBluetoothUuid(text))) {
        found.append(shared_->peripheralFor(shared_, path));
        break;
      }
  }
  return found;
}

void BluezCentral::scanForPeripheralsWithServices(const std::optional<QList<QUuid>>& services) {
  std::lock_guard lock(shared_->mutex);
  if (shared_->stateCode() != kPoweredOn) return;
  shared_->scan = services;
  ++shared_->scanGeneration;
  shared_->discoveryStarted = true;
  shared_->post(shared_, [services](BluezWorker& w) { w.scan(services); });
}

void BluezCentral::stopScan() {
  std::lock_guard lock(shared_->mutex);
  if (!std::exchange(shared_->discoveryStarted, false)) return;
  const quint64 generation = shared_->scanGeneration;
  shared_->post(shared_, [generation](BluezWorker& w) { w.stopScan(generation); });
}

void BluezCentral::connectPeripheral(const PeripheralPtr& peripheral) {
  auto p = std::static_pointer_cast<BluezPeripheral>(peripheral);
  std::lock_guard lock(shared_->mutex);
  ++shared_->links[p->path()].connectsOut;
  shared_->post(shared_, [p](BluezWorker& w) { w.connectDevice(p); });
}

QUuid BluezCentral::identifierForAddress(const QString& address) {
  static const QRegularExpression form(QStringLiteral("^[0-9A-Fa-f]{2}(:[0-9A-Fa-f]{2}){5}$"));
  if (!form.match(address).hasMatch()) return {};
  QString digits = address;
  digits.remove(QLatin1Char(':'));
  return QUuid::fromString(QStringLiteral("00000000-0000-0000-0000-") + digits.toUpper());
}

}  // namespace tw::pen

#include "BluezCentral.moc"
