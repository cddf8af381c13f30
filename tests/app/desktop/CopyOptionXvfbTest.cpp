// The copy option on a real X display: the panel in this process with its
// real platform parts on a private Xvfb, the bridge in a sandbox whose
// XDG_CONFIG_HOME holds the settings file. The clipboard is set and read back
// by `xclip`, another X client; keys come from xdotool.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <memory>

#include "app/AppDelegate.h"
#include "app/desktop/DesktopApplication.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/PreferencesDialog.h"
#include "app/desktop/ViewController_plus.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/QtWait.h"
#include "tests/support/TestMain.h"
#include "tests/support/XvfbServer.h"

namespace tw {
namespace {

using testing::waitFor;

// Made before the program's QApplication and ended after it (see
// PanelXvfbTest.cpp for the order).
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

struct PanelOnScreen {
  AppDelegate delegate;
  ViewController_plus* panel = new ViewController_plus(delegate, desktopPanelParts());
  PanelWindow window{delegate, panel};
};

class CopyOptionXvfbTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server_ = environment().server.get();
    ASSERT_TRUE(server_ && server_->isRunning());
  }

  void writeSettings(const QByteArray& text) {
    const QString folder = environment().sandbox->filePath(QStringLiteral("config/Orlo"));
    QDir().mkpath(folder);
    QFile file(folder + QStringLiteral("/Tintwell.conf"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
  }

  // The X clipboard as another program reads it; this process may own the
  // selection, so its event loop runs while the reader asks.
  QString clipboard() {
    QProcess reader;
    reader.setProcessEnvironment(server_->environment());
    reader.start(QStringLiteral("xclip"),
                 {QStringLiteral("-o"), QStringLiteral("-selection"), QStringLiteral("clipboard")});
    if (!waitFor([&] { return reader.state() == QProcess::NotRunning; }, 10000)) return {};
    return QString::fromUtf8(reader.readAllStandardOutput());
  }
  // Another program takes the clipboard with `text`.
  void setClipboard(const QString& text) {
    QProcess writer;
    writer.setProcessEnvironment(server_->environment());
    writer.start(QStringLiteral("xclip"),
                 {QStringLiteral("-i"), QStringLiteral("-selection"), QStringLiteral("clipboard")});
    ASSERT_TRUE(writer.waitForStarted(10000));
    writer.write(text.toUtf8());
    writer.closeWriteChannel();
    ASSERT_TRUE(waitFor([&] { return writer.state() == QProcess::NotRunning; }, 10000));
    ASSERT_TRUE(waitFor([&] { return clipboard() == text; }, 10000));
  }

  bool mapped(const QString& title) {
    return !server_
                ->run(QStringLiteral("xdotool"),
                      {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                       QStringLiteral("--name"), title})
                .trimmed()
                .isEmpty();
  }
  void showAndSettle(PanelOnScreen& shown) {
    shown.panel->viewDidLoad();
    shown.window.show();
    ASSERT_TRUE(waitFor([&] { return shown.panel->rgbInfo->text() == "250  250  250"; }));
    ASSERT_TRUE(waitFor([&] { return mapped(QStringLiteral("^Tintwell$")); }));
    testing::settle();
  }
  // A colour from the pen, as the pen posts it, once the panel shows it.
  void penColour(PanelOnScreen& shown, int r, int g, int b, const QString& hex) {
    shown.panel->logic().postNewColor(r, g, b);
    ASSERT_TRUE(waitFor([&] { return shown.panel->hexInfo->text() == hex; }));
  }

  testing::XvfbServer* server_ = nullptr;
};

TEST_F(CopyOptionXvfbTest, CopyOnPutsEachNewColourOnTheClipboardInTheChosenNotation) {
  writeSettings("[copy]\nenabled=true\nnotation=rgb\n");
  setClipboard(QStringLiteral("before"));
  PanelOnScreen shown;
  ASSERT_NO_FATAL_FAILURE(showAndSettle(shown));
  // The start-up colour is not copied.
  EXPECT_EQ(clipboard(), "before");

  ASSERT_NO_FATAL_FAILURE(penColour(shown, 18, 52, 86, "#123456"));
  ASSERT_TRUE(waitFor([&] { return clipboard() == "18  52  86"; }, 10000))
      << clipboard().toStdString();
  EXPECT_EQ(clipboard(), shown.panel->rgbInfo->text());

  // A repeat is shown but not taken, so not copied either.
  setClipboard(QStringLiteral("between"));
  shown.panel->logic().postNewColor(18, 52, 86);
  testing::spin(300);
  EXPECT_EQ(clipboard(), "between");

  ASSERT_NO_FATAL_FAILURE(penColour(shown, 1, 2, 3, "#010203"));
  ASSERT_TRUE(waitFor([&] { return clipboard() == "1  2  3"; }, 10000))
      << clipboard().toStdString();
}

TEST_F(CopyOptionXvfbTest, CopyOnWithTheDefaultNotationCopiesTheHexAsShown) {
  writeSettings("[copy]\nenabled=true\n");
  PanelOnScreen shown;
  ASSERT_NO_FATAL_FAILURE(showAndSettle(shown));
  ASSERT_NO_FATAL_FAILURE(penColour(shown, 18, 52, 86, "#123456"));
  ASSERT_TRUE(waitFor([&] { return clipboard() == "#123456"; }, 10000))
      << clipboard().toStdString();
}

TEST_F(CopyOptionXvfbTest, CopyOffLeavesTheClipboardAlone) {
  setClipboard(QStringLiteral("before"));
  PanelOnScreen shown;
  ASSERT_NO_FATAL_FAILURE(showAndSettle(shown));
  ASSERT_NO_FATAL_FAILURE(penColour(shown, 18, 52, 86, "#123456"));
  ASSERT_NO_FATAL_FAILURE(penColour(shown, 1, 2, 3, "#010203"));
  testing::spin(300);
  EXPECT_EQ(clipboard(), "before");
}

TEST_F(CopyOptionXvfbTest, CtrlCommaOnTheKeyboardOpensThePreferencesWindow) {
  PanelOnScreen shown;
  ASSERT_NO_FATAL_FAILURE(showAndSettle(shown));
  const QString window = server_
                             ->run(QStringLiteral("xdotool"),
                                   {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                    QStringLiteral("--name"), QStringLiteral("^Tintwell$")})
                             .trimmed();
  ASSERT_FALSE(window.isEmpty());
  server_->run(QStringLiteral("xdotool"),
               {QStringLiteral("windowfocus"), QStringLiteral("--sync"), window});
  server_->run(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("ctrl+comma")});
  ASSERT_TRUE(waitFor([&] {
    return shown.panel->preferencesDialog() && shown.panel->preferencesDialog()->isVisible();
  }));
  EXPECT_TRUE(waitFor([&] { return mapped(QStringLiteral("^Tintwell Preferences$")); }));
}

}  // namespace
}  // namespace tw
