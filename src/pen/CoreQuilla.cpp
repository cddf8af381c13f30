#include "pen/CoreQuilla.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QSettings>
#include <QThread>
#include <QTimer>
#include <chrono>

#include "color/ColorStruct.h"
#include "common/Fatal.h"
#include "common/Log.h"
#include "common/TimeScale.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"
#include "pen/BluetoothUuid.h"
#include "pen/Mailbox.h"
#include "pen/PenValues.h"

namespace tw::pen {

using namespace std::string_view_literals;

namespace {

QSettings openDefaults() { return QSettings(QStringLiteral("Orlo"), QStringLiteral("Tintwell")); }

// The saved text must be the 36-character form: braces or other spellings that
// QUuid would also take do not count as a UUID here.
std::optional<QUuid> parseSavedIdentifier(const QString& text) {
  static const QRegularExpression form(QStringLiteral(
      "^[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}$"));
  if (!form.match(text).hasMatch()) return std::nullopt;
  return QUuid::fromString(text);
}

}  // namespace

std::optional<QString> UserDefaults::string(const QString& key) const {
  const QSettings settings = openDefaults();
  const QVariant value = settings.value(key);
  if (!value.isValid()) return std::nullopt;
  return value.toString();
}

void UserDefaults::setObject(const QString& value, const QString& key) {
  QSettings settings = openDefaults();
  settings.setValue(key, value);
  settings.sync();
}

CoreQuilla::CoreQuilla(CentralFactory factory) : factory_(std::move(factory)) {
  mainQueue_ = new Mailbox;
  if (QCoreApplication::instance() != nullptr)
    mainQueue_->moveToThread(QCoreApplication::instance()->thread());
}

CoreQuilla::~CoreQuilla() {
  if (queue_ != nullptr) {
    queue_->quit();
    queue_->wait();
    queueEnded_.wait();
  }
  {
    std::lock_guard lock(mutex_);
    peripheralQuilla.reset();
    batteryCBCharacteristic.reset();
    centralManager.reset();
  }
  delete queue_;
  delete mainQueue_;
}

void CoreQuilla::setupCentralManager() {
  logLine("init CoreQuilla "sv);
  queue_ = new QThread;
  queue_->setObjectName(QStringLiteral("Orlo.Tintwell"));
  auto ended = std::make_shared<std::promise<void>>();
  queueEnded_ = ended->get_future();
  QObject::connect(queue_, &QThread::finished, [ended] { ended->set_value(); });
  {
    // Held while the central is made, so that a report arriving at once sees it.
    std::lock_guard lock(mutex_);
    centralManager = factory_(this, queue_);
  }
  // Started only now: the central's objects are moved onto the thread and its
  // first work is posted before the thread exists, so starting it publishes
  // all of that (Qt's own hand-over to a running thread is invisible to
  // ThreadSanitizer). Work posted before the start runs once its loop runs.
  queue_->start();
}

QThread* CoreQuilla::queueThread() const { return queue_; }

CentralManager* CoreQuilla::manager() const {
  std::lock_guard lock(mutex_);
  return centralManager.get();
}

PeripheralPtr CoreQuilla::currentPeripheralQuilla() const {
  std::lock_guard lock(mutex_);
  return peripheralQuilla;
}

CharacteristicPtr CoreQuilla::currentBatteryCharacteristic() const {
  std::lock_guard lock(mutex_);
  return batteryCBCharacteristic;
}

std::optional<qint64> CoreQuilla::currentBatteryLevel() const {
  std::lock_guard lock(mutex_);
  return batteryLevel;
}

CoreQuilla::LinkState CoreQuilla::linkState() const {
  std::lock_guard lock(mutex_);
  return linkState_;
}

void CoreQuilla::setLinkStateListener(std::function<void()> listener) {
  linkStateListener_ = std::move(listener);
}

void CoreQuilla::setLinkState(LinkState state, bool fresh) {
  {
    std::lock_guard lock(mutex_);
    if (linkState_ == state) return;
    const bool looking = state == LinkState::Searching || state == LinkState::Connecting;
    const bool lookingBefore = linkState_ == LinkState::Searching ||
                               linkState_ == LinkState::Connecting ||
                               linkState_ == LinkState::Disconnected;
    if (looking && !fresh && !lookingBefore) return;
    linkState_ = state;
  }
  if (linkStateListener_) linkStateListener_();
}

CoreQuilla::LinkState CoreQuilla::stateOfCentral(int centralState) {
  switch (centralState) {
    case CentralManager::kUnsupported:
      return LinkState::NoAdapter;
    case CentralManager::kUnauthorized:
      return LinkState::NotAllowed;
    case CentralManager::kPoweredOff:
      return LinkState::Off;
    case CentralManager::kPoweredOn:
      return LinkState::Searching;
    default:
      return LinkState::Starting;
  }
}

bool CoreQuilla::reconnect() {
  CentralManager* mgr = manager();
  if (mgr == nullptr || mgr->state() != CentralManager::kPoweredOn) return false;
  if (const PeripheralPtr current = currentPeripheralQuilla()) {
    const int state = current->state();
    if (state == Peripheral::kConnected || state == Peripheral::kConnecting) return false;
  }
  setLinkState(LinkState::Searching, true);
  connectionProcedure(*mgr);
  return true;
}

std::optional<qint64> CoreQuilla::lastReadBatteryLevel() const {
  std::lock_guard lock(mutex_);
  return readBatteryLevel_;
}

void CoreQuilla::setPeripheralQuilla(const PeripheralPtr& peripheral) {
  {
    std::lock_guard lock(mutex_);
    peripheralQuilla = peripheral;
  }
  peripheral->setDelegate(this);
}

void CoreQuilla::centralManagerDidUpdateState(CentralManager& central) {
  if (central.state() != CentralManager::kPoweredOn) setLinkState(stateOfCentral(central.state()));
  switch (central.state()) {
    case CentralManager::kUnknown:
      logLine("Bluetooth status is UNKNOWN"sv);
      break;
    case CentralManager::kResetting:
      logLine("Bluetooth status is RESETTING"sv);
      break;
    case CentralManager::kUnsupported:
      logLine("Bluetooth status is UNSUPPORTED"sv);
      break;
    case CentralManager::kUnauthorized:
      logLine("Bluetooth status is UNAUTHORIZED"sv);
      break;
    case CentralManager::kPoweredOff:
      logLine("Bluetooth status is POWERED OFF"sv);
      break;
    case CentralManager::kPoweredOn:
      logLine("Bluetooth status is POWERED ON"sv);
      setLinkState(LinkState::Searching, true);
      connectionProcedure(central);
      break;
    default:
      fatalStop("unexpected Bluetooth manager state");
  }
}

void CoreQuilla::connectionProcedure(CentralManager& central) {
  // Strategy 1: the saved pen.
  if (const std::optional<QString> saved = defaults.string(keyOfDeviceUUID)) {
    logLine(QStringLiteral("defaults savedQuillaUUID: ") + *saved);
    if (const std::optional<QUuid> identifier = parseSavedIdentifier(*saved)) {
      logLine(QStringLiteral("try 招式1 ~ 取已存檔的 savedQuillaUUID "));
      if (!central.retrievePeripheralsWithIdentifiers({*identifier}).isEmpty()) {
        // Asked twice on purpose; the second answer is the one taken.
        const QList<PeripheralPtr> again =
            central.retrievePeripheralsWithIdentifiers({*identifier});
        if (again.isEmpty()) fatalStop("saved pen vanished between two retrievals");
        setPeripheralQuilla(again.first());
        if (CentralManager* mgr = manager()) {
          setLinkState(LinkState::Connecting);
          mgr->stopScan();
          mgr->connectPeripheral(currentPeripheralQuilla());
        }
      }
    }
  }
  // In every case the delayed step decides 2.5 seconds after this report.
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(tw::scaledMs(2.5));
  CentralManager* reporting = &central;
  mainQueue_->post([this, reporting, deadline] {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    QTimer::singleShot(std::max<qint64>(0, left.count()), mainQueue_,
                       [this, reporting] { fallbackConnect(reporting); });
  });
}

void CoreQuilla::fallbackConnect(CentralManager* central) {
  if (const PeripheralPtr current = currentPeripheralQuilla();
      current && current->state() == Peripheral::kConnected)
    return;
  CentralManager* mgr = manager();
  if (mgr == nullptr) fatalStop("no central manager at the connection fallback");
  const QList<PeripheralPtr> connected =
      mgr->retrieveConnectedPeripheralsWithServices({penServiceUUID()});
  if (!connected.isEmpty()) {
    // Strategy 3: a pen the system already has, whatever its name.
    logLine(QStringLiteral(
        "try 招式3 ~ "
        "現在已過了 x 秒且沒有連到之前存的裝置，現在試取得已在系統連線的第一個裝置 "));
    setPeripheralQuilla(connected.first());
    setLinkState(LinkState::Connecting);
    mgr->connectPeripheral(connected.first());
    return;
  }
  // Strategy 2: scan. The unfiltered scan replaces the filtered one, so the name
  // rule alone picks the pen; both calls are kept in this order.
  logLine(QStringLiteral("try 招式2 ~ using scan to connect "));
  setLinkState(LinkState::Searching);
  mgr->scanForPeripheralsWithServices(QList<QUuid>{penServiceUUID()});
  central->scanForPeripheralsWithServices(std::nullopt);
}

void CoreQuilla::centralManagerDidDiscoverPeripheral(CentralManager&,
                                                     const PeripheralPtr& peripheral) {
  const std::optional<QString> name = peripheral->name();
  if (!name) return;
  const QString lower = name->toLower();
  if (!lower.contains(QLatin1String("vinta")) && !lower.contains(QLatin1String("quilla"))) return;
  logLine(QStringLiteral("!!  從招式2 (scanForPeripherals) 來的回應 "));
  logLine(*name);
  logLine(QStringLiteral("身份證id : identifier -  ") +
          canonicalUuidText(peripheral->identifier()));
  logPeripheralState(peripheral->state());
  setPeripheralQuilla(peripheral);
  if (CentralManager* mgr = manager()) {
    setLinkState(LinkState::Connecting);
    mgr->stopScan();
    mgr->connectPeripheral(currentPeripheralQuilla());
  }
}

void CoreQuilla::centralManagerDidConnectPeripheral(CentralManager&,
                                                    const PeripheralPtr& peripheral) {
  setLinkState(LinkState::Connected);
  logLine("connected hihi"sv);
  logPeripheralState(peripheral->state());
  defaults.setObject(canonicalUuidText(peripheral->identifier()), keyOfDeviceUUID);
  if (const PeripheralPtr current = currentPeripheralQuilla()) current->discoverServices();
  NotificationCenter::defaultCenter().post(
      notification::connectedQuilla(), {},
      UserInfo{{notification::quillaKey(), QStringLiteral("Device Connected")}});
}

void CoreQuilla::centralManagerDidDisconnectPeripheral(CentralManager& central,
                                                       const PeripheralPtr&) {
  // Switched off or taken away: that says more than "disconnected".
  setLinkState(central.state() == CentralManager::kPoweredOn ? LinkState::Disconnected
                                                             : stateOfCentral(central.state()));
  NotificationCenter::defaultCenter().post(
      notification::disconnected(), {},
      UserInfo{{notification::quillaKey(), QStringLiteral("Device Disconnected")}});
}

void CoreQuilla::logPeripheralState(int state) {
  switch (state) {
    case Peripheral::kDisconnected:
      logLine("Peripheral state: disconnected"sv);
      break;
    case Peripheral::kConnecting:
      logLine("Peripheral state: connecting"sv);
      break;
    case Peripheral::kConnected:
      logLine("Peripheral state: connected"sv);
      break;
    case Peripheral::kDisconnecting:
      logLine("Peripheral state: disconnecting"sv);
      break;
    default:
      fatalStop("unexpected peripheral state");
  }
}

void CoreQuilla::peripheralDidDiscoverServices(const PeripheralPtr& peripheral) {
  const std::optional<QList<ServicePtr>> services = peripheral->services();
  if (!services) fatalStop("service discovery failed");
  for (const ServicePtr& service : *services) {
    logLine(QStringLiteral("我的 Service: ") + service->description());
    if (service->uuid() == penServiceUUID()) peripheral->discoverCharacteristics(service);
    if (service->uuid() == batteryServiceUUID()) peripheral->discoverCharacteristics(service);
  }
}

void CoreQuilla::peripheralDidDiscoverCharacteristics(const PeripheralPtr& peripheral,
                                                      const ServicePtr& service) {
  const std::optional<QList<CharacteristicPtr>> characteristics = service->characteristics();
  if (!characteristics) fatalStop("characteristic discovery failed");
  for (const CharacteristicPtr& characteristic : *characteristics) {
    // By UUID alone, whichever service the characteristic came from.
    if (characteristic->uuid() == penColorCharUUID())
      peripheral->setNotifyValue(true, characteristic);
    if (characteristic->uuid() == batteryLevelCharUUID()) {
      logLine(QStringLiteral(" 電池 characteristic : ") + characteristic->description());
      PeripheralPtr current;
      {
        std::lock_guard lock(mutex_);
        batteryCBCharacteristic = characteristic;
        current = peripheralQuilla;
      }
      if (current) current->readValue(characteristic);
    }
  }
}

void CoreQuilla::peripheralDidUpdateValue(const PeripheralPtr&,
                                          const CharacteristicPtr& characteristic) {
  // Battery answers are not handled here: getBatteryLevel reads the stored value.
  if (characteristic->uuid() == penColorCharUUID()) decodeColorPacket(characteristic);
}

void CoreQuilla::decodeColorPacket(const CharacteristicPtr& characteristic) {
  const ColorPacket packet = pen::decodeColorPacket(characteristic->value());
  ColorStruct color = ColorStruct::fromChannels(packet.red, packet.green, packet.blue);
  logLine(QStringLiteral("buffer[0] :  ") + QString::number(packet.leading));
  logLine(color.colorHex);
  NotificationCenter::defaultCenter().post(
      notification::newColor(), std::move(color),
      UserInfo{{notification::quillaKey(), QStringLiteral("NewColor")}});
}

qint64 CoreQuilla::getBatteryLevel() {
  PeripheralPtr peripheral;
  CharacteristicPtr characteristic;
  {
    std::lock_guard lock(mutex_);
    peripheral = peripheralQuilla;
    characteristic = batteryCBCharacteristic;
  }
  qint64 level = 0;
  bool read = false;
  if (peripheral && characteristic) {
    // The stored value is taken just before the read is started: the answer
    // only refreshes it for the next call. Over a radio the answer always
    // comes later; over a fast local bus it could otherwise land in between.
    const std::optional<QByteArray> value = characteristic->value();
    peripheral->readValue(characteristic);
    level = batteryLevelFromValue(value);
    read = value.has_value();
    logLine(QStringLiteral("Batter Level: ") + QString::number(level) + QStringLiteral(" %"));
  }
  std::lock_guard lock(mutex_);
  batteryLevel = level;
  readBatteryLevel_ = read ? std::optional<qint64>(level) : std::nullopt;
  return level;
}

}  // namespace tw::pen
