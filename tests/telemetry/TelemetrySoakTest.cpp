// A long run of the real timer against a server that fails every third
// request: memory stays flat, and every colour counted while no post is in
// flight reaches the server in exactly one successful colour post.
//
// TINTWELL_SOAK_TICKS (default 1000) and TINTWELL_SOAK_TIME_SCALE (default
// 0.001: a tick every 600 ms, a 60 ms request time-out) tune the run; under
// the sanitizers, raise the scale.

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QFile>
#include <QTimer>
#include <cstdio>
#include <vector>

#include "tests/telemetry/SenderTestSupport.h"

namespace tw {
namespace {

using testing::pumpFor;
using testing::pumpUntil;

// The real transport, counting what is out.
class InFlightTransport final : public UsageTransport {
 public:
  void post(const UsageRequest& request, Completion completion) override {
    // A colour post while the last pair is still out: a tick overlapped.
    if (request.url.path() == QLatin1String("/api/color_usage") && inFlight > 0) ++overlaps;
    ++inFlight;
    ++posted;
    QElapsedTimer clock;
    clock.start();
    inner_.post(request, [this, clock, completion = std::move(completion)](
                             std::optional<QByteArray> data, std::optional<UsageResponse> response,
                             std::optional<QString> error) {
      --inFlight;
      slowestMs = std::max(slowestMs, clock.elapsed());
      if (error) {
        ++transportErrors;
        lastError = *error;
      }
      completion(std::move(data), std::move(response), std::move(error));
    });
  }
  int inFlight = 0;
  int posted = 0;
  int transportErrors = 0;
  int overlaps = 0;
  qint64 slowestMs = 0;
  QString lastError;

 private:
  NetworkUsageTransport inner_;
};

qint64 statusKb(const char* field) {
  QFile status(QStringLiteral("/proc/self/status"));
  if (!status.open(QIODevice::ReadOnly)) return -1;
  for (const QByteArray& line : status.readAll().split('\n'))
    if (line.startsWith(field))
      return line.mid(qstrlen(field)).trimmed().split(' ').value(0).toLongLong();
  return -1;
}

QStringList listEntries(const QString& list) {
  QString inner = list;
  inner.remove(u'[').remove(u']');
  return inner.split(u',', Qt::SkipEmptyParts);
}

bool underSanitizer() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return true;
#else
  return false;
#endif
}

TEST(TelemetrySoak, ThousandTicksAgainstAFlakyServerLoseNothingAndStayFlat) {
  const int ticksWanted = qEnvironmentVariableIsSet("TINTWELL_SOAK_TICKS")
                              ? qEnvironmentVariableIntValue("TINTWELL_SOAK_TICKS")
                              : 1000;
  const QByteArray scale = qEnvironmentVariableIsSet("TINTWELL_SOAK_TIME_SCALE")
                               ? qgetenv("TINTWELL_SOAK_TIME_SCALE")
                               : QByteArray("0.001");
  testing::SenderEnvironment environment(scale.constData());
  testing::TestCertificates certificates;
  testing::TelemetryTestServer server(certificates);
  qputenv("TINTWELL_TELEMETRY_URL", server.baseUrl().toUtf8());
  qputenv("TINTWELL_TELEMETRY_CA", certificates.caPath().toLocal8Bit());
  server.command(QStringLiteral("fail-every 3"));

  Commander commander;
  API_Logger logger;
  auto transport = std::make_shared<InFlightTransport>();
  logger.parentCommander = &commander;
  logger.setTransport(transport);
  logger.startLogging();
  logger.countColor(250, 250, 250);

  // Colour n is the colour with components (n >> 16, n >> 8, n) & 0xFF; the
  // tallies are made up front so that they do not count as growth.
  constexpr int kMaxColours = 1 << 22;
  std::vector<quint8> delivered(kMaxColours, 0);
  int failedColourPosts = 0;
  auto tallyServer = [&] {
    for (const testing::ServerEvent& post : server.takeEvents()) {
      if (post.path != QLatin1String("/api/color_usage")) continue;
      if (!post.answeredOk()) {
        ++failedColourPosts;
        continue;
      }
      const QJsonObject body = testing::bodyObject(post);
      for (const QString& entry : listEntries(body.value("colors_device").toString())) {
        const int n = entry.mid(1).toInt(nullptr, 16);
        if (delivered[n] < 255) ++delivered[n];
      }
    }
  };

  int ticks = 0;
  qint64 rssStartKb = -1;
  qint64 peakStartKb = -1;
  // The sender's own slot was connected first, so this runs after its send.
  QObject::connect(logger.apiSenderTimer(), &QTimer::timeout, [&] {
    ++ticks;
    tallyServer();
    if (ticks == 100) {
      rssStartKb = statusKb("VmRSS:");
      peakStartKb = statusKb("VmHWM:");
    }
  });

  // A colour every few milliseconds, but only while nothing is out.
  int next = 1;
  QTimer colours;
  colours.setInterval(5);
  QObject::connect(&colours, &QTimer::timeout, [&] {
    if (transport->inFlight > 0 || ticks >= ticksWanted || next >= kMaxColours) return;
    logger.countColor((next >> 16) & 0xFF, (next >> 8) & 0xFF, next & 0xFF);
    ++next;
  });
  colours.start();

  ASSERT_TRUE(pumpUntil([&] { return ticks >= ticksWanted; }, ticksWanted * 2000 + 60000));
  colours.stop();
  logger.apiSenderTimer()->stop();
  ASSERT_TRUE(pumpUntil([&] { return transport->inFlight == 0; }, 30000));
  // One last, reliable send carries whatever the last ticks left behind.
  server.command(QStringLiteral("fail-every 0"));
  if (logger.colorRecord()->read().counter_device > 0) {
    const int before = transport->posted;
    logger.sendLogs();
    ASSERT_TRUE(
        pumpUntil([&] { return transport->posted > before && transport->inFlight == 0; }, 30000));
  }
  EXPECT_EQ(logger.colorRecord()->read().counter_device, 0);
  pumpFor(200);
  tallyServer();
  const int counted = next - 1;

  const qint64 rssEndKb = statusKb("VmRSS:");
  const qint64 peakEndKb = statusKb("VmHWM:");
  std::printf(
      "soak: %d ticks, %d colours, %d posts (%d transport errors, slowest %lld ms), %d ticks "
      "overlapping posts; "
      "RSS %lld kB at tick 100, %lld kB at end; peak %lld kB at tick 100, %lld kB at end\n",
      ticks, counted, transport->posted, transport->transportErrors,
      static_cast<long long>(transport->slowestMs), transport->overlaps,
      static_cast<long long>(rssStartKb), static_cast<long long>(rssEndKb),
      static_cast<long long>(peakStartKb), static_cast<long long>(peakEndKb));
  ::testing::Test::RecordProperty("rss_start_kb", static_cast<int>(rssStartKb));
  ::testing::Test::RecordProperty("rss_end_kb", static_cast<int>(rssEndKb));
  ::testing::Test::RecordProperty("peak_rss_start_kb", static_cast<int>(peakStartKb));
  ::testing::Test::RecordProperty("peak_rss_end_kb", static_cast<int>(peakEndKb));

  // A timed-out post may still have been answered 200 by the server, and an
  // overlapping tick resends what is out: either would make a duplicate by
  // design, so the run is only meaningful without them.
  ASSERT_EQ(transport->transportErrors, 0) << "posts timed out: raise TINTWELL_SOAK_TIME_SCALE";
  ASSERT_EQ(transport->overlaps, 0) << "ticks overlapped posts: raise TINTWELL_SOAK_TIME_SCALE";

  EXPECT_GT(failedColourPosts, 0);
  EXPECT_GT(counted, ticksWanted / 2);
  int missing = 0, duplicated = 0, strays = 0;
  for (int n = 1; n < kMaxColours; ++n) {
    if (n <= counted && delivered[n] == 0) ++missing;
    if (n <= counted && delivered[n] > 1) ++duplicated;
    if (n > counted && delivered[n] > 0) ++strays;
  }
  EXPECT_EQ(missing, 0);
  EXPECT_EQ(duplicated, 0);
  EXPECT_EQ(strays, 0);

  // Flat: nothing grows with the number of ticks (the allowance is for the
  // allocator's and the TLS session's own settling).
  if (!underSanitizer()) {
    EXPECT_LT(rssEndKb - rssStartKb, 4 * 1024);
  }
}

}  // namespace
}  // namespace tw
