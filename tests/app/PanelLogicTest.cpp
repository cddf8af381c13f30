// The panel's logic with real parts where they run here: a stand-in `wine` on
// PATH records every launch, the bridge writes real script files under a
// temporary data folder, and colours travel through the real notification
// centre. The pen's radio side is the simulated central (powered off: the
// tests post the pen's notifications themselves).
#include "app/PanelLogic.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <cstdio>
#include <mutex>

#include "bridge/RunningApplications.h"
#include "common/TimeScale.h"
#include "common/Version.h"
#include "events/Notifications.h"
#include "tests/color/ScreenPickTestSupport.h"
#include "tests/pen/simulated/SimulatedCentral.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/IdleTransport.h"
#include "tests/support/QtWait.h"

#include "tests/support/LogCapture.h"
#include "tests/support/TestMain.h"

namespace tw {
namespace {

const QString kPhotoshop =
    QStringLiteral(R"(C:\Program Files\Adobe\Adobe Photoshop 2021\Photoshop.exe)");

// 180 s battery period -> 1.8 s, 3 s first check -> 30 ms.
TW_BEFORE_APPLICATION([] { qputenv("TINTWELL_TIME_SCALE", "0.01"); });

using testing::spin;
using testing::waitFor;

class RecordingView : public PanelView {
 public:
  RecordingView() { clock_.start(); }
  void showColor(const ColorStruct& color) override { add("color #" + color.colorHex); }
  void showColorTexts(const AllColor& n) override {
    add("texts " + n.txtRGB + "|" + n.txtCMYK + "|" + n.txtHSB + "|" + n.txtLAB);
  }
  void setConnectionImage(const QString& name) override { add("connection " + name); }
  void setBatteryShown(bool shown) override { add(shown ? "battery shown" : "battery hidden"); }
  void setBatteryImage(const QString& name) override { add("battery " + name); }

  QStringList calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
  }
  int count(const QString& call) const { return static_cast<int>(calls().count(call)); }
  // When `call` was first made, in milliseconds since the view was made; -1
  // if never.
  qint64 firstAt(const QString& call) const {
    std::lock_guard lock(mutex_);
    const qsizetype i = calls_.indexOf(call);
    return i < 0 ? -1 : at_[i];
  }

 private:
  void add(const QString& call) {
    std::lock_guard lock(mutex_);
    calls_ << call;
    at_ << clock_.elapsed();
  }
  mutable std::mutex mutex_;
  QElapsedTimer clock_;
  QStringList calls_;
  QList<qint64> at_;
};

class NoAnswer : public TerminationReply {
 public:
  void replyToApplicationShouldTerminate(bool) override {}
};

using testing::IdleTransport;

class PanelLogicTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(home_.isValid());
    home_.enter();

    auto lister = std::make_shared<FixedApplicationLister>(
        std::vector<RunningApplication>{{QStringLiteral("Photoshop.exe"), kPhotoshop}});
    PanelParts parts;
    parts.central = [](pen::CentralDelegate* d, QThread* q) {
      return std::make_unique<pen::SimulatedCentral>(d, q, pen::CentralManager::kPoweredOff);
    };
    parts.host = std::make_shared<WineHostDescription>(lister);
    parts.alerts = std::make_shared<SilentAlertPresenter>();
    parts.transport = transport_;
    panel_ = std::make_unique<PanelLogic>(view_, noAnswer_, std::move(parts));
    panel_->viewDidLoad();
  }

  QStringList launches() const { return home_.launches(); }
  void postPenColour(const ColorStruct& colour) {
    NotificationCenter::defaultCenter().post(
        notification::newColor(), colour,
        UserInfo{{notification::quillaKey(), QStringLiteral("NewColor")}});
  }
  void postFromPenThread(const QString& name, const QString& value) {
    QThread* pen = QThread::create([&] {
      NotificationCenter::defaultCenter().post(name, {},
                                               UserInfo{{notification::quillaKey(), value}});
    });
    pen->start();
    pen->wait();
    delete pen;
  }
  ColorRecord::Fields record() const { return panel_->apiLogger().colorRecord()->read(); }
  qint64 photoshopPushes() const { return panel_->commander().tempApplicationRecord()->read().PS; }

  // First, so that it outlives the panel and hears everything it says.
  testing::LogCapture log_;
  testing::BridgeSandbox home_;
  RecordingView view_;
  NoAnswer noAnswer_;
  std::shared_ptr<IdleTransport> transport_ = std::make_shared<IdleTransport>();
  std::unique_ptr<PanelLogic> panel_;
};

TEST_F(PanelLogicTest, StartUpShowsFAFAFAWithItsTextsAndNeitherPushesNorCounts) {
  panel_->appear();
  ASSERT_TRUE(waitFor([&] { return view_.count("color #FAFAFA") == 1; }));
  const QString texts = "texts 250  250  250|0  0  0  2|0  0  98|98.3  0.0  -0.0 ";
  // Once directly from the appear sequence, once from showing the colour.
  EXPECT_EQ(view_.count(texts), 2);
  EXPECT_EQ(photoshopPushes(), 0);
  EXPECT_TRUE(launches().isEmpty());
  EXPECT_EQ(record().counter_device, 0);
  EXPECT_EQ(record().counter_screen, 0);
  EXPECT_EQ(record().vender, "Vandu");
  EXPECT_EQ(record().app, "TW+V");
  EXPECT_EQ(record().version, QString::fromLatin1(kVersion));
  EXPECT_EQ(panel_->apiLogger().parentCommander.load(), &panel_->commander());
  EXPECT_EQ(panel_->currentColorStruct()->colorHex, "FAFAFA");
}

TEST_F(PanelLogicTest, TheSamePenColourTwiceIsShownTwiceButPushedAndCountedOnce) {
  panel_->appear();
  const ColorStruct colour = ColorStruct::fromChannels(18, 52, 86);
  postPenColour(colour);
  postPenColour(colour);
  ASSERT_TRUE(waitFor([&] { return view_.count("color #123456") == 2; }));
  EXPECT_EQ(photoshopPushes(), 1);
  EXPECT_EQ(launches().size(), 1);
  EXPECT_EQ(record().counter_device, 1);
  EXPECT_EQ(record().colors_device, ",#123456");
  QFile script(home_.path() + "/data/Tintwell/colorScriptPS.jsx");
  ASSERT_TRUE(script.open(QIODevice::ReadOnly));
  EXPECT_EQ(script.readAll(),
            "app.foregroundColor.rgb.red = 18;app.foregroundColor.rgb.green = 52;"
            "app.foregroundColor.rgb.blue = 86;app.backgroundColor.rgb.red = 18;"
            "app.backgroundColor.rgb.green = 52;app.backgroundColor.rgb.blue = 86;");
}

TEST_F(PanelLogicTest, SameChannelsInAnotherColourSpaceAreBothTreatedAsNew) {
  panel_->appear();
  const ColorStruct pen = ColorStruct::fromChannels(18, 52, 86);
  ColorStruct screen = pen;
  screen.color = pen.color.toHsv();  // equal channels, unequal platform colours
  ASSERT_NE(pen.color, screen.color);
  postPenColour(pen);
  postPenColour(screen);
  ASSERT_TRUE(waitFor([&] { return view_.count("color #123456") == 2; }));
  EXPECT_EQ(photoshopPushes(), 2);
  EXPECT_EQ(record().counter_device, 2);
}

TEST_F(PanelLogicTest, EveryColourPrintsItsHexLine) {
  log_.clear();
  panel_->appear();
  postPenColour(ColorStruct::fromChannels(255, 128, 0));
  ASSERT_TRUE(waitFor([&] { return view_.count("color #FF8000") == 1; }));
  const std::string out = log_.text().toStdString();
  EXPECT_NE(out.find("FAFAFA\n"), std::string::npos) << out;
  EXPECT_NE(out.find("FF8000\n"), std::string::npos) << out;
}

TEST_F(PanelLogicTest, ColoursFromThePenThreadAndTheMainThreadAreEachPushedAndCounted) {
  panel_->appear();
  QThread* pen = QThread::create([&] {
    for (int i = 0; i < 20; ++i) postPenColour(ColorStruct::fromChannels(i, 0, 0));
  });
  pen->start();
  for (int i = 0; i < 20; ++i) postPenColour(ColorStruct::fromChannels(0, i + 1, 0));
  pen->wait();
  delete pen;
  // Colours from the two sources alternate unpredictably; a colour repeated
  // back to back is skipped, so count what reached the bridge against what was
  // counted: both saw exactly the accepted colours.
  EXPECT_EQ(photoshopPushes(), record().counter_device);
  EXPECT_GE(record().counter_device, 20);
}

class BatteryName : public ::testing::TestWithParam<std::pair<qint64, const char*>> {};

TEST_P(BatteryName, LevelSelectsItsImage) {
  EXPECT_EQ(PanelLogic::batteryImageName(GetParam().first), QString::fromLatin1(GetParam().second));
}

INSTANTIATE_TEST_SUITE_P(Table, BatteryName,
                         ::testing::Values(std::pair<qint64, const char*>{0, "10"},
                                           std::pair<qint64, const char*>{9, "10"},
                                           std::pair<qint64, const char*>{10, "20"},
                                           std::pair<qint64, const char*>{55, "60"},
                                           std::pair<qint64, const char*>{89, "90"},
                                           std::pair<qint64, const char*>{90, "100"},
                                           std::pair<qint64, const char*>{100, "100"},
                                           std::pair<qint64, const char*>{101, "50"},
                                           std::pair<qint64, const char*>{-1, "50"}),
                         [](const auto& info) {
                           const qint64 level = info.param.first;
                           return (level < 0 ? "minus" : "level") +
                                  std::to_string(level < 0 ? -level : level);
                         });

// Timers at a tenth of their length: the 3 s step takes 300 ms, so the half
// second either side it is allowed is not lost in a busy machine's lateness.
// (The scale is read once per process: run with others, this takes theirs.)
class PanelLogicTimingTest : public PanelLogicTest {
 protected:
  void SetUp() override {
    if (QCoreApplication::instance() == nullptr) qputenv("TINTWELL_TIME_SCALE", "0.1");
    PanelLogicTest::SetUp();
  }
};

TEST_F(PanelLogicTimingTest, ConnectionShowsBtOnAndTheBatteryWithTheFirstImageThreeSecondsLater) {
  postFromPenThread(notification::connectedQuilla(), QStringLiteral("Device Connected"));
  // A real event loop, asleep until the next timer: polling would add its own
  // lateness to the delay measured below.
  QEventLoop loop;
  QTimer::singleShot(scaledMs(3.5) + 300, &loop, &QEventLoop::quit);
  loop.exec();
  EXPECT_EQ(view_.count("connection BT on"), 1);
  EXPECT_EQ(view_.count("battery shown"), 1);
  EXPECT_EQ(panel_->activeBatteryTimers(), 1);
  // No battery characteristic is known: level 0 shows "10". It comes 3 s after
  // the connection is shown: not at once, and long before the first 180 s tick.
  ASSERT_EQ(view_.count("battery 10"), 1);
  const qint64 delay = view_.firstAt("battery 10") - view_.firstAt("connection BT on");
  EXPECT_GE(delay, scaledMs(2.5));
  EXPECT_LE(delay, scaledMs(3.5));
}

TEST_F(PanelLogicTest, TwoConnectionsLeaveTwoTimersAndADisconnectionStopsOnlyTheLast) {
  postFromPenThread(notification::connectedQuilla(), QStringLiteral("Device Connected"));
  postFromPenThread(notification::connectedQuilla(), QStringLiteral("Device Connected"));
  ASSERT_TRUE(waitFor([&] { return panel_->activeBatteryTimers() == 2; }));
  postFromPenThread(notification::disconnected(), QStringLiteral("Device Disconnected"));
  ASSERT_TRUE(waitFor([&] { return view_.count("connection BT off") == 1; }));
  EXPECT_EQ(view_.count("battery hidden"), 1);
  EXPECT_EQ(panel_->activeBatteryTimers(), 1);
  EXPECT_FALSE(panel_->batteryTimer()->isActive());
  // The leaked timer keeps refreshing the image.
  const int before = view_.count("battery 10");
  spin(scaledMs(180.0) + 500);
  EXPECT_GT(view_.count("battery 10"), before);
}

TEST_F(PanelLogicTest, AfterTheWindowDisappearsTheBatteryIsNoLongerRefreshed) {
  postFromPenThread(notification::connectedQuilla(), QStringLiteral("Device Connected"));
  ASSERT_TRUE(waitFor([&] { return view_.count("battery 10") == 1; }));
  panel_->viewDidDisappear();
  EXPECT_EQ(panel_->activeBatteryTimers(), 0);
  spin(scaledMs(180.0) + 300);
  EXPECT_EQ(view_.count("battery 10"), 1);
}

TEST_F(PanelLogicTest, ArmingAScreenPickCountsTheNextColourAsAScreenColour) {
  panel_->appear();
  panel_->armScreenPickCount();
  NotificationCenter::defaultCenter().post(
      notification::newColor(), ColorStruct::fromChannels(1, 2, 3),
      UserInfo{{notification::quillaKey(), QStringLiteral("NewScreenColor")}});
  postPenColour(ColorStruct::fromChannels(4, 5, 6));
  EXPECT_EQ(record().colors_screen, ",#010203");
  EXPECT_EQ(record().colors_device, ",#040506");
}

TEST_F(PanelLogicTest, APanelGoingWhileAPenColourIsBeingPushedWaitsForThePush) {
  panel_->appear();
  // The launcher takes a while: the pen thread is inside the push when the
  // panel goes (as when a colour arrives while the application quits).
  ASSERT_TRUE(home_.setWineScript(
      "#!/bin/sh\ntouch \"$HOME/launching\"\nsleep 0.3\necho done >> \"$HOME/launches\"\n"));
  QThread* pen = QThread::create([&] { postPenColour(ColorStruct::fromChannels(7, 8, 9)); });
  pen->start();
  ASSERT_TRUE(waitFor([&] { return QFile::exists(home_.path() + "/launching"); }));
  panel_.reset();
  // The push had finished before the panel's parts went.
  EXPECT_EQ(launches(), QStringList{"done"});
  pen->wait();
  delete pen;
  // Later colours reach no panel.
  postPenColour(ColorStruct::fromChannels(1, 1, 1));
  EXPECT_EQ(launches(), QStringList{"done"});
}

// The panel with a colour helper on fake screen seams: picks take the real
// path from the click through the sampler to the notification.
class PanelScreenPickTest : public PanelLogicTest {
 protected:
  void SetUp() override {
    PanelLogicTest::SetUp();
    panel_.reset();
    PanelParts parts;
    parts.central = [](pen::CentralDelegate* d, QThread* q) {
      return std::make_unique<pen::SimulatedCentral>(d, q, pen::CentralManager::kPoweredOff);
    };
    parts.host = std::make_shared<WineHostDescription>(std::make_shared<FixedApplicationLister>(
        std::vector<RunningApplication>{{QStringLiteral("Photoshop.exe"), kPhotoshop}}));
    parts.alerts = std::make_shared<SilentAlertPresenter>();
    parts.transport = transport_;
    parts.colorHelper = [this] {
      return std::make_unique<ColorHelper>(ScreenBackend{monitor_, pointer_, sampler_});
    };
    panel_ = std::make_unique<PanelLogic>(view_, noAnswer_, std::move(parts));
    panel_->viewDidLoad();
    panel_->colorHelper()->installMonitor();
  }
  // A screen pick as the desktop panel runs it: armed, the panel appears
  // again (the pick brings its window back, re-posting the start-up colour),
  // then the pixel is read.
  void pick(const QColor& pixel) {
    sampler_->color = pixel;
    panel_->colorHelper()->bPickScreenColor = true;
    panel_->armScreenPickCount();
    panel_->appear();
    monitor_->click();
  }

  std::shared_ptr<testing::FakeClickMonitor> monitor_ =
      std::make_shared<testing::FakeClickMonitor>();
  std::shared_ptr<testing::FakePointer> pointer_ = std::make_shared<testing::FakePointer>();
  std::shared_ptr<testing::FakeSampler> sampler_ = std::make_shared<testing::FakeSampler>();
};

TEST_F(PanelScreenPickTest, PickingTheStartUpColourFromTheScreenPushesAndCountsIt) {
  panel_->appear();
  pick(QColor(250, 250, 250));
  // Shown three times: at start, when the panel comes back, and as the pick.
  ASSERT_TRUE(waitFor([&] { return view_.count("color #FAFAFA") == 3; }));
  EXPECT_EQ(photoshopPushes(), 1);
  EXPECT_EQ(launches().size(), 1);
  EXPECT_EQ(record().colors_screen, ",#FAFAFA");
  EXPECT_EQ(record().counter_screen, 1);
  EXPECT_EQ(record().counter_device, 0);
}

TEST_F(PanelScreenPickTest, PickingTheChannelsOfThePenColourJustBeforeItPushesAndCountsThem) {
  // The pen's colour arrives while the screen settles before the read.
  panel_->appear();
  sampler_->deferred = true;
  pick(QColor(18, 52, 86));
  postPenColour(ColorStruct::fromChannels(18, 52, 86));
  sampler_->finish();
  ASSERT_TRUE(waitFor([&] { return view_.count("color #123456") == 2; }));
  EXPECT_EQ(photoshopPushes(), 2);
  EXPECT_EQ(launches().size(), 2);
  // The armed pick's count went to the colour counted first, the pen's.
  EXPECT_EQ(record().colors_screen, ",#123456");
  EXPECT_EQ(record().colors_device, ",#123456");
}

TEST(PanelLogicDeathTest, ANewColourWithoutAColorStructStopsTheProcess) {
  RecordingView view;
  NoAnswer answer;
  PanelParts parts;
  parts.central = [](pen::CentralDelegate* d, QThread* q) {
    return std::make_unique<pen::SimulatedCentral>(d, q, pen::CentralManager::kPoweredOff);
  };
  parts.host = std::make_shared<WineHostDescription>(
      std::make_shared<FixedApplicationLister>(std::vector<RunningApplication>{}));
  parts.transport = std::make_shared<IdleTransport>();
  PanelLogic panel(view, answer, std::move(parts));
  Notification note{notification::newColor(), qint64{7}, std::nullopt};
  EXPECT_DEATH(panel.newColorReceivedWithNotification(note), "no ColorStruct");
}

}  // namespace
}  // namespace tw
