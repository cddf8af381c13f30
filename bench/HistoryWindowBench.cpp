// The colour history's costs where a user would feel them, on the offscreen
// platform with a real SQLite file in a temporary data folder:
//   - the history window opening over 100,000 colours (construction, reading
//     every row, showing and the first paint);
//   - a search over them (hex digits, a name, and back to everything);
//   - pen colour posted -> shown on the panel, with the history on and off.
// Prints medians and 99th percentiles in milliseconds.
//
//   build/bench/history_window_bench [--colours N] [--opens N] [--pens N]
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <thread>

#include "app/AppDelegate.h"
#include "app/PanelLogic.h"
#include "app/desktop/HistoryWindow.h"
#include "events/Notifications.h"
#include "tests/pen/simulated/SimulatedCentral.h"

namespace tw {
namespace {

struct Figures {
  double median = 0;
  double p99 = 0;
};

Figures figuresOf(std::vector<double> ms) {
  std::sort(ms.begin(), ms.end());
  if (ms.empty()) return {};
  const auto at = [&ms](double q) {
    return ms[std::min(ms.size() - 1, static_cast<std::size_t>(q * (ms.size() - 1) + 0.5))];
  };
  return {at(0.5), at(0.99)};
}

class IdleTransport : public UsageTransport {
 public:
  void post(const UsageRequest&, Completion) override {}
};

// Notes when each colour reaches the panel's view.
class TimingView : public PanelView {
 public:
  void showColor(const ColorStruct& color) override {
    if (color.iR == 250 && color.iG == 250 && color.iB == 250) return;
    shown.fetch_add(1);
    lastShownNs.store(std::chrono::steady_clock::now().time_since_epoch().count());
  }
  void showColorTexts(const AllColor&) override {}
  void setConnectionImage(const QString&) override {}
  void setBatteryShown(bool) override {}
  void setBatteryImage(const QString&) override {}
  std::atomic<int> shown{0};
  std::atomic<long long> lastShownNs{0};
};

PanelParts benchParts(bool history) {
  PanelParts parts;
  parts.central = [](pen::CentralDelegate* d, QThread* q) {
    return std::make_unique<pen::SimulatedCentral>(d, q, pen::CentralManager::kPoweredOff);
  };
  parts.host = std::make_shared<WineHostDescription>(
      std::make_shared<FixedApplicationLister>(std::vector<RunningApplication>{}));
  parts.alerts = std::make_shared<SilentAlertPresenter>();
  parts.transport = std::make_shared<IdleTransport>();
  if (history) parts.history = openDefaultHistory;
  return parts;
}

void fillHistory(int colours) {
  history::HistoryStore::Options options;
  options.path = history::defaultHistoryPath();
  history::HistoryStore store(options);
  std::mt19937 random(7);
  std::vector<history::Entry> entries;
  entries.reserve(colours);
  const qint64 start = QDateTime::currentMSecsSinceEpoch() - qint64(colours) * 1000;
  for (int i = 0; i < colours; ++i) {
    const quint32 rgb = random() & 0xFFFFFF;
    entries.push_back({0, start + qint64(i) * 1000,
                       i % 3 == 0 ? history::Source::Screen : history::Source::Pen, int(rgb >> 16),
                       int((rgb >> 8) & 0xFF), int(rgb & 0xFF),
                       i % 50 == 0 ? QStringLiteral("swatch %1").arg(i) : QString(), i % 97 == 0});
  }
  store.importEntries(entries);
}

void benchWindow(int opens) {
  AppDelegate delegate;
  TimingView view;
  PanelLogic panel(view, delegate, benchParts(true));
  panel.viewDidLoad();
  std::vector<double> openMs, namedMs, hexMs, nameMs, libraryNameMs, clearMs;
  int rows = 0;
  for (int i = 0; i < opens; ++i) {
    QElapsedTimer timer;
    timer.start();
    auto window = std::make_unique<HistoryWindow>(panel);
    window->show();
    if (!QTest::qWaitForWindowExposed(window.get())) std::fputs("window not exposed\n", stderr);
    window->repaint();
    openMs.push_back(timer.nsecsElapsed() / 1e6);
    rows = window->model().rowCount();
    // The names come on the window's naming thread; searches by name use them.
    while (!window->model().namesReady()) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    namedMs.push_back(timer.nsecsElapsed() / 1e6);

    timer.restart();
    window->model().setSearch(QStringLiteral("#ab"));
    hexMs.push_back(timer.nsecsElapsed() / 1e6);
    timer.restart();
    window->model().setSearch(QStringLiteral("swatch 77"));
    nameMs.push_back(timer.nsecsElapsed() / 1e6);
    timer.restart();
    window->model().setSearch(QStringLiteral("salmon"));
    libraryNameMs.push_back(timer.nsecsElapsed() / 1e6);
    timer.restart();
    window->model().setSearch(QString());
    clearMs.push_back(timer.nsecsElapsed() / 1e6);
  }
  const Figures open = figuresOf(openMs), named = figuresOf(namedMs), hex = figuresOf(hexMs),
                name = figuresOf(nameMs), libraryName = figuresOf(libraryNameMs),
                clear = figuresOf(clearMs);
  std::printf("history window, %d colours, %d opens\n", rows, opens);
  std::printf("  open + first paint   median %7.2f ms  p99 %7.2f ms\n", open.median, open.p99);
  std::printf("  every name known     median %7.2f ms  p99 %7.2f ms (from the open)\n",
              named.median, named.p99);
  std::printf("  search \"#ab\"         median %7.2f ms  p99 %7.2f ms\n", hex.median, hex.p99);
  std::printf("  search \"swatch 77\"   median %7.2f ms  p99 %7.2f ms\n", name.median, name.p99);
  std::printf("  search \"salmon\"      median %7.2f ms  p99 %7.2f ms\n", libraryName.median,
              libraryName.p99);
  std::printf("  search cleared       median %7.2f ms  p99 %7.2f ms\n", clear.median, clear.p99);
}

// A pen colour posted on another thread, as the pen link does, until the
// panel's view shows it.
Figures penToPanel(bool history, int colours) {
  AppDelegate delegate;
  TimingView view;
  PanelLogic panel(view, delegate, benchParts(history));
  panel.viewDidLoad();
  panel.appear();
  std::vector<double> ms;
  for (int i = 0; i < colours; ++i) {
    const int before = view.shown.load();
    const auto posted = std::chrono::steady_clock::now();
    std::thread poster([i] {
      NotificationCenter::defaultCenter().post(
          notification::newColor(), ColorStruct::fromChannels(i & 0xFF, (i >> 8) & 0xFF, 77),
          UserInfo{{notification::quillaKey(), QStringLiteral("NewColor")}});
    });
    poster.join();
    while (view.shown.load() == before) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    ms.push_back((view.lastShownNs.load() - posted.time_since_epoch().count()) / 1e6);
  }
  if (const auto store = panel.history()) store->flush(10000);
  return figuresOf(ms);
}

}  // namespace
}  // namespace tw

int main(int argc, char** argv) {
  int colours = 100000, opens = 15, pens = 1000;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (std::strcmp(argv[i], "--colours") == 0) colours = std::atoi(argv[i + 1]);
    if (std::strcmp(argv[i], "--opens") == 0) opens = std::atoi(argv[i + 1]);
    if (std::strcmp(argv[i], "--pens") == 0) pens = std::atoi(argv[i + 1]);
  }
  QTemporaryDir home;
  qputenv("HOME", home.path().toUtf8());
  qputenv("XDG_DATA_HOME", (home.path() + "/data").toUtf8());
  qputenv("XDG_CONFIG_HOME", (home.path() + "/config").toUtf8());
  qputenv("WINEPREFIX", (home.path() + "/wine").toUtf8());
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  int qtArgc = 1;
  QApplication app(qtArgc, argv);

  const tw::Figures off = tw::penToPanel(false, pens);
  const tw::Figures on = tw::penToPanel(true, pens);
  std::printf("pen colour -> panel, %d colours\n", pens);
  std::printf("  history off          median %7.3f ms  p99 %7.3f ms\n", off.median, off.p99);
  std::printf("  history on           median %7.3f ms  p99 %7.3f ms\n", on.median, on.p99);

  QDir(home.path() + "/data/Tintwell").removeRecursively();
  tw::fillHistory(colours);
  tw::benchWindow(opens);
  return 0;
}
