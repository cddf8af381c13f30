// The preferences window on the offscreen platform, opened from the panel's
// menu and with Ctrl+,: its controls start from the settings file, and each
// change reaches the panel at once and the file. The panel has its real
// logic, bridge (a stand-in `wine` records launches) and sender (a transport
// that never answers); the native hosts are recording hosts behind the
// panel's own dispatcher.
#include "app/desktop/PreferencesDialog.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPlainTextEdit>
#include <QSettings>
#include <QTest>
#include <mutex>

#include "app/AppDelegate.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/ViewController_plus.h"
#include "bridge/HostDispatcher.h"
#include "bridge/RunningApplications.h"
#include "events/Notifications.h"
#include "tests/color/ScreenPickTestSupport.h"
#include "tests/pen/simulated/SimulatedCentral.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/IdleTransport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/QtWait.h"
#include "tests/support/TestMain.h"

namespace tw {
namespace {

using testing::waitFor;

const QString kPhotoshop =
    QStringLiteral(R"(C:\Program Files\Adobe\Adobe Photoshop 2021\Photoshop.exe)");

using testing::IdleTransport;

// Takes every colour and keeps it.
class RecordingHost : public DesignHost {
 public:
  explicit RecordingHost(QString key) : key_(std::move(key)) {}
  QString key() const override { return key_; }
  QString displayName() const override { return key_; }
  bool isHostProcess(const RunningApplication& application) const override {
    return application.localizedName == key_;
  }
  PushOutcome push(const HostColor& color, std::chrono::milliseconds) override {
    std::lock_guard lock(mutex_);
    pushes.push_back(color);
    return {PushStatus::Confirmed, {}};
  }
  std::optional<HostColor> readBack(std::chrono::milliseconds) override { return {}; }
  const QString key_;
  std::mutex mutex_;
  std::vector<HostColor> pushes;
};

class PreferencesDialogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(home_.isValid());
    home_.enter();
  }
  void TearDown() override { window_.reset(); }

  void writeSettings(const QByteArray& text) {
    QDir().mkpath(home_.filePath(QStringLiteral("config/Orlo")));
    QFile file(settingsPath());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
  }
  QString settingsPath() const {
    return home_.filePath(QStringLiteral("config/Orlo/Tintwell.conf"));
  }
  QString setting(const QString& key) const {
    return QSettings(settingsPath(), QSettings::IniFormat).value(key).toString();
  }

  // The panel as the desktop application makes it, with a dispatcher for the
  // three native hosts, GIMP seen running; then shown.
  void start() {
    PanelParts parts;
    parts.central = [](pen::CentralDelegate* d, QThread* q) {
      return std::make_unique<pen::SimulatedCentral>(d, q, pen::CentralManager::kPoweredOff);
    };
    parts.host = std::make_shared<WineHostDescription>(
        std::make_shared<FixedApplicationLister>(std::vector<RunningApplication>{
            {QStringLiteral("Photoshop.exe"), kPhotoshop},
            {QStringLiteral("gimp"), QStringLiteral("/usr/bin/gimp")}}));
    parts.alerts = std::make_shared<SilentAlertPresenter>();
    parts.transport = transport_;
    parts.colorHelper = [this] {
      return std::make_unique<ColorHelper>(ScreenBackend{monitor_, pointer_, sampler_});
    };
    parts.nativeHosts = [this] {
      std::vector<std::unique_ptr<DesignHost>> hosts;
      for (const QString key : {"gimp", "inkscape", "krita"}) {
        auto host = std::make_unique<RecordingHost>(key);
        if (key == "gimp") gimp_ = host.get();
        hosts.push_back(std::move(host));
      }
      return hosts;
    };
    panel_ = new ViewController_plus(delegate_, std::move(parts));
    window_ = std::make_unique<PanelWindow>(delegate_, panel_);
    dispatcher_ = panel_->logic().commander().nativeHosts();
    ASSERT_NE(dispatcher_, nullptr);
    panel_->viewDidLoad();
    window_->show();
    ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#FAFAFA"; }));
  }
  void postPenColour(int r, int g, int b) {
    NotificationCenter::defaultCenter().post(
        notification::newColor(), ColorStruct::fromChannels(r, g, b),
        UserInfo{{notification::quillaKey(), QStringLiteral("NewColor")}});
  }
  QAction* preferencesAction() const {
    for (QAction* action : panel_->actions())
      if (action->text() == QStringLiteral("Preferences…")) return action;
    return nullptr;
  }
  PreferencesDialog* openWithKeys() {
    window_->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowActive(window_.get()));
    QTest::keyClick(window_.get(), Qt::Key_Comma, Qt::ControlModifier);
    EXPECT_TRUE(waitFor([&] { return panel_->preferencesDialog() != nullptr; }));
    return panel_->preferencesDialog();
  }
  PreferencesDialog* open() {
    preferencesAction()->trigger();
    return panel_->preferencesDialog();
  }

  testing::LogCapture log_;
  testing::BridgeSandbox home_;
  AppDelegate delegate_;
  std::shared_ptr<IdleTransport> transport_ = std::make_shared<IdleTransport>();
  std::shared_ptr<testing::FakeClickMonitor> monitor_ =
      std::make_shared<testing::FakeClickMonitor>();
  std::shared_ptr<testing::FakePointer> pointer_ = std::make_shared<testing::FakePointer>();
  std::shared_ptr<testing::FakeSampler> sampler_ = std::make_shared<testing::FakeSampler>();
  std::shared_ptr<HostDispatcher> dispatcher_;
  RecordingHost* gimp_ = nullptr;         // owned by the dispatcher
  ViewController_plus* panel_ = nullptr;  // owned by the window
  std::unique_ptr<PanelWindow> window_;
};

TEST_F(PreferencesDialogTest, ThePanelsMenuHasPreferencesOnCtrlComma) {
  start();
  QAction* action = preferencesAction();
  ASSERT_NE(action, nullptr);
  EXPECT_TRUE(action->shortcuts().contains(QKeySequence(QStringLiteral("Ctrl+,"))));
  EXPECT_EQ(panel_->contextMenuPolicy(), Qt::ActionsContextMenu);
  EXPECT_EQ(panel_->preferencesDialog(), nullptr);
}

TEST_F(PreferencesDialogTest, CtrlCommaOpensOneNonModalWindow) {
  start();
  PreferencesDialog* dialog = openWithKeys();
  ASSERT_NE(dialog, nullptr);
  EXPECT_TRUE(dialog->isVisible());
  EXPECT_FALSE(dialog->isModal());
  EXPECT_EQ(dialog->windowModality(), Qt::NonModal);
  // Again, and from the menu: the same window.
  QTest::keyClick(window_.get(), Qt::Key_Comma, Qt::ControlModifier);
  EXPECT_EQ(open(), dialog);
  dialog->close();
  EXPECT_FALSE(dialog->isVisible());
  EXPECT_EQ(open(), dialog);
  EXPECT_TRUE(dialog->isVisible());
  EXPECT_EQ(QApplication::topLevelWidgets().count(dialog), 1);
  // The panel still takes colours while it is open.
  postPenColour(18, 52, 86);
  EXPECT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#123456"; }));
}

TEST_F(PreferencesDialogTest, TheControlsStartFromTheSettingsFile) {
  writeSettings(
      "[hosts]\nillustrator=false\ngimp=false\n[copy]\nenabled=true\nnotation=cmyk\n"
      "[telemetry]\nenabled=false\n");
  start();
  PreferencesDialog* dialog = open();
  ASSERT_NE(dialog, nullptr);
  EXPECT_TRUE(dialog->hostBox("photoshop")->isChecked());
  EXPECT_FALSE(dialog->hostBox("illustrator")->isChecked());
  EXPECT_FALSE(dialog->hostBox("gimp")->isChecked());
  EXPECT_TRUE(dialog->hostBox("inkscape")->isChecked());
  EXPECT_TRUE(dialog->hostBox("krita")->isChecked());
  EXPECT_EQ(dialog->hostBox("gimp")->text(), "GIMP");
  EXPECT_TRUE(dialog->copyBox()->isChecked());
  EXPECT_EQ(dialog->notationBox()->currentText(), "CMYK");
  EXPECT_FALSE(dialog->reportsBox()->isChecked());
  EXPECT_TRUE(dialog->reportsWaiting()->text().startsWith("Usage reports are off"));
  // And the panel obeys the same file.
  EXPECT_FALSE(panel_->logic().commander().isScriptHostEnabled("illustrator"));
  EXPECT_FALSE(dispatcher_->isEnabled("gimp"));
  EXPECT_FALSE(panel_->logic().apiLogger().isSendingEnabled());
}

TEST_F(PreferencesDialogTest, EachHostCheckboxSwitchesTheHostAndIsSaved) {
  start();
  PreferencesDialog* dialog = openWithKeys();
  ASSERT_NE(dialog, nullptr);
  dialog->hostBox("photoshop")->click();
  EXPECT_FALSE(panel_->logic().commander().isScriptHostEnabled("photoshop"));
  EXPECT_EQ(setting("hosts/photoshop"), "false");
  dialog->hostBox("gimp")->click();
  EXPECT_FALSE(dispatcher_->isEnabled("gimp"));
  EXPECT_EQ(setting("hosts/gimp"), "false");
  EXPECT_EQ(setting("hosts/inkscape"), "true");

  postPenColour(18, 52, 86);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#123456"; }));
  ASSERT_TRUE(dispatcher_->waitIdle(std::chrono::seconds(5)));
  EXPECT_TRUE(home_.launches().isEmpty());
  {
    std::lock_guard lock(gimp_->mutex_);
    EXPECT_TRUE(gimp_->pushes.empty());
  }

  dialog->hostBox("gimp")->click();
  EXPECT_EQ(setting("hosts/gimp"), "true");
  postPenColour(1, 2, 3);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#010203"; }));
  ASSERT_TRUE(dispatcher_->waitIdle(std::chrono::seconds(5)));
  {
    std::lock_guard lock(gimp_->mutex_);
    EXPECT_EQ(gimp_->pushes, (std::vector<HostColor>{{1, 2, 3}}));
  }
  dialog->refresh();
  EXPECT_EQ(dialog->hostCounts("gimp")->text(), "pushed 1, confirmed 1, failed 0");
  EXPECT_EQ(dialog->hostCounts("krita")->text(), "pushed 0, confirmed 0, failed 0");
  EXPECT_EQ(dialog->hostCounts("photoshop"), nullptr);  // no counts for script hosts
}

TEST_F(PreferencesDialogTest, TheCopyControlsChangeTheOptionAndAreSaved) {
  start();
  PreferencesDialog* dialog = open();
  ASSERT_NE(dialog, nullptr);
  EXPECT_FALSE(dialog->copyBox()->isChecked());
  EXPECT_EQ(dialog->notationBox()->currentText(), "HEX");
  dialog->copyBox()->click();
  EXPECT_TRUE(panel_->logic().preferences().copyEnabled());
  EXPECT_EQ(setting("copy/enabled"), "true");
  dialog->notationBox()->setCurrentIndex(dialog->notationBox()->findText("Lab"));
  EXPECT_EQ(panel_->logic().preferences().copyNotation(), "lab");
  EXPECT_EQ(setting("copy/notation"), "lab");

  QGuiApplication::clipboard()->setText(QStringLiteral("before"));
  postPenColour(18, 52, 86);
  ASSERT_TRUE(waitFor([&] { return QGuiApplication::clipboard()->text() != "before"; }));
  EXPECT_EQ(QGuiApplication::clipboard()->text(), panel_->labInfo->text());
}

TEST_F(PreferencesDialogTest, TheReportsSectionShowsTheWaitingBodiesAndItsSwitchStopsThem) {
  start();
  PreferencesDialog* dialog = open();
  ASSERT_NE(dialog, nullptr);
  EXPECT_TRUE(dialog->reportsBox()->isChecked());
  EXPECT_TRUE(dialog->reportsWaiting()->text().startsWith("Waiting to be sent: nothing"))
      << dialog->reportsWaiting()->text().toStdString();
  postPenColour(18, 52, 86);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#123456"; }));
  dialog->refresh();
  EXPECT_EQ(dialog->reportsWaiting()->text(), "Waiting to be sent: 2 reports, with 1 colour.");
  const QString bodies = dialog->reportBodies()->toPlainText();
  EXPECT_TRUE(dialog->reportBodies()->isReadOnly());
  const auto pending = panel_->logic().apiLogger().pendingReport();
  ASSERT_TRUE(pending.has_value());
  EXPECT_TRUE(bodies.contains(R"("colors_device" : "[#123456]")")) << bodies.toStdString();
  EXPECT_TRUE(bodies.contains(R"("PS" : 1)")) << bodies.toStdString();
  EXPECT_TRUE(bodies.contains("/api/color_usage\n{")) << bodies.toStdString();
  EXPECT_TRUE(bodies.contains("/api/app_usage\n{")) << bodies.toStdString();

  dialog->reportsBox()->click();
  EXPECT_FALSE(panel_->logic().apiLogger().isSendingEnabled());
  EXPECT_FALSE(panel_->logic().apiLogger().apiSenderTimer()->isActive());
  EXPECT_EQ(setting("telemetry/enabled"), "false");
  EXPECT_TRUE(dialog->reportsWaiting()->text().startsWith("Usage reports are off"));
  EXPECT_EQ(dialog->reportBodies()->toPlainText(), "");

  dialog->reportsBox()->click();
  EXPECT_TRUE(panel_->logic().apiLogger().apiSenderTimer()->isActive());
  EXPECT_EQ(setting("telemetry/enabled"), "true");
  // What was counted before is dropped with the switch.
  EXPECT_TRUE(dialog->reportsWaiting()->text().startsWith("Waiting to be sent: nothing"));
  EXPECT_EQ(transport_->posts, 0);
}

TEST(PreferencesDialogPeriodTest, PeriodsReadInWholeUnits) {
  EXPECT_EQ(PreferencesDialog::periodText(600000), "10 minutes");
  EXPECT_EQ(PreferencesDialog::periodText(60000), "minute");
  EXPECT_EQ(PreferencesDialog::periodText(6000), "6 seconds");
  EXPECT_EQ(PreferencesDialog::periodText(1500), "1.5 seconds");
}

}  // namespace
}  // namespace tw
