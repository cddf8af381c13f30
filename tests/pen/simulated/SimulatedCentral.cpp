#include "tests/pen/simulated/SimulatedCentral.h"

#include <QCoreApplication>
#include <QThread>

#include "pen/BluetoothUuid.h"
#include "pen/Mailbox.h"

namespace tw::pen {

class SimCharacteristic : public Characteristic {
 public:
  explicit SimCharacteristic(QUuid uuid) : uuid_(uuid) {}
  QUuid uuid() const override { return uuid_; }
  QString description() const override {
    return QStringLiteral("<Characteristic UUID = %1>").arg(shortUuidText(uuid_));
  }
  std::optional<QByteArray> value() const override {
    std::lock_guard lock(mutex_);
    return value_;
  }
  void setValue(const std::optional<QByteArray>& value) {
    std::lock_guard lock(mutex_);
    value_ = value;
  }
  std::optional<QByteArray> remote() const {
    std::lock_guard lock(mutex_);
    return remote_;
  }
  void setRemote(const std::optional<QByteArray>& value) {
    std::lock_guard lock(mutex_);
    remote_ = value;
  }

 private:
  const QUuid uuid_;
  mutable std::mutex mutex_;
  std::optional<QByteArray> value_;
  std::optional<QByteArray> remote_;
};

class SimService : public Service {
 public:
  SimService(QUuid uuid, QList<CharacteristicPtr> all) : uuid_(uuid), all_(std::move(all)) {}
  QUuid uuid() const override { return uuid_; }
  QString description() const override {
    return QStringLiteral("<Service UUID = %1>").arg(shortUuidText(uuid_));
  }
  std::optional<QList<CharacteristicPtr>> characteristics() const override {
    std::lock_guard lock(mutex_);
    return discovered_;
  }
  void setDiscovered(bool ok) {
    std::lock_guard lock(mutex_);
    if (ok)
      discovered_ = all_;
    else
      discovered_.reset();
  }
  const QList<CharacteristicPtr>& all() const { return all_; }

 private:
  const QUuid uuid_;
  const QList<CharacteristicPtr> all_;
  mutable std::mutex mutex_;
  std::optional<QList<CharacteristicPtr>> discovered_;
};

class SimPeripheral : public Peripheral, public std::enable_shared_from_this<SimPeripheral> {
 public:
  SimPeripheral(SimulatedCentral* central, const SimulatedCentral::PeripheralConfig& config)
      : central_(central), config_(config), systemConnected_(config.systemConnected) {
    for (const auto& s : config.services) {
      QList<CharacteristicPtr> chars;
      for (const QUuid& c : s.characteristics) chars.append(std::make_shared<SimCharacteristic>(c));
      all_.append(std::make_shared<SimService>(s.uuid, chars));
    }
  }
  std::optional<QString> name() const override { return config_.name; }
  QUuid identifier() const override { return config_.identifier; }
  int state() const override {
    std::lock_guard lock(mutex_);
    return state_;
  }
  void setDelegate(PeripheralDelegate* delegate) override {
    std::lock_guard lock(mutex_);
    delegate_ = delegate;
  }
  void discoverServices() override {
    central_->record(QStringLiteral("discoverServices ") + canonicalUuidText(config_.identifier));
    const bool fail = central_->takeFailure();
    auto self = shared_from_this();
    central_->queue_->post([self, fail] {
      {
        std::lock_guard lock(self->mutex_);
        if (fail)
          self->services_.reset();
        else
          self->services_ = self->all_;
      }
      if (PeripheralDelegate* d = self->delegate()) d->peripheralDidDiscoverServices(self);
    });
  }
  std::optional<QList<ServicePtr>> services() const override {
    std::lock_guard lock(mutex_);
    return services_;
  }
  void discoverCharacteristics(const ServicePtr& service) override {
    central_->record(QStringLiteral("discoverCharacteristics ") + shortUuidText(service->uuid()));
    const bool fail = central_->takeFailure();
    auto self = shared_from_this();
    central_->queue_->post([self, service, fail] {
      std::static_pointer_cast<SimService>(service)->setDiscovered(!fail);
      if (PeripheralDelegate* d = self->delegate())
        d->peripheralDidDiscoverCharacteristics(self, service);
    });
  }
  void setNotifyValue(bool enabled, const CharacteristicPtr& characteristic) override {
    central_->record(QStringLiteral("setNotifyValue %1 %2")
                         .arg(enabled ? QStringLiteral("on") : QStringLiteral("off"),
                              shortUuidText(characteristic->uuid())));
    std::lock_guard lock(mutex_);
    if (enabled) notifying_.push_back(characteristic);
  }
  void readValue(const CharacteristicPtr& characteristic) override {
    central_->record(QStringLiteral("readValue ") + shortUuidText(characteristic->uuid()));
    auto self = shared_from_this();
    central_->answerRead([self, characteristic] {
      auto sim = std::static_pointer_cast<SimCharacteristic>(characteristic);
      sim->setValue(sim->remote());
      if (PeripheralDelegate* d = self->delegate()) d->peripheralDidUpdateValue(self, sim);
    });
  }

  PeripheralDelegate* delegate() const {
    std::lock_guard lock(mutex_);
    return delegate_;
  }
  void setState(int state) {
    std::lock_guard lock(mutex_);
    state_ = state;
  }
  bool systemConnected() const {
    std::lock_guard lock(mutex_);
    return systemConnected_;
  }
  void setSystemConnected(bool connected) {
    std::lock_guard lock(mutex_);
    systemConnected_ = connected;
  }
  bool notifying(const CharacteristicPtr& c) const {
    std::lock_guard lock(mutex_);
    return std::find(notifying_.begin(), notifying_.end(), c) != notifying_.end();
  }
  CharacteristicPtr find(const QUuid& uuid) const {
    for (const auto& s : all_)
      for (const auto& c : std::static_pointer_cast<SimService>(s)->all())
        if (c->uuid() == uuid) return c;
    return {};
  }
  const SimulatedCentral::PeripheralConfig& config() const { return config_; }

 private:
  SimulatedCentral* const central_;
  const SimulatedCentral::PeripheralConfig config_;
  QList<ServicePtr> all_;
  mutable std::mutex mutex_;
  int state_ = kDisconnected;
  bool systemConnected_;
  PeripheralDelegate* delegate_ = nullptr;
  std::optional<QList<ServicePtr>> services_;
  std::vector<CharacteristicPtr> notifying_;
};

SimulatedCentral::SimulatedCentral(CentralDelegate* delegate, QThread* queue, int initialState,
                                   const std::function<void(SimulatedCentral&)>& prepare)
    : delegate_(delegate), queue_(new Mailbox), state_(initialState) {
  queue_->moveToThread(queue);
  if (prepare) prepare(*this);
  queue_->post([this] { delegate_->centralManagerDidUpdateState(*this); });
}

SimulatedCentral::~SimulatedCentral() { delete queue_; }

bool SimulatedCentral::takeFailure() {
  std::lock_guard lock(mutex_);
  return std::exchange(failNextDiscovery_, false);
}

void SimulatedCentral::answerRead(std::function<void()> answer) {
  {
    std::lock_guard lock(mutex_);
    if (holdReads_) {
      heldReads_.push_back(std::move(answer));
      return;
    }
  }
  queue_->post(std::move(answer));
}

void SimulatedCentral::holdReads(bool hold) {
  std::lock_guard lock(mutex_);
  holdReads_ = hold;
}

void SimulatedCentral::answerReads() {
  std::vector<std::function<void()>> held;
  {
    std::lock_guard lock(mutex_);
    held.swap(heldReads_);
  }
  for (auto& answer : held) queue_->post(std::move(answer));
}

PeripheralPtr SimulatedCentral::addPeripheral(const PeripheralConfig& config) {
  auto peripheral = std::make_shared<SimPeripheral>(this, config);
  std::lock_guard lock(mutex_);
  peripherals_.push_back(peripheral);
  return peripheral;
}

void SimulatedCentral::setState(int state) {
  // The state changes when its report is delivered, as a radio's would.
  queue_->post([this, state] {
    {
      std::lock_guard lock(mutex_);
      state_ = state;
      if (state != kPoweredOn) scan_.reset();
    }
    delegate_->centralManagerDidUpdateState(*this);
  });
}

void SimulatedCentral::advertise(const PeripheralPtr& peripheral) {
  advertise(QList<PeripheralPtr>{peripheral});
}

void SimulatedCentral::advertise(const QList<PeripheralPtr>& peripherals) {
  // The scan in force when the advertisements arrive decides; a stop requested
  // later does not take back reports already on their way.
  std::lock_guard lock(mutex_);
  if (!scan_) return;
  for (const PeripheralPtr& peripheral : peripherals) {
    auto sim = std::static_pointer_cast<SimPeripheral>(peripheral);
    if (*scan_) {
      bool admitted = false;
      for (const QUuid& u : sim->config().advertisedServices) admitted |= (*scan_)->contains(u);
      if (!admitted) continue;
    }
    queue_->post([this, sim] { delegate_->centralManagerDidDiscoverPeripheral(*this, sim); });
  }
}

void SimulatedCentral::notify(const PeripheralPtr& peripheral, const QUuid& characteristic,
                              const QByteArray& value) {
  auto sim = std::static_pointer_cast<SimPeripheral>(peripheral);
  queue_->post([sim, characteristic, value] {
    auto c = std::static_pointer_cast<SimCharacteristic>(sim->find(characteristic));
    if (!c || !sim->notifying(c)) return;
    c->setValue(value);
    if (PeripheralDelegate* d = sim->delegate()) d->peripheralDidUpdateValue(sim, c);
  });
}

void SimulatedCentral::setRemoteValue(const PeripheralPtr& peripheral, const QUuid& characteristic,
                                      const std::optional<QByteArray>& value) {
  auto sim = std::static_pointer_cast<SimPeripheral>(peripheral);
  if (auto c = std::static_pointer_cast<SimCharacteristic>(sim->find(characteristic)))
    c->setRemote(value);
}

void SimulatedCentral::failNextDiscovery() {
  std::lock_guard lock(mutex_);
  failNextDiscovery_ = true;
}

void SimulatedCentral::disconnect(const PeripheralPtr& peripheral) {
  auto sim = std::static_pointer_cast<SimPeripheral>(peripheral);
  queue_->post([this, sim] {
    const bool wasConnected = sim->state() == Peripheral::kConnected;
    sim->setState(Peripheral::kDisconnected);
    sim->setSystemConnected(false);
    if (wasConnected) delegate_->centralManagerDidDisconnectPeripheral(*this, sim);
  });
}

void SimulatedCentral::completeConnect(const PeripheralPtr& peripheral) {
  reportConnected(std::static_pointer_cast<SimPeripheral>(peripheral));
}

void SimulatedCentral::reportConnected(const std::shared_ptr<SimPeripheral>& sim) {
  queue_->post([this, sim] {
    if (sim->state() != Peripheral::kConnecting) return;
    sim->setState(Peripheral::kConnected);
    sim->setSystemConnected(true);
    delegate_->centralManagerDidConnectPeripheral(*this, sim);
  });
}

QStringList SimulatedCentral::calls() const {
  // A deep copy: Qt's implicit sharing checks its reference count with a
  // relaxed load, so a list shared with the queue thread (which keeps
  // appending) would be a data race once the caller's copy is dropped.
  std::lock_guard lock(mutex_);
  QStringList copy;
  copy.reserve(calls_.size());
  for (const QString& call : calls_) copy.append(QString(call.constData(), call.size()));
  return copy;
}

void SimulatedCentral::afterPending(std::function<void()> work) { queue_->post(std::move(work)); }

void SimulatedCentral::record(const QString& call) {
  QThread* thread = QThread::currentThread();
  const QCoreApplication* app = QCoreApplication::instance();
  const QString where =
      app != nullptr && thread == app->thread() ? QStringLiteral("main") : thread->objectName();
  std::lock_guard lock(mutex_);
  calls_.append(call);
  callThreads_.append(where);
}

QStringList SimulatedCentral::callThreads() const {
  std::lock_guard lock(mutex_);
  return callThreads_;
}

int SimulatedCentral::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}

QList<PeripheralPtr> SimulatedCentral::retrievePeripheralsWithIdentifiers(
    const QList<QUuid>& identifiers) {
  record(QStringLiteral("retrievePeripheralsWithIdentifiers"));
  QList<PeripheralPtr> found;
  std::lock_guard lock(mutex_);
  for (const auto& p : peripherals_)
    if (p->config().known && identifiers.contains(p->config().identifier)) found.append(p);
  return found;
}

QList<PeripheralPtr> SimulatedCentral::retrieveConnectedPeripheralsWithServices(
    const QList<QUuid>& services) {
  record(QStringLiteral("retrieveConnectedPeripheralsWithServices"));
  QList<PeripheralPtr> found;
  std::lock_guard lock(mutex_);
  for (const auto& p : peripherals_) {
    if (!p->systemConnected()) continue;
    for (const auto& s : p->config().services)
      if (services.contains(s.uuid)) {
        found.append(p);
        break;
      }
  }
  return found;
}

void SimulatedCentral::scanForPeripheralsWithServices(const std::optional<QList<QUuid>>& services) {
  QStringList names;
  if (services)
    for (const QUuid& u : *services) names.append(shortUuidText(u));
  record(services ? QStringLiteral("scan ") + names.join(QLatin1Char(','))
                  : QStringLiteral("scan all"));
  std::lock_guard lock(mutex_);
  scan_ = services;
}

void SimulatedCentral::stopScan() {
  record(QStringLiteral("stopScan"));
  std::lock_guard lock(mutex_);
  scan_.reset();
}

void SimulatedCentral::connectPeripheral(const PeripheralPtr& peripheral) {
  auto sim = std::static_pointer_cast<SimPeripheral>(peripheral);
  record(QStringLiteral("connect ") + canonicalUuidText(sim->identifier()));
  sim->setState(Peripheral::kConnecting);
  if (sim->config().connectCompletes) reportConnected(sim);
}

}  // namespace tw::pen
