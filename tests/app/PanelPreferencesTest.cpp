// The panel's logic reading the preferences from the settings file at start,
// as the desktop panel and `tintwell listen` both do: real bridge (a stand-in
// `wine` records launches), real sender and quit handshake, in a network
// namespace of the test's own with a default route so every machine takes the
// online path. The transport counts posts and never answers.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QTimer>

#include "app/AppDelegate.h"
#include "app/PanelLogic.h"
#include "bridge/RunningApplications.h"
#include "events/Notifications.h"
#include "tests/pen/simulated/SimulatedCentral.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/LogCapture.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/QtWait.h"
#include "tests/support/TestMain.h"

namespace tw {
namespace {

using testing::spin;
using testing::waitFor;

const QString kPhotoshop =
    QStringLiteral(R"(C:\Program Files\Adobe\Adobe Photoshop 2021\Photoshop.exe)");

// 600 s telemetry period -> 6 s.
TW_BEFORE_APPLICATION([] { qputenv("TINTWELL_TIME_SCALE", "0.01"); });

class CountingTransport : public UsageTransport {
 public:
  void post(const UsageRequest&, Completion) override { ++posts; }
  std::atomic<int> posts{0};
};

// Remembers which colours the panel reported as accepted.
class AcceptingView : public HeadlessPanelView {
 public:
  void colorAccepted(const ColorStruct& color) override { accepted << color.colorHex; }
  void showColor(const ColorStruct& color) override { shown << color.colorHex; }
  QStringList accepted;
  QStringList shown;
};

class PanelPreferencesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!network_.failure().isEmpty()) GTEST_SKIP() << network_.why();
    ASSERT_TRUE(home_.isValid());
    home_.enter();
  }
  void writeSettings(const QByteArray& text) {
    QDir().mkpath(home_.filePath(QStringLiteral("config/Orlo")));
    QFile file(home_.filePath(QStringLiteral("config/Orlo/Tintwell.conf")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
  }
  // The panel as both front ends start it: viewDidLoad, then the appear
  // sequence (telemetry and the start-up colour).
  void start() {
    PanelParts parts;
    parts.central = [](pen::CentralDelegate* d, QThread* q) {
      return std::make_unique<pen::SimulatedCentral>(d, q, pen::CentralManager::kPoweredOff);
    };
    parts.host = std::make_shared<WineHostDescription>(std::make_shared<FixedApplicationLister>(
        std::vector<RunningApplication>{{QStringLiteral("Photoshop.exe"), kPhotoshop}}));
    parts.alerts = std::make_shared<SilentAlertPresenter>();
    parts.transport = transport_;
    panel_ = std::make_unique<PanelLogic>(view_, delegate_, std::move(parts));
    panel_->viewDidLoad();
    panel_->appear();
    ASSERT_TRUE(waitFor([&] { return view_.shown.contains("FAFAFA"); }));
  }
  void postPenColour(int r, int g, int b) {
    NotificationCenter::defaultCenter().post(
        notification::newColor(), ColorStruct::fromChannels(r, g, b),
        UserInfo{{notification::quillaKey(), QStringLiteral("NewColor")}});
  }
  // Quits through the delegate's handshake; true when it ended within `ms`.
  bool quitEndsWithin(int ms) {
    bool ended = false;
    QObject::connect(&delegate_, &AppDelegate::terminated, [&] { ended = true; });
    delegate_.terminate();
    return waitFor([&] { return ended; }, ms);
  }

  // First: the panel's sends see a default route.
  testing::OwnNetwork network_{testing::OwnNetwork::kOnline};
  testing::LogCapture log_;
  testing::BridgeSandbox home_;
  AcceptingView view_;
  AppDelegate delegate_;
  std::shared_ptr<CountingTransport> transport_ = std::make_shared<CountingTransport>();
  std::unique_ptr<PanelLogic> panel_;
};

TEST_F(PanelPreferencesTest, WithoutASettingsFileReportsRunAndTheQuitWaitsForThePosts) {
  start();
  EXPECT_TRUE(panel_->preferences().telemetryEnabled());
  EXPECT_TRUE(panel_->apiLogger().isSendingEnabled());
  ASSERT_NE(panel_->apiLogger().apiSenderTimer(), nullptr);
  EXPECT_TRUE(panel_->apiLogger().apiSenderTimer()->isActive());
  postPenColour(18, 52, 86);
  ASSERT_TRUE(waitFor([&] { return view_.shown.contains("123456"); }));
  EXPECT_FALSE(quitEndsWithin(500));
  EXPECT_EQ(transport_->posts, 2);
  EXPECT_TRUE(log_.contains("I will send the color log!"));
  EXPECT_FALSE(log_.contains("Usage reports are off: nothing sent"));
}

TEST_F(PanelPreferencesTest, WithReportsOffInTheFileNoTimerRunsNothingIsPostedAndTheQuitIsAtOnce) {
  writeSettings("[telemetry]\nenabled=false\n");
  start();
  EXPECT_FALSE(panel_->preferences().telemetryEnabled());
  EXPECT_FALSE(panel_->apiLogger().isSendingEnabled());
  const QPointer<QTimer> timer = panel_->apiLogger().apiSenderTimer();
  ASSERT_TRUE(timer);
  EXPECT_FALSE(timer->isActive());
  postPenColour(18, 52, 86);
  ASSERT_TRUE(waitFor([&] { return view_.shown.contains("123456"); }));
  EXPECT_EQ(panel_->apiLogger().colorRecord()->read().counter_device, 1);
  log_.clear();
  ASSERT_TRUE(quitEndsWithin(500));
  EXPECT_EQ(transport_->posts, 0);
  EXPECT_EQ(log_.lines(), (QStringList{"i am in applicationShouldTerminate ~", "sending data",
                                       "Usage reports are off: nothing sent", "Final bye bye ~"}));
}

TEST_F(PanelPreferencesTest, ReportsTurnedOffWhileRunningStopTheTimerAndTheQuitNoLongerWaits) {
  start();
  postPenColour(18, 52, 86);
  ASSERT_TRUE(waitFor([&] { return view_.shown.contains("123456"); }));
  Preferences off = panel_->preferences();
  off.setTelemetryEnabled(false);
  panel_->applyPreferences(off);
  EXPECT_FALSE(panel_->apiLogger().apiSenderTimer()->isActive());
  ASSERT_TRUE(quitEndsWithin(500));
  EXPECT_EQ(transport_->posts, 0);
}

TEST_F(PanelPreferencesTest, PhotoshopSwitchedOffInTheFileGetsNoScriptButTheColourIsCounted) {
  writeSettings("[hosts]\nphotoshop=false\n");
  start();
  EXPECT_FALSE(panel_->commander().isScriptHostEnabled("photoshop"));
  postPenColour(18, 52, 86);
  ASSERT_TRUE(waitFor([&] { return view_.shown.contains("123456"); }));
  spin(50);
  EXPECT_TRUE(home_.launches().isEmpty()) << home_.launches().join('\n').toStdString();
  EXPECT_EQ(panel_->commander().tempApplicationRecord()->read().PS, 0);
  EXPECT_EQ(panel_->apiLogger().colorRecord()->read().counter_device, 1);
}

TEST_F(PanelPreferencesTest, WithPhotoshopOnTheSameColourIsLaunched) {
  start();
  postPenColour(18, 52, 86);
  ASSERT_TRUE(waitFor([&] { return view_.shown.contains("123456"); }));
  EXPECT_EQ(home_.launches().size(), 1);
  EXPECT_EQ(panel_->commander().tempApplicationRecord()->read().PS, 1);
}

TEST_F(PanelPreferencesTest, OnlyNewColoursAfterTheStartUpColourAreAccepted) {
  start();
  postPenColour(18, 52, 86);
  postPenColour(18, 52, 86);  // a repeat: shown, not taken
  postPenColour(1, 2, 3);
  ASSERT_TRUE(waitFor([&] { return view_.shown.size() == 4; }));
  EXPECT_EQ(view_.shown, (QStringList{"FAFAFA", "123456", "123456", "010203"}));
  EXPECT_EQ(view_.accepted, (QStringList{"123456", "010203"}));
  // The same rule as the push.
  EXPECT_EQ(panel_->commander().tempApplicationRecord()->read().PS, view_.accepted.size());
}

}  // namespace
}  // namespace tw
