// CoreQuilla against the simulated central: the connection procedure, the GATT
// walk, packet decoding and the battery getter, with the real timers scaled.
#include "pen/CoreQuilla.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>

#include "common/TimeScale.h"
#include "pen/BluetoothUuid.h"
#include "tests/pen/PenTestSupport.h"
#include "tests/pen/simulated/SimulatedCentral.h"

namespace tw::pen {
namespace {

using testing::LogCapture;
using testing::PostRecorder;
using testing::waitFor;

const QUuid kPenA = QUuid::fromString(QStringLiteral("00000000-0000-0000-0000-AABBCCDDEE01"));
const QUuid kPenB = QUuid::fromString(QStringLiteral("00000000-0000-0000-0000-AABBCCDDEE02"));

SimulatedCentral::PeripheralConfig penConfig(QUuid id, std::optional<QString> name) {
  SimulatedCentral::PeripheralConfig config;
  config.identifier = id;
  config.name = std::move(name);
  config.advertisedServices = {penServiceUUID()};
  config.services = {{penServiceUUID(), {penColorCharUUID()}},
                     {batteryServiceUUID(), {batteryLevelCharUUID()}}};
  return config;
}

class CoreQuillaTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    testing::usePenTestEnvironment();
    PostRecorder::instance();
  }
  void SetUp() override {
    testing::clearSavedPen();
    PostRecorder::instance().clear();
  }

  // Starts the link with the simulated central reporting `state`; `before`
  // adds peripherals before the first report.
  void start(int state = CentralManager::kPoweredOn,
             const std::function<void(SimulatedCentral&)>& before = {}) {
    quilla_ = std::make_unique<CoreQuilla>([this, state, before](CentralDelegate* d, QThread* q) {
      auto central = std::make_unique<SimulatedCentral>(d, q, state, before);
      sim_ = central.get();
      return central;
    });
    quilla_->setupCentralManager();
  }
  // Waits until the queue thread has run everything posted so far.
  void drain() {
    std::atomic<bool> done{false};
    sim_->afterPending([&] { done = true; });
    ASSERT_TRUE(waitFor([&] { return done.load(); }));
  }
  bool waitForCall(const QString& call, int ms = 5000) {
    return waitFor([&] { return sim_->calls().contains(call); }, ms);
  }
  static QString connectCall(QUuid id) {
    return QStringLiteral("connect ") + canonicalUuidText(id);
  }
  // Lines printed after `marker`.
  static QStringList after(const QStringList& lines, const QString& marker) {
    const qsizetype i = lines.indexOf(marker);
    return i < 0 ? QStringList() : lines.mid(i + 1);
  }

  LogCapture out_;
  std::unique_ptr<CoreQuilla> quilla_;
  SimulatedCentral* sim_ = nullptr;
};

TEST_F(CoreQuillaTest, CreationTouchesNoBluetooth) {
  CoreQuilla quilla([](CentralDelegate*, QThread*) -> std::unique_ptr<CentralManager> {
    ADD_FAILURE() << "central made before setupCentralManager";
    return nullptr;
  });
  EXPECT_FALSE(quilla.currentBatteryLevel().has_value());
  EXPECT_EQ(quilla.queueThread(), nullptr);
  EXPECT_TRUE(out_.lines().isEmpty());
}

TEST_F(CoreQuillaTest, SetupPrintsItsLineAndRunsCallbacksOnTheNamedQueue) {
  std::mutex mutex;
  QString thread;
  start(CentralManager::kPoweredOff);
  sim_->afterPending([&] {
    std::lock_guard lock(mutex);
    thread = QThread::currentThread()->objectName();
  });
  const auto seen = [&] {
    std::lock_guard lock(mutex);
    return thread;
  };
  ASSERT_TRUE(waitFor([&] { return !seen().isEmpty(); }));
  EXPECT_EQ(seen(), QStringLiteral("Orlo.Tintwell"));
  EXPECT_EQ(out_.lines().value(0), QStringLiteral("init CoreQuilla "));
}

struct StateCase {
  int code;
  const char* line;
};
class CoreQuillaStateTest : public CoreQuillaTest,
                            public ::testing::WithParamInterface<StateCase> {};

TEST_P(CoreQuillaStateTest, StateReportPrintsItsLineOnlyAndDoesNothingElse) {
  start(GetParam().code);
  ASSERT_TRUE(out_.waitForLine(QString::fromUtf8(GetParam().line)));
  testing::spin(tw::scaledMs(2.5) + 100);
  EXPECT_TRUE(sim_->calls().isEmpty());
  EXPECT_TRUE(PostRecorder::instance().posts().empty());
}

INSTANTIATE_TEST_SUITE_P(States, CoreQuillaStateTest,
                         ::testing::Values(StateCase{0, "Bluetooth status is UNKNOWN"},
                                           StateCase{1, "Bluetooth status is RESETTING"},
                                           StateCase{2, "Bluetooth status is UNSUPPORTED"},
                                           StateCase{3, "Bluetooth status is UNAUTHORIZED"},
                                           StateCase{4, "Bluetooth status is POWERED OFF"}));

TEST_F(CoreQuillaTest, UnknownStateCodeStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        start(6);
        testing::spin(5000);
      },
      "tintwell: fatal: unexpected Bluetooth manager state");
}

TEST_F(CoreQuillaTest, WithoutSavedKeyTheScanLineComesAfterTheDelay) {
  QElapsedTimer clock;
  clock.start();
  start();
  ASSERT_TRUE(out_.waitForLine(QStringLiteral("try 招式2 ~ using scan to connect ")));
  EXPECT_GE(clock.elapsed(), tw::scaledMs(2.5));
  EXPECT_EQ(after(out_.lines(), QStringLiteral("Bluetooth status is POWERED ON")),
            QStringList{QStringLiteral("try 招式2 ~ using scan to connect ")});
  // Both scans, filtered first; the unfiltered one is in force.
  EXPECT_EQ(sim_->calls(), (QStringList{QStringLiteral("retrieveConnectedPeripheralsWithServices"),
                                        QStringLiteral("scan 1F1F"), QStringLiteral("scan all")}));
}

TEST_F(CoreQuillaTest, ProcedureRunsOnTheQueueAndTheFallbackOnTheMainThread) {
  testing::savePen(canonicalUuidText(kPenB));  // unknown: strategy 1 asks, then the fallback
  start();
  ASSERT_TRUE(waitForCall(QStringLiteral("scan all")));
  EXPECT_EQ(sim_->calls(), (QStringList{QStringLiteral("retrievePeripheralsWithIdentifiers"),
                                        QStringLiteral("retrieveConnectedPeripheralsWithServices"),
                                        QStringLiteral("scan 1F1F"), QStringLiteral("scan all")}));
  EXPECT_EQ(sim_->callThreads(),
            (QStringList{QStringLiteral("Orlo.Tintwell"), QStringLiteral("main"),
                         QStringLiteral("main"), QStringLiteral("main")}));
}

TEST_F(CoreQuillaTest, GarbageSavedTextIsPrintedAndNothingElseUntilTheDelay) {
  testing::savePen(QStringLiteral("garbage"));
  start();
  ASSERT_TRUE(out_.waitForLine(QStringLiteral("defaults savedQuillaUUID: garbage")));
  testing::spin(tw::scaledMs(2.5) / 2);
  EXPECT_EQ(after(out_.lines(), QStringLiteral("Bluetooth status is POWERED ON")),
            QStringList{QStringLiteral("defaults savedQuillaUUID: garbage")});
  EXPECT_TRUE(sim_->calls().isEmpty());
  ASSERT_TRUE(out_.waitForLine(QStringLiteral("try 招式2 ~ using scan to connect ")));
}

TEST_F(CoreQuillaTest, UnknownSavedPenSkipsStrategyOneSilently) {
  testing::savePen(canonicalUuidText(kPenB));
  start();
  ASSERT_TRUE(out_.waitForLine(QStringLiteral("try 招式2 ~ using scan to connect ")));
  EXPECT_EQ(after(out_.lines(), QStringLiteral("Bluetooth status is POWERED ON")),
            (QStringList{QStringLiteral("defaults savedQuillaUUID: ") + canonicalUuidText(kPenB),
                         QStringLiteral("try 招式1 ~ 取已存檔的 savedQuillaUUID "),
                         QStringLiteral("try 招式2 ~ using scan to connect ")}));
  EXPECT_EQ(sim_->calls().value(0), QStringLiteral("retrievePeripheralsWithIdentifiers"));
  EXPECT_EQ(sim_->calls().value(1), QStringLiteral("retrieveConnectedPeripheralsWithServices"));
}

TEST_F(CoreQuillaTest, SavedPenIsAskedForTwiceThenConnectedAndTheWalkFollows) {
  testing::savePen(canonicalUuidText(kPenA));
  PeripheralPtr pen;
  start(CentralManager::kPoweredOn,
        [&](SimulatedCentral& c) { pen = c.addPeripheral(penConfig(kPenA, QStringLiteral("x"))); });
  ASSERT_TRUE(waitForCall(QStringLiteral("setNotifyValue on 1F16")));
  ASSERT_TRUE(waitForCall(QStringLiteral("readValue 2A19")));
  const QStringList calls = sim_->calls();
  EXPECT_EQ(calls.mid(0, 5),
            (QStringList{QStringLiteral("retrievePeripheralsWithIdentifiers"),
                         QStringLiteral("retrievePeripheralsWithIdentifiers"),
                         QStringLiteral("stopScan"), connectCall(kPenA),
                         QStringLiteral("discoverServices ") + canonicalUuidText(kPenA)}));
  EXPECT_EQ(quilla_->currentPeripheralQuilla(), pen);
  EXPECT_EQ(testing::savedPen(), canonicalUuidText(kPenA));
  const QStringList lines = out_.lines();
  const QStringList expected{QStringLiteral("try 招式1 ~ 取已存檔的 savedQuillaUUID "),
                             QStringLiteral("connected hihi"),
                             QStringLiteral("Peripheral state: connected"),
                             QStringLiteral("我的 Service: <Service UUID = 1F1F>"),
                             QStringLiteral("我的 Service: <Service UUID = 180F>"),
                             QStringLiteral(" 電池 characteristic : <Characteristic UUID = 2A19>")};
  for (const QString& line : expected) EXPECT_TRUE(lines.contains(line)) << line.toStdString();
  const auto connected = PostRecorder::instance().posts(notification::connectedQuilla());
  ASSERT_EQ(connected.size(), 1u);
  EXPECT_EQ(connected[0].userInfo,
            (UserInfo{{QStringLiteral("Quilla"), QStringLiteral("Device Connected")}}));
  EXPECT_EQ(connected[0].threadName, QStringLiteral("Orlo.Tintwell"));
  // Connected at the check: the fallback stays silent.
  testing::spin(tw::scaledMs(2.5) + 100);
  EXPECT_FALSE(out_.lines().join(QLatin1Char('\n')).contains(QStringLiteral("招式2")));
  EXPECT_FALSE(out_.lines().join(QLatin1Char('\n')).contains(QStringLiteral("招式3")));
}

struct NameCase {
  const char* label;
  std::optional<QString> name;
  bool taken;
};
class CoreQuillaNameTest : public CoreQuillaTest, public ::testing::WithParamInterface<NameCase> {};

TEST_P(CoreQuillaNameTest, DiscoveryTakesOnlyNamesWithTheFragments) {
  start();
  ASSERT_TRUE(waitForCall(QStringLiteral("scan all")));
  const PeripheralPtr p = sim_->addPeripheral(penConfig(kPenA, GetParam().name));
  sim_->advertise(p);
  drain();
  EXPECT_EQ(sim_->calls().contains(connectCall(kPenA)), GetParam().taken);
  EXPECT_EQ(quilla_->currentPeripheralQuilla() == p, GetParam().taken);
  if (GetParam().taken) {
    EXPECT_EQ(after(out_.lines(), QStringLiteral("try 招式2 ~ using scan to connect ")).mid(0, 4),
              (QStringList{
                  QStringLiteral("!!  從招式2 (scanForPeripherals) 來的回應 "), *GetParam().name,
                  QStringLiteral("身份證id : identifier -  00000000-0000-0000-0000-AABBCCDDEE01"),
                  QStringLiteral("Peripheral state: disconnected")}));
    ASSERT_TRUE(waitFor([&] { return testing::savedPen() == canonicalUuidText(kPenA); }));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Names, CoreQuillaNameTest,
    ::testing::Values(NameCase{"UnnamedIsNeverTaken", std::nullopt, false},
                      NameCase{"QuiSpaceLlaDoesNotMatch", QStringLiteral("Qui lla"), false},
                      NameCase{"OtherNameDoesNotMatch", QStringLiteral("Keyboard"), false},
                      NameCase{"UpperCaseQuillaMatches", QStringLiteral("QUILLA-Pen 02"), true},
                      NameCase{"VintaMatchesAnywhere", QStringLiteral("myVinTa"), true}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(CoreQuillaTest, StrategyThreeTakesTheFirstSystemConnectedPenWhateverItsName) {
  PeripheralPtr pen;
  start(CentralManager::kPoweredOn, [&](SimulatedCentral& c) {
    auto config = penConfig(kPenB, std::nullopt);
    config.systemConnected = true;
    pen = c.addPeripheral(config);
  });
  ASSERT_TRUE(out_.waitForLine(QStringLiteral(
      "try 招式3 ~ "
      "現在已過了 x 秒且沒有連到之前存的裝置，現在試取得已在系統連線的第一個裝置 ")));
  ASSERT_TRUE(waitFor([&] { return testing::savedPen() == canonicalUuidText(kPenB); }));
  EXPECT_EQ(quilla_->currentPeripheralQuilla(), pen);
  EXPECT_EQ(sim_->calls().mid(0, 2),
            (QStringList{QStringLiteral("retrieveConnectedPeripheralsWithServices"),
                         connectCall(kPenB)}));
  EXPECT_FALSE(sim_->calls().contains(QStringLiteral("stopScan")));
}

TEST_F(CoreQuillaTest, SavedPenStillConnectingAtTheCheckIsReplacedByADiscoveredPen) {
  testing::savePen(canonicalUuidText(kPenA));
  PeripheralPtr slow;
  start(CentralManager::kPoweredOn, [&](SimulatedCentral& c) {
    auto config = penConfig(kPenA, QStringLiteral("Quilla A"));
    config.connectCompletes = false;
    slow = c.addPeripheral(config);
  });
  ASSERT_TRUE(waitForCall(QStringLiteral("scan all")));
  EXPECT_EQ(slow->state(), Peripheral::kConnecting);
  const PeripheralPtr other = sim_->addPeripheral(penConfig(kPenB, QStringLiteral("Quilla B")));
  sim_->advertise(other);
  ASSERT_TRUE(waitFor([&] { return testing::savedPen() == canonicalUuidText(kPenB); }));
  EXPECT_EQ(quilla_->currentPeripheralQuilla(), other);
  EXPECT_EQ(slow->state(), Peripheral::kConnecting);  // the first request is still out
  EXPECT_EQ(sim_->calls().count(connectCall(kPenA)), 1);
}

TEST_F(CoreQuillaTest, TwoAdvertisementsBeforeTheStopBothConnectAndTheLaterIsKept) {
  start();
  ASSERT_TRUE(waitForCall(QStringLiteral("scan all")));
  const PeripheralPtr a = sim_->addPeripheral(penConfig(kPenA, QStringLiteral("quilla a")));
  const PeripheralPtr b = sim_->addPeripheral(penConfig(kPenB, QStringLiteral("quilla b")));
  sim_->advertise({a, b});
  drain();
  drain();
  const QStringList calls = sim_->calls();
  EXPECT_EQ(calls.count(QStringLiteral("stopScan")), 2);
  EXPECT_LT(calls.indexOf(connectCall(kPenA)), calls.indexOf(connectCall(kPenB)));
  EXPECT_EQ(quilla_->currentPeripheralQuilla(), b);
  ASSERT_TRUE(waitFor(
      [&] { return PostRecorder::instance().posts(notification::connectedQuilla()).size() == 2; }));
}

TEST_F(CoreQuillaTest, DisconnectionPostsOnceAndNothingFollowsUntilPowerReturns) {
  PeripheralPtr pen;
  start(CentralManager::kPoweredOn, [&](SimulatedCentral& c) {
    auto config = penConfig(kPenA, std::nullopt);
    config.systemConnected = true;
    pen = c.addPeripheral(config);
  });
  ASSERT_TRUE(waitForCall(QStringLiteral("readValue 2A19")));
  const QStringList before = sim_->calls();
  const qsizetype linesBefore = out_.lines().size();
  sim_->disconnect(pen);
  drain();
  testing::spin(tw::scaledMs(2.5) + 100);
  const auto gone = PostRecorder::instance().posts(notification::disconnected());
  ASSERT_EQ(gone.size(), 1u);
  EXPECT_EQ(gone[0].userInfo,
            (UserInfo{{QStringLiteral("Quilla"), QStringLiteral("Device Disconnected")}}));
  EXPECT_EQ(sim_->calls(), before);
  EXPECT_EQ(out_.lines().size(), linesBefore);
  EXPECT_EQ(quilla_->currentPeripheralQuilla(), pen);  // kept
  // Switched off and on: the procedure runs again, now with the saved pen.
  sim_->setState(CentralManager::kPoweredOff);
  sim_->setState(CentralManager::kPoweredOn);
  ASSERT_TRUE(waitFor([&] { return sim_->calls().count(connectCall(kPenA)) == 2; }));
  EXPECT_TRUE(out_.lines().contains(QStringLiteral("try 招式1 ~ 取已存檔的 savedQuillaUUID ")));
}

TEST_F(CoreQuillaTest, ServiceListAbsentStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        start(CentralManager::kPoweredOn, [&](SimulatedCentral& c) {
          auto config = penConfig(kPenA, std::nullopt);
          config.systemConnected = true;
          c.addPeripheral(config);
          c.failNextDiscovery();
        });
        testing::spin(5000);
      },
      "tintwell: fatal: service discovery failed");
}

// Data channel.

class CoreQuillaDataTest : public CoreQuillaTest {
 protected:
  void connectPen(SimulatedCentral::PeripheralConfig config = penConfig(kPenA, std::nullopt)) {
    config.systemConnected = true;
    start(CentralManager::kPoweredOn, [&](SimulatedCentral& c) { pen_ = c.addPeripheral(config); });
    ASSERT_TRUE(waitForCall(QStringLiteral("setNotifyValue on 1F16")));
  }
  void send(const QByteArray& packet) {
    sim_->notify(pen_, penColorCharUUID(), packet);
    drain();
  }
  PeripheralPtr pen_;
};

TEST_F(CoreQuillaDataTest, PacketGivesItsColourTwoLinesAndOnePost) {
  connectPen();
  send(QByteArray::fromHex("01FF8000"));
  const auto colors = PostRecorder::instance().posts(notification::newColor());
  ASSERT_EQ(colors.size(), 1u);
  ASSERT_TRUE(colors[0].color.has_value());
  EXPECT_EQ(colors[0].color->iR, 255);
  EXPECT_EQ(colors[0].color->iG, 128);
  EXPECT_EQ(colors[0].color->iB, 0);
  EXPECT_EQ(colors[0].color->colorHex, QStringLiteral("FF8000"));
  EXPECT_EQ(*colors[0].color, ColorStruct::fromChannels(255, 128, 0));
  EXPECT_EQ(colors[0].userInfo, (UserInfo{{QStringLiteral("Quilla"), QStringLiteral("NewColor")}}));
  EXPECT_EQ(colors[0].threadName, QStringLiteral("Orlo.Tintwell"));
  const QStringList lines = out_.lines();
  const qsizetype i = lines.indexOf(QStringLiteral("buffer[0] :  1"));
  ASSERT_GE(i, 0);
  EXPECT_EQ(lines.value(i + 1), QStringLiteral("FF8000"));
}

TEST_F(CoreQuillaDataTest, FifthByteIsIgnored) {
  connectPen();
  send(QByteArray::fromHex("000A0B0C0D"));
  const auto colors = PostRecorder::instance().posts(notification::newColor());
  ASSERT_EQ(colors.size(), 1u);
  EXPECT_EQ(colors[0].color->colorHex, QStringLiteral("0A0B0C"));
  EXPECT_TRUE(out_.lines().contains(QStringLiteral("buffer[0] :  0")));
}

TEST_F(CoreQuillaDataTest, TwoIdenticalPacketsGiveTwoIdenticalPosts) {
  connectPen();
  send(QByteArray::fromHex("01102030"));
  send(QByteArray::fromHex("01102030"));
  const auto colors = PostRecorder::instance().posts(notification::newColor());
  ASSERT_EQ(colors.size(), 2u);
  EXPECT_EQ(*colors[0].color, *colors[1].color);
}

TEST_F(CoreQuillaDataTest, ThreeBytePacketStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        connectPen();
        send(QByteArray::fromHex("01FF80"));
      },
      "^tintwell: fatal: colour packet shorter than 4 bytes\n$");
}

TEST_F(CoreQuillaDataTest, ColourCharacteristicUnderTheBatteryServiceIsStillServed) {
  auto config = penConfig(kPenA, std::nullopt);
  config.services = {{penServiceUUID(), {batteryLevelCharUUID()}},
                     {batteryServiceUUID(), {penColorCharUUID()}}};
  connectPen(config);
  ASSERT_TRUE(waitForCall(QStringLiteral("readValue 2A19")));
  send(QByteArray::fromHex("0100FF00"));
  ASSERT_EQ(PostRecorder::instance().posts(notification::newColor()).size(), 1u);
}

TEST_F(CoreQuillaDataTest, BatteryBeforeTheCharacteristicIsKnownIsZeroAndSilent) {
  start(CentralManager::kPoweredOff);
  drain();
  const qsizetype lines = out_.lines().size();
  EXPECT_EQ(quilla_->getBatteryLevel(), 0);
  EXPECT_EQ(quilla_->currentBatteryLevel(), std::optional<qint64>(0));
  EXPECT_EQ(out_.lines().size(), lines);
  EXPECT_TRUE(sim_->calls().isEmpty());
}

TEST_F(CoreQuillaDataTest, BatteryReportsThePreviousReadAndStartsTheNext) {
  auto config = penConfig(kPenA, std::nullopt);
  connectPen(config);
  ASSERT_TRUE(waitFor([&] { return quilla_->currentBatteryCharacteristic() != nullptr; }));
  drain();  // the read issued at discovery is answered (no value yet)
  sim_->holdReads(true);
  sim_->setRemoteValue(pen_, batteryLevelCharUUID(), QByteArray::fromHex("64"));
  EXPECT_EQ(quilla_->getBatteryLevel(), 0);  // stored value still absent
  sim_->answerReads();
  drain();
  sim_->setRemoteValue(pen_, batteryLevelCharUUID(), QByteArray::fromHex("C8"));
  EXPECT_EQ(quilla_->getBatteryLevel(), 100);  // the previous read
  EXPECT_TRUE(out_.lines().contains(QStringLiteral("Batter Level: 100 %")));
  sim_->answerReads();
  drain();
  EXPECT_EQ(quilla_->getBatteryLevel(), 200);  // not clamped
  EXPECT_EQ(quilla_->currentBatteryLevel(), std::optional<qint64>(200));
  EXPECT_TRUE(out_.lines().contains(QStringLiteral("Batter Level: 200 %")));
  EXPECT_EQ(sim_->calls().count(QStringLiteral("readValue 2A19")), 4);
}

TEST_F(CoreQuillaDataTest, BatteryWithAnAbsentStoredValueIsZeroButPrinted) {
  connectPen();
  sim_->setRemoteValue(pen_, batteryLevelCharUUID(), std::nullopt);
  drain();
  EXPECT_EQ(quilla_->getBatteryLevel(), 0);
  EXPECT_TRUE(out_.lines().contains(QStringLiteral("Batter Level: 0 %")));
}

TEST_F(CoreQuillaDataTest, EmptyBatteryValueStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        connectPen();
        sim_->setRemoteValue(pen_, batteryLevelCharUUID(), QByteArray());
        drain();
        quilla_->getBatteryLevel();
        drain();
        quilla_->getBatteryLevel();
      },
      "tintwell: fatal: empty battery level value");
}

TEST_F(CoreQuillaDataTest, BatteryAfterDisconnectionReadsTheStaleCharacteristic) {
  connectPen();
  sim_->setRemoteValue(pen_, batteryLevelCharUUID(), QByteArray::fromHex("3C"));
  quilla_->getBatteryLevel();
  drain();
  sim_->disconnect(pen_);
  drain();
  EXPECT_EQ(quilla_->getBatteryLevel(), 60);
}

}  // namespace
}  // namespace tw::pen
