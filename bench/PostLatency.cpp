// One usage post, request to completion, made by the post helper and made in
// this process, against the local HTTPS test server (its own CA), interleaved:
//   build/bench/post_latency [--posts N] [--system-store]   (make post-bench)
// Prints the median and 90th percentile of each, and the helper's peak
// resident size (from the kernel's account of the ended children).
// TINTWELL_TELEMETRY_CA makes every TLS set-up parse the whole system CA
// store; with --system-store (root) the test CA is instead the only
// certificate in /etc/ssl/certs, in a mount namespace of this process's own,
// and is found by Qt's on-demand lookup as a public server's root would be.
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

#include "telemetry/HelperUsageTransport.h"
#include "telemetry/network/NetworkUsageTransport.h"
#include "tests/telemetry/TelemetryTestServer.h"

namespace {

double percentile(std::vector<double> values, double p) {
  std::sort(values.begin(), values.end());
  return values[static_cast<size_t>(p * static_cast<double>(values.size() - 1))];
}

// Milliseconds from post() to the completion; negative when it failed.
double timedPost(tw::UsageTransport& transport, const tw::UsageRequest& request) {
  bool done = false;
  bool answered = false;
  QElapsedTimer clock;
  clock.start();
  transport.post(request, [&](auto, std::optional<tw::UsageResponse> response, auto) {
    done = true;
    answered = response && response->statusCode == 200;
  });
  tw::testing::pumpUntil([&] { return done; }, 20000);
  return answered ? static_cast<double>(clock.nsecsElapsed()) / 1e6 : -1;
}

// /etc/ssl/certs holding the test CA alone (hashed as OpenSSL looks it up),
// seen by this process and its children only.
bool trustThroughTheSystemStore(const QString& caPath, const QTemporaryDir& folder) {
  if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return false;
  if (!QFile::copy(caPath, folder.filePath(QStringLiteral("test-ca.pem")))) return false;
  if (QProcess::execute(QStringLiteral("openssl"), {QStringLiteral("rehash"), folder.path()}) != 0)
    return false;
  return mount(folder.path().toLocal8Bit().constData(), "/etc/ssl/certs", nullptr, MS_BIND,
               nullptr) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  int posts = 40;
  const QStringList args = QCoreApplication::arguments();
  const qsizetype at = args.indexOf(QStringLiteral("--posts"));
  if (at >= 0 && at + 1 < args.size()) posts = args.at(at + 1).toInt();

  tw::testing::TestCertificates certificates;
  tw::testing::TelemetryTestServer server(certificates);
  server.command(QStringLiteral("set * 200"));
  const QTemporaryDir store;
  if (args.contains(QStringLiteral("--system-store"))) {
    if (!trustThroughTheSystemStore(certificates.caPath(), store)) {
      std::fprintf(stderr, "post_latency: --system-store needs root (mount namespace)\n");
      return 1;
    }
    qunsetenv("TINTWELL_TELEMETRY_CA");
  } else {
    qputenv("TINTWELL_TELEMETRY_CA", certificates.caPath().toLocal8Bit());
  }

  tw::UsageRequest request;
  request.url = QUrl(server.baseUrl() + QStringLiteral("/api/color_usage"));
  request.method = "POST";
  request.headers = {{"Content-Type", "application/json"}};
  request.body = R"({"colors_device" : "[#123456]"})";
  request.timeoutMs = 20000;

  tw::HelperUsageTransport helped(QStringLiteral(TW_POST_HELPER), [] { return nullptr; });
  tw::NetworkUsageTransport here;
  std::vector<double> viaHelper;
  std::vector<double> madeHere;
  for (int i = 0; i < posts; ++i) {
    const double a = timedPost(helped, request);
    const double b = timedPost(here, request);
    if (a < 0 || b < 0) {
      std::fprintf(stderr, "post_latency: a post was not answered\n");
      return 1;
    }
    viaHelper.push_back(a);
    madeHere.push_back(b);
  }
  rusage children{};
  getrusage(RUSAGE_CHILDREN, &children);
  std::printf(
      "post -> answer (%s), %d posts each: helper median %.1f ms, p90 %.1f ms; "
      "in-process median %.1f ms, p90 %.1f ms (the first in-process post, with its "
      "set-up, included)\n",
      args.contains(QStringLiteral("--system-store"))
          ? "CA found in the system store"
          : "CA from TINTWELL_TELEMETRY_CA, whole system store parsed",
      posts, percentile(viaHelper, 0.5), percentile(viaHelper, 0.9), percentile(madeHere, 0.5),
      percentile(madeHere, 0.9));
  std::printf("first post: helper %.1f ms, in-process %.1f ms\n", viaHelper.front(),
              madeHere.front());
  std::printf("largest peak resident size of a child (the helpers, the test server): %.1f MiB\n",
              static_cast<double>(children.ru_maxrss) / 1024.0);
  return 0;
}
