// BlueZ's object tree as the backend mirrors it, without any bus: the trees
// and changes here have the shapes BluezProperties reads off the bus.
#include "pen/bluez/ObjectMirror.h"

#include <gtest/gtest.h>

#include "pen/BluetoothUuid.h"
#include "pen/CentralManager.h"

namespace tw::pen::bluez {
namespace {

const QString kHci0 = QStringLiteral("/org/bluez/hci0");
const QString kHci1 = QStringLiteral("/org/bluez/hci1");
const QString kPen = QStringLiteral("/org/bluez/hci0/dev_AA_BB_CC_DD_EE_01");

Interfaces adapter(std::optional<bool> powered) {
  QVariantMap props;
  if (powered) props.insert(QStringLiteral("Powered"), *powered);
  return {{kAdapter1, props}};
}

Interfaces device(const QString& address, const QStringList& uuids = {}) {
  return {{kDevice1, {{QStringLiteral("Address"), address}, {QStringLiteral("UUIDs"), uuids}}}};
}

Interfaces gatt(const QString& interface, const QString& uuid) {
  return {{interface, {{QStringLiteral("UUID"), uuid}}}};
}

ObjectMirror loaded(const ObjectTree& tree) {
  ObjectMirror mirror;
  mirror.load(tree);
  return mirror;
}

TEST(ObjectMirror, BeforeAnyAnswerBluezIsAbsentAndTheStateUnsupported) {
  const ObjectMirror mirror;
  EXPECT_FALSE(mirror.present());
  EXPECT_EQ(mirror.stateCode(), CentralManager::kUnsupported);
  EXPECT_TRUE(mirror.adapterPath().isEmpty());
}

TEST(ObjectMirror, AMalformedObjectListCountsAsNoBluez) {
  ObjectMirror mirror = loaded({{kHci0, adapter(true)}});
  mirror.load(std::nullopt);
  EXPECT_FALSE(mirror.present());
  EXPECT_FALSE(mirror.holds(kHci0));
  EXPECT_EQ(mirror.stateCode(), CentralManager::kUnsupported);
}

TEST(ObjectMirror, BluezWithoutAnAdapterIsUnsupported) {
  const ObjectMirror mirror = loaded({{kPen, device(QStringLiteral("AA:BB:CC:DD:EE:01"))}});
  EXPECT_TRUE(mirror.present());
  EXPECT_EQ(mirror.stateCode(), CentralManager::kUnsupported);
  EXPECT_TRUE(mirror.devicePaths().isEmpty());
}

TEST(ObjectMirror, TheAdapterWithTheLowestPathIsTheOneInUseAndItsPoweredIsTheState) {
  EXPECT_EQ(loaded({{kHci1, adapter(false)}, {kHci0, adapter(true)}}).adapterPath(), kHci0);
  EXPECT_EQ(loaded({{kHci1, adapter(false)}, {kHci0, adapter(true)}}).stateCode(),
            CentralManager::kPoweredOn);
  EXPECT_EQ(loaded({{kHci0, adapter(false)}}).stateCode(), CentralManager::kPoweredOff);
  // A Powered that is missing (or was of another type, so dropped) reads as off.
  EXPECT_EQ(loaded({{kHci0, adapter(std::nullopt)}}).stateCode(), CentralManager::kPoweredOff);
}

TEST(ObjectMirror, AddedInterfacesAreIgnoredWhileBluezIsAbsent) {
  ObjectMirror mirror;
  EXPECT_FALSE(mirror.add(kHci0, adapter(true)));
  EXPECT_FALSE(mirror.holds(kHci0));
}

TEST(ObjectMirror, AnAdapterComingOrGoingIsAStateChangeAndADeviceIsNot) {
  ObjectMirror mirror = loaded({});
  EXPECT_TRUE(mirror.add(kHci1, adapter(true)));
  EXPECT_FALSE(mirror.add(QStringLiteral("/org/bluez/hci1/dev_AA_BB_CC_DD_EE_02"),
                          device(QStringLiteral("AA:BB:CC:DD:EE:02"))));
  // hci0 sorts first: it becomes the adapter in use.
  EXPECT_TRUE(mirror.add(kHci0, adapter(false)));
  EXPECT_EQ(mirror.adapterPath(), kHci0);
  EXPECT_EQ(mirror.stateCode(), CentralManager::kPoweredOff);
  EXPECT_TRUE(mirror.devicePaths().isEmpty());
  EXPECT_TRUE(mirror.remove(kHci0, {kAdapter1}));
  EXPECT_EQ(mirror.adapterPath(), kHci1);
  EXPECT_EQ(mirror.devicePaths(),
            QStringList{QStringLiteral("/org/bluez/hci1/dev_AA_BB_CC_DD_EE_02")});
}

TEST(ObjectMirror, AnObjectLeftWithoutInterfacesIsForgotten) {
  ObjectMirror mirror = loaded({{kHci0, adapter(true)}});
  Interfaces both = device(QStringLiteral("AA:BB:CC:DD:EE:01"));
  both.insert(kBattery1, {{QStringLiteral("Percentage"), QVariant::fromValue<uchar>(80)}});
  mirror.add(kPen, both);
  EXPECT_FALSE(mirror.remove(kPen, {kBattery1}));
  EXPECT_TRUE(mirror.holds(kPen));
  EXPECT_FALSE(mirror.has(kPen, kBattery1));
  mirror.remove(kPen, {kDevice1});
  EXPECT_FALSE(mirror.holds(kPen));
  EXPECT_FALSE(mirror.remove(kPen, {kDevice1}));
}

TEST(ObjectMirror, ChangesApplyOnlyToAnInterfaceTheObjectHas) {
  ObjectMirror mirror = loaded({{kHci0, adapter(false)}});
  EXPECT_FALSE(mirror.change(kPen, kDevice1, {{QStringLiteral("Connected"), true}}, {}));
  EXPECT_FALSE(mirror.holds(kPen));
  EXPECT_FALSE(mirror.change(kHci0, kDevice1, {{QStringLiteral("Connected"), true}}, {}));
  EXPECT_FALSE(mirror.has(kHci0, kDevice1));
  EXPECT_TRUE(mirror.change(kHci0, kAdapter1, {{QStringLiteral("Powered"), true}}, {}));
  EXPECT_EQ(mirror.stateCode(), CentralManager::kPoweredOn);
  EXPECT_TRUE(mirror.change(kHci0, kAdapter1, {}, {QStringLiteral("Powered")}));
  EXPECT_EQ(mirror.stateCode(), CentralManager::kPoweredOff);
}

TEST(ObjectMirror, DevicesAreTheDirectChildrenOfTheAdapterInUseInPathOrder) {
  const QString second = kHci0 + QStringLiteral("/dev_AA_BB_CC_DD_EE_02");
  const ObjectMirror mirror =
      loaded({{kHci0, adapter(true)},
              {second, device(QStringLiteral("AA:BB:CC:DD:EE:02"))},
              {kPen, device(QStringLiteral("AA:BB:CC:DD:EE:01"))},
              {kPen + QStringLiteral("/service0001"), device(QStringLiteral("AA:BB:CC:DD:EE:03"))},
              {kHci1, adapter(true)},
              {kHci1 + QStringLiteral("/dev_AA_BB_CC_DD_EE_04"),
               device(QStringLiteral("AA:BB:CC:DD:EE:04"))}});
  EXPECT_EQ(mirror.devicePaths(), (QStringList{kPen, second}));
  EXPECT_TRUE(mirror.isDevice(kPen));
  EXPECT_FALSE(mirror.isDevice(kHci1 + QStringLiteral("/dev_AA_BB_CC_DD_EE_04")));
  EXPECT_FALSE(mirror.isDevice(kHci0));
}

TEST(ObjectMirror, ADevicesIdentifierIsItsAddressAndNullWithoutOne) {
  const ObjectMirror mirror =
      loaded({{kHci0, adapter(true)},
              {kPen, device(QStringLiteral("aa:bb:cc:dd:ee:01"))},
              {kHci0 + QStringLiteral("/dev_x"), device(QStringLiteral("not an address"))}});
  EXPECT_EQ(mirror.identifierOf(kPen),
            QUuid::fromString(QStringLiteral("00000000-0000-0000-0000-AABBCCDDEE01")));
  EXPECT_TRUE(mirror.identifierOf(kHci0 + QStringLiteral("/dev_x")).isNull());
  EXPECT_TRUE(mirror.identifierOf(kHci0 + QStringLiteral("/dev_missing")).isNull());
}

TEST(ObjectMirror, ADeviceOffersTheServicesItsUuidsListInAnyForm) {
  const ObjectMirror mirror = loaded(
      {{kHci0, adapter(true)},
       {kPen,
        device(QStringLiteral("AA:BB:CC:DD:EE:01"),
               {QStringLiteral("00001f1f-0000-1000-8000-00805f9b34fb"), QStringLiteral("junk")})}});
  EXPECT_TRUE(mirror.offersAny(kPen, {penServiceUUID()}));
  EXPECT_TRUE(mirror.offersAny(kPen, {batteryServiceUUID(), penServiceUUID()}));
  EXPECT_FALSE(mirror.offersAny(kPen, {batteryServiceUUID()}));
  EXPECT_FALSE(mirror.offersAny(kPen, {}));
}

TEST(ObjectMirror, ServicesAndCharacteristicsAreDirectChildrenInPathOrder) {
  const QString s1 = kPen + QStringLiteral("/service0010");
  const QString s2 = kPen + QStringLiteral("/service0020");
  const QString c1 = s1 + QStringLiteral("/char0011");
  const QString c2 = s1 + QStringLiteral("/char0013");
  const ObjectMirror mirror = loaded(
      {{kHci0, adapter(true)},
       {kPen, device(QStringLiteral("AA:BB:CC:DD:EE:01"))},
       {s2, gatt(kGattService1, QStringLiteral("0000180f-0000-1000-8000-00805f9b34fb"))},
       {s1, gatt(kGattService1, QStringLiteral("00001f1f-0000-1000-8000-00805f9b34fb"))},
       {c2, gatt(kGattCharacteristic1, QStringLiteral("no uuid"))},
       {c1, gatt(kGattCharacteristic1, QStringLiteral("00001f16-0000-1000-8000-00805f9b34fb"))},
       {c1 + QStringLiteral("/desc0012"),
        gatt(kGattCharacteristic1, QStringLiteral("00002902-0000-1000-8000-00805f9b34fb"))}});
  EXPECT_EQ(mirror.servicesOf(kPen),
            (QList<ObjectMirror::Child>{{s1, penServiceUUID()}, {s2, batteryServiceUUID()}}));
  EXPECT_EQ(mirror.characteristicsOf(s1),
            (QList<ObjectMirror::Child>{{c1, penColorCharUUID()}, {c2, QUuid()}}));
  EXPECT_TRUE(mirror.characteristicsOf(s2).isEmpty());
  EXPECT_TRUE(mirror.hasExportedBattery(kPen));
}

TEST(ObjectMirror, Battery1IsPresentedOnlyWhenNoBatteryServiceIsExported) {
  Interfaces withBattery = device(QStringLiteral("AA:BB:CC:DD:EE:01"));
  withBattery.insert(kBattery1, {{QStringLiteral("Percentage"), QVariant::fromValue<uchar>(80)}});
  ObjectMirror mirror = loaded({{kHci0, adapter(true)}, {kPen, withBattery}});
  EXPECT_TRUE(mirror.presentsBattery(kPen));
  mirror.add(kPen + QStringLiteral("/service0020"), gatt(kGattService1, QStringLiteral("180F")));
  EXPECT_FALSE(mirror.presentsBattery(kPen));
}

TEST(ObjectMirror, AnAnnouncedBatteryIsMissingUntilBattery1OrTheServiceArrives) {
  ObjectMirror mirror =
      loaded({{kHci0, adapter(true)},
              {kPen, device(QStringLiteral("AA:BB:CC:DD:EE:01"),
                            {QStringLiteral("0000180F-0000-1000-8000-00805F9B34FB")})}});
  EXPECT_TRUE(mirror.batteryAnnouncedButMissing(kPen));
  mirror.add(kPen, {{kBattery1, {}}});
  EXPECT_FALSE(mirror.batteryAnnouncedButMissing(kPen));
  mirror.remove(kPen, {kBattery1});
  EXPECT_TRUE(mirror.batteryAnnouncedButMissing(kPen));
  mirror.add(kPen + QStringLiteral("/service0020"), gatt(kGattService1, QStringLiteral("180f")));
  EXPECT_FALSE(mirror.batteryAnnouncedButMissing(kPen));
  // Not announced: nothing to wait for.
  EXPECT_FALSE(loaded({{kHci0, adapter(true)}, {kPen, device(QStringLiteral("AA:BB:CC:DD:EE:01"))}})
                   .batteryAnnouncedButMissing(kPen));
}

TEST(ObjectMirror, VanishingForgetsEverythingAndNamesWhatWasThere) {
  ObjectMirror mirror =
      loaded({{kHci0, adapter(true)}, {kPen, device(QStringLiteral("AA:BB:CC:DD:EE:01"))}});
  EXPECT_EQ(mirror.vanish(), (QStringList{kHci0, kPen}));
  EXPECT_FALSE(mirror.present());
  EXPECT_FALSE(mirror.holds(kPen));
  EXPECT_EQ(mirror.stateCode(), CentralManager::kUnsupported);
}

}  // namespace
}  // namespace tw::pen::bluez
