// The desktop application end to end: the real `tintwell` binary with real
// windows on a private Xvfb, the fake BlueZ on a private system bus, a local
// HTTPS telemetry server with its own CA, a process named like Photoshop under
// Wine and a `wine` stand-in that records what it is asked to open. Clicks and
// keys come from xdotool; the panel's pixels are read back with tw_grab.
#include <gtest/gtest.h>
#include <signal.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include "tests/pen/FakeBluezProcess.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/ChildProcesses.h"
#include "tests/support/LineProcess.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/XvfbServer.h"
#include "tests/telemetry/TelemetryTestServer.h"

namespace tw {
namespace {

using testing::XvfbServer;

const QString kPen = QStringLiteral("AA:BB:CC:DD:EE:02");
const QString kPhotoshop =
    QStringLiteral(R"(C:\Program Files\Adobe\Adobe Photoshop 2021\Photoshop.exe)");
const QString kTitle = QStringLiteral("^Tintwell$");

QString tintwellBin() { return qEnvironmentVariable("TINTWELL_BIN"); }

// The desktop application under test, with its standard output as lines.
// `offline`: in a network namespace of its own, without routes.
std::unique_ptr<testing::LineProcess> startDesktop(const QProcessEnvironment& env, bool offline) {
  if (offline)
    return std::make_unique<testing::LineProcess>(
        QStringLiteral("unshare"), QStringList{QStringLiteral("-n"), tintwellBin()}, env);
  return std::make_unique<testing::LineProcess>(tintwellBin(), QStringList{}, env);
}

class DesktopXvfbTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(xvfb_.isRunning());
    ASSERT_TRUE(home_.isValid());
    // The root is a known colour to pick from.
    xvfb_.run(QStringLiteral("xsetroot"), {QStringLiteral("-solid"), QStringLiteral("#3C7FE0")});

    // A running "Photoshop" as Wine shows it in /proc.
    testing::endWithParent(photoshop_);
    photoshop_.start(
        QStringLiteral("/bin/bash"),
        {QStringLiteral("-c"), QStringLiteral("exec -a '%1' sleep 120").arg(kPhotoshop)});
    ASSERT_TRUE(photoshop_.waitForStarted());
  }
  void TearDown() override {
    photoshop_.kill();
    photoshop_.waitForFinished();
  }

  // The fake BlueZ with one pen that sends colours only when told to.
  void startPen() {
    fake_ = std::make_unique<testing::FakeBluez>(
        bus_.address(), QStringList{QStringLiteral("--pen"), QStringLiteral("QUILLA-Pen 02"),
                                    QStringLiteral("--interval-ms"), QStringLiteral("0")});
    ASSERT_TRUE(fake_->ready());
  }
  bool waitForNotify() {
    QDeadlineTimer deadline(15000);
    while (
        !fake_->calls().contains(QStringLiteral("StartNotify ") + kPen + QStringLiteral(" 1F16"))) {
      if (deadline.hasExpired()) return false;
      QThread::msleep(20);
    }
    return true;
  }

  std::unique_ptr<testing::LineProcess> start(
      const QString& telemetryUrl = QStringLiteral("https://127.0.0.1:9"),
      const QString& scaleFactor = {}, bool offline = false) {
    QProcessEnvironment env = xvfb_.environment();
    home_.applyTo(env);
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime_.path());
    env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), bus_.address());
    env.insert(QStringLiteral("TINTWELL_TELEMETRY_URL"), telemetryUrl);
    env.insert(QStringLiteral("TINTWELL_TELEMETRY_CA"), certificates_.caPath());
    env.insert(QStringLiteral("TINTWELL_TIME_SCALE"), QStringLiteral("0.1"));
    if (!scaleFactor.isEmpty()) env.insert(QStringLiteral("QT_SCALE_FACTOR"), scaleFactor);
    if (!env.contains(QStringLiteral("TSAN_OPTIONS")))
      env.insert(QStringLiteral("TSAN_OPTIONS"),
                 QStringLiteral("ignore_noninstrumented_modules=1"));
    auto desktop = startDesktop(env, offline);
    const bool shown = waitForPanel();
    EXPECT_TRUE(shown) << desktop->transcript().toStdString();
    return desktop;
  }

  // The panel's window id once it is visible; empty if it does not show.
  QString panelWindow(int ms = 15000) {
    QDeadlineTimer deadline(ms);
    while (true) {
      const QByteArray found = xvfb_
                                   .run(QStringLiteral("xdotool"),
                                        {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                         QStringLiteral("--name"), kTitle})
                                   .trimmed();
      if (!found.isEmpty()) return QString::fromLatin1(found.split('\n').first());
      if (deadline.hasExpired()) return {};
      QThread::msleep(10);
    }
  }
  bool waitForPanel() { return !panelWindow().isEmpty(); }
  bool panelHidden(int ms = 5000) {
    QDeadlineTimer deadline(ms);
    while (!panelWindow(0).isEmpty()) {
      if (deadline.hasExpired()) return false;
      QThread::msleep(10);
    }
    return true;
  }
  // Pixels of the panel window that are exactly `colour` (the tinted crown's
  // inside is).
  int panelPixels(const QColor& colour) {
    const QString window = panelWindow();
    const QString file = home_.filePath(QStringLiteral("panel.png"));
    int status = -1;
    xvfb_.run(QStringLiteral(TW_GRAB_BIN), {file, window}, &status);
    const QImage image(file);
    if (status != 0 || image.isNull()) return -1;
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
      for (int x = 0; x < image.width(); ++x) n += image.pixelColor(x, y) == colour;
    return n;
  }
  // The panel's pixels of `colour`, asked again until there are more than
  // `over` or `ms` pass: the panel repaints (and a grab of a window that is
  // still being shown fails) some time after the line that announces a colour.
  int panelPixelsOnceOver(const QColor& colour, int over, int ms = 5000) {
    QDeadlineTimer deadline(ms);
    int n = panelPixels(colour);
    while (n <= over && !deadline.hasExpired()) {
      QThread::msleep(50);
      n = panelPixels(colour);
    }
    return n;
  }
  // Arms the dropper with the panel's keyboard shortcut, as a user would.
  void armDropper() {
    const QString window = panelWindow();
    ASSERT_FALSE(window.isEmpty());
    xvfb_.run(QStringLiteral("xdotool"),
              {QStringLiteral("windowfocus"), QStringLiteral("--sync"), window});
    xvfb_.run(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("ctrl+d")});
  }
  void clickAt(int x, int y) {
    xvfb_.run(QStringLiteral("xdotool"),
              {QStringLiteral("mousemove"), QString::number(x), QString::number(y),
               QStringLiteral("click"), QStringLiteral("1")});
  }
  QStringList launches() const { return home_.launches(); }
  QByteArray photoshopScript() const { return home_.photoshopScript(); }
  static QByteArray scriptFor(int r, int g, int b) {
    return QStringLiteral(
               "app.foregroundColor.rgb.red = %1;app.foregroundColor.rgb.green = %2;"
               "app.foregroundColor.rgb.blue = %3;app.backgroundColor.rgb.red = %1;"
               "app.backgroundColor.rgb.green = %2;app.backgroundColor.rgb.blue = %3;")
        .arg(r)
        .arg(g)
        .arg(b)
        .toUtf8();
  }

  XvfbServer xvfb_{{QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1024x768x24")}};
  testing::PrivateBus bus_;
  testing::BridgeSandbox home_;
  QTemporaryDir runtime_;
  testing::TestCertificates certificates_;
  std::unique_ptr<testing::FakeBluez> fake_;
  QProcess photoshop_;
};

TEST_F(DesktopXvfbTest, StartUpShowsThePanelWithFAFAFAAndPushesNothing) {
  auto desktop = start();
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("FAFAFA")));
  // The crown is tinted with the start-up colour.
  EXPECT_GT(panelPixelsOnceOver(QColor(250, 250, 250), 400), 400);
  EXPECT_TRUE(launches().isEmpty());
  EXPECT_TRUE(photoshopScript().isEmpty());
}

TEST_F(DesktopXvfbTest, APenColourFromBlueZAppearsInThePanelAndIsPushed) {
  startPen();
  auto desktop = start();
  ASSERT_TRUE(waitForNotify()) << desktop->transcript().toStdString();
  ASSERT_TRUE(fake_->sendColor(kPen, QByteArray::fromHex("01C8553D")));
  // Once from the pen link as it decodes, once from the panel once pushed and
  // counted.
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("C8553D"), 2));
  EXPECT_GT(panelPixelsOnceOver(QColor(0xC8, 0x55, 0x3D), 400), 400);
  EXPECT_EQ(photoshopScript(), scriptFor(0xC8, 0x55, 0x3D));
  EXPECT_FALSE(launches().isEmpty());
  // Connected: the battery shows after 3 s (0.3 s here); nothing to see from
  // outside but the lines of the link.
  EXPECT_TRUE(desktop->inOrder({QStringLiteral("connected hihi"), QStringLiteral("C8553D")}));
}

TEST_F(DesktopXvfbTest, ADropperPickShowsTheColourCountsItAsAScreenColourAndPushesIt) {
  auto desktop = start();
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("FAFAFA")));
  armDropper();
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("cursor changed")))
      << desktop->transcript().toStdString();
  EXPECT_TRUE(panelHidden());
  clickAt(700, 500);  // far from the panel, on the root's colour
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("3C7FE0")))
      << desktop->transcript().toStdString();
  // The screen list, printed by the count, holds the pick.
  EXPECT_EQ(desktop->count(QStringLiteral(",#3C7FE0")), 1) << desktop->transcript().toStdString();
  EXPECT_TRUE(waitForPanel());
  EXPECT_EQ(photoshopScript(), scriptFor(0x3C, 0x7F, 0xE0));
  EXPECT_FALSE(launches().isEmpty());
  EXPECT_GT(panelPixelsOnceOver(QColor(0x3C, 0x7F, 0xE0), 400), 400);
}

TEST_F(DesktopXvfbTest, ADropperPickOfTheStartUpColourIsPushedAndCountedAsAScreenColour) {
  // A pixel of the screen is never the same colour as the start-up colour the
  // panel posts again when it comes back, even with the same channels.
  auto desktop = start();
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("FAFAFA")));
  xvfb_.run(QStringLiteral("xsetroot"), {QStringLiteral("-solid"), QStringLiteral("#FAFAFA")});
  armDropper();
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("cursor changed")))
      << desktop->transcript().toStdString();
  EXPECT_TRUE(panelHidden());
  clickAt(700, 500);
  // At start, when the panel comes back, and as the pick: each prints its hex
  // line once handled.
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("250.0 250.0 250.0")))
      << desktop->transcript().toStdString();
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("FAFAFA"), 3))
      << desktop->transcript().toStdString();
  // Counted: the screen list, printed by the count, holds the pick.
  EXPECT_EQ(desktop->count(QStringLiteral(",#FAFAFA")), 1) << desktop->transcript().toStdString();
  // Pushed: the script is written and the stand-in was asked to open it.
  EXPECT_EQ(photoshopScript(), scriptFor(250, 250, 250));
  EXPECT_EQ(launches().size(), 1) << launches().join(u'\n').toStdString();
}

TEST_F(DesktopXvfbTest, APickWhereThePanelStoodReadsWhatIsUnderItNotThePanel) {
  auto desktop = start();
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("FAFAFA")));
  armDropper();
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("cursor changed")));
  ASSERT_TRUE(panelHidden());
  clickAt(100, 150);  // inside the panel's frame, which comes back as the pick ends
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("Helper mouseLocation2: 100.0, 150.0 ")))
      << desktop->transcript().toStdString();
  EXPECT_TRUE(desktop->waitForLine(QStringLiteral("3C7FE0")))
      << desktop->transcript().toStdString();
  EXPECT_TRUE(waitForPanel());
}

TEST_F(DesktopXvfbTest, TwoClicksAfterOneArmingSampleOnce) {
  auto desktop = start();
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("FAFAFA")));
  armDropper();
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("cursor changed")));
  clickAt(700, 500);
  clickAt(720, 520);
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("3C7FE0")));
  QThread::msleep(500);
  EXPECT_EQ(desktop->count(QStringLiteral("Helper mouseLocation: 700.0, 268.0")), 1)
      << desktop->transcript().toStdString();
  EXPECT_EQ(desktop->lines().filter(QStringLiteral("Helper mouseLocation:")).size(), 1);
}

TEST_F(DesktopXvfbTest, AClickWhileNotArmedDoesNothing) {
  auto desktop = start();
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("FAFAFA")));
  clickAt(700, 500);
  QThread::msleep(700);
  EXPECT_TRUE(desktop->lines().filter(QStringLiteral("Mouse Down")).isEmpty())
      << desktop->transcript().toStdString();
  EXPECT_EQ(desktop->count(QStringLiteral("3C7FE0")), 0);
}

TEST_F(DesktopXvfbTest, AtScaleTwoTheDropperSamplesThePixelUnderThePointer) {
  // Two colours side by side at the pointer: a window of a known colour whose
  // left edge is the pointer's column.
  auto desktop = start(QStringLiteral("https://127.0.0.1:9"), QStringLiteral("2"));
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("FAFAFA")));
  armDropper();
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("cursor changed")));
  clickAt(801, 601);
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("3C7FE0")))
      << desktop->transcript().toStdString();
  // Device pixels, whatever the scale: (801, 768 - 601).
  EXPECT_EQ(desktop->count(QStringLiteral("Helper mouseLocation: 801.0, 167.0")), 1)
      << desktop->transcript().toStdString();
}

TEST_F(DesktopXvfbTest, QuittingWithAColourCountedPostsToTheServerAndOnlyThenExits) {
  // Online on every machine. The server, the fake BlueZ and the application
  // started below share the namespace; X and the bus are reached by path.
  const QString why = testing::enterOnlineNetworkNamespace();
  if (!why.isEmpty()) GTEST_SKIP() << why.toStdString();
  testing::TelemetryTestServer server(certificates_);
  server.command(QStringLiteral("set * 200"));
  startPen();
  auto desktop = start(server.baseUrl());
  ASSERT_TRUE(waitForNotify()) << desktop->transcript().toStdString();
  ASSERT_TRUE(fake_->sendColor(kPen, QByteArray::fromHex("01123456")));
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("123456"), 2));
  EXPECT_TRUE(server.requests().isEmpty());

  desktop->signal(SIGTERM);
  ASSERT_TRUE(desktop->finish()) << desktop->transcript().toStdString();
  EXPECT_EQ(desktop->process().exitStatus(), QProcess::NormalExit);
  EXPECT_EQ(desktop->process().exitCode(), 0);
  // Both posts were made and answered before the farewell.
  ASSERT_TRUE(server.waitForRequests(2)) << desktop->transcript().toStdString();
  const auto colour = server.requests(QStringLiteral("/api/color_usage"));
  ASSERT_EQ(colour.size(), 1);
  EXPECT_TRUE(colour.front().body.contains("\"colors_device\" : \"[#123456]\""))
      << colour.front().body.toStdString();
  EXPECT_EQ(server.requests(QStringLiteral("/api/app_usage")).size(), 1);
  EXPECT_TRUE(desktop->inOrder(
      {QStringLiteral("i am in applicationShouldTerminate ~"), QStringLiteral("sending data"),
       QStringLiteral("I will send the color log!"),
       QStringLiteral(" API 完成 || Api Type : colorType"), QStringLiteral("Final bye bye ~")}))
      << desktop->transcript().toStdString();
  EXPECT_TRUE(desktop->inOrder(
      {QStringLiteral(" API 完成 || Api Type : appType"), QStringLiteral("Final bye bye ~")}))
      << desktop->transcript().toStdString();
}

TEST_F(DesktopXvfbTest, QuittingWaitsWhileThePostsHang) {
  // Online on every machine. The server, the fake BlueZ and the application
  // started below share the namespace; X and the bus are reached by path.
  const QString why = testing::enterOnlineNetworkNamespace();
  if (!why.isEmpty()) GTEST_SKIP() << why.toStdString();
  testing::TelemetryTestServer server(certificates_);
  server.command(QStringLiteral("set * hang"));
  startPen();
  auto desktop = start(server.baseUrl());
  ASSERT_TRUE(waitForNotify());
  ASSERT_TRUE(fake_->sendColor(kPen, QByteArray::fromHex("01123456")));
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("123456"), 2));
  // Ctrl+Q on the panel: the Quit action.
  const QString window = panelWindow();
  xvfb_.run(QStringLiteral("xdotool"),
            {QStringLiteral("windowfocus"), QStringLiteral("--sync"), window});
  xvfb_.run(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("ctrl+q")});
  ASSERT_TRUE(server.waitForRequests(2));
  // Both posts are out in post helpers of their own; neither the TLS library
  // nor the network library ever loads in the panel's process.
  const qint64 pid = desktop->process().processId();
  EXPECT_EQ(testing::childProcesses(pid, "tintwell-post").size(), 2);
  QFile maps(QStringLiteral("/proc/%1/maps").arg(pid));
  ASSERT_TRUE(maps.open(QIODevice::ReadOnly));
  const QByteArray mapped = maps.readAll();
  EXPECT_FALSE(mapped.contains("libcrypto.so"));
  EXPECT_FALSE(mapped.contains("libQt6Network.so"));
  // The 60 s time-out is 6 s here: still running well before it.
  EXPECT_FALSE(desktop->finish(2000));
  EXPECT_EQ(desktop->count(QStringLiteral("Final bye bye ~")), 0);
  ASSERT_TRUE(desktop->finish(20000)) << desktop->transcript().toStdString();
  EXPECT_EQ(desktop->process().exitCode(), 0);
  EXPECT_EQ(desktop->count(QStringLiteral("Final bye bye ~")), 1);
}

}  // namespace
}  // namespace tw

namespace tw {
namespace {

TEST_F(DesktopXvfbTest, QuittingWithNoNetworkEndsWithoutAnyPost) {
  testing::TelemetryTestServer server(certificates_);
  auto desktop = start(server.baseUrl(), {}, /*offline=*/true);
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("FAFAFA")))
      << desktop->transcript().toStdString();
  // Count one colour, with the dropper.
  armDropper();
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("cursor changed")));
  clickAt(700, 500);
  ASSERT_TRUE(desktop->waitForLine(QStringLiteral("3C7FE0")));
  ASSERT_TRUE(waitForPanel());
  desktop->signal(SIGTERM);
  ASSERT_TRUE(desktop->finish()) << desktop->transcript().toStdString();
  EXPECT_EQ(desktop->process().exitCode(), 0);
  EXPECT_TRUE(desktop->inOrder(
      {QStringLiteral("i am in applicationShouldTerminate ~"), QStringLiteral("sending data"),
       QStringLiteral("No Internet found!"), QStringLiteral("Final bye bye ~")}))
      << desktop->transcript().toStdString();
  EXPECT_TRUE(server.requests().isEmpty());
}

}  // namespace
}  // namespace tw
