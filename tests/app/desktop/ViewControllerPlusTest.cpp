// The desktop panel's widgets on the offscreen platform, with the real panel
// logic, bridge (a stand-in `wine` on PATH records launches) and notification
// centre; the pen is the simulated central (powered off: the tests post the
// pen's notifications themselves) and the screen is the fake picking backend.
#include "app/desktop/ViewController_plus.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDeadlineTimer>
#include <QDir>
#include <QDynamicPropertyChangeEvent>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QKeyEvent>
#include <QLayout>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <QWindow>

#include "app/AppDelegate.h"
#include "app/desktop/PanelWindow.h"
#include "bridge/RunningApplications.h"
#include "color/picker/ClearWindow.h"
#include "color/picker/DropperCursor.h"
#include "color/portal/PortalColorPicker.h"
#include "common/TimeScale.h"
#include "common/Version.h"
#include "events/Notifications.h"
#include "library/dialog/VCPantonePicker.h"
#include "tests/color/ScreenPickTestSupport.h"
#include "tests/pen/simulated/SimulatedCentral.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/IdleTransport.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/PrivateBus.h"
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

using testing::IdleTransport;

// The colour of the crown's middle pixel, where the drawing is opaque.
QColor crownCentre(const QPixmap& pixmap) {
  const QImage image = pixmap.toImage();
  return image.pixelColor(image.width() / 2, image.height() * 6 / 10);
}

QList<ClearWindow*> pickingWindows() {
  QList<ClearWindow*> found;
  for (QWidget* widget : QApplication::topLevelWidgets())
    if (auto* picker = qobject_cast<ClearWindow*>(widget)) found << picker;
  return found;
}

// When each watched widget's "imageName" last changed, on one clock.
class ImageNameClock : public QObject {
 public:
  ImageNameClock() { clock_.start(); }
  void watch(QObject* widget) { widget->installEventFilter(this); }
  // Milliseconds since this clock started; -1 before any change.
  qint64 changedAt(QObject* widget) const { return at_.value(widget, -1); }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() == QEvent::DynamicPropertyChange &&
        static_cast<QDynamicPropertyChangeEvent*>(event)->propertyName() == "imageName")
      at_[watched] = clock_.elapsed();
    return false;
  }

 private:
  QElapsedTimer clock_;
  QHash<QObject*, qint64> at_;
};

class ViewControllerPlusTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(home_.isValid());
    home_.enter();

    pointer_->height = 600;
    pointer_->location = QPointF(100, 500);  // top-left row 100
    PanelParts parts;
    parts.central = [](pen::CentralDelegate* d, QThread* q) {
      return std::make_unique<pen::SimulatedCentral>(d, q, pen::CentralManager::kPoweredOff);
    };
    parts.host = std::make_shared<WineHostDescription>(std::make_shared<FixedApplicationLister>(
        std::vector<RunningApplication>{{QStringLiteral("Photoshop.exe"), kPhotoshop}}));
    parts.alerts = std::make_shared<SilentAlertPresenter>();
    parts.transport = transport_;
    parts.colorHelper = [this] {
      return std::make_unique<ColorHelper>(backend_ ? *backend_
                                                    : ScreenBackend{monitor_, pointer_, sampler_});
    };
    panel_ = new ViewController_plus(delegate_, std::move(parts));
    window_ = std::make_unique<PanelWindow>(delegate_, panel_);
    panel_->viewDidLoad();
  }
  void TearDown() override {
    for (ClearWindow* picker : pickingWindows()) delete picker;
    restoreCursor();
    window_.reset();
  }

  // Shows the window and lets the start-up colour reach the display.
  void start() {
    window_->show();
    ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#FAFAFA"; }));
  }
  // What the panel said since the last call.
  QString takeOutput() {
    const QString out = log_.text();
    log_.clear();
    return out;
  }
  QStringList launches() const { return home_.launches(); }
  void postPenColour(const ColorStruct& colour) {
    QThread* pen = QThread::create([&] {
      NotificationCenter::defaultCenter().post(
          notification::newColor(), colour,
          UserInfo{{notification::quillaKey(), QStringLiteral("NewColor")}});
    });
    pen->start();
    pen->wait();
    delete pen;
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
  void pick(const QColor& colour) {
    sampler_->color = colour;
    panel_->findScreenColor();
    ASSERT_FALSE(window_->isVisible());
    monitor_->click();
  }
  ColorRecord::Fields record() { return panel_->logic().apiLogger().colorRecord()->read(); }
  qint64 photoshopPushes() {
    return panel_->logic().commander().tempApplicationRecord()->read().PS;
  }
  QString batteryImage() const { return panel_->imgBattery->property("imageName").toString(); }

  // First, so that it outlives the panel and hears everything it says.
  testing::LogCapture log_;
  testing::BridgeSandbox home_;
  AppDelegate delegate_;
  std::shared_ptr<IdleTransport> transport_ = std::make_shared<IdleTransport>();
  std::shared_ptr<testing::FakeClickMonitor> monitor_ =
      std::make_shared<testing::FakeClickMonitor>();
  std::shared_ptr<testing::FakePointer> pointer_ = std::make_shared<testing::FakePointer>();
  std::shared_ptr<testing::FakeSampler> sampler_ = std::make_shared<testing::FakeSampler>();
  // Another screen backend instead of the fakes, set before SetUp().
  std::optional<ScreenBackend> backend_;
  ViewController_plus* panel_ = nullptr;  // owned by the window
  std::unique_ptr<PanelWindow> window_;
};

TEST_F(ViewControllerPlusTest, StartUpShowsFAFAFAWithTheTextsOf250AndNeitherPushesNorCounts) {
  start();
  EXPECT_EQ(panel_->rgbInfo->text(), "250  250  250");
  EXPECT_EQ(panel_->cmykInfo->text(), "0  0  0  2");
  EXPECT_EQ(panel_->hsbInfo->text(), "0  0  98");
  EXPECT_EQ(panel_->labInfo->text(), "98.3  0.0  -0.0 ");
  EXPECT_EQ(crownCentre(panel_->crown->pixmap()), QColor(250, 250, 250));
  EXPECT_EQ(crownCentre(panel_->crownBtn->icon().pixmap(64)), QColor(250, 250, 250));
  EXPECT_EQ(photoshopPushes(), 0);
  EXPECT_TRUE(launches().isEmpty());
  EXPECT_EQ(record().counter_device, 0);
  EXPECT_EQ(record().counter_screen, 0);
  EXPECT_TRUE(takeOutput().contains("FAFAFA\n"));
}

TEST_F(ViewControllerPlusTest, AppearingSetsUpThePickerFloatsAndPaintsTheDarkOliveBackground) {
  start();
  EXPECT_EQ(panel_->colorHelper().window, window_.get());
  EXPECT_EQ(monitor_->handlers.size(), 1u);
  EXPECT_EQ(panel_->colorHelper().mainScreenHeight, 600);
  ASSERT_NE(window_->windowHandle(), nullptr);
  EXPECT_TRUE(window_->windowHandle()->flags() & Qt::WindowStaysOnTopHint);
  EXPECT_TRUE(panel_->autoFillBackground());
  EXPECT_EQ(panel_->palette().color(QPalette::Window), QColor(40, 40, 20));
  const QImage shown = panel_->grab().toImage();
  EXPECT_EQ(shown.pixelColor(2, 2), QColor(40, 40, 20));
  const auto fields = record();
  EXPECT_EQ(fields.vender, "Vandu");
  EXPECT_EQ(fields.app, "TW+V");
  EXPECT_EQ(fields.version, QString::fromLatin1(kVersion));
}

TEST_F(ViewControllerPlusTest, APenColourIsShownTintedWithItsTextsPushedAndCounted) {
  start();
  postPenColour(ColorStruct::fromChannels(18, 52, 86));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#123456"; }));
  EXPECT_EQ(panel_->rgbInfo->text(), "18  52  86");
  EXPECT_EQ(crownCentre(panel_->crown->pixmap()), QColor(18, 52, 86));
  EXPECT_EQ(crownCentre(panel_->crownBtn->icon().pixmap(64)), QColor(18, 52, 86));
  // The crown keeps its shape: transparent corners stay transparent.
  EXPECT_EQ(panel_->crown->pixmap().toImage().pixelColor(0, 0).alpha(), 0);
  EXPECT_EQ(photoshopPushes(), 1);
  EXPECT_EQ(launches().size(), 1);
  EXPECT_EQ(record().colors_device, ",#123456");
}

TEST_F(ViewControllerPlusTest, TheSamePenColourTwiceIsShownTwiceButPushedAndCountedOnce) {
  start();
  takeOutput();
  postPenColour(ColorStruct::fromChannels(18, 52, 86));
  postPenColour(ColorStruct::fromChannels(18, 52, 86));
  // Each arrival prints its hex line and queues its display.
  EXPECT_EQ(takeOutput().count("123456\n"), 2);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#123456"; }));
  EXPECT_EQ(photoshopPushes(), 1);
  EXPECT_EQ(record().counter_device, 1);
}

// Timers at a tenth of their length: the 3 s step takes 300 ms, so the half
// second either side it is allowed is not lost in a busy machine's lateness.
// (The scale is read once per process: run with others, this takes theirs.)
class ViewControllerPlusTimingTest : public ViewControllerPlusTest {
 protected:
  void SetUp() override {
    if (QCoreApplication::instance() == nullptr) qputenv("TINTWELL_TIME_SCALE", "0.1");
    ViewControllerPlusTest::SetUp();
  }
};

TEST_F(ViewControllerPlusTimingTest, ConnectionShowsBtOnAndTheBatteryImageThreeSecondsLater) {
  start();
  EXPECT_TRUE(panel_->imgBattery->isHidden());
  ImageNameClock clock;
  clock.watch(panel_->btStatus);
  clock.watch(panel_->imgBattery);
  postFromPenThread(notification::connectedQuilla(), QStringLiteral("Device Connected"));
  // A real event loop, asleep until the next timer: polling would add its own
  // lateness to the delay measured below.
  QEventLoop loop;
  QTimer::singleShot(scaledMs(3.5) + 300, &loop, &QEventLoop::quit);
  loop.exec();
  EXPECT_EQ(panel_->btStatus->property("imageName"), "BT on");
  EXPECT_TRUE(panel_->imgBattery->isVisible());
  EXPECT_EQ(panel_->logic().activeBatteryTimers(), 1);
  // No battery level is known: 0 shows "10", 3 s after the connection was
  // shown, not at once and not at the first 180 s tick.
  ASSERT_EQ(batteryImage(), "10");
  const qint64 delay = clock.changedAt(panel_->imgBattery) - clock.changedAt(panel_->btStatus);
  EXPECT_GE(delay, scaledMs(2.5));
  EXPECT_LE(delay, scaledMs(3.5));
}

TEST_F(ViewControllerPlusTest, DisconnectionShowsBtOffHidesTheBatteryAndStopsItsTimer) {
  start();
  postFromPenThread(notification::connectedQuilla(), QStringLiteral("Device Connected"));
  ASSERT_TRUE(waitFor([&] { return panel_->imgBattery->isVisible(); }));
  postFromPenThread(notification::disconnected(), QStringLiteral("Device Disconnected"));
  ASSERT_TRUE(waitFor([&] { return panel_->btStatus->property("imageName") == "BT off"; }));
  EXPECT_TRUE(panel_->imgBattery->isHidden());
  EXPECT_EQ(panel_->logic().activeBatteryTimers(), 0);
}

TEST_F(ViewControllerPlusTest, FindScreenColorArmsBothFlagsOpensThePickerAndClosesThePanel) {
  start();
  takeOutput();
  panel_->findScreenColor();
  EXPECT_TRUE(panel_->colorHelper().bPickScreenColor);
  EXPECT_TRUE(panel_->logic().apiLogger().bPickScreenColor);
  const auto pickers = pickingWindows();
  ASSERT_EQ(pickers.size(), 1);
  EXPECT_EQ(pickers.front()->appMainWindow, window_.get());
  EXPECT_FALSE(window_->isVisible());
  ASSERT_NE(QGuiApplication::overrideCursor(), nullptr);
  EXPECT_EQ(QGuiApplication::overrideCursor()->hotSpot(), kDropperHotSpot);
  const QString out = takeOutput();
  EXPECT_TRUE(out.contains("viewDidDisappear!\n")) << out.toStdString();
  EXPECT_TRUE(out.contains("cursor changed\n")) << out.toStdString();
  // Closing the panel for a pick is not a quit.
  spin(20);
  EXPECT_FALSE(delegate_.isTerminationPending());
}

TEST_F(ViewControllerPlusTest, APickRightAfterStartUpIsShownCountedAsAScreenColourAndPushed) {
  start();
  pick(QColor(60, 127, 224));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#3C7FE0"; }));
  EXPECT_TRUE(window_->isVisible());
  EXPECT_TRUE(pickingWindows().isEmpty());
  EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
  EXPECT_EQ(crownCentre(panel_->crown->pixmap()), QColor(60, 127, 224));
  EXPECT_EQ(record().colors_screen, ",#3C7FE0");
  EXPECT_EQ(record().counter_device, 0);
  EXPECT_EQ(photoshopPushes(), 1);
  // Sampled where the pointer was: (100, 600 - 500).
  ASSERT_EQ(sampler_->reads.size(), 1u);
  EXPECT_EQ(sampler_->reads.front(), QPointF(100, 100));
}

TEST_F(ViewControllerPlusTest, ThePanelComesBackOnTheScreenOnlyOnceThePixelIsRead) {
  start();
  sampler_->deferred = true;
  pick(QColor(60, 127, 224));
  // Back, with its appear sequence run, but not on the screen yet.
  EXPECT_TRUE(window_->isVisible());
  EXPECT_TRUE(window_->testAttribute(Qt::WA_DontShowOnScreen));
  sampler_->finish();
  ASSERT_TRUE(waitFor([&] { return !window_->testAttribute(Qt::WA_DontShowOnScreen); }));
  EXPECT_TRUE(window_->isVisible());
  EXPECT_EQ(panel_->hexInfo->text(), "#3C7FE0");
  // Putting it on the screen is not another appearance.
  EXPECT_EQ(monitor_->handlers.size(), 2u);
}

TEST_F(ViewControllerPlusTest,
       AfterAPenColourThePanelsReturnRestartsTelemetryAndTakesTheScreenCount) {
  // The panel's return runs the appear sequence: telemetry starts a fresh
  // record, and the start-up colour, now new to the bridge, is counted while
  // the pick is armed, so as the screen colour; the sampled colour after it
  // counts as a pen colour.
  start();
  postPenColour(ColorStruct::fromChannels(18, 52, 86));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#123456"; }));
  ASSERT_EQ(record().colors_device, ",#123456");
  pick(QColor(60, 127, 224));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#3C7FE0"; }));
  EXPECT_EQ(record().colors_screen, ",#FAFAFA");
  EXPECT_EQ(record().colors_device, ",#3C7FE0");
  EXPECT_EQ(photoshopPushes(), 3);
}

TEST_F(ViewControllerPlusTest, EveryAppearanceInstallsAnotherMonitorButOneClickPicksOnce) {
  start();
  pick(QColor(1, 2, 3));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#010203"; }));
  EXPECT_EQ(monitor_->handlers.size(), 2u);
  pick(QColor(4, 5, 6));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#040506"; }));
  EXPECT_EQ(sampler_->reads.size(), 2u);
  // A click while not armed does nothing.
  monitor_->click();
  spin(20);
  EXPECT_EQ(sampler_->reads.size(), 2u);
}

// What a pick that the screen picker cannot answer leaves: the panel back on
// the screen with the same colour, the picking window and the dropper cursor
// gone, both flags down, no colour posted, pushed or counted, and the reason
// under the panel and on the dropper.
#define EXPECT_PICK_ENDED_WITHOUT_A_COLOUR(before, pushesBefore, hexBefore)                    \
  do {                                                                                         \
    EXPECT_FALSE(window_->testAttribute(Qt::WA_DontShowOnScreen));                             \
    EXPECT_TRUE(waitFor([] { return pickingWindows().isEmpty(); }));                           \
    EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);                                     \
    EXPECT_FALSE(panel_->colorHelper().bPickScreenColor);                                      \
    EXPECT_FALSE(panel_->logic().apiLogger().bPickScreenColor);                                \
    EXPECT_TRUE(testing::PickRecorder::instance().newColors.empty());                          \
    EXPECT_TRUE(testing::PickRecorder::instance().mouseDowns.empty());                         \
    EXPECT_EQ(panel_->hexInfo->text(), hexBefore);                                             \
    EXPECT_EQ(record().counter_screen, (before).counter_screen);                               \
    EXPECT_EQ(record().counter_device, (before).counter_device);                               \
    EXPECT_EQ(photoshopPushes(), pushesBefore);                                                \
    EXPECT_TRUE(panel_->hostMessage->isVisible());                                             \
    EXPECT_EQ(panel_->hostMessage->text(), ViewController_plus::screenPickUnansweredText());   \
    EXPECT_EQ(panel_->dropperBtn->toolTip(), ViewController_plus::screenPickUnansweredText()); \
  } while (false)

TEST_F(ViewControllerPlusTest, APickTheScreenPickerCannotAnswerEndsWithoutAColourAndSaysWhy) {
  start();
  testing::PickRecorder::instance().clear();
  const auto before = record();
  const qint64 pushesBefore = photoshopPushes();
  const QString hexBefore = panel_->hexInfo->text();
  EXPECT_EQ(panel_->dropperBtn->toolTip(), QStringLiteral("Pick from screen"));
  panel_->findScreenColor();
  ASSERT_FALSE(window_->isVisible());
  takeOutput();
  monitor_->reportUnanswered();
  ASSERT_TRUE(waitFor([&] { return window_->isVisible(); }));
  spin(50);
  EXPECT_PICK_ENDED_WITHOUT_A_COLOUR(before, pushesBefore, hexBefore);
  EXPECT_TRUE(sampler_->reads.empty());
  const QString text = ViewController_plus::screenPickUnansweredText();
  EXPECT_TRUE(text.contains(QStringLiteral("xdg-desktop-portal"))) << text.toStdString();
  EXPECT_TRUE(text.contains(QStringLiteral("the pen still works"))) << text.toStdString();
  EXPECT_FALSE(text.contains(QLatin1Char('\n')));
  // Shown again, not a new appearance: no start-up colour, no second monitor.
  const QString out = takeOutput();
  EXPECT_FALSE(out.contains("FAFAFA\n")) << out.toStdString();
  EXPECT_EQ(monitor_->handlers.size(), 1u);
  // The next colour is the pen's, and counts as such.
  postPenColour(ColorStruct::fromChannels(18, 52, 86));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#123456"; }));
  EXPECT_EQ(record().colors_device, ",#123456");
  EXPECT_EQ(record().colors_screen, before.colors_screen);
  // A late click picks nothing.
  monitor_->click();
  spin(20);
  EXPECT_TRUE(sampler_->reads.empty());
  testing::PickRecorder::instance().clear();
}

TEST_F(ViewControllerPlusTest, AnAnsweredPickAfterAnUnansweredOneGivesTheDropperItsOwnTooltip) {
  start();
  panel_->findScreenColor();
  monitor_->reportUnanswered();
  ASSERT_TRUE(waitFor([&] { return window_->isVisible(); }));
  ASSERT_EQ(panel_->dropperBtn->toolTip(), ViewController_plus::screenPickUnansweredText());
  panel_->hostMessage->hide();
  pick(QColor(60, 127, 224));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#3C7FE0"; }));
  EXPECT_EQ(panel_->dropperBtn->toolTip(), QStringLiteral("Pick from screen"));
  EXPECT_FALSE(panel_->hostMessage->isVisible());
}

// The panel with the portal backend on a private session bus where no portal
// runs (the real one cannot run in a test): the dropper explains itself.
class PanelWithoutPortalTest : public ViewControllerPlusTest {
 protected:
  PanelWithoutPortalTest() {
    auto picker = std::make_shared<portal::PortalColorPicker>(
        QDBusConnection::connectToBus(bus_.address(), QStringLiteral("panel-portal")));
    backend_ = ScreenBackend{picker, picker, picker};
  }
  void TearDown() override {
    ViewControllerPlusTest::TearDown();
    backend_.reset();
    QDBusConnection::disconnectFromBus(QStringLiteral("panel-portal"));
  }
  testing::PrivateBus bus_{testing::PrivateBus::Kind::Session};
};

TEST_F(PanelWithoutPortalTest, TheDropperSaysThePortalDidNotAnswerAndNothingIsPostedOrCounted) {
  ASSERT_FALSE(bus_.address().isEmpty());
  start();
  testing::PickRecorder::instance().clear();
  const auto before = record();
  const qint64 pushesBefore = photoshopPushes();
  const QString hexBefore = panel_->hexInfo->text();
  takeOutput();
  panel_->dropperBtn->click();
  ASSERT_TRUE(
      waitFor([&] { return window_->isVisible() && panel_->hostMessage->isVisible(); }, 10000));
  spin(50);
  EXPECT_PICK_ENDED_WITHOUT_A_COLOUR(before, pushesBefore, hexBefore);
  const QString out = takeOutput();
  EXPECT_TRUE(out.contains("portal: PickColor failed: no desktop portal")) << out.toStdString();
  EXPECT_FALSE(out.contains("FAFAFA\n")) << out.toStdString();
  // It explains again on the next try.
  panel_->hostMessage->hide();
  panel_->dropperBtn->click();
  ASSERT_TRUE(
      waitFor([&] { return window_->isVisible() && panel_->hostMessage->isVisible(); }, 10000));
  EXPECT_EQ(record().counter_screen, before.counter_screen);
  EXPECT_TRUE(testing::PickRecorder::instance().newColors.empty());
  testing::PickRecorder::instance().clear();
}

void pressKey(QWidget* widget, int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
  QKeyEvent press(QEvent::KeyPress, key, modifiers);
  QCoreApplication::sendEvent(widget, &press);
  QKeyEvent release(QEvent::KeyRelease, key, modifiers);
  QCoreApplication::sendEvent(widget, &release);
}

// The magnifier option with a lens source beside the fake seams.
class PanelWithLensTest : public ViewControllerPlusTest {
 protected:
  PanelWithLensTest() { backend_ = ScreenBackend{monitor_, pointer_, sampler_, lens_}; }
  void enableMagnifier(bool on) {
    Preferences preferences = panel_->logic().preferences();
    preferences.setMagnifierEnabled(on);
    panel_->logic().applyPreferences(preferences);
  }
  std::shared_ptr<testing::FakeLensSource> lens_ = std::make_shared<testing::FakeLensSource>();
};

TEST_F(PanelWithLensTest, TheMagnifierIsOffByDefault) {
  start();
  EXPECT_FALSE(panel_->logic().preferences().magnifierEnabled());
  pick(QColor(7, 8, 9));
  EXPECT_EQ(panel_->pickLens(), nullptr);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#070809"; }));
}

TEST_F(PanelWithLensTest, EscapeInTheMagnifierGivesThePickUpAndNothingIsPostedOrCounted) {
  start();
  enableMagnifier(true);
  testing::PickRecorder::instance().clear();
  const auto before = record();
  const qint64 pushesBefore = photoshopPushes();
  const QString hexBefore = panel_->hexInfo->text();
  panel_->findScreenColor();
  ASSERT_FALSE(window_->isVisible());
  QPointer<PickLens> lens = panel_->pickLens();
  ASSERT_NE(lens, nullptr);
  EXPECT_TRUE(lens->isVisible());
  takeOutput();
  pressKey(lens, Qt::Key_Escape);
  ASSERT_TRUE(waitFor([&] { return window_->isVisible() && lens.isNull(); }));
  spin(50);
  EXPECT_FALSE(window_->testAttribute(Qt::WA_DontShowOnScreen));
  EXPECT_TRUE(waitFor([] { return pickingWindows().isEmpty(); }));
  EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
  EXPECT_FALSE(panel_->colorHelper().bPickScreenColor);
  EXPECT_FALSE(panel_->logic().apiLogger().bPickScreenColor);
  EXPECT_TRUE(testing::PickRecorder::instance().newColors.empty());
  EXPECT_TRUE(testing::PickRecorder::instance().mouseDowns.empty());
  EXPECT_EQ(panel_->hexInfo->text(), hexBefore);
  EXPECT_EQ(record().counter_screen, before.counter_screen);
  EXPECT_EQ(record().counter_device, before.counter_device);
  EXPECT_EQ(photoshopPushes(), pushesBefore);
  EXPECT_TRUE(sampler_->reads.empty());
  EXPECT_FALSE(panel_->hostMessage->isVisible());
  // Back without a new appearance, and a late click picks nothing.
  EXPECT_FALSE(takeOutput().contains("FAFAFA\n"));
  monitor_->click();
  spin(20);
  EXPECT_TRUE(sampler_->reads.empty());
  testing::PickRecorder::instance().clear();
}

TEST_F(PanelWithLensTest, KeysNudgeThePointerAndEnterPicksLikeAClick) {
  start();
  enableMagnifier(true);
  sampler_->color = QColor(60, 127, 224);
  panel_->findScreenColor();
  QPointer<PickLens> lens = panel_->pickLens();
  ASSERT_NE(lens, nullptr);
  pressKey(lens, Qt::Key_Right);
  pressKey(lens, Qt::Key_Down, Qt::ShiftModifier);
  pressKey(lens, Qt::Key_Left, Qt::ShiftModifier);
  pressKey(lens, Qt::Key_Up);
  EXPECT_EQ(lens_->moves, (std::vector<QPoint>{{1, 0}, {0, 10}, {-10, 0}, {0, -1}}));
  EXPECT_TRUE(lens->centreHex() == QStringLiteral("#0A141E"));
  pressKey(lens, Qt::Key_Return);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#3C7FE0"; }));
  EXPECT_EQ(sampler_->reads.size(), 1u);
  EXPECT_TRUE(waitFor([&] { return lens.isNull(); }));
  EXPECT_TRUE(waitFor([&] { return window_->isVisible(); }));
  EXPECT_EQ(record().counter_screen, 1);
  EXPECT_EQ(photoshopPushes(), 1);
}

TEST_F(PanelWithLensTest, AClickPicksAsBeforeAndTheMagnifierGoes) {
  start();
  enableMagnifier(true);
  sampler_->color = QColor(1, 2, 3);
  panel_->findScreenColor();
  QPointer<PickLens> lens = panel_->pickLens();
  ASSERT_NE(lens, nullptr);
  monitor_->click();
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#010203"; }));
  EXPECT_TRUE(waitFor([&] { return lens.isNull(); }));
  EXPECT_EQ(record().counter_screen, 1);
}

TEST_F(ViewControllerPlusTest, AfterOneScreenPickTelemetryTicksTwicePerPeriod) {
  // The panel appears at start and again when the pick brings it back; each
  // appearance starts telemetry, and the first timer keeps running.
  start();
  pick(QColor(1, 2, 3));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#010203"; }));
  takeOutput();
  // Within one period (6 s here) and a bit after the pick, both timers tick
  // once: the first one started shortly before the pick, the second at it.
  spin(scaledMs(600.0) * 13 / 10);
  const QString out = takeOutput();
  EXPECT_EQ(out.count("Log Timer is trigger\n"), 2) << out.toStdString();
}

TEST_F(ViewControllerPlusTest, TheObserversAreRegisteredOnceHoweverOftenThePanelAppears) {
  start();
  pick(QColor(1, 2, 3));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#010203"; }));
  pick(QColor(4, 5, 6));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#040506"; }));
  ASSERT_EQ(monitor_->handlers.size(), 3u);  // three appearances
  // Output is taken as the steps go and judged at the end: a failure's message
  // goes to the captured standard output too, and is passed on from there.
  const QString picked = takeOutput();
  postPenColour(ColorStruct::fromChannels(18, 52, 86));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#123456"; }));
  spin(20);
  const QString pen = takeOutput();
  postFromPenThread(notification::connectedQuilla(), QStringLiteral("Device Connected"));
  ASSERT_TRUE(waitFor([&] { return panel_->btStatus->property("imageName") == "BT on"; }));
  spin(20);
  const int batteryTimers = panel_->logic().activeBatteryTimers();
  // With a colour counted, the quit then waits for the sender, which never
  // answers here.
  takeOutput();
  window_->close();
  QString quit;
  ASSERT_TRUE(waitFor([&] {
    quit += takeOutput();
    return quit.contains("sending data\n");
  }));
  spin(50);
  quit += takeOutput();

  // A colour observer added again at each appearance would handle every
  // colour, and print its line, once per registration.
  EXPECT_EQ(picked.count("040506\n"), 1) << picked.toStdString();
  EXPECT_EQ(pen.count("123456\n"), 1) << pen.toStdString();
  // A second connection observer would start a second battery timer.
  EXPECT_EQ(batteryTimers, 1);
  // A second closing observer would give its verdict twice.
  EXPECT_EQ(quit.count("i am in applicationShouldTerminate ~\n"), 1) << quit.toStdString();
  EXPECT_EQ(quit.count("No log record found!\n") + quit.count("No Internet found!\n") +
                quit.count("I will send the color log!\n"),
            1)
      << quit.toStdString();
}

TEST_F(ViewControllerPlusTest, AfterAScreenPickTheBatteryIsNoLongerRefreshed) {
  start();
  postFromPenThread(notification::connectedQuilla(), QStringLiteral("Device Connected"));
  ASSERT_TRUE(waitFor([&] { return batteryImage() == "10"; }));
  pick(QColor(1, 2, 3));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#010203"; }));
  EXPECT_EQ(panel_->logic().activeBatteryTimers(), 0);
  panel_->imgBattery->setProperty("imageName", QString());
  spin(scaledMs(180.0) + 300);
  EXPECT_EQ(batteryImage(), QString());
  // A reconnection starts it again.
  postFromPenThread(notification::connectedQuilla(), QStringLiteral("Device Connected"));
  ASSERT_TRUE(waitFor([&] { return batteryImage() == "10"; }));
}

TEST_F(ViewControllerPlusTest, ShowSettingShowsTheVersionAlert) {
  start();
  QString text;
  QString informative;
  QMessageBox::Icon icon = QMessageBox::NoIcon;
  QStringList buttons;
  QTimer::singleShot(0, [&] {
    auto* alert = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    ASSERT_NE(alert, nullptr);
    text = alert->text();
    informative = alert->informativeText();
    icon = alert->icon();
    for (QAbstractButton* button : alert->buttons()) buttons << button->text();
    alert->buttons().front()->click();  // as a user would
  });
  panel_->showSetting();
  EXPECT_EQ(text, "Version : TW-V 1.0.0");
  EXPECT_EQ(informative, "");
  EXPECT_EQ(icon, QMessageBox::Information);
  EXPECT_EQ(buttons, QStringList{"OK"});
}

TEST_F(ViewControllerPlusTest, UseCrownColorChangesNothingWhateverSendsIt) {
  start();
  postPenColour(ColorStruct::fromChannels(18, 52, 86));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#123456"; }));
  const QImage before = panel_->grab().toImage();
  const auto recordBefore = record();
  const auto colourBefore = panel_->logic().currentColorStruct();
  takeOutput();
  panel_->crownBtn->click();
  panel_->useCrownColor();
  QMetaObject::invokeMethod(
      panel_, [this] { panel_->useCrownColor(); }, Qt::QueuedConnection);
  spin(20);
  EXPECT_EQ(panel_->grab().toImage(), before);
  EXPECT_EQ(record().colors_device, recordBefore.colors_device);
  EXPECT_EQ(panel_->logic().currentColorStruct()->colorHex, colourBefore->colorHex);
  EXPECT_EQ(takeOutput(), "");
}

TEST_F(ViewControllerPlusTest, InertControlsAreBoundAndNeverChanged) {
  start();
  postPenColour(ColorStruct::fromChannels(18, 52, 86));
  postFromPenThread(notification::connectedQuilla(), QStringLiteral("Device Connected"));
  pick(QColor(9, 8, 7));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#090807"; }));
  ASSERT_TRUE(panel_->colorName && panel_->colorLibraryCombos && panel_->btnSelectedBtn);
  EXPECT_EQ(panel_->colorName->text(), "");
  EXPECT_EQ(panel_->colorLibraryCombos->count(), 0);
  for (QPushButton* button :
       {panel_->btnColor1.data(), panel_->btnColor2.data(), panel_->btnColor3.data(),
        panel_->btnColor4.data(), panel_->btnSelectedBtn.data()}) {
    ASSERT_NE(button, nullptr);
    EXPECT_TRUE(button->icon().isNull());
    EXPECT_EQ(button->text(), "");
    EXPECT_TRUE(button->isHidden());
  }
}

TEST_F(ViewControllerPlusTest, TheLibraryButtonOpensTheLibraryDialog) {
  start();
  panel_->libraryBtn->click();
  VCPantonePicker* dialog = panel_->findChild<VCPantonePicker*>();
  ASSERT_NE(dialog, nullptr);
  EXPECT_TRUE(dialog->isVisible());
  EXPECT_EQ(dialog->windowModality(), Qt::WindowModal);
  dialog->close();
}

// Quits in a network namespace of the test's own: online (a default route
// through loopback) unless told otherwise, so every machine takes the same path.
class QuitTest : public ViewControllerPlusTest {
 protected:
  explicit QuitTest(testing::OwnNetwork::Kind kind = testing::OwnNetwork::kOnline)
      : network_(kind) {}
  void SetUp() override {
    ViewControllerPlusTest::SetUp();
    if (!network_.failure().isEmpty()) GTEST_SKIP() << network_.why();
  }
  // The lines of a quit with nothing counted, in order, and nothing between
  // them: the closing observer's verdict is one of three lines.
  void expectQuitLines(const QString& out, const QString& verdict) {
    const QString expected =
        "i am in applicationShouldTerminate ~\nsending data\n" + verdict + "\nFinal bye bye ~\n";
    EXPECT_TRUE(out.contains(expected)) << "expected:\n"
                                        << expected.toStdString() << "in:\n"
                                        << out.toStdString();
  }
  testing::OwnNetwork network_;
};

TEST_F(QuitTest, ClosingTheWindowQuitsThroughTheHandshake) {
  start();
  bool ended = false;
  QObject::connect(&delegate_, &AppDelegate::terminated, [&] { ended = true; });
  takeOutput();
  window_->close();
  ASSERT_TRUE(waitFor([&] { return ended; }));
  const QString out = takeOutput();
  EXPECT_TRUE(out.startsWith("viewDidDisappear!\n")) << out.toStdString();
  expectQuitLines(out, QStringLiteral("No log record found!"));
  EXPECT_EQ(transport_->posts, 0);
}

TEST_F(QuitTest, TheQuitActionGoesThroughTheSameHandshake) {
  start();
  bool ended = false;
  QObject::connect(&delegate_, &AppDelegate::terminated, [&] { ended = true; });
  QAction* quit = nullptr;
  for (QAction* action : panel_->actions())
    if (action->shortcut() == QKeySequence(QKeySequence::Quit)) quit = action;
  ASSERT_NE(quit, nullptr);
  takeOutput();
  quit->trigger();
  ASSERT_TRUE(waitFor([&] { return ended; }));
  expectQuitLines(takeOutput(), QStringLiteral("No log record found!"));
}

TEST_F(QuitTest, WithAColourCountedTheQuitWaitsForTheSender) {
  start();
  postPenColour(ColorStruct::fromChannels(18, 52, 86));
  bool ended = false;
  QObject::connect(&delegate_, &AppDelegate::terminated, [&] { ended = true; });
  takeOutput();
  window_->close();
  ASSERT_TRUE(waitFor([&] { return transport_->posts == 2; }));
  spin(50);
  // The transport never answers, so the application waits.
  EXPECT_FALSE(ended);
  EXPECT_TRUE(takeOutput().contains("I will send the color log!\n"));
}

class OfflineQuitTest : public QuitTest {
 protected:
  OfflineQuitTest() : QuitTest(testing::OwnNetwork::kOffline) {}
};

TEST_F(OfflineQuitTest, WithAColourCountedButNoRouteClosingTheWindowEndsAtOnce) {
  start();
  postPenColour(ColorStruct::fromChannels(18, 52, 86));
  bool ended = false;
  QObject::connect(&delegate_, &AppDelegate::terminated, [&] { ended = true; });
  takeOutput();
  window_->close();
  ASSERT_TRUE(waitFor([&] { return ended; }));
  expectQuitLines(takeOutput(), QStringLiteral("No Internet found!"));
  EXPECT_EQ(transport_->posts, 0);
}

using ViewControllerPlusDeathTest = ViewControllerPlusTest;

TEST_F(ViewControllerPlusDeathTest, APanelWithoutAWindowStopsAsItAppears) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        window_->layout()->removeWidget(panel_);
        panel_->setParent(nullptr);
        panel_->viewWillAppear();
      },
      "no window");
}

TEST_F(ViewControllerPlusDeathTest, ACrownWithoutItsImageStopsWhenAColourIsShown) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        panel_->crown->clear();
        panel_->showColor(ColorStruct::fromChannels(1, 2, 3));
      },
      "crown image is missing");
}

}  // namespace
}  // namespace tw
