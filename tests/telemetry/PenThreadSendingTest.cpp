// The real thread topology in the driver process: colours counted on the
// "Orlo.Tintwell" thread while the main thread's timer sends and the
// completions renew the record. Run under ThreadSanitizer, the driver's exit
// status also says that this is race-free.

#include <gtest/gtest.h>

#include <QHash>
#include <QRegularExpression>

#include "tests/support/NetworkNamespace.h"
#include "tests/support/PostOverlap.h"
#include "tests/telemetry/DriverProcess.h"
#include "tests/telemetry/SenderTestSupport.h"

namespace tw {
namespace {

using testing::DriverProcess;

TEST(PenThreadSending, ColoursCountedDuringTicksLandInConsistentBodiesAtMostOnce) {
  // Online on every machine (nothing is sent otherwise); the server and the
  // driver started below share the namespace.
  const QString why = testing::enterOnlineNetworkNamespace();
  if (!why.isEmpty()) GTEST_SKIP() << why.toStdString();
  testing::SenderEnvironment environment(nullptr);
  testing::TestCertificates certificates;
  testing::TelemetryTestServer server(certificates);
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert(QStringLiteral("HOME"), environment.home());
  env.insert(QStringLiteral("XDG_CONFIG_HOME"), environment.home() + QStringLiteral("/config"));
  env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("disabled:"));
  // A tick every 600 ms, a 60 ms time-out.
  env.insert(QStringLiteral("TINTWELL_TIME_SCALE"), QStringLiteral("0.001"));
  env.insert(QStringLiteral("TINTWELL_TELEMETRY_URL"), server.baseUrl());
  env.insert(QStringLiteral("TINTWELL_TELEMETRY_CA"), certificates.caPath());
  DriverProcess driver(env);
  ASSERT_TRUE(driver.ready()) << driver.transcript().toStdString();

  // Count in bursts until two timer ticks have been answered. On a loaded
  // machine a tick's post may miss its short time-out; its colours then go out
  // again with the next one, so the run simply lasts longer.
  constexpr int kBurst = 2000;  // about 0.4 s of counting
  const auto ticksAnswered = [&server] {
    int n = 0;
    for (const auto& post : server.requests(QStringLiteral("/api/color_usage")))
      n += post.answeredOk() && testing::bodyObject(post).value("session_full").toBool();
    return n;
  };
  int bursts = 0;
  QDeadlineTimer deadline(180000);
  while (ticksAnswered() < 2) {
    ASSERT_FALSE(deadline.hasExpired()) << "fewer than two ticks answered in three minutes\n"
                                        << driver.transcript().toStdString();
    driver.send(QStringLiteral("burst %1").arg(kBurst));
    ++bursts;
    ASSERT_TRUE(driver.waitForLine(QStringLiteral("BURST DONE"), bursts, 120000))
        << driver.transcript().toStdString();
  }
  const int counted = bursts * kBurst;
  driver.send(QStringLiteral("quit"));
  ASSERT_TRUE(driver.finish(60000)) << driver.transcript().toStdString();
  // Non-zero also when ThreadSanitizer found a race in the driver.
  ASSERT_EQ(driver.exitCode(), 0) << driver.transcript().toStdString();

  const bool clientSawEveryAnswer = driver.indexOfPrefix(QStringLiteral("error ")) < 0;
  // A tick that came while a post was still out sends the same record again
  // (see PostOverlap); only without that is a colour in at most one accepted body.
  testing::PostOverlap overlap;
  for (const QString& line : driver.lines()) overlap.read(line);
  const bool sendsOverlapped = overlap.overlappingSends() > 0;
  QHash<int, int> delivered;
  const QList<testing::ServerEvent> posts = server.requests(QStringLiteral("/api/color_usage"));
  ASSERT_FALSE(posts.isEmpty());
  for (const auto& post : posts) {
    const QJsonObject body = testing::bodyObject(post);
    QString list = body.value("colors_device").toString();
    list.remove(u'[').remove(u']');
    const QStringList entries = list.split(u',', Qt::SkipEmptyParts);
    // Count and list were taken together.
    EXPECT_EQ(entries.size(), body.value("counter_device").toInteger());
    EXPECT_EQ(QSet<QString>(entries.begin(), entries.end()).size(), entries.size());
    if (!post.answeredOk()) continue;
    for (const QString& entry : entries) {
      const int number = entry.mid(1).toInt(nullptr, 16);
      EXPECT_TRUE(number >= 1 && number <= counted) << "colour " << number << " was never counted";
      ++delivered[number];
    }
  }
  if (clientSawEveryAnswer && !sendsOverlapped) {
    for (auto it = delivered.cbegin(); it != delivered.cend(); ++it)
      EXPECT_EQ(it.value(), 1) << "colour " << it.key() << " was posted successfully twice";
    // With the closing post through, only colours counted while a successful
    // post was out can be missing: at most a time-out's share of each tick.
    if (posts.back().answeredOk()) {
      EXPECT_GT(delivered.size(), counted / 2);
    }
  }
}

}  // namespace
}  // namespace tw
