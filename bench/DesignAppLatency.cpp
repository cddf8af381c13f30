// Colour accepted -> colour confirmed in each real design application, and
// how long the accepting thread is busy per push.
//
//   build/bench/design_app_latency [--pushes N] [--hosts gimp,inkscape,krita]
//
// Each application runs from Debian's package under a private Xvfb in a
// throwaway session, as in the real-application tests. A push is timed from
// the moment the bridge is handed the colour (Commander::sendColorToApps, the
// call the panel makes for every accepted colour, /proc scan included) to the
// moment the host's worker has the application's confirmation.

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QVariantMap>
#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <mutex>

#include "bridge/Commander.h"
#include "bridge/HostDispatcher.h"
#include "bridge/linux/GimpHost.h"
#include "bridge/linux/InkscapeHost.h"
#include "bridge/linux/KritaHost.h"
#include "bridge/linux/KritaPlugin.h"
#include "tests/support/DesignAppSession.h"
#include "tests/support/XvfbServer.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using tw::testing::DesignAppSession;

struct Confirmations : tw::HostEvents {
  void pushed(const QString&, const QString&, const tw::HostColor& color,
              const tw::PushOutcome& outcome) override {
    std::lock_guard lock(mutex);
    last = color;
    status = outcome.status;
    at = Clock::now();
    ++count;
    changed.notify_all();
  }
  std::mutex mutex;
  std::condition_variable changed;
  tw::HostColor last;
  tw::PushStatus status = tw::PushStatus::Failed;
  Clock::time_point at;
  int count = 0;
};

struct HostUnderTest {
  QString key;
  QString program;
  std::function<QStringList(DesignAppSession&)> prepare;
  std::function<std::unique_ptr<tw::DesignHost>(DesignAppSession&)> make;
  // After the application answers: anything the pushes need (a selection).
  std::function<void(DesignAppSession&)> ready;
};

QDBusMessage inkscapeAction(DesignAppSession& session, const QString& path, const QString& name) {
  return session.activateAction(QStringLiteral("org.inkscape.Inkscape"), path, name);
}

std::vector<HostUnderTest> allHosts() {
  return {
      {QStringLiteral("gimp"), QStringLiteral("gimp"),
       [](DesignAppSession&) { return QStringList{QStringLiteral("--no-splash")}; },
       [](DesignAppSession& s) { return std::make_unique<tw::GimpHost>(s.bus()); },
       [](DesignAppSession&) {}},
      {QStringLiteral("inkscape"), QStringLiteral("inkscape"),
       [](DesignAppSession& s) {
         QDir().mkpath(s.configDir() + QStringLiteral("/inkscape"));
         QFile prefs(s.configDir() + QStringLiteral("/inkscape/preferences.xml"));
         prefs.open(QIODevice::WriteOnly);
         prefs.write(
             "<inkscape version=\"1\"><group id=\"options\"><group id=\"boot\" "
             "enabled=\"0\"/></group></inkscape>");
         const QString drawing = s.home() + QStringLiteral("/drawing.svg");
         QFile svg(drawing);
         svg.open(QIODevice::WriteOnly);
         svg.write(
             "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"400\" height=\"400\">"
             "<rect x=\"0\" y=\"0\" width=\"400\" height=\"400\" style=\"fill:#808080\"/></svg>");
         return QStringList{drawing};
       },
       [](DesignAppSession& s) { return std::make_unique<tw::InkscapeHost>(s.bus()); },
       [](DesignAppSession& s) {
         DesignAppSession::waitUntil(
             [&] {
               return inkscapeAction(s, QStringLiteral("/org/inkscape/Inkscape/window/1"),
                                     QStringLiteral("select-all"))
                          .type() == QDBusMessage::ReplyMessage;
             },
             120s);
       }},
      {QStringLiteral("krita"), QStringLiteral("krita"),
       [](DesignAppSession& s) {
         // The plug-in goes into the session's own Krita resources before
         // Krita starts, as after the notice on a user's first run.
         s.exportEnvironment();
         tw::KritaPluginInstaller().install();
         return QStringList{QStringLiteral("--nosplash")};
       },
       [](DesignAppSession&) { return std::make_unique<tw::KritaHost>(); },
       [](DesignAppSession& s) {
         tw::KritaHost probe;
         DesignAppSession::waitUntil(
             [&] {
               return probe.push(tw::HostColor{1, 2, 3}, 2s).status != tw::PushStatus::NotRunning;
             },
             180s);
         // A second krita hands a new image to the running one.
         s.runTool(QStringLiteral("krita"),
                   {QStringLiteral("--nosplash"), QStringLiteral("--new-image"),
                    QStringLiteral("RGBA,U8,320,240")},
                   30000);
       }},
  };
}

double ms(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

double quantile(std::vector<double> values, double q) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const auto index = static_cast<size_t>(q * static_cast<double>(values.size() - 1) + 0.5);
  return values[std::min(index, values.size() - 1)];
}

bool measure(const HostUnderTest& spec, const QString& display, int pushes) {
  DesignAppSession session(display);
  if (!session.start(spec.program, spec.prepare(session))) {
    std::printf("%-9s could not start %s\n", qPrintable(spec.key), qPrintable(spec.program));
    return false;
  }
  {
    const auto probe = spec.make(session);
    spec.ready(session);
    const bool answered = DesignAppSession::waitUntil(
        [&] {
          return probe->push(tw::HostColor{1, 2, 3}, 2s).status == tw::PushStatus::Confirmed;
        },
        180s);
    if (!answered) {
      std::printf("%-9s never confirmed a colour\n", qPrintable(spec.key));
      return false;
    }
  }
  auto events = std::make_shared<Confirmations>();
  std::vector<std::unique_ptr<tw::DesignHost>> hosts;
  hosts.push_back(spec.make(session));
  auto dispatcher = std::make_shared<tw::HostDispatcher>(std::move(hosts), events, 5000ms);
  // The panel's own bridge: the running applications from /proc.
  tw::Commander commander;
  commander.setNativeHosts(dispatcher);
  commander.sendColorToApps(tw::ColorStruct::fromChannels(250, 250, 250));  // the start-up colour

  std::vector<double> latency;
  std::vector<double> busy;
  std::vector<double> scan;
  const auto processes = tw::defaultHostDescription();
  int failed = 0;
  const int warmUp = 10;
  for (int i = 0; i < pushes + warmUp; ++i) {
    const int r = (i * 37) % 256, g = 255 - (i % 256), b = (i * 11 + 7) % 256;
    int before = 0;
    {
      std::lock_guard lock(events->mutex);
      before = events->count;
    }
    // The running-application scan alone, the part of the caller's time
    // that was there before the native hosts.
    const Clock::time_point scanStart = Clock::now();
    (void)processes->runningApplications();
    const double scanMs = ms(Clock::now() - scanStart);
    const Clock::time_point start = Clock::now();
    commander.sendColorToApps(tw::ColorStruct::fromChannels(r, g, b));
    const Clock::time_point returned = Clock::now();
    std::unique_lock lock(events->mutex);
    if (!events->changed.wait_for(lock, 10s, [&] { return events->count > before; })) {
      ++failed;
      continue;
    }
    if (i < warmUp) continue;
    if (events->status != tw::PushStatus::Confirmed || !(events->last == tw::HostColor{r, g, b})) {
      ++failed;
      continue;
    }
    latency.push_back(ms(events->at - start));
    busy.push_back(ms(returned - start));
    scan.push_back(scanMs);
  }
  std::printf(
      "%-9s %4zu confirmed %3d failed | accepted->confirmed median %6.2f ms  p99 %6.2f ms  max "
      "%6.2f ms | caller busy median %5.3f ms  p99 %5.3f ms  max %5.3f ms | of which the "
      "process scan median %5.3f ms\n",
      qPrintable(spec.key), latency.size(), failed, quantile(latency, 0.5), quantile(latency, 0.99),
      quantile(latency, 1.0), quantile(busy, 0.5), quantile(busy, 0.99), quantile(busy, 1.0),
      quantile(scan, 0.5));
  std::fflush(stdout);
  return failed == 0;
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  int pushes = 200;
  QStringList wanted;
  const QStringList args = app.arguments();
  for (int i = 1; i < args.size(); ++i) {
    if (args[i] == QStringLiteral("--pushes") && i + 1 < args.size()) pushes = args[++i].toInt();
    if (args[i] == QStringLiteral("--hosts") && i + 1 < args.size()) wanted = args[++i].split(',');
  }
  tw::testing::XvfbServer xvfb(
      {QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1280x1024x24")});
  if (!xvfb.isRunning()) {
    std::fprintf(stderr, "design_app_latency: Xvfb did not start\n");
    return 1;
  }
  bool ok = true;
  for (const HostUnderTest& spec : allHosts()) {
    if (!wanted.isEmpty() && !wanted.contains(spec.key)) continue;
    if (!tw::testing::hasProgram(spec.program)) {
      std::printf("%-9s not installed (make design-apps-deps)\n", qPrintable(spec.key));
      continue;
    }
    ok = measure(spec, xvfb.display(), pushes) && ok;
  }
  return ok ? 0 : 1;
}
