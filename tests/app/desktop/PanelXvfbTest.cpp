// The desktop panel in this process with its real platform parts, on a private
// Xvfb: real windows, the X11 picker (XInput2, one-pixel reads), the BlueZ
// backend (no BlueZ on the bus it is given), the bridge in a sandbox. The
// panel's texts are read from its widgets; clicks come from xdotool.
#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QImage>
#include <QLineEdit>
#include <QMenu>
#include <QProcess>
#include <QTimer>
#include <functional>
#include <memory>

#include "app/AppDelegate.h"
#include "app/desktop/DesktopApplication.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/ViewController_plus.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/LineProcess.h"
#include "tests/support/LogCapture.h"
#include "tests/support/QtWait.h"
#include "tests/support/TestMain.h"
#include "tests/support/XvfbServer.h"
#include "tests/support/XwdScreenshot.h"

namespace tw {
namespace {

using testing::waitFor;

// The X server and the bridge's sandbox, made before the program's
// QApplication and ended after it: the server after the application, the
// sandbox after the server (static objects end in the reverse order of their
// making, and after main's application).
struct Environment {
  std::unique_ptr<testing::BridgeSandbox> sandbox;
  std::unique_ptr<testing::XvfbServer> server;
};

Environment& environment() {
  static Environment e;
  return e;
}

TW_BEFORE_APPLICATION([] {
  Environment& e = environment();
  e.server = std::make_unique<testing::XvfbServer>(
      QStringList{QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1024x768x24")});
  if (!e.server->isRunning()) return;
  e.server->run(QStringLiteral("xsetroot"), {QStringLiteral("-solid"), QStringLiteral("#3C7FE0")});
  e.sandbox = std::make_unique<testing::BridgeSandbox>();
  e.sandbox->enter();
  qputenv("DISPLAY", e.server->display().toUtf8());
  qputenv("QT_QPA_PLATFORM", "xcb");
  qunsetenv("WAYLAND_DISPLAY");
  qunsetenv("XDG_SESSION_TYPE");
  qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
  qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent");
  qputenv("TINTWELL_TELEMETRY_URL", "https://127.0.0.1:9");
});

// The panel as the desktop application makes it, in its window.
struct PanelOnScreen {
  AppDelegate delegate;
  ViewController_plus* panel = new ViewController_plus(delegate, desktopPanelParts());
  PanelWindow window{delegate, panel};
};

class PanelXvfbTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server_ = environment().server.get();
    ASSERT_TRUE(server_ && server_->isRunning());
  }

  bool panelMapped() {
    return !server_
                ->run(QStringLiteral("xdotool"),
                      {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                       QStringLiteral("--name"), QStringLiteral("^Tintwell$")})
                .trimmed()
                .isEmpty();
  }

  // Starts xdotool on the test's server with these commands; the caller
  // waits for it as it needs.
  void startXdotool(QProcess& xdotool, const QStringList& commands) {
    xdotool.setProcessEnvironment(server_->environment());
    xdotool.start(QStringLiteral("xdotool"), commands);
  }

  // Shows the panel and waits until its start-up colour and texts are there
  // and its window is mapped.
  void showAndSettle(PanelOnScreen& shown) {
    shown.panel->viewDidLoad();
    shown.window.show();
    ASSERT_TRUE(waitFor([&] {
      return shown.panel->hexInfo->text() == "#FAFAFA" &&
             shown.panel->rgbInfo->text() == "250  250  250";
    }));
    ASSERT_TRUE(waitFor([&] { return panelMapped(); }));
    testing::settle();
  }

  testing::XvfbServer* server_ = nullptr;
};

TEST_F(PanelXvfbTest, StartUpShowsFAFAFAAndTheTextsOf250AndAPickShowsTheColourBelow) {
  AppDelegate delegate;
  auto* panel = new ViewController_plus(delegate, desktopPanelParts());
  PanelWindow window(delegate, panel);
  panel->viewDidLoad();
  window.show();
  ASSERT_TRUE(waitFor([&] { return panel->hexInfo->text() == "#FAFAFA"; }));
  EXPECT_EQ(panel->rgbInfo->text(), "250  250  250");
  EXPECT_EQ(panel->cmykInfo->text(), "0  0  0  2");
  EXPECT_EQ(panel->hsbInfo->text(), "0  0  98");
  EXPECT_EQ(panel->labInfo->text(), "98.3  0.0  -0.0 ");
  ASSERT_TRUE(waitFor([&] { return panelMapped(); }));
  EXPECT_EQ(panel->colorHelper().mainScreenHeight, 768);

  // The dropper, with a real click on the X server (inside where the panel
  // stood: the pixel below it is read, not the panel).
  panel->findScreenColor();
  ASSERT_TRUE(waitFor([&] { return !panelMapped(); }));
  QProcess click;
  startXdotool(click, {QStringLiteral("mousemove"), QStringLiteral("60"), QStringLiteral("120"),
                       QStringLiteral("click"), QStringLiteral("1")});
  ASSERT_TRUE(waitFor([&] { return panel->hexInfo->text() == "#3C7FE0"; }, 15000));
  EXPECT_EQ(panel->rgbInfo->text(), "60  127  224");
  EXPECT_EQ(panel->cmykInfo->text(), "73  43  0  12");
  EXPECT_EQ(panel->hsbInfo->text(), "215  73  88");
  ASSERT_TRUE(waitFor([&] { return panelMapped(); }));
  EXPECT_EQ(panel->logic().apiLogger().colorRecord()->read().colors_screen, ",#3C7FE0");
  click.waitForFinished();
}

// The X server's clipboard as another program reads it; this process owns the
// selection, so its event loop must run while the reader asks.
QString clipboardOf(testing::XvfbServer& server) {
  QProcess reader;
  reader.setProcessEnvironment(server.environment());
  reader.start(QStringLiteral("xclip"),
               {QStringLiteral("-o"), QStringLiteral("-selection"), QStringLiteral("clipboard")});
  if (!waitFor([&] { return reader.state() == QProcess::NotRunning; }, 10000)) return {};
  return QString::fromUtf8(reader.readAllStandardOutput());
}

TEST_F(PanelXvfbTest, AClickOnANotationPutsItsTextOnTheDisplaysClipboard) {
  PanelOnScreen shown;
  ASSERT_NO_FATAL_FAILURE(showAndSettle(shown));
  ViewController_plus* panel = shown.panel;
  for (QLineEdit* field : {panel->rgbInfo.data(), panel->labInfo.data()}) {
    const QPoint centre = field->mapToGlobal(field->rect().center());
    QProcess click;
    startXdotool(click,
                 {QStringLiteral("mousemove"), QString::number(centre.x()),
                  QString::number(centre.y()), QStringLiteral("click"), QStringLiteral("1")});
    ASSERT_TRUE(waitFor([&] { return click.state() == QProcess::NotRunning; }, 10000));
    ASSERT_TRUE(waitFor([&] { return clipboardOf(*server_) == field->text(); }, 10000))
        << "clipboard: " << clipboardOf(*server_).toStdString();
  }
  EXPECT_EQ(clipboardOf(*server_), "98.3  0.0  -0.0 ");
}

TEST_F(PanelXvfbTest, TheCrownDraggedIntoAnotherApplicationDropsTheColourAndItsHexText) {
  PanelOnScreen shown;
  ASSERT_NO_FATAL_FAILURE(showAndSettle(shown));
  ViewController_plus* panel = shown.panel;

  // Right of the panel, clear of it.
  const QRect panelFrame = shown.window.frameGeometry();
  const int targetX = panelFrame.right() + 80;
  const int targetY = panelFrame.top() + 40;
  testing::LineProcess target(QStringLiteral(DROP_TARGET_BIN),
                              {QString::number(targetX), QString::number(targetY)},
                              server_->environment());
  ASSERT_TRUE(target.waitForLine(QStringLiteral("ready")));

  // Press on the crown, move past the drag distance in steps, release over
  // the other window: what a hand on a real mouse sends.
  const QPoint from = panel->crown->mapToGlobal(panel->crown->rect().center());
  const QPoint to(targetX + 100, targetY + 100);
  QStringList steps{QStringLiteral("mousemove"), QString::number(from.x()),
                    QString::number(from.y()), QStringLiteral("mousedown"), QStringLiteral("1")};
  for (int i = 1; i <= 8; ++i) {
    const QPoint at = from + (to - from) * i / 8;
    steps << QStringLiteral("sleep") << QStringLiteral("0.1") << QStringLiteral("mousemove")
          << QString::number(at.x()) << QString::number(at.y());
  }
  steps << QStringLiteral("sleep") << QStringLiteral("0.3") << QStringLiteral("mouseup")
        << QStringLiteral("1");
  QProcess hand;
  startXdotool(hand, steps);

  ASSERT_TRUE(target.waitForLineStartingWith(QStringLiteral("color: "), 15000))
      << target.transcript().toStdString();
  EXPECT_TRUE(target.indexOf(QStringLiteral("color: #FAFAFA")) >= 0)
      << target.transcript().toStdString();
  EXPECT_TRUE(target.indexOf(QStringLiteral("text: #FAFAFA")) >= 0)
      << target.transcript().toStdString();
  EXPECT_TRUE(target.indexOfPrefix(QStringLiteral("formats: ")) >= 0);
  EXPECT_TRUE(
      target.lines().join(QLatin1Char('\n')).contains(QStringLiteral("application/x-color")))
      << target.transcript().toStdString();
  waitFor([&] { return hand.state() == QProcess::NotRunning; }, 10000);
  EXPECT_TRUE(target.finish(5000));
}

// The real Menu key from the X server (XTest, through xdotool) on the focused
// dropper button opens the panel's menu with its actions.
TEST_F(PanelXvfbTest, TheMenuKeyFromTheKeyboardOpensThePanelsActions) {
  PanelOnScreen shown;
  showAndSettle(shown);
  const QString window = QString::number(shown.window.winId());
  QProcess focus;
  startXdotool(focus, {QStringLiteral("windowfocus"), QStringLiteral("--sync"), window});
  ASSERT_TRUE(waitFor([&] { return focus.state() == QProcess::NotRunning; }));
  shown.panel->dropperBtn->setFocus(Qt::TabFocusReason);
  ASSERT_TRUE(waitFor([&] { return shown.panel->dropperBtn->hasFocus(); }));

  // The menu runs a loop of its own: a timer inside it reads and closes it.
  QStringList shownActions;
  QTimer reader;
  reader.setInterval(20);
  QObject::connect(&reader, &QTimer::timeout, [&] {
    auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
    if (!menu || !shownActions.isEmpty()) return;
    for (QAction* action : menu->actions())
      if (!action->isSeparator()) shownActions << action->text();
    menu->close();
  });
  reader.start();
  QProcess key;
  startXdotool(key, {QStringLiteral("key"), QStringLiteral("Menu")});
  ASSERT_TRUE(waitFor([&] { return !shownActions.isEmpty(); }));
  key.waitForFinished();
  EXPECT_TRUE(shownActions.contains(QStringLiteral("Reconnect")))
      << shownActions.join(u',').toStdString();
  EXPECT_TRUE(shownActions.contains(QStringLiteral("Pick from Screen")));
  EXPECT_TRUE(shownActions.contains(QStringLiteral("Quit")));
}

// The window's pixels as the X server holds them, read from outside.
QImage windowOnScreen(const testing::XvfbServer& server, const QWidget& window) {
  const QImage screen = testing::xwdScreenshot(server);
  return screen.isNull() ? QImage() : screen.copy(window.geometry());
}

// The launch the desktop application defers until its first frame.
void deferTheLaunch(PanelOnScreen& shown, const std::function<void()>& before = {}) {
  shown.delegate.deferLaunch([&shown, before] {
    if (before) before();
    shown.panel->viewDidLoad();
    shown.panel->viewWillAppear();
  });
}

TEST_F(PanelXvfbTest, TheFirstFrameIsOnTheScreenBeforeTheStartUpWorkAndDoesNotChangeWhenItRuns) {
  testing::LogCapture log;
  PanelOnScreen shown;
  bool launched = false;
  bool mappedAtLaunch = false;
  QString hexAtLaunch;
  QStringList linesAtLaunch;
  QImage firstFrame;
  deferTheLaunch(shown, [&] {
    launched = true;
    mappedAtLaunch = panelMapped();
    hexAtLaunch = shown.panel->hexInfo->text();
    linesAtLaunch = log.lines();
    firstFrame = windowOnScreen(*server_, shown.window);
  });
  shown.window.showFirstFrame();
  EXPECT_TRUE(shown.delegate.isLaunchPending());
  ASSERT_TRUE(waitFor([&] { return launched; }));
  EXPECT_TRUE(mappedAtLaunch);
  EXPECT_EQ(hexAtLaunch, "#FAFAFA");
  // Neither the pen link nor the start-up colour had started.
  EXPECT_FALSE(linesAtLaunch.contains(QStringLiteral("init CoreQuilla ")))
      << linesAtLaunch.join(u'\n').toStdString();
  EXPECT_FALSE(linesAtLaunch.contains(QStringLiteral("FAFAFA")));

  // Then the start-up runs as ever, and the panel looks as it did.
  ASSERT_TRUE(log.waitForLine(QStringLiteral("FAFAFA")));
  EXPECT_TRUE(log.inOrder({QStringLiteral("init CoreQuilla "), QStringLiteral("FAFAFA")}));
  EXPECT_EQ(shown.panel->logic().apiLogger().colorRecord()->read().colors_screen, "");
  testing::settle();
  ASSERT_FALSE(firstFrame.isNull()) << "xwd could not read the screen";
  EXPECT_EQ(windowOnScreen(*server_, shown.window), firstFrame);
  // It was the panel, not an empty window: its background and the crown in #FAFAFA.
  bool background = false;
  bool startUpColour = false;
  for (int y = 0; y < firstFrame.height(); ++y) {
    for (int x = 0; x < firstFrame.width(); ++x) {
      const QRgb pixel = firstFrame.pixel(x, y) & 0xFFFFFF;
      background |= pixel == (ViewController_plus::backgroundColor().rgb() & 0xFFFFFF);
      startUpColour |= pixel == 0xFAFAFA;
    }
  }
  EXPECT_TRUE(background);
  EXPECT_TRUE(startUpColour);
}

TEST_F(PanelXvfbTest, AQuitBeforeTheFirstFrameRunsTheStartUpFirstAndEndsThroughTheHandshake) {
  testing::LogCapture log;
  PanelOnScreen shown;
  deferTheLaunch(shown);
  bool ended = false;
  QObject::connect(&shown.delegate, &AppDelegate::terminated, [&] { ended = true; });
  shown.window.showFirstFrame();
  shown.delegate.terminate();
  EXPECT_FALSE(shown.delegate.isLaunchPending());
  ASSERT_TRUE(waitFor([&] { return ended; }, 15000)) << log.text().toStdString();
  EXPECT_TRUE(log.inOrder({QStringLiteral("init CoreQuilla "), QStringLiteral("FAFAFA"),
                           QStringLiteral("i am in applicationShouldTerminate ~"),
                           QStringLiteral("sending data"), QStringLiteral("Final bye bye ~")}))
      << log.text().toStdString();
}

TEST_F(PanelXvfbTest, APanelThatIsNeverExposedStillStarts) {
  testing::LogCapture log;
  PanelOnScreen shown;
  shown.window.setAttribute(Qt::WA_DontShowOnScreen, true);
  deferTheLaunch(shown);
  shown.window.showFirstFrame();
  ASSERT_TRUE(log.waitForLine(QStringLiteral("FAFAFA"), 1, 10000)) << log.text().toStdString();
  EXPECT_FALSE(shown.delegate.isLaunchPending());
  EXPECT_FALSE(panelMapped());
}

}  // namespace
}  // namespace tw
