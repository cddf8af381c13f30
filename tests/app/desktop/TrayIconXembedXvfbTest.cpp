// The tray icon where the desktop has no StatusNotifierItem host: the panel in
// this process on a private Xvfb with trayer, a real X11 (XEmbed) system tray,
// and no session bus at all. Qt then docks the icon in the X11 tray; the test
// reads the tray's pixels from the X server, as the user sees them.
#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QStandardPaths>
#include <QSystemTrayIcon>
#include <memory>

#include "app/AppDelegate.h"
#include "app/Preferences.h"
#include "app/desktop/DesktopApplication.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/TrayIcon.h"
#include "app/desktop/ViewController_plus.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/QtWait.h"
#include "tests/support/TestMain.h"
#include "tests/support/XvfbServer.h"
#include "tests/support/XwdScreenshot.h"

namespace tw {
namespace {

using testing::waitFor;

// trayer's strip: the top edge of the screen, right-aligned.
constexpr int kScreenWidth = 1024;
constexpr int kTrayHeight = 28;

// Made before the application and ended after it: the tray, then the
// sandbox, then the X server.
struct Environment {
  std::unique_ptr<testing::XvfbServer> server;
  std::unique_ptr<testing::BridgeSandbox> sandbox;
  std::unique_ptr<QProcess> tray;
  ~Environment() {
    if (tray) {
      tray->kill();
      tray->waitForFinished(3000);
    }
  }
};

Environment& environment() {
  static Environment e;
  return e;
}

bool hasTrayer() { return !QStandardPaths::findExecutable(QStringLiteral("trayer")).isEmpty(); }

TW_BEFORE_APPLICATION([] {
  Environment& e = environment();
  e.server = std::make_unique<testing::XvfbServer>(
      QStringList{QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1024x768x24")});
  if (!e.server->isRunning()) return;
  e.server->run(QStringLiteral("xsetroot"), {QStringLiteral("-solid"), QStringLiteral("#202020")});
  e.sandbox = std::make_unique<testing::BridgeSandbox>();
  e.sandbox->enter();
  // The user keeps the tray icon on.
  const QString settings = e.sandbox->filePath(QStringLiteral("config/Orlo"));
  QDir().mkpath(settings);
  QFile file(settings + QStringLiteral("/Tintwell.conf"));
  if (file.open(QIODevice::WriteOnly)) file.write("[tray]\nshow=true\n");
  file.close();
  if (hasTrayer()) {
    e.tray = std::make_unique<QProcess>();
    e.tray->setProcessEnvironment(e.server->environment());
    e.tray->start(
        QStringLiteral("trayer"),
        {QStringLiteral("--edge"), QStringLiteral("top"), QStringLiteral("--align"),
         QStringLiteral("right"), QStringLiteral("--widthtype"), QStringLiteral("request"),
         QStringLiteral("--height"), QString::number(kTrayHeight), QStringLiteral("--SetDockType"),
         QStringLiteral("false"), QStringLiteral("--transparent"), QStringLiteral("false"),
         QStringLiteral("--tint"), QStringLiteral("0x303030")});
    e.tray->waitForStarted(5000);
  }
  qputenv("DISPLAY", e.server->display().toUtf8());
  qputenv("QT_QPA_PLATFORM", "xcb");
  qunsetenv("WAYLAND_DISPLAY");
  qunsetenv("XDG_SESSION_TYPE");
  qunsetenv("XDG_CURRENT_DESKTOP");
  // No session bus: no StatusNotifierItem host can answer.
  qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
  qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent");
  qputenv("TINTWELL_TELEMETRY_URL", "https://127.0.0.1:9");
});

// Pixels of exactly `rgb` in the tray's strip (the panel stands at the left,
// well away from it).
int trayPixels(const testing::XvfbServer& server, QRgb rgb) {
  const QImage screen = testing::xwdScreenshot(server);
  if (screen.isNull()) return -1;
  int count = 0;
  for (int y = 0; y < kTrayHeight; ++y)
    for (int x = kScreenWidth / 2; x < kScreenWidth; ++x)
      count += (screen.pixel(x, y) & 0xFFFFFF) == (rgb & 0xFFFFFF);
  return count;
}

class TrayIconXembedXvfbTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Environment& e = environment();
    ASSERT_TRUE(e.server && e.server->isRunning());
    if (!e.tray) GTEST_SKIP() << "trayer is not installed (make deps installs it)";
    ASSERT_EQ(e.tray->state(), QProcess::Running) << e.tray->readAll().toStdString();
  }
};

TEST_F(TrayIconXembedXvfbTest, WithoutAStatusNotifierHostTheIconDocksInTheX11TrayInTheShownColour) {
  const testing::XvfbServer& server = *environment().server;
  // trayer owns the tray selection once it has started.
  ASSERT_TRUE(waitFor([] { return QSystemTrayIcon::isSystemTrayAvailable(); }, 10000));
  const int before = trayPixels(server, qRgb(250, 250, 250));
  ASSERT_EQ(before, 0);

  AppDelegate delegate;
  auto* panel = new ViewController_plus(delegate, desktopPanelParts());
  PanelWindow window(delegate, panel);
  delegate.deferLaunch([panel] {
    panel->viewDidLoad();
    panel->viewWillAppear();
  });
  window.showFirstFrame();
  ASSERT_TRUE(waitFor([&] { return window.trayIcon().isShown(); }));

  // The start-up colour's dot, then a new colour's.
  ASSERT_TRUE(waitFor([&] { return trayPixels(server, qRgb(250, 250, 250)) > 20; }, 10000));
  panel->logic().postNewColor(0x2b, 0x6c, 0x9e);
  ASSERT_TRUE(waitFor([&] { return trayPixels(server, qRgb(0x2b, 0x6c, 0x9e)) > 20; }, 10000));
  EXPECT_EQ(trayPixels(server, qRgb(250, 250, 250)), 0);

  // Switched off, it leaves the tray.
  Preferences preferences = panel->logic().preferences();
  preferences.setShowTrayIcon(false);
  panel->logic().applyPreferences(preferences);
  EXPECT_FALSE(window.trayIcon().isShown());
  EXPECT_TRUE(waitFor([&] { return trayPixels(server, qRgb(0x2b, 0x6c, 0x9e)) == 0; }, 10000));
}

}  // namespace
}  // namespace tw
