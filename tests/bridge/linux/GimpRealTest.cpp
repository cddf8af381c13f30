// GIMP from Debian's package, under Xvfb in a throwaway session: colours
// pushed through Tintwell's own code become GIMP's foreground colour, read
// back through GIMP and counted on screen.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <future>

#include "bridge/Commander.h"
#include "bridge/HostDispatcher.h"
#include "bridge/linux/GimpHost.h"
#include "tests/support/DesignAppSession.h"
#include "tests/support/LogCapture.h"
#include "tests/support/XvfbServer.h"

namespace tw {
namespace {

using namespace std::chrono_literals;
using testing::DesignAppSession;

class GimpRealTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!testing::hasProgram(QStringLiteral("gimp"))) return;
    xvfb = new testing::XvfbServer(
        {QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1280x1024x24")});
    session = new DesignAppSession(xvfb->display());
    if (!xvfb->isRunning() || !session->isReady()) return;
    session->start(QStringLiteral("gimp"), {QStringLiteral("--no-splash")});
    host = new GimpHost(session->bus());
    // The bus name comes in a second or two, the first script runs later.
    ready = DesignAppSession::waitUntil([] { return host->readBack(2s).has_value(); }, 120s);
  }
  static void TearDownTestSuite() {
    delete host;
    delete session;
    delete xvfb;
    host = nullptr;
    session = nullptr;
    xvfb = nullptr;
  }
  void SetUp() override {
    if (!testing::hasProgram(QStringLiteral("gimp")) ||
        !testing::hasProgram(QStringLiteral("xwd"))) {
      GTEST_SKIP() << "GIMP or xwd is not installed (make design-apps-deps installs them)";
    }
    ASSERT_TRUE(ready) << "GIMP did not take a script within two minutes:\n"
                       << session->output().toStdString();
  }

  static qsizetype pixelsOnScreen(const HostColor& color, qsizetype atLeast = 1) {
    return session->pixelsOnScreen(qRgb(color.red, color.green, color.blue), atLeast);
  }

  static inline testing::XvfbServer* xvfb = nullptr;
  static inline DesignAppSession* session = nullptr;
  static inline GimpHost* host = nullptr;
  static inline bool ready = false;
};

// The foreground swatch in the toolbox is far bigger than this; stray pixels
// of these unusual colours elsewhere are far fewer.
constexpr qsizetype kSwatchPixels = 100;

TEST_F(GimpRealTest, EachPushedColourIsTheForegroundReadBackAndShown) {
  for (const HostColor color :
       {HostColor{26, 43, 60}, HostColor{200, 50, 100}, HostColor{60, 180, 160}}) {
    EXPECT_LT(pixelsOnScreen(color, 0), kSwatchPixels) << color.hex().toStdString();
    const PushOutcome outcome = host->push(color, 5s);
    EXPECT_EQ(outcome.status, PushStatus::Confirmed) << outcome.reason.toStdString();
    EXPECT_EQ(host->readBack(5s), color);
    EXPECT_GE(pixelsOnScreen(color, kSwatchPixels), kSwatchPixels) << color.hex().toStdString();
  }
}

TEST_F(GimpRealTest, ColoursThePanelAcceptsReachGimpAfterTheStartUpColour) {
  // The bridge as the panel runs it: the scan finds "gimp-2.10" among the
  // user's processes, the start-up colour is only shown, the next one goes.
  auto hosts = std::vector<std::unique_ptr<DesignHost>>{};
  hosts.push_back(std::make_unique<GimpHost>(session->bus()));
  auto dispatcher = std::make_shared<HostDispatcher>(std::move(hosts), nullptr, 5000ms);
  Commander commander(std::make_shared<WineHostDescription>(
      std::make_shared<FixedApplicationLister>(std::vector<RunningApplication>{
          {QStringLiteral("gimp-2.10"), QStringLiteral("/usr/bin/gimp-2.10")}})));
  commander.setNativeHosts(dispatcher);

  const HostColor before = *host->readBack(5s);
  commander.sendColorToApps(ColorStruct::fromChannels(250, 250, 250));
  ASSERT_TRUE(dispatcher->waitIdle(10s));
  EXPECT_EQ(host->readBack(5s), before) << "the start-up colour must not be pushed";

  commander.sendColorToApps(ColorStruct::fromChannels(12, 34, 56));
  ASSERT_TRUE(dispatcher->waitIdle(10s));
  EXPECT_EQ(host->readBack(5s), (HostColor{12, 34, 56}));
  EXPECT_EQ(dispatcher->stats(QStringLiteral("gimp"))->confirmed, 1u);
  // Photoshop and Illustrator counts are not touched by a GIMP push.
  const ApplicationRecord::Fields counts = commander.tempApplicationRecord()->read();
  EXPECT_EQ(counts.PS, 0);
  EXPECT_EQ(counts.AI, 0);
}

TEST_F(GimpRealTest, TheCommandLinePushPrintsTheOutcomeAndGimpHasTheColour) {
  QProcess push;
  push.setProcessEnvironment(session->environment());
  push.start(qEnvironmentVariable("TINTWELL_BIN"),
             {QStringLiteral("push"), QStringLiteral("90"), QStringLiteral("80"),
              QStringLiteral("70"), QStringLiteral("--to"), QStringLiteral("gimp")});
  ASSERT_TRUE(push.waitForFinished(30000));
  EXPECT_EQ(push.exitCode(), 0) << push.readAllStandardError().toStdString();
  EXPECT_EQ(push.readAllStandardOutput(), QByteArray("GIMP: #5a5046 set\n"));
  EXPECT_EQ(host->readBack(5s), (HostColor{90, 80, 70}));
}

TEST_F(GimpRealTest, SwitchedOffInThePreferencesGimpReceivesNothingFromAPush) {
  const HostColor before = *host->readBack(5s);
  QDir().mkpath(session->configDir() + QStringLiteral("/Orlo"));
  QFile settings(session->configDir() + QStringLiteral("/Orlo/Tintwell.conf"));
  ASSERT_TRUE(settings.open(QIODevice::WriteOnly));
  settings.write("[hosts]\ngimp=false\n");
  settings.close();
  QProcess push;
  push.setProcessEnvironment(session->environment());
  push.start(qEnvironmentVariable("TINTWELL_BIN"), {QStringLiteral("push"), QStringLiteral("3"),
                                                    QStringLiteral("2"), QStringLiteral("1")});
  ASSERT_TRUE(push.waitForFinished(30000));
  settings.remove();
  EXPECT_EQ(push.exitCode(), 0);
  EXPECT_TRUE(push.readAllStandardOutput().contains("GIMP: switched off in the preferences\n"));
  EXPECT_EQ(host->readBack(5s), before);
}

TEST_F(GimpRealTest, AHungGimpCostsOneFailureAndTheNextColourArrives) {
  session->freeze();
  const PushOutcome hung = host->push(HostColor{1, 2, 3}, 700ms);
  session->thaw();
  EXPECT_EQ(hung.status, PushStatus::Failed);
  EXPECT_EQ(hung.reason, QStringLiteral("no answer within 700 ms"));
  const PushOutcome next = host->push(HostColor{4, 5, 6}, 10s);
  EXPECT_EQ(next.status, PushStatus::Confirmed) << next.reason.toStdString();
  EXPECT_EQ(host->readBack(5s), (HostColor{4, 5, 6}));
}

// Last: it ends GIMP.
TEST_F(GimpRealTest, ZGimpQuittingDuringAPushIsAFailureAndThenNotRunning) {
  auto inFlight = std::async(std::launch::async, [] {
    GimpHost own(session->bus());
    return own.push(HostColor{7, 8, 9}, 5s);
  });
  session->killAll();
  const PushOutcome during = inFlight.get();
  EXPECT_TRUE(during.status == PushStatus::Confirmed || during.status == PushStatus::Failed ||
              during.status == PushStatus::NotRunning);
  const PushOutcome after = host->push(HostColor{7, 8, 9}, 5s);
  EXPECT_EQ(after.status, PushStatus::NotRunning) << after.reason.toStdString();
  EXPECT_FALSE(host->readBack(1s));
}

}  // namespace
}  // namespace tw
