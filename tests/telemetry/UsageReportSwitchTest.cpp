// The usage-report switch: with reports off no send timer runs and nothing
// reaches the local HTTPS server; the pending report shows the bodies a send
// would post.

#include <gtest/gtest.h>

#include <QPointer>
#include <QTimer>

#include "tests/support/LogCapture.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/telemetry/SenderTestSupport.h"

namespace tw {
namespace {

using testing::pumpFor;
using testing::pumpUntil;
using testing::SenderEnvironment;
using testing::TelemetryTestServer;
using testing::TestCertificates;
using testing::WiredSender;

const QString kTick = QStringLiteral("Log Timer is trigger");

// 600 s become 6 s, the 60 s request time-out 600 ms. A server trusted
// through TINTWELL_TELEMETRY_CA, in a network namespace of the test's own with
// a default route, so the sender counts as online on every machine.
class UsageReportSwitchTest : public ::testing::Test {
 protected:
  explicit UsageReportSwitchTest(const char* timeScale = "0.01") : env_(timeScale) {
    server = std::make_unique<TelemetryTestServer>(certificates);
    qputenv("TINTWELL_TELEMETRY_URL", server->baseUrl().toUtf8());
    qputenv("TINTWELL_TELEMETRY_CA", certificates.caPath().toLocal8Bit());
    sender = std::make_unique<WiredSender>(false);
  }
  void SetUp() override {
    if (!network_.failure().isEmpty()) GTEST_SKIP() << network_.why();
  }
  API_Logger& logger() { return sender->logger; }
  Commander& commander() { return sender->commander; }
  // As the panel starts: telemetry, then the start-up colour (never counted).
  void start() {
    logger().startLogging();
    logger().countColor(250, 250, 250);
  }
  void countAndPush(int r, int g, int b) {
    logger().countColor(r, g, b);
    commander().tempApplicationRecord()->update([](ApplicationRecord::Fields& f) { ++f.PS; });
  }

  testing::OwnNetwork network_{testing::OwnNetwork::kOnline};
  SenderEnvironment env_;
  TestCertificates certificates;
  std::unique_ptr<TelemetryTestServer> server;
  std::unique_ptr<WiredSender> sender;
};

// A first TLS handshake within the 1.2 s time-out, under the sanitizers too.
class UsageReportPostTest : public UsageReportSwitchTest {
 protected:
  UsageReportPostTest() : UsageReportSwitchTest("0.02") {}
};

TEST_F(UsageReportSwitchTest, WithReportsOnTheTimerTicksAndPostsWithinAPeriod) {
  start();
  countAndPush(255, 0, 16);
  ASSERT_TRUE(logger().apiSenderTimer()->isActive());
  testing::LogCapture log;
  ASSERT_TRUE(pumpUntil([&] { return log.text().contains(kTick); }, 10000));
  EXPECT_TRUE(server->waitForRequests(1));
}

TEST_F(UsageReportSwitchTest, WithReportsOffNoTimerRunsAndNothingReachesTheServer) {
  logger().setSendingEnabled(false);
  start();
  countAndPush(255, 0, 16);
  const QPointer<QTimer> timer = logger().apiSenderTimer();
  ASSERT_TRUE(timer);
  EXPECT_FALSE(timer->isActive());
  testing::LogCapture log;
  pumpFor(7000);  // more than a period
  EXPECT_FALSE(log.text().contains(kTick)) << log.text().toStdString();
  // A send asked for directly posts nothing either, and says nothing.
  logger().sendLogs();
  pumpFor(300);
  EXPECT_EQ(log.text(), QString());
  EXPECT_TRUE(server->events().isEmpty());
  // Still counted, locally.
  EXPECT_EQ(logger().colorRecord()->read().counter_device, 1);
}

TEST_F(UsageReportSwitchTest, TurningReportsOffStopsEveryTimerAndOnStartsThemAgain) {
  start();
  const QPointer<QTimer> first = logger().apiSenderTimer();
  logger().startLogging();  // a second appearance: a second timer
  const QPointer<QTimer> second = logger().apiSenderTimer();
  ASSERT_TRUE(first && second && first != second);
  ASSERT_TRUE(first->isActive() && second->isActive());
  logger().setSendingEnabled(false);
  EXPECT_FALSE(logger().isSendingEnabled());
  EXPECT_FALSE(first->isActive());
  EXPECT_FALSE(second->isActive());
  logger().setSendingEnabled(true);
  EXPECT_TRUE(logger().isSendingEnabled());
  EXPECT_TRUE(first->isActive());
  EXPECT_TRUE(second->isActive());
  EXPECT_EQ(second->interval(), API_Logger::sendPeriodMs());
  EXPECT_EQ(API_Logger::sendPeriodMs(), 6000);
}

TEST_F(UsageReportPostTest, WhatWasCountedWhileOffIsNeverSentAfterReportsAreOnAgain) {
  start();
  logger().colorRecord()->update([](ColorRecord::Fields& f) { f.app = QStringLiteral("TW+V"); });
  logger().setSendingEnabled(false);
  countAndPush(255, 0, 16);
  countAndPush(1, 2, 3);
  logger().setSendingEnabled(true);
  EXPECT_EQ(logger().colorRecord()->read().counter_device, 0);
  EXPECT_EQ(commander().tempApplicationRecord()->read().PS, 0);
  countAndPush(4, 5, 6);
  logger().sendLogs();
  ASSERT_TRUE(server->waitForRequests(2));
  const QByteArray color = server->requests(QStringLiteral("/api/color_usage")).value(0).body;
  EXPECT_TRUE(color.contains(R"("colors_device" : "[#040506]")")) << color.toStdString();
  EXPECT_FALSE(color.contains("#FF0010")) << color.toStdString();
  const QByteArray app = server->requests(QStringLiteral("/api/app_usage")).value(0).body;
  EXPECT_TRUE(app.contains(R"("PS" : 1)")) << app.toStdString();
  // The fresh record keeps the panel's stamps.
  EXPECT_TRUE(color.contains(R"("app" : "TW+V")")) << color.toStdString();
}

TEST_F(UsageReportPostTest, ThePendingReportHoldsTheBodiesASendPosts) {
  ASSERT_FALSE(logger().pendingReport().has_value());  // before start
  start();
  EXPECT_EQ(logger().pendingReport()->colors, 0);
  countAndPush(255, 0, 16);
  logger().bPickScreenColor = true;
  countAndPush(1, 2, 3);
  const ColorRecord::Fields before = logger().colorRecord()->read();
  const auto pending = logger().pendingReport();
  ASSERT_TRUE(pending.has_value());
  EXPECT_EQ(pending->colors, 2);
  // Nothing changed by looking.
  EXPECT_EQ(logger().colorRecord()->read().colors_device, before.colors_device);
  EXPECT_EQ(logger().colorRecord()->read().session_end, before.session_end);
  EXPECT_EQ(before.colors_device, ",#FF0010");
  EXPECT_TRUE(server->events().isEmpty());

  logger().sendLogs();
  ASSERT_TRUE(server->waitForRequests(2));
  // The same bytes, but for the end stamp, which is the time of each.
  const auto withoutEnd = [](QByteArray body) {
    const qsizetype at = body.indexOf("\"session_end\" : \"");
    const qsizetype end = body.indexOf('"', at + 17);
    return body.remove(at, end - at);
  };
  const QByteArray sentColor = server->requests(QStringLiteral("/api/color_usage")).value(0).body;
  const QByteArray sentApp = server->requests(QStringLiteral("/api/app_usage")).value(0).body;
  EXPECT_EQ(withoutEnd(pending->colorBody).toStdString(), withoutEnd(sentColor).toStdString());
  EXPECT_EQ(withoutEnd(pending->applicationBody).toStdString(), withoutEnd(sentApp).toStdString());
  EXPECT_TRUE(pending->colorBody.contains(R"("colors_screen" : "[#010203]")"));
  EXPECT_TRUE(pending->applicationBody.contains(R"("PS" : 2)"));
}

}  // namespace
}  // namespace tw
