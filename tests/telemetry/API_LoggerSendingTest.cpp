// The sender against a real local HTTPS server with a CA made for the test.

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QPointer>
#include <QTcpServer>
#include <QTimer>

#include "tests/support/LogCapture.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/telemetry/SenderTestSupport.h"

namespace tw {
namespace {

using testing::bodyObject;
using testing::isTimeText;
using testing::pumpFor;
using testing::pumpUntil;
using testing::SenderEnvironment;
using testing::ServerEvent;
using testing::TelemetryTestServer;
using testing::TestCertificates;
using testing::WiredSender;

constexpr const char* kColorPath = "/api/color_usage";
constexpr const char* kAppPath = "/api/app_usage";

// A server, trusted through TINTWELL_TELEMETRY_CA unless told otherwise, in a
// network namespace of the test's own with a default route: the sender only
// posts when the machine counts as online, and then on every machine.
class SendingTest : public ::testing::Test {
 protected:
  explicit SendingTest(const char* timeScale = nullptr, bool trustTheServer = true)
      : env_(timeScale) {
    server = std::make_unique<TelemetryTestServer>(certificates);
    qputenv("TINTWELL_TELEMETRY_URL", server->baseUrl().toUtf8());
    if (trustTheServer) qputenv("TINTWELL_TELEMETRY_CA", certificates.caPath().toLocal8Bit());
    sender = std::make_unique<WiredSender>();
  }

  API_Logger& logger() { return sender->logger; }
  Commander& commander() { return sender->commander; }
  ColorRecord::Fields color() const { return sender->color(); }
  bool bothDone() const { return sender->bothDone(); }
  void countPenColours() {
    logger().countColor(255, 0, 16);
    logger().countColor(1, 2, 3);
  }
  void pushes(int ps, int ai) {
    commander().tempApplicationRecord()->update([&](ApplicationRecord::Fields& f) {
      f.PS += ps;
      f.AI += ai;
    });
  }
  bool waitForBothDone(int timeoutMs = 20000) {
    return pumpUntil([&] { return bothDone(); }, timeoutMs);
  }

  void SetUp() override {
    if (!network_.failure().isEmpty()) GTEST_SKIP() << network_.why();
  }

  // First: the server made below shares its namespace.
  testing::OwnNetwork network_{testing::OwnNetwork::kOnline};
  SenderEnvironment env_;
  TestCertificates certificates;
  std::unique_ptr<TelemetryTestServer> server;
  std::unique_ptr<WiredSender> sender;
};

// 600 s become 3 s, the 60 s request time-out 300 ms.
class TimedSendingTest : public SendingTest {
 protected:
  TimedSendingTest() : SendingTest("0.005") {}
};

// A tick that posts: 600 s become 12 s, so the 60 s time-out (1.2 s) leaves
// room for a first TLS handshake even under the sanitizers.
class PostingTickTest : public SendingTest {
 protected:
  PostingTickTest() : SendingTest("0.02") {}
};

// The 60 s request time-out becomes 600 ms; the timer (100 s) stays out of the way.
class TimeOutSendingTest : public SendingTest {
 protected:
  TimeOutSendingTest() : SendingTest("0.01") {}
};

class UntrustedSendingTest : public SendingTest {
 protected:
  UntrustedSendingTest() : SendingTest(nullptr, false) {}
};

TEST_F(TimedSendingTest, TimerRepeatsEverySixHundredScaledSeconds) {
  QTimer* timer = logger().apiSenderTimer();
  ASSERT_NE(timer, nullptr);
  EXPECT_TRUE(timer->isActive());
  EXPECT_FALSE(timer->isSingleShot());
  EXPECT_EQ(timer->interval(), 3000);
  int ticks = 0;
  QObject::connect(timer, &QTimer::timeout, [&] { ++ticks; });
  QElapsedTimer clock;
  clock.start();
  testing::LogCapture log;
  const bool first = pumpUntil([&] { return ticks >= 1; }, 10000);
  const qint64 firstAfter = clock.elapsed();
  const bool second = first && pumpUntil([&] { return ticks >= 2; }, 10000);
  const std::string out = log.text().toStdString();
  ASSERT_TRUE(first);
  // The first tick comes a whole period after start, not at once.
  EXPECT_GE(firstAfter, 2500);
  ASSERT_TRUE(second);
  // Each tick says so, even with nothing to send.
  std::size_t lines = 0;
  for (std::size_t at = out.find("Log Timer is trigger\n"); at != std::string::npos;
       at = out.find("Log Timer is trigger\n", at + 1))
    ++lines;
  EXPECT_EQ(lines, 2u) << out;
  EXPECT_TRUE(color().session_full);
}

TEST_F(TimedSendingTest, NoColourForAWholePeriodSendsNothingNotEvenApplicationUsage) {
  pushes(3, 1);
  int ticks = 0;
  QObject::connect(logger().apiSenderTimer(), &QTimer::timeout, [&] { ++ticks; });
  ASSERT_TRUE(pumpUntil([&] { return ticks >= 2; }, 10000));
  pumpFor(300);
  EXPECT_TRUE(server->events().isEmpty());
  EXPECT_FALSE(logger().bColorApiDone);
  EXPECT_FALSE(logger().bAppUsageApiDone);
  EXPECT_EQ(commander().tempApplicationRecord()->read().PS, 3);
}

TEST_F(TimedSendingTest, ASecondStartLeavesTheFirstTimerRunningSoTwoTicksComePerPeriod) {
  // The panel restarts telemetry at every appearance; each start adds a timer.
  const QPointer<QTimer> first = logger().apiSenderTimer();
  ASSERT_TRUE(first);
  testing::LogCapture log;
  logger().startLogging();
  QTimer* second = logger().apiSenderTimer();
  ASSERT_TRUE(first) << "the first timer is gone";
  ASSERT_NE(second, first.data());
  EXPECT_TRUE(first->isActive());
  EXPECT_TRUE(second->isActive());
  EXPECT_EQ(second->interval(), 3000);
  int firstTicks = 0;
  int secondTicks = 0;
  QObject::connect(first, &QTimer::timeout, [&] { ++firstTicks; });
  QObject::connect(second, &QTimer::timeout, [&] { ++secondTicks; });
  // Two periods of the second timer: the first one, started earlier, has
  // ticked twice by then too.
  const bool ticked = pumpUntil([&] { return secondTicks >= 2; }, 15000);
  const QString out = log.text();
  ASSERT_TRUE(ticked) << out.toStdString();
  EXPECT_EQ(firstTicks, 2);
  EXPECT_EQ(out.count(QStringLiteral("Log Timer is trigger\n")), firstTicks + secondTicks)
      << out.toStdString();
}

TEST_F(PostingTickTest, TickWithColoursAndA201RenewsBothRecords) {
  server->command(QStringLiteral("set * 201"));
  logger().colorRecord()->update([](ColorRecord::Fields& f) {
    f.session_begin = QStringLiteral("2000/01/01 00:00:00");
    f.vender = QStringLiteral("Vandu");
    f.app = QStringLiteral("TW+V");
    f.version = QStringLiteral("1.2.0");
  });
  countPenColours();
  logger().bPickScreenColor = true;
  logger().countColor(10, 20, 30);
  pushes(2, 1);
  const auto sentApplicationRecord = commander().tempApplicationRecord();

  // Normally the first tick does it; a first TLS handshake slower than the
  // scaled time-out (sanitizer builds) fails it, and the next tick resends.
  ASSERT_TRUE(pumpUntil(
      [&] {
        return bothDone() && color().counter_device == 0 &&
               commander().tempApplicationRecord() != sentApplicationRecord;
      },
      40000));
  ASSERT_TRUE(server->waitForRequests(2));

  const ServerEvent colorPost = server->requests(kColorPath).last();
  const QJsonObject c = bodyObject(colorPost);
  EXPECT_TRUE(colorPost.body.contains(R"("session_begin" : "2000\/01\/01 00:00:00")"))
      << colorPost.body.toStdString();
  EXPECT_FALSE(colorPost.body.contains("2000/01"));
  EXPECT_TRUE(isTimeText(c.value("session_end").toString()));
  EXPECT_TRUE(colorPost.body.contains(R"("session_full" : true)"));
  EXPECT_TRUE(colorPost.body.contains(R"("debug" : false)"));
  EXPECT_EQ(c.value("vender").toString(), "Vandu");
  EXPECT_EQ(c.value("os").toString(), "Mac");
  EXPECT_EQ(c.value("app").toString(), "TW+V");
  EXPECT_EQ(c.value("version").toString(), "1.2.0");
  EXPECT_TRUE(colorPost.body.contains(R"("counter_screen" : 1)"));
  EXPECT_TRUE(colorPost.body.contains(R"("counter_device" : 2)"));
  EXPECT_TRUE(colorPost.body.contains(R"("colors_screen" : "[#0A141E]")"));
  EXPECT_TRUE(colorPost.body.contains(R"("colors_device" : "[#FF0010,#010203]")"));

  const ServerEvent appPost = server->requests(kAppPath).last();
  const QJsonObject a = bodyObject(appPost);
  EXPECT_EQ(a.value("session_begin").toString(), "2000/01/01 00:00:00");
  EXPECT_EQ(a.value("session_end").toString(), c.value("session_end").toString());
  EXPECT_TRUE(appPost.body.contains(R"("session_full" : true)"));
  EXPECT_TRUE(appPost.body.contains(R"("debug" : false)"));
  EXPECT_TRUE(appPost.body.contains(R"("PS" : 2)"));
  EXPECT_TRUE(appPost.body.contains(R"("AI" : 1)"));
  EXPECT_EQ(a.value("os").toString(), "Mac");

  // Colour record renewed: same labels, fresh counts and lists, new begin.
  const ColorRecord::Fields renewed = color();
  EXPECT_EQ(renewed.vender, "Vandu");
  EXPECT_EQ(renewed.app, "TW+V");
  EXPECT_EQ(renewed.version, "1.2.0");
  EXPECT_EQ(renewed.counter_device, 0);
  EXPECT_EQ(renewed.counter_screen, 0);
  EXPECT_EQ(renewed.colors_device, "");
  EXPECT_EQ(renewed.colors_screen, "");
  EXPECT_EQ(renewed.session_end, "");
  EXPECT_FALSE(renewed.session_full);
  EXPECT_NE(renewed.session_begin, "2000/01/01 00:00:00");
  EXPECT_TRUE(isTimeText(renewed.session_begin));
  // Application record replaced in Commander; the sender keeps the sent one.
  EXPECT_NE(commander().tempApplicationRecord(), sentApplicationRecord);
  EXPECT_EQ(commander().tempApplicationRecord()->read().PS, 0);
  EXPECT_EQ(logger().applicationRecord(), sentApplicationRecord);
  EXPECT_TRUE(logger().bColorApiDone);
  EXPECT_TRUE(logger().bAppUsageApiDone);
}

TEST_F(SendingTest, RequestsArePostsWithExactlyTheTwoHeaderFields) {
  countPenColours();
  logger().sendLogs();
  ASSERT_TRUE(server->waitForRequests(2));
  ASSERT_TRUE(waitForBothDone());
  for (const ServerEvent& e : server->requests()) {
    EXPECT_EQ(e.method, "POST");
    EXPECT_EQ(e.header("Content-Type"), "application/json");
    EXPECT_EQ(e.header("Accept"), "application/json");
    EXPECT_FALSE(e.hasHeader("Authorization"));
    EXPECT_FALSE(e.hasHeader("Cookie"));
    // Besides our two, only what the protocol and the client stack add.
    for (const auto& [name, value] : e.headers) {
      static const QStringList allowed = {"Content-Type",    "Accept",     "Host",
                                          "Content-Length",  "Connection", "Accept-Encoding",
                                          "Accept-Language", "User-Agent"};
      EXPECT_TRUE(allowed.contains(name, Qt::CaseInsensitive)) << name.toStdString();
    }
    EXPECT_EQ(e.header("Content-Length").toInt(), e.body.size());
  }
  QStringList paths;
  for (const ServerEvent& e : server->requests()) paths << e.path;
  paths.sort();
  EXPECT_EQ(paths, QStringList({"/api/app_usage", "/api/color_usage"}));
}

TEST_F(SendingTest, BothPostsStartSideBySide) {
  // Neither post waits for the other: with the colour post hanging, the
  // application post still arrives.
  server->command(QStringLiteral("set /api/color_usage hang"));
  countPenColours();
  logger().sendLogs();
  ASSERT_TRUE(server->waitForRequests(2));
  EXPECT_EQ(server->requests(kColorPath).size(), 1);
  EXPECT_EQ(server->requests(kAppPath).size(), 1);
  ASSERT_TRUE(pumpUntil([&] { return logger().bAppUsageApiDone.load(); }, 10000));
  EXPECT_FALSE(logger().bColorApiDone);
}

TEST_F(SendingTest, SendsTheCommandersApplicationRecordItself) {
  countPenColours();
  pushes(4, 0);
  const auto before = commander().tempApplicationRecord();
  server->command(QStringLiteral("set * 500"));
  logger().sendLogs();
  EXPECT_EQ(logger().applicationRecord(), before);
  EXPECT_EQ(before->read().session_end, color().session_end);
  ASSERT_TRUE(waitForBothDone());
}

TEST_F(SendingTest, ColourPost500AndApplicationPost200KeepColoursAndRestartPushes) {
  server->command(QStringLiteral("set /api/color_usage 500"));
  server->command(QStringLiteral("set /api/app_usage 200"));
  countPenColours();
  pushes(5, 2);
  const ColorRecord::Fields before = color();
  logger().sendLogs();
  ASSERT_TRUE(server->waitForRequests(2));
  ASSERT_TRUE(waitForBothDone());
  // Wait for the second answer too: the first one already set both flags.
  ASSERT_TRUE(
      pumpUntil([&] { return commander().tempApplicationRecord()->read().PS == 0; }, 10000));
  const ColorRecord::Fields after = color();
  EXPECT_EQ(after.counter_device, 2);
  EXPECT_EQ(after.colors_device, "[#FF0010,#010203]");
  EXPECT_EQ(after.session_begin, before.session_begin);
  EXPECT_EQ(commander().tempApplicationRecord()->read().AI, 0);
  EXPECT_TRUE(logger().bColorApiDone);
  EXPECT_TRUE(logger().bAppUsageApiDone);
}

// Every non-2xx status the server answers is a response, whichever of them
// Qt reports as an error of its own: the two status lines, no transport-error
// line, both posts given up and nothing reset.
class StatusSendingTest : public SendingTest, public ::testing::WithParamInterface<int> {};

TEST_P(StatusSendingTest, NonSuccessStatusPrintsTheStatusLinesNotTheErrorLine) {
  const int status = GetParam();
  server->command(QStringLiteral("set * %1").arg(status));
  countPenColours();
  pushes(2, 1);
  const auto applicationRecord = commander().tempApplicationRecord();
  testing::LogCapture log;
  logger().sendLogs();
  // Both posts have ended once each printed its response or error line.
  QString out;
  const bool answered = pumpUntil(
      [&] {
        out = log.text();
        return out.count(QStringLiteral("\nresponse = ")) + out.count(QStringLiteral("\nerror ")) >=
               2;
      },
      20000);
  out = log.text();
  ASSERT_TRUE(answered) << out.toStdString();
  const QString statusLine =
      QStringLiteral("\nstatusCode should be 2xx, but is %1\nresponse = ").arg(status);
  EXPECT_EQ(out.count(statusLine), 2) << out.toStdString();
  EXPECT_EQ(out.count(QStringLiteral("\nerror ")), 0) << out.toStdString();
  EXPECT_EQ(out.count(QStringLiteral(" API 完成 ")), 0) << out.toStdString();
  EXPECT_TRUE(logger().bColorApiDone);
  EXPECT_TRUE(logger().bAppUsageApiDone);
  EXPECT_EQ(color().counter_device, 2);
  EXPECT_EQ(commander().tempApplicationRecord(), applicationRecord);
  EXPECT_EQ(applicationRecord->read().PS, 2);
  // The server notes a request after answering it: the client can be first.
  EXPECT_TRUE(pumpUntil([&] { return server->requests().size() >= 2; }, 5000));
  EXPECT_EQ(server->requests().size(), 2);
}

INSTANTIATE_TEST_SUITE_P(Statuses, StatusSendingTest,
                         ::testing::Values(400, 404, 407, 418, 500, 503),
                         [](const auto& info) { return "status" + std::to_string(info.param); });

TEST_F(SendingTest, DroppedConnectionIsATransportErrorAndNothingIsReset) {
  server->command(QStringLiteral("set * drop"));
  countPenColours();
  pushes(1, 0);
  const auto applicationRecord = commander().tempApplicationRecord();
  logger().sendLogs();
  ASSERT_TRUE(waitForBothDone());
  ASSERT_TRUE(server->waitForRequests(2));
  pumpFor(200);
  EXPECT_EQ(color().counter_device, 2);
  EXPECT_EQ(commander().tempApplicationRecord(), applicationRecord);
  EXPECT_EQ(applicationRecord->read().PS, 1);
}

TEST_F(SendingTest, ServerUnreachableByAddressIsATransportError) {
  QTcpServer closed;
  ASSERT_TRUE(closed.listen(QHostAddress::LocalHost));
  const quint16 port = closed.serverPort();
  closed.close();  // nothing listens there now
  qputenv("TINTWELL_TELEMETRY_URL", QStringLiteral("https://localhost:%1").arg(port).toUtf8());
  countPenColours();
  logger().sendLogs();
  ASSERT_TRUE(waitForBothDone());
  EXPECT_EQ(color().counter_device, 2);
  EXPECT_TRUE(server->events().isEmpty());
}

TEST_F(TimeOutSendingTest, HangingServerTimesOutAfterSixtyScaledSeconds) {
  server->command(QStringLiteral("set * hang"));
  countPenColours();
  QElapsedTimer clock;
  clock.start();
  logger().sendLogs();
  ASSERT_TRUE(server->waitForRequests(2));
  ASSERT_TRUE(waitForBothDone());
  EXPECT_GE(clock.elapsed(), 500);
  EXPECT_EQ(color().counter_device, 2);
}

TEST_F(SendingTest, DoneFlagsStayTrueForTheRestOfTheRun) {
  countPenColours();
  logger().sendLogs();
  ASSERT_TRUE(waitForBothDone());
  ASSERT_TRUE(server->waitForRequests(2));
  pumpFor(100);
  server->command(QStringLiteral("set * hang"));
  logger().countColor(7, 8, 9);
  logger().sendLogs();
  // A new send does not clear them, and nothing else does.
  EXPECT_TRUE(logger().bColorApiDone);
  EXPECT_TRUE(logger().bAppUsageApiDone);
  ASSERT_TRUE(server->waitForRequests(4));
  EXPECT_TRUE(bothDone());
}

TEST_F(SendingTest, FailedPostThenMoreColoursThenSuccessCarriesEveryColour) {
  server->command(QStringLiteral("next /api/color_usage 500"));
  countPenColours();
  logger().sendLogs();
  ASSERT_TRUE(server->waitForRequests(2));
  ASSERT_TRUE(waitForBothDone());
  pumpFor(100);
  logger().countColor(10, 11, 12);
  logger().bPickScreenColor = true;
  logger().countColor(0xAA, 0, 0);
  logger().sendLogs();
  ASSERT_TRUE(server->waitForRequests(4));
  ASSERT_TRUE(pumpUntil([&] { return color().counter_device == 0; }, 10000));
  logger().countColor(0x20, 0x21, 0x22);
  logger().sendLogs();
  ASSERT_TRUE(server->waitForRequests(6));

  const QList<ServerEvent> posts = server->requests(kColorPath);
  ASSERT_EQ(posts.size(), 3);
  EXPECT_EQ(posts[0].answer, "500");
  EXPECT_TRUE(posts[0].body.contains(R"("colors_device" : "[#FF0010,#010203]")"));
  EXPECT_TRUE(posts[0].body.contains(R"("colors_screen" : "[]")"));
  EXPECT_EQ(posts[1].answer, "200");
  // Closed once already: sent as it stands, no second pair of brackets.
  EXPECT_TRUE(posts[1].body.contains(R"("colors_device" : "[#FF0010,#010203],#0A0B0C")"))
      << posts[1].body.toStdString();
  EXPECT_TRUE(posts[1].body.contains(R"("counter_device" : 3)"));
  // An empty list closed as "[]" grows the same way.
  EXPECT_TRUE(posts[1].body.contains(R"("colors_screen" : "[],#AA0000")"));
  EXPECT_TRUE(posts[1].body.contains(R"("counter_screen" : 1)"));
  EXPECT_EQ(bodyObject(posts[1]).value("session_begin"),
            bodyObject(posts[0]).value("session_begin"));
  // After the success, a fresh record: only what came since.
  EXPECT_TRUE(posts[2].body.contains(R"("colors_device" : "[#202122]")"));
  EXPECT_TRUE(posts[2].body.contains(R"("counter_device" : 1)"));
  EXPECT_TRUE(posts[2].body.contains(R"("colors_screen" : "[]")"));
}

TEST_F(SendingTest, ClosingSendAfterAFailedTickCarriesSessionFull) {
  server->command(QStringLiteral("next * 500,500"));
  countPenColours();
  logger().logWithTimer();
  ASSERT_TRUE(server->waitForRequests(2));
  ASSERT_TRUE(waitForBothDone());
  logger().sendLogs();
  ASSERT_TRUE(server->waitForRequests(4));
  const QList<ServerEvent> posts = server->requests(kColorPath);
  ASSERT_EQ(posts.size(), 2);
  EXPECT_TRUE(posts[1].body.contains(R"("session_full" : true)"));
  EXPECT_TRUE(server->requests(kAppPath).value(1).body.contains(R"("session_full" : true)"));
}

TEST_F(SendingTest, ClosingSendWithoutAnyTickCarriesSessionFullFalse) {
  countPenColours();
  logger().sendLogs();
  ASSERT_TRUE(server->waitForRequests(2));
  for (const ServerEvent& e : server->requests())
    EXPECT_TRUE(e.body.contains(R"("session_full" : false)")) << e.path.toStdString();
}

TEST_F(UntrustedSendingTest, UntrustedCertificateIsATransportErrorAndNothingIsSent) {
  countPenColours();
  logger().sendLogs();
  ASSERT_TRUE(waitForBothDone());
  ASSERT_TRUE(pumpUntil([&] { return !server->events().isEmpty(); }, 5000));
  pumpFor(200);
  EXPECT_TRUE(server->requests().isEmpty());
  for (const ServerEvent& e : server->events()) {
    EXPECT_EQ(e.event, "tls_error");
    // The client refused the handshake; it never fell back to plain HTTP.
    EXPECT_FALSE(e.detail.contains("HTTP_REQUEST", Qt::CaseInsensitive)) << e.detail.toStdString();
  }
  EXPECT_EQ(color().counter_device, 2);
}

TEST_F(UntrustedSendingTest, CertificateFromAnotherCaIsRefused) {
  TestCertificates other(QStringLiteral("Some Other CA"));
  qputenv("TINTWELL_TELEMETRY_CA", other.caPath().toLocal8Bit());
  logger().setTransport(makeNetworkUsageTransport());
  countPenColours();
  logger().sendLogs();
  ASSERT_TRUE(waitForBothDone());
  pumpFor(200);
  EXPECT_TRUE(server->requests().isEmpty());
  EXPECT_EQ(color().counter_device, 2);
}

// The impossible states stop the process.
class SenderFailureTest : public ::testing::Test {
 protected:
  SenderFailureTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(SenderFailureTest, TickBeforeStartStopsTheProcess) {
  EXPECT_DEATH(
      {
        API_Logger logger;
        logger.logWithTimer();
      },
      "colour usage record is missing");
}

TEST_F(SenderFailureTest, SendingWithoutACommanderStopsTheProcess) {
  // Online, or the send stops before it looks.
  const QString why = testing::enterOnlineNetworkNamespace();
  if (!why.isEmpty()) GTEST_SKIP() << why.toStdString();
  EXPECT_DEATH(
      {
        API_Logger logger;
        logger.startLogging();
        logger.countColor(250, 250, 250);
        logger.countColor(1, 2, 3);
        logger.sendLogs();
      },
      "has no commander");
}

TEST_F(SenderFailureTest, SendingWithoutAnApplicationRecordStopsTheProcess) {
  // Online, or the send stops before it looks.
  const QString why = testing::enterOnlineNetworkNamespace();
  if (!why.isEmpty()) GTEST_SKIP() << why.toStdString();
  EXPECT_DEATH(
      {
        Commander commander;
        commander.setTempApplicationRecord(nullptr);
        API_Logger logger;
        logger.parentCommander = &commander;
        logger.startLogging();
        logger.countColor(250, 250, 250);
        logger.countColor(1, 2, 3);
        logger.sendLogs();
      },
      "application usage record is missing");
}

TEST_F(SenderFailureTest, APlainHttpAddressStopsTheProcess) {
  qputenv("TINTWELL_TELEMETRY_URL", "http://localhost:1");
  EXPECT_DEATH(
      {
        API_Logger logger;
        logger.postUsage(QStringLiteral("/api/color_usage"), "{}", API_Type::colorType);
      },
      "not a usable https address");
}

TEST_F(SenderFailureTest, AnUnparsableAddressStopsTheProcess) {
  qputenv("TINTWELL_TELEMETRY_URL", "https://bad host:99999");
  EXPECT_DEATH(
      {
        API_Logger logger;
        logger.postUsage(QStringLiteral("/api/app_usage"), "{}", API_Type::appType);
      },
      "not a usable https address");
}

TEST(ApiType, PrintedFormIsTheCaseName) {
  EXPECT_EQ(apiTypeName(API_Type::colorType), "colorType");
  EXPECT_EQ(apiTypeName(API_Type::appType), "appType");
}

}  // namespace
}  // namespace tw
