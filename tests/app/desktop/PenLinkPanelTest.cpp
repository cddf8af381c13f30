// The panel's connection indicator and its Reconnect action against the real
// BlueZ backend and the fake BlueZ on a private system bus, on the offscreen
// platform: what the indicator's tooltip says in each state of the link, and
// when the pen is (and is not) connected again after a disconnection.
#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QElapsedTimer>
#include <memory>

#include "app/AppDelegate.h"
#include "app/Preferences.h"
#include "app/ReconnectBackoff.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/PreferencesDialog.h"
#include "app/desktop/ViewController_plus.h"
#include "bridge/AlertPresenter.h"
#include "bridge/HostDescription.h"
#include "bridge/RunningApplications.h"
#include "tests/app/desktop/PanelOnFakes.h"
#include "tests/color/ScreenPickTestSupport.h"
#include "tests/pen/FakeBluezProcess.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/QtWait.h"
#include "tests/support/TestMain.h"

namespace tw {
namespace {

using testing::FakeBluez;
using testing::spin;
using testing::waitFor;

// One second of the link's timers is 40 ms here.
TW_BEFORE_APPLICATION([] { qputenv("TINTWELL_TIME_SCALE", "0.04"); });

const QString kA = QStringLiteral("AA:BB:CC:DD:EE:01");
const QString kConnectA = QStringLiteral("Connect ") + kA;

testing::PrivateBus& systemBus() {
  static testing::PrivateBus bus;
  static const bool exported = [] {
    // Before the pen link first opens the system bus.
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().toUtf8());
    return true;
  }();
  (void)exported;
  return bus;
}

using testing::IdleTransport;

QVariantMap systemPen() { return QVariantMap{{QStringLiteral("connected"), true}}; }

class PenLinkPanelTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_FALSE(systemBus().address().isEmpty()); }
  void SetUp() override {
    ASSERT_TRUE(home_.isValid());
    home_.enter();
    fake_ = std::make_unique<FakeBluez>(systemBus().address());
    ASSERT_TRUE(fake_->ready());
  }
  void TearDown() override {
    window_.reset();
    fake_.reset();
  }

  // The panel as the desktop makes it but for the bridge, the screen and the
  // sender, with these preferences saved first.
  void start(const Preferences& preferences = Preferences()) {
    preferences.save();
    panel_ = testing::showPanel(
        delegate_,
        testing::panelPartsOnFakes(pen::platformCentralFactory(), monitor_, pointer_, sampler_),
        window_);
  }
  QString tip() const { return panel_->btStatus->toolTip(); }
  bool tipBecomes(const QString& text, int ms = 5000) {
    return waitFor([&] { return tip() == text; }, ms);
  }
  QString image() const { return panel_->btStatus->property("imageName").toString(); }
  // A pen the system has connected: the link takes it after its delay.
  void connectPen() {
    fake_->addAdapter(QStringLiteral("hci0"));
    fake_->addDevice(kA, systemPen());
    start(preferences_);
    ASSERT_TRUE(tipBecomes(QStringLiteral("Pen connected")));
    ASSERT_TRUE(waitFor([&] { return image() == QLatin1String("BT on"); }));
    // Past the link's delayed step (2.5 s, here 100 ms), which scans when it
    // finds the pen gone.
    spin(200);
  }
  void disconnectPen() {
    fake_->clearCalls();
    fake_->call(QStringLiteral("Disconnect"), {kA});
    ASSERT_TRUE(tipBecomes(QStringLiteral("Pen disconnected")));
    // The sign's image follows the disconnection notice, which reaches the
    // main thread on its own way: it may come a moment after the words.
    ASSERT_TRUE(waitFor([&] { return image() == QLatin1String("BT off"); }))
        << image().toStdString();
  }
  QAction* reconnectAction() const {
    return window_->findChild<QAction*>(QStringLiteral("reconnectAction"));
  }

  testing::LogCapture log_;
  testing::BridgeSandbox home_;
  std::unique_ptr<FakeBluez> fake_;
  AppDelegate delegate_;
  Preferences preferences_;
  std::shared_ptr<testing::FakeClickMonitor> monitor_ =
      std::make_shared<testing::FakeClickMonitor>();
  std::shared_ptr<testing::FakePointer> pointer_ = std::make_shared<testing::FakePointer>();
  std::shared_ptr<testing::FakeSampler> sampler_ = std::make_shared<testing::FakeSampler>();
  ViewController_plus* panel_ = nullptr;  // owned by the window
  std::unique_ptr<PanelWindow> window_;
};

TEST_F(PenLinkPanelTest, WithoutAnAdapterTheSignSaysSo) {
  start();
  EXPECT_TRUE(tipBecomes(QStringLiteral("No Bluetooth adapter"))) << tip().toStdString();
  EXPECT_EQ(panel_->btStatus->accessibleDescription(), QStringLiteral("No Bluetooth adapter"));
}

TEST_F(PenLinkPanelTest, APoweredOffAdapterIsBluetoothOffUntilItIsSwitchedOn) {
  fake_->addAdapter(QStringLiteral("hci0"), false);
  start();
  ASSERT_TRUE(tipBecomes(QStringLiteral("Bluetooth off"))) << tip().toStdString();
  fake_->call(QStringLiteral("SetPowered"), {QStringLiteral("hci0"), true});
  EXPECT_TRUE(tipBecomes(QStringLiteral("Searching for the pen"))) << tip().toStdString();
}

TEST_F(PenLinkPanelTest, NoPenAroundIsSearching) {
  fake_->addAdapter(QStringLiteral("hci0"));
  start();
  ASSERT_TRUE(tipBecomes(QStringLiteral("Searching for the pen"))) << tip().toStdString();
  // The delayed step's scan does not change what it says.
  ASSERT_TRUE(waitFor([&] { return fake_->calls().contains(QStringLiteral("StartDiscovery")); }));
  spin(200);
  EXPECT_EQ(tip(), QStringLiteral("Searching for the pen"));
}

TEST_F(PenLinkPanelTest, ConnectedThenDisconnectedThenSwitchedOff) {
  connectPen();
  EXPECT_EQ(panel_->logic().connectionText(), QStringLiteral("Pen connected"));
  disconnectPen();
  fake_->call(QStringLiteral("SetPowered"), {QStringLiteral("hci0"), false});
  EXPECT_TRUE(tipBecomes(QStringLiteral("Bluetooth off"))) << tip().toStdString();
}

TEST_F(PenLinkPanelTest, SwitchingOffAConnectedPenSaysBluetoothOff) {
  connectPen();
  fake_->call(QStringLiteral("SetPowered"), {QStringLiteral("hci0"), false});
  EXPECT_TRUE(tipBecomes(QStringLiteral("Bluetooth off"))) << tip().toStdString();
  EXPECT_TRUE(waitFor([&] { return image() == QLatin1String("BT off"); }));
}

TEST_F(PenLinkPanelTest, ADisconnectedPenStaysDisconnectedByDefault) {
  connectPen();
  disconnectPen();
  // Seven seconds of the link's time: a back-off would have tried three times.
  spin(280 + 500);
  EXPECT_FALSE(fake_->calls().contains(kConnectA)) << fake_->calls().join(", ").toStdString();
  EXPECT_EQ(tip(), QStringLiteral("Pen disconnected"));
  EXPECT_EQ(image(), QStringLiteral("BT off"));
  EXPECT_FALSE(panel_->logic().reconnectPending());
}

TEST_F(PenLinkPanelTest, TheReconnectActionConnectsTheSavedPenAgain) {
  connectPen();
  QAction* reconnect = reconnectAction();
  ASSERT_NE(reconnect, nullptr);
  EXPECT_EQ(reconnect->text(), QStringLiteral("Reconnect"));
  EXPECT_TRUE(panel_->actions().contains(reconnect));  // on the panel's menu
  // While the pen is connected it has nothing to do.
  fake_->clearCalls();
  EXPECT_FALSE(panel_->logic().reconnectPen());
  disconnectPen();
  reconnect->trigger();
  EXPECT_TRUE(tipBecomes(QStringLiteral("Pen connected"))) << tip().toStdString();
  EXPECT_TRUE(fake_->calls().contains(kConnectA)) << fake_->calls().join(", ").toStdString();
  EXPECT_TRUE(waitFor([&] { return image() == QLatin1String("BT on"); }));
  // And after the next disconnection it is again left alone.
  disconnectPen();
  spin(500);
  EXPECT_FALSE(fake_->calls().contains(kConnectA));
}

TEST_F(PenLinkPanelTest, TheReconnectActionDoesNothingWhileBluetoothIsOff) {
  connectPen();
  fake_->call(QStringLiteral("SetPowered"), {QStringLiteral("hci0"), false});
  ASSERT_TRUE(tipBecomes(QStringLiteral("Bluetooth off")));
  fake_->clearCalls();
  EXPECT_FALSE(panel_->logic().reconnectPen());
  spin(200);
  EXPECT_FALSE(fake_->calls().contains(kConnectA));
  EXPECT_EQ(tip(), QStringLiteral("Bluetooth off"));
}

TEST_F(PenLinkPanelTest, WithTheOptionOnTheDisconnectedPenIsConnectedAgainByItself) {
  preferences_.setReconnectAutomatically(true);
  connectPen();
  QElapsedTimer clock;
  disconnectPen();
  clock.start();
  EXPECT_TRUE(panel_->logic().reconnectPending());
  ASSERT_TRUE(tipBecomes(QStringLiteral("Pen connected"))) << tip().toStdString();
  EXPECT_TRUE(fake_->calls().contains(kConnectA));
  EXPECT_TRUE(waitFor([&] { return image() == QLatin1String("BT on"); }));
  // The first wait was the back-off's first (1 s of the link's time).
  EXPECT_GE(clock.elapsed(), 40 - 5);
  // Connected again: no attempt is left waiting.
  EXPECT_FALSE(panel_->logic().reconnectPending());
  // And the next disconnection starts over.
  disconnectPen();
  EXPECT_TRUE(tipBecomes(QStringLiteral("Pen connected"))) << tip().toStdString();
}

// The waits between failed automatic attempts double from the back-off's
// first (1 s of the link's time) to its longest (60 s) and stay there; once
// the pen is connected again, the next disconnection starts at the first.
TEST_F(PenLinkPanelTest, FailedAutomaticAttemptsBackOffToAMinuteAndStartOverAfterAConnection) {
  preferences_.setReconnectAutomatically(true);
  connectPen();
  fake_->call(QStringLiteral("SetConnectMode"), {kA, QStringLiteral("fail")});
  disconnectPen();
  // The attempts come 1, 3, 7, 15, 31, 63, 123 and 183 s after the
  // disconnection: 7.3 s here.
  const QList<double> waits{2, 4, 8, 16, 32, 60, 60};
  const auto attemptTimes = [&] {
    QList<qint64> times;
    const QStringList calls = fake_->calls();
    const QList<qint64> when = fake_->callTimes();
    for (qsizetype i = 0; i < calls.size() && i < when.size(); ++i)
      if (calls.at(i) == kConnectA) times << when.at(i);
    return times;
  };
  ASSERT_TRUE(waitFor([&] { return attemptTimes().size() >= waits.size() + 1; }, 30000))
      << attemptTimes().size();
  const QList<qint64> times = attemptTimes();
  ASSERT_EQ(times.size(), waits.size() + 1) << "more attempts than the back-off allows";
  // A second of the link's time is 40 ms. A coarse timer may fire up to 5 %
  // early, and the calls' way to the fake may be late by a little, making the
  // next gap shorter.
  for (qsizetype i = 0; i < waits.size(); ++i) {
    const qint64 gap = times.at(i + 1) - times.at(i);
    EXPECT_GE(gap, static_cast<qint64>(waits.at(i) * 40 * 0.95) - 40) << "wait " << i;
  }
  // Held at a minute: doubling on would make the last wait two.
  EXPECT_LT(times.last() - times.at(times.size() - 2), 90 * 40);

  // The pen answers again: the next attempt, a minute later, connects it.
  fake_->call(QStringLiteral("SetConnectMode"), {kA, QStringLiteral("ok")});
  ASSERT_TRUE(tipBecomes(QStringLiteral("Pen connected"), 10000)) << tip().toStdString();
  spin(200);
  QElapsedTimer clock;
  clock.start();
  disconnectPen();
  ASSERT_TRUE(waitFor([&] { return !attemptTimes().isEmpty(); }, 10000));
  // The first wait again (40 ms), not the minute the back-off had reached.
  EXPECT_LT(clock.elapsed(), 30 * 40);
  EXPECT_TRUE(tipBecomes(QStringLiteral("Pen connected"))) << tip().toStdString();
}

TEST_F(PenLinkPanelTest, TurningTheOptionOffStopsTheAttempts) {
  preferences_.setReconnectAutomatically(true);
  connectPen();
  // Switched off, so that the attempts find no adapter to use and go on.
  fake_->call(QStringLiteral("SetPowered"), {QStringLiteral("hci0"), false});
  ASSERT_TRUE(tipBecomes(QStringLiteral("Bluetooth off")));
  ASSERT_TRUE(waitFor([&] { return panel_->logic().reconnectPending(); }));
  Preferences off = preferences_;
  off.setReconnectAutomatically(false);
  panel_->logic().applyPreferences(off);
  EXPECT_FALSE(panel_->logic().reconnectPending());
}

TEST_F(PenLinkPanelTest, ThePreferencesWindowSwitchesAndSavesTheThreeOptions) {
  start();
  panel_->showPreferences();
  PreferencesDialog* dialog = panel_->preferencesDialog();
  ASSERT_NE(dialog, nullptr);
  // As they start: no automatic reconnection, notifications on, no tray icon.
  EXPECT_FALSE(dialog->reconnectBox()->isChecked());
  EXPECT_TRUE(dialog->notificationsBox()->isChecked());
  EXPECT_FALSE(dialog->trayBox()->isChecked());
  dialog->reconnectBox()->setChecked(true);
  dialog->notificationsBox()->setChecked(false);
  EXPECT_TRUE(panel_->logic().preferences().reconnectAutomatically());
  EXPECT_FALSE(panel_->logic().preferences().notificationsEnabled());
  const Preferences saved = Preferences::load();
  EXPECT_TRUE(saved.reconnectAutomatically());
  EXPECT_FALSE(saved.notificationsEnabled());
  EXPECT_FALSE(saved.showTrayIcon());
  dialog->reconnectBox()->setChecked(false);
  EXPECT_FALSE(Preferences::load().reconnectAutomatically());
}

TEST(ReconnectBackoffTest, DoublesFromOneSecondUpToAMinuteAndStartsOverOnReset) {
  ReconnectBackoff backoff;
  std::vector<double> waits;
  for (int i = 0; i < 9; ++i) waits.push_back(backoff.next());
  EXPECT_EQ(waits, (std::vector<double>{1, 2, 4, 8, 16, 32, 60, 60, 60}));
  backoff.reset();
  EXPECT_EQ(backoff.next(), 1.0);
  EXPECT_EQ(backoff.next(), 2.0);
}

}  // namespace
}  // namespace tw
