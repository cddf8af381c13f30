// CoreQuilla over the BlueZ backend, against the fake BlueZ on a private
// system bus: the connection procedure, the data channel and bad input.
#include <gtest/gtest.h>

#include <QElapsedTimer>

#include "common/TimeScale.h"
#include "pen/BluetoothUuid.h"
#include "pen/CoreQuilla.h"
#include "pen/bluez/BluezCentral.h"
#include "tests/pen/FakeBluezProcess.h"
#include "tests/pen/PenTestSupport.h"

namespace tw::pen {
namespace {

using testing::FakeBluez;
using testing::LogCapture;
using testing::PostRecorder;
using testing::waitFor;

const QString kA = QStringLiteral("AA:BB:CC:DD:EE:01");
const QString kB = QStringLiteral("AA:BB:CC:DD:EE:02");
const QString kC = QStringLiteral("AA:BB:CC:DD:EE:03");
const QString kIdA = QStringLiteral("00000000-0000-0000-0000-AABBCCDDEE01");
const QString kIdB = QStringLiteral("00000000-0000-0000-0000-AABBCCDDEE02");
const QString kStrategy2 = QStringLiteral("try 招式2 ~ using scan to connect ");
const QString kStrategy3 = QStringLiteral(
    "try 招式3 ~ 現在已過了 x 秒且沒有連到之前存的裝置，現在試取得已在系統連線的第一個裝置 ");
const QString kPoweredOn = QStringLiteral("Bluetooth status is POWERED ON");
const QString kPenFilter =
    QStringLiteral("SetDiscoveryFilter Transport=le UUIDs=00001f1f-0000-1000-8000-00805f9b34fb");

testing::PrivateBus& bus() {
  // Ended with the process (its destructor stops the daemon).
  static testing::PrivateBus b;
  static const bool exported = [] {
    // Before the first use of the system bus in this process.
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", b.address().toUtf8());
    return true;
  }();
  (void)exported;
  return b;
}

QVariantMap opts(std::initializer_list<std::pair<const char*, QVariant>> list) {
  QVariantMap map;
  for (const auto& [k, v] : list) map.insert(QString::fromLatin1(k), v);
  return map;
}

class BluezLinkTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    testing::usePenTestEnvironment();
    bus();
    PostRecorder::instance();
  }
  void SetUp() override {
    testing::clearSavedPen();
    PostRecorder::instance().clear();
    fake_ = std::make_unique<FakeBluez>(bus().address());
    ASSERT_TRUE(fake_->ready());
  }
  void TearDown() override {
    quilla_.reset();
    fake_.reset();
  }
  void start() {
    quilla_ = std::make_unique<CoreQuilla>();
    quilla_->setupCentralManager();
  }
  bool waitForCall(const QString& call, int ms = 5000) {
    return waitFor([&] { return fake_->calls().contains(call); }, ms);
  }
  size_t posts(const QString& name) { return PostRecorder::instance().posts(name).size(); }
  // A pen the system has connected already: strategy 3 takes it.
  void connectSystemPen(const QVariantMap& extra = {}) {
    fake_->addAdapter(QStringLiteral("hci0"));
    QVariantMap o = opts({{"connected", true}});
    for (auto it = extra.constBegin(); it != extra.constEnd(); ++it) o.insert(it.key(), it.value());
    fake_->addDevice(kA, o);
    start();
    ASSERT_TRUE(waitForCall(QStringLiteral("StartNotify ") + kA + QStringLiteral(" 1F16")));
  }
  static QStringList after(const QStringList& lines, const QString& marker) {
    const qsizetype i = lines.lastIndexOf(marker);
    return i < 0 ? QStringList() : lines.mid(i + 1);
  }

  LogCapture out_;
  std::unique_ptr<FakeBluez> fake_;
  std::unique_ptr<CoreQuilla> quilla_;
};

TEST(BluezIdentifierTest, AddressBecomesTheCanonicalIdentifier) {
  EXPECT_EQ(
      canonicalUuidText(BluezCentral::identifierForAddress(QStringLiteral("aa:bb:cc:dd:ee:01"))),
      kIdA);
  EXPECT_TRUE(BluezCentral::identifierForAddress(QStringLiteral("garbage")).isNull());
}

TEST_F(BluezLinkTest, WithoutSavedKeyTheScanLineComesAfterTheDelay) {
  fake_->addAdapter(QStringLiteral("hci0"));
  QElapsedTimer clock;
  start();
  ASSERT_TRUE(out_.waitForLine(kPoweredOn));
  clock.start();
  ASSERT_TRUE(out_.waitForLine(kStrategy2));
  EXPECT_GE(clock.elapsed(), tw::scaledMs(2.5) - 20);
  EXPECT_EQ(after(out_.lines(), kPoweredOn), QStringList{kStrategy2});
  ASSERT_TRUE(waitFor([&] { return fake_->calls().count(QStringLiteral("StartDiscovery")) == 2; }));
  // The filtered scan first, then the unfiltered one that stays in force.
  EXPECT_EQ(fake_->calls().mid(1), (QStringList{kPenFilter, QStringLiteral("StartDiscovery"),
                                                QStringLiteral("SetDiscoveryFilter Transport=le"),
                                                QStringLiteral("StartDiscovery")}));
}

TEST_F(BluezLinkTest, GarbageSavedTextIsPrintedAndNothingElseUntilTheDelay) {
  testing::savePen(QStringLiteral("garbage"));
  fake_->addAdapter(QStringLiteral("hci0"));
  start();
  ASSERT_TRUE(out_.waitForLine(QStringLiteral("defaults savedQuillaUUID: garbage")));
  testing::spin(tw::scaledMs(2.5) / 2);
  EXPECT_EQ(after(out_.lines(), kPoweredOn),
            QStringList{QStringLiteral("defaults savedQuillaUUID: garbage")});
  ASSERT_TRUE(out_.waitForLine(kStrategy2));
}

TEST_F(BluezLinkTest, DiscoveryTakesQuillaNamesOnlyAndNeverAnUnnamedPeripheral) {
  fake_->addAdapter(QStringLiteral("hci0"));
  fake_->addDevice(kA, opts({{"known", false}, {"advertising", true}, {"name", "Qui lla"}}));
  fake_->addDevice(kC, opts({{"known", false}, {"advertising", true}}));
  fake_->addDevice(kB, opts({{"known", false}, {"advertising", true}, {"name", "QUILLA-Pen 02"}}));
  start();
  ASSERT_TRUE(waitFor([&] { return testing::savedPen() == kIdB; }));
  const QStringList calls = fake_->calls();
  EXPECT_TRUE(calls.contains(QStringLiteral("Connect ") + kB));
  EXPECT_FALSE(calls.contains(QStringLiteral("Connect ") + kA));
  EXPECT_FALSE(calls.contains(QStringLiteral("Connect ") + kC));
  const QStringList lines = after(out_.lines(), kStrategy2);
  ASSERT_GE(lines.size(), 6);
  EXPECT_EQ(lines.mid(0, 6),
            (QStringList{
                QStringLiteral("!!  從招式2 (scanForPeripherals) 來的回應 "),
                QStringLiteral("QUILLA-Pen 02"), QStringLiteral("身份證id : identifier -  ") + kIdB,
                QStringLiteral("Peripheral state: disconnected"), QStringLiteral("connected hihi"),
                QStringLiteral("Peripheral state: connected")}));
  ASSERT_TRUE(waitFor([&] { return posts(notification::connectedQuilla()) == 1; }));
}

TEST_F(BluezLinkTest, StrategyThreeTakesTheFirstSystemConnectedPenWhateverItsName) {
  connectSystemPen();
  EXPECT_TRUE(out_.lines().contains(kStrategy3));
  EXPECT_EQ(testing::savedPen(), kIdA);  // saved for the next start
  const QStringList calls = fake_->calls();
  EXPECT_FALSE(calls.contains(QStringLiteral("StartDiscovery")));
  EXPECT_FALSE(calls.contains(QStringLiteral("StopDiscovery")));
  EXPECT_TRUE(calls.contains(QStringLiteral("Connect ") + kA));
}

TEST_F(BluezLinkTest, SavedPenIsConnectedFirstOnTheNextStart) {
  testing::savePen(kIdA);
  fake_->addAdapter(QStringLiteral("hci0"));
  fake_->addDevice(kA, opts({{"name", "x"}}));
  start();
  ASSERT_TRUE(waitForCall(QStringLiteral("StartNotify ") + kA + QStringLiteral(" 1F16")));
  EXPECT_EQ(after(out_.lines(), kPoweredOn).mid(0, 4),
            (QStringList{QStringLiteral("defaults savedQuillaUUID: ") + kIdA,
                         QStringLiteral("try 招式1 ~ 取已存檔的 savedQuillaUUID "),
                         QStringLiteral("connected hihi"),
                         QStringLiteral("Peripheral state: connected")}));
  testing::spin(tw::scaledMs(2.5) + 100);
  EXPECT_FALSE(out_.lines().contains(kStrategy2));
  EXPECT_FALSE(out_.lines().contains(kStrategy3));
}

TEST_F(BluezLinkTest, SavedPenStillConnectingAtTheCheckIsReplacedByADiscoveredPen) {
  testing::savePen(kIdA);
  fake_->addAdapter(QStringLiteral("hci0"));
  fake_->addDevice(kA, opts({{"name", "Quilla A"}, {"connect", "hang"}}));
  fake_->addDevice(kB, opts({{"known", false}, {"advertising", true}, {"name", "Quilla B"}}));
  start();
  ASSERT_TRUE(waitFor([&] { return testing::savedPen() == kIdB; }));
  const QStringList calls = fake_->calls();
  EXPECT_LT(calls.indexOf(QStringLiteral("Connect ") + kA),
            calls.indexOf(QStringLiteral("StartDiscovery")));
  EXPECT_LT(calls.indexOf(QStringLiteral("StartDiscovery")),
            calls.indexOf(QStringLiteral("Connect ") + kB));
  EXPECT_TRUE(out_.lines().contains(kStrategy2));
  ASSERT_TRUE(quilla_->currentPeripheralQuilla());
  EXPECT_EQ(canonicalUuidText(quilla_->currentPeripheralQuilla()->identifier()), kIdB);
}

TEST_F(BluezLinkTest, TwoAdvertisementsBeforeTheStopBothConnectAndTheLaterIsKept) {
  fake_->addAdapter(QStringLiteral("hci0"));
  fake_->addDevice(kA, opts({{"known", false}, {"advertising", true}, {"name", "quilla a"}}));
  fake_->addDevice(kB, opts({{"known", false}, {"advertising", true}, {"name", "quilla b"}}));
  start();
  ASSERT_TRUE(waitForCall(QStringLiteral("StartNotify ") + kB + QStringLiteral(" 1F16")));
  ASSERT_TRUE(waitFor([&] { return posts(notification::connectedQuilla()) == 2; }));
  const QStringList calls = fake_->calls();
  EXPECT_LT(calls.indexOf(QStringLiteral("Connect ") + kA),
            calls.indexOf(QStringLiteral("Connect ") + kB));
  EXPECT_EQ(canonicalUuidText(quilla_->currentPeripheralQuilla()->identifier()), kIdB);
  // The walk follows the kept pen only.
  EXPECT_FALSE(calls.contains(QStringLiteral("StartNotify ") + kA + QStringLiteral(" 1F16")));
}

TEST_F(BluezLinkTest, DisconnectionPostsOnceAndNothingFollowsUntilPowerReturns) {
  connectSystemPen();
  testing::spin(tw::scaledMs(2.5) + 50);
  fake_->clearCalls();
  fake_->call(QStringLiteral("Disconnect"), {kA});
  ASSERT_TRUE(waitFor([&] { return posts(notification::disconnected()) == 1; }));
  testing::spin(tw::scaledMs(2.5) + 100);
  EXPECT_EQ(posts(notification::disconnected()), 1u);
  EXPECT_EQ(PostRecorder::instance().posts(notification::disconnected())[0].userInfo,
            (UserInfo{{QStringLiteral("Quilla"), QStringLiteral("Device Disconnected")}}));
  EXPECT_TRUE(fake_->calls().isEmpty()) << fake_->calls().join(QLatin1Char('|')).toStdString();
  fake_->call(QStringLiteral("SetPowered"), {QStringLiteral("hci0"), false});
  ASSERT_TRUE(out_.waitForLine(QStringLiteral("Bluetooth status is POWERED OFF")));
  fake_->call(QStringLiteral("SetPowered"), {QStringLiteral("hci0"), true});
  // The saved pen is tried first, then the fallback decides.
  ASSERT_TRUE(waitForCall(QStringLiteral("Connect ") + kA));
  EXPECT_EQ(after(out_.lines(), kPoweredOn).value(1),
            QStringLiteral("try 招式1 ~ 取已存檔的 savedQuillaUUID "));
}

// Data channel.

TEST_F(BluezLinkTest, PacketGivesItsColourTwoLinesAndOnePost) {
  connectSystemPen();
  ASSERT_TRUE(fake_->sendColor(kA, QByteArray::fromHex("01FF8000")));
  ASSERT_TRUE(waitFor([&] { return posts(notification::newColor()) == 1; }));
  const auto post = PostRecorder::instance().posts(notification::newColor())[0];
  EXPECT_EQ(*post.color, ColorStruct::fromChannels(255, 128, 0));
  EXPECT_EQ(post.color->colorHex, QStringLiteral("FF8000"));
  EXPECT_EQ(post.threadName, QStringLiteral("Orlo.Tintwell"));
  EXPECT_EQ(after(out_.lines(), QStringLiteral("buffer[0] :  1")).value(0),
            QStringLiteral("FF8000"));
}

TEST_F(BluezLinkTest, FifthByteIsIgnored) {
  connectSystemPen();
  ASSERT_TRUE(fake_->sendColor(kA, QByteArray::fromHex("000A0B0C0D")));
  ASSERT_TRUE(waitFor([&] { return posts(notification::newColor()) == 1; }));
  EXPECT_EQ(PostRecorder::instance().posts(notification::newColor())[0].color->colorHex,
            QStringLiteral("0A0B0C"));
}

TEST_F(BluezLinkTest, TwoIdenticalPacketsGiveTwoIdenticalPosts) {
  connectSystemPen();
  ASSERT_TRUE(fake_->sendColor(kA, QByteArray::fromHex("01102030")));
  ASSERT_TRUE(fake_->sendColor(kA, QByteArray::fromHex("01102030")));
  ASSERT_TRUE(waitFor([&] { return posts(notification::newColor()) == 2; }));
  const auto colors = PostRecorder::instance().posts(notification::newColor());
  EXPECT_EQ(*colors[0].color, *colors[1].color);
}

TEST_F(BluezLinkTest, ColourCharacteristicUnderTheBatteryServiceIsStillServed) {
  connectSystemPen(opts({{"swap", true}, {"level", 64}}));
  ASSERT_TRUE(fake_->sendColor(kA, QByteArray::fromHex("0100FF00")));
  ASSERT_TRUE(waitFor([&] { return posts(notification::newColor()) == 1; }));
  ASSERT_TRUE(waitForCall(QStringLiteral("ReadValue ") + kA + QStringLiteral(" 2A19")));
}

TEST_F(BluezLinkTest, BatteryBeforeTheCharacteristicIsKnownIsZeroAndSilent) {
  fake_->addAdapter(QStringLiteral("hci0"), false);
  start();
  ASSERT_TRUE(out_.waitForLine(QStringLiteral("Bluetooth status is POWERED OFF")));
  const qsizetype lines = out_.lines().size();
  EXPECT_EQ(quilla_->getBatteryLevel(), 0);
  EXPECT_EQ(quilla_->currentBatteryLevel(), std::optional<qint64>(0));
  EXPECT_EQ(out_.lines().size(), lines);
}

class BluezBatteryTest : public BluezLinkTest, public ::testing::WithParamInterface<const char*> {};

// Both BlueZ behaviours: the exported Battery Service, and Battery1 alone
// (also when it appears after ServicesResolved).
TEST_P(BluezBatteryTest, BatteryReportsThePreviousReadUnclamped) {
  QVariantMap o = opts({{"battery", QString::fromLatin1(GetParam())}, {"level", 100}});
  if (QByteArray(GetParam()) == "battery1-late")
    o = opts({{"battery", "battery1"}, {"level", 100}, {"battery1DelayMs", 150}});
  fake_->addAdapter(QStringLiteral("hci0"));
  fake_->addDevice(kA, o.contains(QStringLiteral("battery1DelayMs")) ? o : o);
  testing::savePen(kIdA);
  start();
  ASSERT_TRUE(
      out_.waitForLine(QStringLiteral(" 電池 characteristic : <Characteristic UUID = 2A19>")));
  // The read issued at discovery has been answered once the level shows up.
  ASSERT_TRUE(waitFor([&] { return quilla_->getBatteryLevel() == 100; }));
  EXPECT_TRUE(out_.lines().contains(QStringLiteral("Batter Level: 100 %")));
  // Every read issued so far (one per printed level, and the discovery's) has
  // reached the fake before the level changes, so each was answered with 100.
  const auto reads = [&] {
    int n = 0;
    for (const QString& call : fake_->calls())
      n += call.startsWith(QStringLiteral("ReadValue ")) ||
           call.endsWith(QStringLiteral("org.bluez.Battery1.Percentage"));
    return n;
  };
  const int asked = int(out_.lines().filter(QStringLiteral("Batter Level: ")).size());
  ASSERT_TRUE(waitFor([&] { return reads() == asked + 1; }));
  fake_->call(QStringLiteral("SetBattery"), {kA, QVariant::fromValue(uchar(0xC8))});
  EXPECT_EQ(quilla_->getBatteryLevel(), 100)  // the previous read's answer
      << fake_->calls().join(QLatin1Char('|')).toStdString();
  ASSERT_TRUE(waitFor([&] { return quilla_->getBatteryLevel() == 200; }));
  EXPECT_EQ(quilla_->currentBatteryLevel(), std::optional<qint64>(200));
  EXPECT_TRUE(out_.lines().contains(QStringLiteral("Batter Level: 200 %")));
}

INSTANTIATE_TEST_SUITE_P(Behaviours, BluezBatteryTest,
                         ::testing::Values("gatt", "battery1", "battery1-late"),
                         [](const auto& info) {
                           QString n = QString::fromLatin1(info.param);
                           return n.remove(QLatin1Char('-')).toStdString();
                         });

// Bad input.

TEST_F(BluezLinkTest, NoBluezOnTheBusIsUnsupported) {
  fake_->call(QStringLiteral("ReleaseBluez"));
  start();
  ASSERT_TRUE(out_.waitForLine(QStringLiteral("Bluetooth status is UNSUPPORTED")));
}

TEST_F(BluezLinkTest, NoAdapterIsUnsupportedUntilOneAppears) {
  start();
  ASSERT_TRUE(out_.waitForLine(QStringLiteral("Bluetooth status is UNSUPPORTED")));
  fake_->addAdapter(QStringLiteral("hci0"));
  ASSERT_TRUE(out_.waitForLine(kPoweredOn));
  ASSERT_TRUE(out_.waitForLine(kStrategy2));
}

TEST_F(BluezLinkTest, BluezVanishingIsUnsupportedAndItsReturnRunsTheProcedureAgain) {
  connectSystemPen();
  fake_->call(QStringLiteral("ReleaseBluez"));
  ASSERT_TRUE(out_.waitForLine(QStringLiteral("Bluetooth status is UNSUPPORTED")));
  EXPECT_TRUE(waitFor([&] { return posts(notification::disconnected()) == 1; }));
  fake_->clearCalls();
  fake_->call(QStringLiteral("AcquireBluez"));
  ASSERT_TRUE(waitFor([&] { return out_.lines().count(kPoweredOn) == 2; }));
  ASSERT_TRUE(waitForCall(QStringLiteral("Connect ") + kA));
}

TEST_F(BluezLinkTest, AdapterSwitchedOffAndOnReportsBothStates) {
  connectSystemPen();
  fake_->call(QStringLiteral("SetPowered"), {QStringLiteral("hci0"), false});
  ASSERT_TRUE(out_.waitForLine(QStringLiteral("Bluetooth status is POWERED OFF")));
  ASSERT_TRUE(waitFor([&] { return posts(notification::disconnected()) == 1; }));
  fake_->call(QStringLiteral("SetPowered"), {QStringLiteral("hci0"), true});
  ASSERT_TRUE(waitFor([&] { return out_.lines().count(kPoweredOn) == 2; }));
}

TEST_F(BluezLinkTest, MalformedObjectListCountsAsNoBluez) {
  fake_->addAdapter(QStringLiteral("hci0"));
  fake_->call(QStringLiteral("Malformed"), {QStringLiteral("managed-objects")});
  start();
  ASSERT_TRUE(out_.waitForLine(QStringLiteral("Bluetooth status is UNSUPPORTED")));
}

TEST_F(BluezLinkTest, MalformedSignalsAndRepliesNeverCrashTheLink) {
  fake_->call(QStringLiteral("Malformed"), {QStringLiteral("connect")});
  connectSystemPen();
  fake_->call(QStringLiteral("Malformed"), {QStringLiteral("signals")});
  fake_->call(QStringLiteral("Malformed"), {QStringLiteral("read")});
  quilla_->getBatteryLevel();
  testing::spin(100);
  ASSERT_TRUE(fake_->sendColor(kA, QByteArray::fromHex("01010203")));
  ASSERT_TRUE(waitFor([&] { return posts(notification::newColor()) == 1; }));
  EXPECT_EQ(posts(notification::disconnected()), 0u);
  EXPECT_FALSE(out_.lines().contains(QStringLiteral("Bluetooth status is POWERED OFF")));
}

}  // namespace
}  // namespace tw::pen
