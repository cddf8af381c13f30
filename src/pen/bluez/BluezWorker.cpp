#include "pen/bluez/BluezWorker.h"

#include <QDBusServiceWatcher>
#include <QTimer>

#include "pen/BluetoothUuid.h"
#include "pen/bluez/BluezInterfaces.h"

namespace tw::pen::bluez {

namespace {

// How long a service report waits for a Battery1 that the device announced.
constexpr int kBatteryWaitMs = 1000;

// Device1 properties that change when an advertisement arrives.
bool advertisementIn(const QVariantMap& changed) {
  static const QStringList advertised{
      QStringLiteral("RSSI"),        QStringLiteral("Name"),    QStringLiteral("ManufacturerData"),
      QStringLiteral("ServiceData"), QStringLiteral("TxPower"), QStringLiteral("AdvertisingData")};
  for (const QString& key : advertised)
    if (changed.contains(key)) return true;
  return false;
}

}  // namespace

BluezWorker::BluezWorker(std::shared_ptr<BluezShared> shared, CentralDelegate* delegate,
                         CentralManager* central)
    : shared_(std::move(shared)), delegate_(delegate), central_(central) {}

BluezWorker::~BluezWorker() = default;

void BluezWorker::start() {
  bus_ = std::make_unique<QDBusConnection>(QDBusConnection::systemBus());
  if (!bus_->isConnected()) {
    reportState();
    return;
  }
  watcher_ =
      new QDBusServiceWatcher(kBluezService, *bus_, QDBusServiceWatcher::WatchForOwnerChange, this);
  connect(watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
          [this](const QString&, const QString&, const QString& newOwner) {
            if (newOwner.isEmpty())
              onVanished();
            else
              loadObjects();
          });
  bus_->connect(kBluezService, QStringLiteral("/"), kObjectManagerInterface,
                QStringLiteral("InterfacesAdded"), this, SLOT(onInterfacesAdded(QDBusMessage)));
  bus_->connect(kBluezService, QStringLiteral("/"), kObjectManagerInterface,
                QStringLiteral("InterfacesRemoved"), this, SLOT(onInterfacesRemoved(QDBusMessage)));
  bus_->connect(kBluezService, QString(), kPropertiesInterface, QStringLiteral("PropertiesChanged"),
                this, SLOT(onPropertiesChanged(QDBusMessage)));
  loadObjects();
}

QString BluezWorker::adapterPath() {
  std::lock_guard lock(shared_->mutex);
  return shared_->mirror.adapterPath();
}

void BluezWorker::scan(const std::optional<QList<QUuid>>& services) {
  const QString adapter = adapterPath();
  if (adapter.isEmpty()) return;
  const Adapter1 radio(*bus_, adapter, this);
  radio.setDiscoveryFilter(services);
  radio.startDiscovery();
}

void BluezWorker::stopScan(quint64 generation) {
  const QString adapter = adapterPath();
  const auto stopped = [this, generation] {
    std::lock_guard lock(shared_->mutex);
    if (shared_->scan.generation == generation) shared_->scan.filter.reset();
  };
  if (adapter.isEmpty())
    stopped();
  else
    Adapter1(*bus_, adapter, this).stopDiscovery(stopped);
}

void BluezWorker::connectDevice(const std::shared_ptr<BluezPeripheral>& peripheral) {
  Device1(*bus_, peripheral->path(), this).connect([this, peripheral](bool succeeded) {
    bool report = false;
    {
      std::lock_guard lock(shared_->mutex);
      const bool connected =
          boolProp(shared_->mirror.device(peripheral->path()), QStringLiteral("Connected"))
              .value_or(false);
      report = shared_->links[peripheral->path()].connectAnswered(succeeded, connected);
    }
    if (report) delegate_->centralManagerDidConnectPeripheral(*central_, peripheral);
  });
}

void BluezWorker::evaluateServices(const QString& devicePath) {
  std::shared_ptr<BluezPeripheral> peripheral;
  PeripheralDelegate* delegate = nullptr;
  {
    std::lock_guard lock(shared_->mutex);
    const auto found = shared_->links.find(devicePath);
    if (found == shared_->links.end() || !found->servicesWanted()) return;
    DeviceLink& link = *found;
    const ObjectMirror& mirror = shared_->mirror;
    if (!boolProp(mirror.device(devicePath), QStringLiteral("ServicesResolved")).value_or(false))
      return;
    if (link.mayWaitForBattery() && mirror.batteryAnnouncedButMissing(devicePath)) {
      QTimer::singleShot(kBatteryWaitMs, this, [this, devicePath] {
        {
          std::lock_guard lock(shared_->mutex);
          const auto found = shared_->links.find(devicePath);
          if (found != shared_->links.end()) found->batteryWaitOver();
        }
        evaluateServices(devicePath);
      });
      return;
    }
    QList<ServicePtr> list;
    for (const ObjectMirror::Child& service : mirror.servicesOf(devicePath))
      list.append(shared_->serviceFor(service.path, service.uuid));
    if (mirror.presentsBattery(devicePath))
      list.append(shared_->serviceFor(presentedServicePath(devicePath), batteryServiceUUID()));
    link.servicesFound(list);
    delegate = link.delegate();
    peripheral = shared_->peripheralFor(devicePath);
  }
  if (delegate) delegate->peripheralDidDiscoverServices(peripheral);
}

void BluezWorker::discoverCharacteristics(const std::shared_ptr<BluezPeripheral>& peripheral,
                                          const ServicePtr& service) {
  const QString servicePath = std::static_pointer_cast<BluezService>(service)->path();
  PeripheralDelegate* delegate = nullptr;
  {
    std::lock_guard lock(shared_->mutex);
    QList<CharacteristicPtr> list;
    if (servicePath == presentedServicePath(peripheral->path())) {
      list.append(shared_->characteristicFor(presentedLevelPath(peripheral->path()),
                                             batteryLevelCharUUID()));
    } else {
      for (const ObjectMirror::Child& c : shared_->mirror.characteristicsOf(servicePath))
        list.append(shared_->characteristicFor(c.path, c.uuid));
    }
    shared_->discoveredChars[servicePath] = list;
    delegate = shared_->links.value(peripheral->path()).delegate();
  }
  if (delegate) delegate->peripheralDidDiscoverCharacteristics(peripheral, service);
}

void BluezWorker::startNotify(const QString& path) {
  // The presented level has no notifications; it is read from Battery1.
  if (!path.endsWith(presentedLevelPath(QString())))
    GattCharacteristic1(*bus_, path, this).startNotify();
}

void BluezWorker::read(const std::shared_ptr<BluezPeripheral>& peripheral,
                       const CharacteristicPtr& characteristic) {
  const QString path = std::static_pointer_cast<BluezCharacteristic>(characteristic)->path();
  if (path == presentedLevelPath(peripheral->path())) {
    Battery1(*bus_, peripheral->path(), this).percentage([=, this](quint8 level) {
      storeAndReport(peripheral, characteristic, QByteArray(1, char(level)));
    });
    return;
  }
  GattCharacteristic1(*bus_, path, this).readValue([=, this](const QByteArray& value) {
    storeAndReport(peripheral, characteristic, value);
  });
}

void BluezWorker::onInterfacesAdded(const QDBusMessage& message) {
  const std::optional<AddedInterfaces> signal = interfacesAddedFrom(message);
  if (!signal) return;
  const QString& path = signal->path;
  const Interfaces& added = signal->interfaces;
  bool stateChanged = false;
  bool discovered = false;
  {
    std::lock_guard lock(shared_->mutex);
    if (!shared_->mirror.present()) return;
    stateChanged = shared_->mirror.add(path, added);
    discovered = added.contains(kDevice1) && shared_->scanAdmits(path);
  }
  if (stateChanged) reportState();
  if (discovered) reportDiscovery(path);
  // A device's services may now be complete: Battery1 on the device itself,
  // or a late GATT service below it.
  if (added.contains(kBattery1) || added.contains(kDevice1)) evaluateServices(path);
  if (added.contains(kGattService1)) evaluateServices(path.section(QLatin1Char('/'), 0, -2));
}

void BluezWorker::onInterfacesRemoved(const QDBusMessage& message) {
  const std::optional<RemovedInterfaces> signal = interfacesRemovedFrom(message);
  if (!signal) return;
  bool stateChanged = false;
  std::shared_ptr<BluezPeripheral> lost;
  {
    std::lock_guard lock(shared_->mutex);
    if (!shared_->mirror.holds(signal->path)) return;
    stateChanged = shared_->mirror.remove(signal->path, signal->interfaces);
    if (signal->interfaces.contains(kDevice1)) lost = takeConnected(signal->path);
  }
  if (stateChanged) reportState();
  if (lost) delegate_->centralManagerDidDisconnectPeripheral(*central_, lost);
}

void BluezWorker::onPropertiesChanged(const QDBusMessage& message) {
  const std::optional<ChangedProperties> signal = propertiesChangedFrom(message);
  if (!signal) return;
  const QString& path = signal->path;
  const QString& interface = signal->interface;
  const QVariantMap& changed = signal->changed;
  enum class Then { Nothing, State, Connected, Disconnected, Value } then = Then::Nothing;
  bool discovered = false;
  bool servicesMayBeReady = false;
  std::shared_ptr<BluezPeripheral> peripheral;
  {
    std::lock_guard lock(shared_->mutex);
    ObjectMirror& mirror = shared_->mirror;
    if (!mirror.change(path, interface, changed, signal->invalidated)) return;
    if (interface == kAdapter1 && changed.contains(QStringLiteral("Powered")) &&
        path == mirror.adapterPath()) {
      then = Then::State;
    } else if (interface == kDevice1) {
      if (const std::optional<bool> connected = boolProp(changed, QStringLiteral("Connected"))) {
        switch (shared_->links[path].connectedChanged(*connected)) {
          case DeviceLink::Report::Connected:
            then = Then::Connected;
            peripheral = shared_->peripheralFor(path);
            break;
          case DeviceLink::Report::Disconnected:
            then = Then::Disconnected;
            peripheral = shared_->peripheralFor(path);
            break;
          case DeviceLink::Report::None:
            break;
        }
      }
      servicesMayBeReady = changed.contains(QStringLiteral("ServicesResolved")) ||
                           changed.contains(QStringLiteral("UUIDs"));
      discovered = advertisementIn(changed) && shared_->scanAdmits(path);
    } else if (interface == kGattCharacteristic1) {
      if (const std::optional<QByteArray> value = bytesProp(changed, QStringLiteral("Value"))) {
        shared_->values[path] = *value;
        peripheral = shared_->peripherals.value(path.section(QLatin1Char('/'), 0, -3));
        if (peripheral) then = Then::Value;
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
      {
        std::lock_guard lock(shared_->mutex);
        characteristic = shared_->characteristics.value(path);
      }
      if (characteristic) reportValue(peripheral, characteristic);
      break;
    }
    case Then::Nothing:
      break;
  }
  if (discovered) reportDiscovery(path);
  if (servicesMayBeReady) evaluateServices(path);
}

void BluezWorker::loadObjects() {
  ObjectManager(*bus_, this).getManagedObjects([this](std::optional<ObjectTree> objects) {
    {
      std::lock_guard lock(shared_->mutex);
      shared_->mirror.load(std::move(objects));
    }
    reportState();
  });
}

void BluezWorker::onVanished() {
  QList<std::shared_ptr<BluezPeripheral>> lost;
  {
    std::lock_guard lock(shared_->mutex);
    for (const QString& path : shared_->mirror.vanish())
      if (auto p = takeConnected(path)) lost.append(p);
  }
  reportState();
  for (const auto& p : lost) delegate_->centralManagerDidDisconnectPeripheral(*central_, p);
}

std::shared_ptr<BluezPeripheral> BluezWorker::takeConnected(const QString& path) {
  const auto it = shared_->links.find(path);
  if (it == shared_->links.end() || !it->drop()) return {};
  return shared_->peripheralFor(path);
}

void BluezWorker::reportState() {
  {
    std::lock_guard lock(shared_->mutex);
    if (shared_->mirror.stateCode() != CentralManager::kPoweredOn) {
      shared_->scan.filter.reset();
      shared_->scan.discoveryStarted = false;
    }
  }
  delegate_->centralManagerDidUpdateState(*central_);
}

void BluezWorker::reportDiscovery(const QString& path) {
  std::shared_ptr<BluezPeripheral> peripheral;
  {
    std::lock_guard lock(shared_->mutex);
    peripheral = shared_->peripheralFor(path);
  }
  delegate_->centralManagerDidDiscoverPeripheral(*central_, peripheral);
}

void BluezWorker::reportValue(const std::shared_ptr<BluezPeripheral>& peripheral,
                              const CharacteristicPtr& characteristic) {
  PeripheralDelegate* delegate = nullptr;
  {
    std::lock_guard lock(shared_->mutex);
    delegate = shared_->links.value(peripheral->path()).delegate();
  }
  if (delegate) delegate->peripheralDidUpdateValue(peripheral, characteristic);
}

void BluezWorker::storeAndReport(const std::shared_ptr<BluezPeripheral>& peripheral,
                                 const CharacteristicPtr& characteristic, const QByteArray& value) {
  {
    std::lock_guard lock(shared_->mutex);
    shared_->values[std::static_pointer_cast<BluezCharacteristic>(characteristic)->path()] = value;
  }
  reportValue(peripheral, characteristic);
}

}  // namespace tw::pen::bluez
