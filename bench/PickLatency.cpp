// Click -> colour shown on the panel, for screen picks: the desktop panel in
// this process with its real platform parts on a private Xvfb, real clicks
// sent through XTest. Each pick: a plain X window below everything (another
// client's, as far as the panel knows) gets a new colour, the
// dropper is armed (the panel leaves the screen), then the clock starts as the
// click is sent and stops once the panel shows the colour's hex and is back on
// the screen (its window exposed again).
//
//   build/bench/pick_latency [--picks N] [--compositor] [--lens SECONDS]
//     N: picks to time (default 40), after two untimed ones
//     --compositor: run xcompmgr on the server first (the picking window is
//       then shown, and the read waits for the compositor's next frame)
//     --lens: instead, the magnifier's frame rate while the pointer moves a
//       pixel every 4 ms for SECONDS (frames drawn / seconds)
#include <QApplication>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QProcess>
#include <QThread>
#include <QTimer>
#include <QWindow>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "app/AppDelegate.h"
#include "app/desktop/DesktopApplication.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/ViewController_plus.h"
#include "color/picker/PickLens.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/XvfbServer.h"

// Xlib last: its macros (Bool, Status, None) clash with Qt headers.
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

namespace {

bool waitUntil(const std::function<bool()>& done, int ms) {
  QElapsedTimer clock;
  clock.start();
  while (!done()) {
    if (clock.elapsed() > ms) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
  }
  return true;
}

double percentile(std::vector<double> values, double p) {
  std::sort(values.begin(), values.end());
  const auto index = static_cast<std::size_t>(p * static_cast<double>(values.size() - 1) + 0.5);
  return values[index];
}

}  // namespace

int main(int argc, char** argv) {
  int picks = 40;
  bool compositor = false;
  int lensSeconds = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--lens" && i + 1 < argc) {
      lensSeconds = std::max(1, std::atoi(argv[++i]));
    } else if (arg == "--picks" && i + 1 < argc) {
      picks = std::max(1, std::atoi(argv[++i]));
    } else if (arg == "--compositor") {
      compositor = true;
    } else {
      std::fprintf(stderr, "usage: pick_latency [--picks N] [--compositor] [--lens SECONDS]\n");
      return 2;
    }
  }

  tw::testing::XvfbServer server(
      {QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1024x768x24")});
  if (!server.isRunning()) {
    std::fprintf(stderr, "pick_latency: no Xvfb\n");
    return 1;
  }
  tw::testing::BridgeSandbox sandbox;
  sandbox.enter();
  qputenv("DISPLAY", server.display().toUtf8());
  qputenv("QT_QPA_PLATFORM", "xcb");
  qunsetenv("WAYLAND_DISPLAY");
  qunsetenv("XDG_SESSION_TYPE");
  qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
  qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent");
  qputenv("TINTWELL_TELEMETRY_URL", "https://127.0.0.1:9");

  QProcess compositorProcess;
  if (compositor) {
    compositorProcess.setProcessEnvironment(server.environment());
    compositorProcess.start(QStringLiteral("xcompmgr"), {});
    if (!compositorProcess.waitForStarted()) {
      std::fprintf(stderr, "pick_latency: xcompmgr did not start\n");
      return 1;
    }
  }

  QApplication app(argc, argv);
  Display* display = XOpenDisplay(nullptr);
  int event = 0, error = 0, major = 0, minor = 0;
  if (!display || !XTestQueryExtension(display, &event, &error, &major, &minor)) {
    std::fprintf(stderr, "pick_latency: no XTest\n");
    return 1;
  }
  if (compositor) QThread::msleep(500);  // let it take the selection

  // The window to pick from: full screen, below the panel, its colour its
  // background (a compositor paints the root window its own grey).
  XSetWindowAttributes attributes{};
  attributes.override_redirect = True;
  const int screen = DefaultScreen(display);
  const Window below =
      XCreateWindow(display, DefaultRootWindow(display), 0, 0,
                    static_cast<unsigned>(DisplayWidth(display, screen)),
                    static_cast<unsigned>(DisplayHeight(display, screen)), 0, CopyFromParent,
                    InputOutput, CopyFromParent, CWOverrideRedirect, &attributes);
  XMapWindow(display, below);
  XSync(display, False);

  if (lensSeconds > 0) {
    // The pointer walks a square of 400 pixels a side, one pixel per step.
    const tw::ScreenBackend backend = tw::makeScreenBackend();
    auto* lens = new tw::PickLens(backend.lens, [] { return true; });
    lens->start();
    int step = 0;
    QTimer mover;
    QObject::connect(&mover, &QTimer::timeout, [&] {
      const int side = step / 400 % 4, along = step % 400;
      const int x = side == 0 ? 300 + along : side == 1 ? 700 : side == 2 ? 700 - along : 300;
      const int y = side == 0 ? 200 : side == 1 ? 200 + along : side == 2 ? 600 : 600 - along;
      XTestFakeMotionEvent(display, -1, x, y, 0);
      XFlush(display);
      ++step;
    });
    mover.start(4);
    waitUntil([] { return false; }, 500);  // mapped, keyboard taken
    const quint64 before = lens->framesDrawn();
    QElapsedTimer clock;
    clock.start();
    waitUntil([] { return false; }, lensSeconds * 1000);
    const double seconds = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    const quint64 frames = lens->framesDrawn() - before;
    std::printf(
        "magnifier while the pointer moves: %llu frames in %.2f s, %.1f frames a second "
        "(%d pointer steps)\n",
        static_cast<unsigned long long>(frames), seconds, static_cast<double>(frames) / seconds,
        step);
    delete lens;
    XCloseDisplay(display);
    return 0;
  }

  tw::AppDelegate delegate;
  auto* panel = new tw::ViewController_plus(delegate, tw::desktopPanelParts());
  tw::PanelWindow window(delegate, panel);
  panel->viewDidLoad();
  window.show();
  const auto onScreen = [&] {
    return window.isVisible() && window.windowHandle() && window.windowHandle()->isExposed();
  };
  if (!waitUntil([&] { return panel->hexInfo->text() == "#FAFAFA" && onScreen(); }, 10000)) {
    std::fprintf(stderr, "pick_latency: the panel did not appear\n");
    return 1;
  }

  std::vector<double> times;
  for (int i = 0; i < picks + 2; ++i) {
    const QColor colour((i * 37 + 11) % 256, (i * 91 + 50) % 256, (i * 53 + 200) % 256);
    XSetWindowBackground(display, below,
                         (static_cast<unsigned long>(colour.red()) << 16) |
                             (static_cast<unsigned long>(colour.green()) << 8) |
                             static_cast<unsigned long>(colour.blue()));
    XClearWindow(display, below);
    XSync(display, False);
    panel->findScreenColor();
    if (!waitUntil([&] { return !onScreen(); }, 5000)) {
      std::fprintf(stderr, "pick_latency: the panel did not leave the screen\n");
      return 1;
    }
    XTestFakeMotionEvent(display, -1, 900, 700, 0);
    XSync(display, False);
    waitUntil([] { return false; }, 150);  // the desktop settles, as between a user's moves

    const QString hex = colour.name().toUpper();
    QElapsedTimer clock;
    clock.start();
    XTestFakeButtonEvent(display, 1, True, 0);
    XTestFakeButtonEvent(display, 1, False, 0);
    XFlush(display);
    if (!waitUntil([&] { return panel->hexInfo->text() == hex && onScreen(); }, 10000)) {
      std::fprintf(stderr, "pick_latency: %s never shown (the panel shows %s)\n", qPrintable(hex),
                   qPrintable(panel->hexInfo->text()));
      return 1;
    }
    const double ms = static_cast<double>(clock.nsecsElapsed()) / 1e6;
    if (i >= 2) times.push_back(ms);
  }
  std::printf(
      "click -> colour shown on the panel, %d picks, %s: median %.1f ms, p90 %.1f ms, "
      "min %.1f ms, max %.1f ms\n",
      picks, compositor ? "with a compositor (xcompmgr)" : "no compositor", percentile(times, 0.5),
      percentile(times, 0.9), percentile(times, 0.0), percentile(times, 1.0));
  XCloseDisplay(display);
  if (compositor) {
    compositorProcess.terminate();
    compositorProcess.waitForFinished(2000);
  }
  return 0;
}
