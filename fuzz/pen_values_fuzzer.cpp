// The pen's characteristic values through the link itself: colour
// notifications into CoreQuilla::peripheralDidUpdateValue and battery values
// into CoreQuilla::getBatteryLevel, over small in-process stand-ins for the
// peripheral. Values that reach a designed stop (a colour packet shorter than
// four bytes, an empty battery value) are only checked to be exactly those and
// are not delivered.
//
// Input: byte 0 picks colour (even) or battery (odd) and, in bit 1, whether the
// value is absent; bit 2 gives the characteristic another UUID; the rest is the value.
#include <QCoreApplication>
#include <QMutex>
#include <any>
#include <cstdint>
#include <memory>

#include "FuzzInput.h"
#include "color/ColorStruct.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"
#include "pen/BluetoothUuid.h"
#include "pen/CoreQuilla.h"
#include "pen/PenValues.h"

namespace tw::pen {
namespace {

class StandInCharacteristic : public Characteristic {
 public:
  explicit StandInCharacteristic(QUuid uuid) : uuid_(uuid) {}
  QUuid uuid() const override { return uuid_; }
  QString description() const override { return shortUuidText(uuid_); }
  std::optional<QByteArray> value() const override { return value_; }
  void setValue(std::optional<QByteArray> value) { value_ = std::move(value); }

 private:
  QUuid uuid_;
  std::optional<QByteArray> value_;
};

class StandInService : public Service {
 public:
  explicit StandInService(QList<CharacteristicPtr> characteristics)
      : characteristics_(std::move(characteristics)) {}
  QUuid uuid() const override { return batteryServiceUUID(); }
  QString description() const override { return QStringLiteral("battery"); }
  std::optional<QList<CharacteristicPtr>> characteristics() const override {
    return characteristics_;
  }

 private:
  QList<CharacteristicPtr> characteristics_;
};

class StandInPeripheral : public Peripheral {
 public:
  std::optional<QString> name() const override { return QStringLiteral("QUILLA-Pen 02"); }
  QUuid identifier() const override { return {}; }
  int state() const override { return kConnected; }
  void setDelegate(PeripheralDelegate*) override {}
  void discoverServices() override {}
  std::optional<QList<ServicePtr>> services() const override { return std::nullopt; }
  void discoverCharacteristics(const ServicePtr&) override {}
  void setNotifyValue(bool, const CharacteristicPtr&) override {}
  void readValue(const CharacteristicPtr&) override { ++reads; }
  int reads = 0;
};

// Reached only through its reference in the discovery report; the link was
// never set up, so it holds no central of its own to call.
class StandInCentral : public CentralManager {
 public:
  int state() const override { return kPoweredOn; }
  QList<PeripheralPtr> retrievePeripheralsWithIdentifiers(const QList<QUuid>&) override {
    return {};
  }
  QList<PeripheralPtr> retrieveConnectedPeripheralsWithServices(const QList<QUuid>&) override {
    return {};
  }
  void scanForPeripheralsWithServices(const std::optional<QList<QUuid>>&) override {}
  void stopScan() override {}
  void connectPeripheral(const PeripheralPtr&) override {}
};

struct Harness {
  std::unique_ptr<CoreQuilla> link;
  std::shared_ptr<StandInPeripheral> peripheral = std::make_shared<StandInPeripheral>();
  std::shared_ptr<StandInCharacteristic> color =
      std::make_shared<StandInCharacteristic>(penColorCharUUID());
  std::shared_ptr<StandInCharacteristic> battery =
      std::make_shared<StandInCharacteristic>(batteryLevelCharUUID());
  std::shared_ptr<StandInCharacteristic> other =
      std::make_shared<StandInCharacteristic>(uuidFrom16Bit(0x2A00));
  QList<ColorStruct> posted;
};

Harness& harness() {
  static Harness* h = [] {
    auto* made = new Harness;
    NotificationCenter::defaultCenter().addObserver(
        notification::newColor(), [made](const Notification& n) {
          made->posted.append(std::any_cast<ColorStruct>(n.object));
        });
    made->link = std::make_unique<CoreQuilla>(
        [](CentralDelegate*, QThread*) { return std::unique_ptr<CentralManager>(); });
    // The pen found by a scan, then its battery characteristic: what the link
    // needs before getBatteryLevel reads anything.
    StandInCentral central;
    made->link->centralManagerDidDiscoverPeripheral(central, made->peripheral);
    made->link->peripheralDidDiscoverCharacteristics(
        made->peripheral,
        std::make_shared<StandInService>(QList<CharacteristicPtr>{made->battery}));
    return made;
  }();
  return *h;
}

QString hexOf(const QByteArray& value) {
  return QString::fromLatin1(value.mid(1, 3).toHex().toUpper());
}

void colourValue(const std::optional<QByteArray>& value, bool otherUuid) {
  Harness& h = harness();
  h.posted.clear();
  if (otherUuid) {
    // Only the colour characteristic is decoded, whatever the value holds.
    h.other->setValue(value);
    h.link->peripheralDidUpdateValue(h.peripheral, h.other);
    TW_FUZZ_CHECK(h.posted.isEmpty());
    return;
  }
  if (const auto cause = colorPacketStop(value)) {
    TW_FUZZ_CHECK(!value || value->size() < 4);
    TW_FUZZ_CHECK(*cause == (value ? std::string_view("colour packet shorter than 4 bytes")
                                   : std::string_view("colour characteristic without a value")));
    return;
  }
  TW_FUZZ_CHECK(value && value->size() >= 4);
  const ColorPacket packet = decodeColorPacket(value);
  const auto at = [&](int i) { return static_cast<qint64>(static_cast<quint8>(value->at(i))); };
  TW_FUZZ_CHECK(packet.leading == at(0) && packet.red == at(1) && packet.green == at(2) &&
                packet.blue == at(3));

  h.color->setValue(value);
  h.link->peripheralDidUpdateValue(h.peripheral, h.color);
  TW_FUZZ_CHECK(h.posted.size() == 1);
  const ColorStruct& color = h.posted.first();
  TW_FUZZ_CHECK(color.iR == at(1) && color.iG == at(2) && color.iB == at(3));
  // Six upper-case hexadecimal digits of bytes 1 to 3, whatever else the value holds.
  TW_FUZZ_CHECK(color.colorHex == hexOf(*value));
  TW_FUZZ_CHECK(color == ColorStruct::fromChannels(at(1), at(2), at(3)));
}

void batteryValue(const std::optional<QByteArray>& value) {
  Harness& h = harness();
  if (const auto cause = batteryValueStop(value)) {
    TW_FUZZ_CHECK(value && value->isEmpty());
    TW_FUZZ_CHECK(*cause == std::string_view("empty battery level value"));
    return;
  }
  const qint64 expected = value ? static_cast<quint8>(value->at(0)) : 0;
  TW_FUZZ_CHECK(batteryLevelFromValue(value) == expected);
  h.battery->setValue(value);
  const int readsBefore = h.peripheral->reads;
  const qint64 level = h.link->getBatteryLevel();
  TW_FUZZ_CHECK(level == expected && level >= 0 && level <= 255);
  TW_FUZZ_CHECK(h.link->currentBatteryLevel() == std::optional<qint64>(expected));
  // Every call starts the next read.
  TW_FUZZ_CHECK(h.peripheral->reads == readsBefore + 1);
}

}  // namespace
}  // namespace tw::pen

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  static QCoreApplication app(*argc, *argv);
  tw::pen::harness();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tw::testing::FuzzInput in(data, size);
  const std::uint8_t mode = in.byte();
  std::optional<QByteArray> value;
  if ((mode & 2) == 0) value = in.rest();
  if ((mode & 1) == 0)
    tw::pen::colourValue(value, (mode & 4) != 0);
  else
    tw::pen::batteryValue(value);
  return 0;
}
