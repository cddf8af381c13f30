// The quit handshake end to end: the telemetry driver process (real delegate,
// closing observer, sender, HTTPS transport and signal routing) against a real
// local HTTPS server, in a network namespace of the test's own with a default
// route, so every machine takes the online path.

#include <gtest/gtest.h>
#include <signal.h>

#include <QTcpServer>

#include "tests/support/NetworkNamespace.h"
#include "tests/telemetry/DriverProcess.h"
#include "tests/telemetry/SenderTestSupport.h"

namespace tw {
namespace {

using testing::DriverProcess;
using testing::pumpFor;
using testing::SenderEnvironment;
using testing::TelemetryTestServer;
using testing::TestCertificates;

const QString kAsked = QStringLiteral("i am in applicationShouldTerminate ~");
const QString kSending = QStringLiteral("sending data");
const QString kBye = QStringLiteral("Final bye bye ~");
const QString kNoRecord = QStringLiteral("No log record found!");
const QString kNoInternet = QStringLiteral("No Internet found!");
const QString kWillSend = QStringLiteral("I will send the color log!");
const QString kColorStart = QStringLiteral(" API 開始 || Api Type : colorType");
const QString kAppStart = QStringLiteral(" API 開始 || Api Type : appType");
const QString kColorDone = QStringLiteral(" API 完成 || Api Type : colorType");
const QString kAppDone = QStringLiteral(" API 完成 || Api Type : appType");

class QuitHandshakeTest : public ::testing::Test {
 protected:
  // The offline case has its own test (tests/telemetry/OfflineTest.cpp).
  void SetUp() override {
    if (!network.failure().isEmpty()) GTEST_SKIP() << network.why();
  }
  // timeScale: 600 s tick and 60 s time-out scaled alike.
  std::unique_ptr<DriverProcess> startDriver(const QString& timeScale = QStringLiteral("1"),
                                             const QString& baseUrl = {}) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), environment.home());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), environment.home() + QStringLiteral("/config"));
    env.insert(QStringLiteral("XDG_DATA_HOME"), environment.home() + QStringLiteral("/data"));
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("disabled:"));
    env.insert(QStringLiteral("TINTWELL_TIME_SCALE"), timeScale);
    env.insert(QStringLiteral("TINTWELL_TELEMETRY_URL"),
               baseUrl.isEmpty() ? server.baseUrl() : baseUrl);
    env.insert(QStringLiteral("TINTWELL_TELEMETRY_CA"), certificates.caPath());
    auto driver = std::make_unique<DriverProcess>(env);
    EXPECT_TRUE(driver->ready()) << driver->transcript().toStdString();
    return driver;
  }
  // First: the server and the driver below share its namespace.
  testing::OwnNetwork network{testing::OwnNetwork::kOnline};
  SenderEnvironment environment{nullptr};
  TestCertificates certificates;
  TelemetryTestServer server{certificates};
};

TEST_F(QuitHandshakeTest, QuittingAfterOnlyTheStartUpColourEndsAtOnceWithNoRecord) {
  auto driver = startDriver();
  driver->send(QStringLiteral("quit"));
  ASSERT_TRUE(driver->finish()) << driver->transcript().toStdString();
  EXPECT_EQ(driver->exitCode(), 0) << driver->transcript().toStdString();
  EXPECT_TRUE(driver->inOrder({kAsked, kSending, kNoRecord, kBye}))
      << driver->transcript().toStdString();
  EXPECT_EQ(driver->indexOf(kNoInternet), -1) << driver->transcript().toStdString();
  EXPECT_EQ(driver->indexOf(kWillSend), -1);
  pumpFor(200);
  EXPECT_TRUE(server.events().isEmpty());
}

TEST_F(QuitHandshakeTest, QuittingAfterOnePenColourEndsWhenTheSenderAnswers) {
  auto driver = startDriver();
  driver->send(QStringLiteral("color 255 0 16"));
  driver->send(QStringLiteral("push PS"));
  driver->send(QStringLiteral("quit"));
  ASSERT_TRUE(driver->finish()) << driver->transcript().toStdString();
  EXPECT_EQ(driver->exitCode(), 0) << driver->transcript().toStdString();
  EXPECT_TRUE(driver->inOrder({kAsked, kSending, kWillSend,
                               QStringLiteral("Internet Connection Available!"),
                               QStringLiteral("PS  Count : 1"), kColorStart, kAppStart}))
      << driver->transcript().toStdString();
  // Both answers come before the end: no earlier post had set the done-flags.
  EXPECT_LT(driver->indexOf(kColorDone), driver->indexOf(kBye));
  EXPECT_LT(driver->indexOf(kAppDone), driver->indexOf(kBye));
  EXPECT_GE(driver->indexOf(kColorDone), 0);
  EXPECT_GE(driver->indexOf(kAppDone), 0);
  ASSERT_TRUE(server.waitForRequests(2));
  const auto color = server.requests(QStringLiteral("/api/color_usage")).value(0);
  EXPECT_TRUE(color.body.contains(R"("colors_device" : "[#FF0010]")"));
  EXPECT_TRUE(color.body.contains(R"("session_full" : false)"));
  EXPECT_TRUE(
      server.requests(QStringLiteral("/api/app_usage")).value(0).body.contains(R"("PS" : 1)"));
}

TEST_F(QuitHandshakeTest, QuittingWaitsWhileThePostsHang) {
  server.command(QStringLiteral("set * hang"));
  // 60 s time-out becomes 6 s: the one-second wait below has five seconds to
  // spare for a late second request or a stalled test process.
  auto driver = startDriver(QStringLiteral("0.1"));
  driver->send(QStringLiteral("color 1 2 3"));
  driver->send(QStringLiteral("quit"));
  ASSERT_TRUE(server.waitForRequests(2));
  pumpFor(1000);
  EXPECT_TRUE(driver->running()) << driver->transcript().toStdString();
  EXPECT_EQ(driver->indexOf(kBye), -1) << driver->transcript().toStdString();
  ASSERT_TRUE(driver->finish(20000)) << driver->transcript().toStdString();
  EXPECT_EQ(driver->exitCode(), 0) << driver->transcript().toStdString();
  const qsizetype error = driver->indexOfPrefix(QStringLiteral("error "));
  ASSERT_GE(error, 0) << driver->transcript().toStdString();
  EXPECT_LT(error, driver->indexOf(kBye));
}

TEST_F(QuitHandshakeTest, QuittingWithTheServerUnreachableByAddressEndsThroughTheError) {
  QTcpServer closed;
  ASSERT_TRUE(closed.listen(QHostAddress::LocalHost));
  const QString url = QStringLiteral("https://localhost:%1").arg(closed.serverPort());
  closed.close();
  auto driver = startDriver(QStringLiteral("1"), url);
  driver->send(QStringLiteral("color 1 2 3"));
  driver->send(QStringLiteral("quit"));
  ASSERT_TRUE(driver->finish()) << driver->transcript().toStdString();
  EXPECT_EQ(driver->exitCode(), 0) << driver->transcript().toStdString();
  const qsizetype error = driver->indexOfPrefix(QStringLiteral("error "));
  ASSERT_GE(error, 0) << driver->transcript().toStdString();
  EXPECT_GT(error, driver->indexOf(kWillSend));
  EXPECT_LT(error, driver->indexOf(kBye));
}

TEST_F(QuitHandshakeTest, QuitAfterAnEarlierSuccessfulTickMayEndOnTheFirstAnswer) {
  // Tick after 12 s; a request times out after 1.2 s.
  auto driver = startDriver(QStringLiteral("0.02"));
  driver->send(QStringLiteral("color 1 2 3"));
  ASSERT_TRUE(driver->waitForLine(kAppDone, 1, 30000)) << driver->transcript().toStdString();
  ASSERT_TRUE(driver->waitForLine(kColorDone, 1, 30000)) << driver->transcript().toStdString();
  server.command(QStringLiteral("set /api/color_usage hang"));
  driver->send(QStringLiteral("color 4 5 6"));
  driver->send(QStringLiteral("quit"));
  ASSERT_TRUE(driver->finish()) << driver->transcript().toStdString();
  EXPECT_EQ(driver->exitCode(), 0) << driver->transcript().toStdString();
  // The done-flags are still set from the tick, so the application answer
  // alone ends the run while the colour post is still out.
  const qsizetype willSend = driver->indexOf(kWillSend);
  ASSERT_GE(willSend, 0);
  EXPECT_EQ(driver->lines().indexOf(kAppDone, willSend), driver->lines().size() - 2)
      << driver->transcript().toStdString();
  EXPECT_EQ(driver->lines().last(), kBye);
  EXPECT_EQ(driver->lines().indexOf(kColorDone, willSend), -1);
  EXPECT_EQ(driver->indexOfPrefix(QStringLiteral("error "), willSend), -1);
  ASSERT_TRUE(server.waitForRequests(4));
  EXPECT_EQ(server.requests(QStringLiteral("/api/color_usage")).value(1).answer, "hang");
}

TEST_F(QuitHandshakeTest, SigtermGoesThroughTheSameHandshake) {
  auto driver = startDriver();
  driver->send(QStringLiteral("color 9 9 9"));
  driver->send(QStringLiteral("state"));
  ASSERT_TRUE(driver->waitForLineStartingWith(QStringLiteral("STATE device=1")));
  driver->terminate();
  ASSERT_TRUE(driver->finish()) << driver->transcript().toStdString();
  EXPECT_EQ(driver->exitCode(), 0) << driver->transcript().toStdString();
  EXPECT_TRUE(driver->inOrder({kAsked, kSending, kWillSend, kBye}))
      << driver->transcript().toStdString();
  EXPECT_EQ(server.requests().size(), 2);
}

TEST_F(QuitHandshakeTest, SigintGoesThroughTheSameHandshake) {
  auto driver = startDriver();
  ASSERT_EQ(::kill(static_cast<pid_t>(driver->pid()), SIGINT), 0);
  ASSERT_TRUE(driver->finish()) << driver->transcript().toStdString();
  EXPECT_EQ(driver->exitCode(), 0) << driver->transcript().toStdString();
  EXPECT_TRUE(driver->inOrder({kAsked, kSending, kNoRecord, kBye}))
      << driver->transcript().toStdString();
  EXPECT_EQ(driver->indexOf(kNoInternet), -1) << driver->transcript().toStdString();
}

TEST_F(QuitHandshakeTest, ASecondQuitWhileWaitingIsIgnored) {
  server.command(QStringLiteral("set * hang"));
  auto driver = startDriver(QStringLiteral("0.05"));
  driver->send(QStringLiteral("color 1 2 3"));
  driver->send(QStringLiteral("quit"));
  ASSERT_TRUE(server.waitForRequests(2));
  driver->send(QStringLiteral("quit"));
  driver->terminate();
  ASSERT_TRUE(driver->finish(20000)) << driver->transcript().toStdString();
  EXPECT_EQ(driver->count(kAsked), 1);
  EXPECT_EQ(driver->count(kBye), 1);
  EXPECT_EQ(server.requests().size(), 2);
}

}  // namespace
}  // namespace tw
