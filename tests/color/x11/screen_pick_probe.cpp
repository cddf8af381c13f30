// A small real application for the end-to-end screen-picking tests: it shows a
// window of known pixels, runs ColorHelper with the platform backend and
// reports on standard output what happens. Driven by the test through
// arguments, its standard input ("arm", "quit") and xdotool clicks.
//
//   --at X,Y,W,H            the target window's logical geometry
//   --fill R,G,B            fill it with one colour, or
//   --columns R,G,B/R,G,B   alternate two colours per device pixel column
//   --arm                   arm a pick at start
//   --gradient              paint every device pixel (x, y) of the window in
//                           its own colour: red x % 256, green y % 256, blue
//                           (x / 256) * 16 + y / 256, counted from the window
//   --root-gradient         cover the whole root window (every monitor) with an
//                           override-redirect X window of the same gradient,
//                           counted from the root's origin, in device pixels
//                           whatever Qt's scale
//   --picker-over           show the picking window over everything (even
//                           without a compositor) to test that clicks go through
//   --lens                  every arming also shows the magnifier (PickLens)
//
// Commands: arm, quit, lens (prints LENS_INFO).
// Lines: SCREEN name x y w h ratio (Qt's screens, logical), HEIGHT h, READY, ARMED, CLICK_SEEN,
// MOUSE_DOWN, BELOW_PRESS x y, NEW_COLOR r g b HEX quilla, PICKER_WINID id, LENS_PLACED x y w h
// (device pixels), LENS_KEYBOARD, LENS_WINID id, LENS_INFO hex frames, LENS_CLOSED, CANCELLED, plus
// the picker's own log lines.
#include <unistd.h>
#include <QApplication>
#include <QColor>
#include <QImage>
#include <QMouseEvent>
#include <QPainter>
#include <QPointer>
#include <QScreen>
#include <QSocketNotifier>
#include <QTimer>
#include <QWidget>
#include <any>
#include <cstdio>
#include <memory>

#include "color/ColorHelper.h"
#include "color/ColorStruct.h"
#include "color/picker/ClearViewVC.h"
#include "color/picker/ClearWindow.h"
#include "color/picker/PickLens.h"
#include "color/x11/X11Connection.h"
#include "common/Log.h"

// Xlib last: its macros (Bool, Status, None) clash with Qt headers.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include "events/NotificationCenter.h"
#include "events/Notifications.h"

namespace {

QRgb gradientAt(int x, int y) { return qRgb(x % 256, y % 256, (x / 256) * 16 + y / 256); }

// An X window over the whole root, painted through Xlib so that Qt's scaling
// has no part in it. Lives until the process ends.
void coverRootWithGradient() {
  // Kept open (and reachable) for the rest of the process: closing it would
  // take the window away.
  static Display* const display = XOpenDisplay(nullptr);
  if (!display) return;
  const int screen = DefaultScreen(display);
  const int width = DisplayWidth(display, screen);
  const int height = DisplayHeight(display, screen);
  const int depth = DefaultDepth(display, screen);
  // The gradient is the window's background pixmap, so the server itself
  // repaints whatever the lens uncovers.
  const Pixmap pixmap =
      XCreatePixmap(display, DefaultRootWindow(display), static_cast<unsigned>(width),
                    static_cast<unsigned>(height), static_cast<unsigned>(depth));
  XImage* image = XGetImage(display, pixmap, 0, 0, static_cast<unsigned>(width),
                            static_cast<unsigned>(height), AllPlanes, ZPixmap);
  if (!image) return;
  const Visual* visual = DefaultVisual(display, screen);
  const auto put = [](unsigned long mask, int value) -> unsigned long {
    int shift = 0;
    while (mask && ((mask >> shift) & 1UL) == 0) ++shift;
    const unsigned long maximum = mask >> shift;
    return ((static_cast<unsigned long>(value) * maximum + 127) / 255) << shift;
  };
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const QRgb c = gradientAt(x, y);
      XPutPixel(image, x, y,
                put(visual->red_mask, qRed(c)) | put(visual->green_mask, qGreen(c)) |
                    put(visual->blue_mask, qBlue(c)));
    }
  XPutImage(display, pixmap, DefaultGC(display, screen), image, 0, 0, 0, 0,
            static_cast<unsigned>(width), static_cast<unsigned>(height));
  XDestroyImage(image);

  XSetWindowAttributes attributes{};
  attributes.override_redirect = True;
  attributes.background_pixmap = pixmap;
  const Window window =
      XCreateWindow(display, DefaultRootWindow(display), 0, 0, static_cast<unsigned>(width),
                    static_cast<unsigned>(height), 0, CopyFromParent, InputOutput, CopyFromParent,
                    CWOverrideRedirect | CWBackPixmap, &attributes);
  XMapWindow(display, window);
  XSync(display, False);
}

QColor parseColour(const QString& text) {
  const QStringList parts = text.split(QLatin1Char(','));
  return QColor(parts.value(0).toInt(), parts.value(1).toInt(), parts.value(2).toInt());
}

class Target : public QWidget {
 public:
  Target(QColor even, QColor odd, bool gradient, std::function<void()> firstPaint)
      : QWidget(nullptr, Qt::FramelessWindowHint),
        even_(even),
        odd_(odd),
        gradient_(gradient),
        firstPaint_(std::move(firstPaint)) {}

 protected:
  void paintEvent(QPaintEvent*) override {
    // Painted in device pixels, so the columns are one device pixel wide.
    const qreal ratio = devicePixelRatioF();
    QImage image((size() * ratio), QImage::Format_RGB32);
    for (int x = 0; x < image.width(); ++x) {
      const QRgb c = (x % 2 ? odd_ : even_).rgb();
      for (int y = 0; y < image.height(); ++y)
        image.setPixel(x, y, gradient_ ? gradientAt(x, y) : c);
    }
    image.setDevicePixelRatio(ratio);
    QPainter(this).drawImage(QPointF(0, 0), image);
    if (firstPaint_) {
      auto once = std::move(firstPaint_);
      firstPaint_ = nullptr;
      QTimer::singleShot(50, once);
    }
  }
  void mousePressEvent(QMouseEvent* event) override {
    tw::logLine(
        QStringLiteral("BELOW_PRESS %1 %2").arg(event->position().x()).arg(event->position().y()));
  }

 private:
  QColor even_;
  QColor odd_;
  bool gradient_;
  std::function<void()> firstPaint_;
};

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  const QStringList args = app.arguments();
  auto value = [&](const char* name) {
    const int i = args.indexOf(QLatin1String(name));
    return i >= 0 ? args.value(i + 1) : QString();
  };
  QColor even(Qt::black);
  QColor odd(Qt::black);
  if (!value("--fill").isEmpty()) even = odd = parseColour(value("--fill"));
  if (!value("--columns").isEmpty()) {
    const QStringList two = value("--columns").split(QLatin1Char('/'));
    even = parseColour(two.value(0));
    odd = parseColour(two.value(1));
  }
  const QStringList at = value("--at").split(QLatin1Char(','));
  const bool pickerOver = args.contains(QLatin1String("--picker-over"));

  auto& center = tw::NotificationCenter::defaultCenter();
  center.addObserver(tw::notification::mouseDown(),
                     [](const tw::Notification&) { tw::logLine(std::string_view("MOUSE_DOWN")); });
  center.addObserver(tw::notification::newColor(), [](const tw::Notification& n) {
    const auto* c = std::any_cast<tw::ColorStruct>(&n.object);
    const QString quilla = n.userInfo ? n.userInfo->value(QStringLiteral("Quilla")) : QString();
    if (c)
      tw::logLine(QStringLiteral("NEW_COLOR %1 %2 %3 %4 %5")
                      .arg(c->iR)
                      .arg(c->iG)
                      .arg(c->iB)
                      .arg(c->colorHex, quilla));
  });

  tw::ScreenBackend backend = tw::makeScreenBackend();
  tw::ColorHelper helper(backend);
  helper.installMonitor();
  helper.mainScreenHeight = helper.mainDisplayPixelsHigh();
  backend.monitor->addHandler([] { tw::logLine(std::string_view("CLICK_SEEN")); });
  for (const QScreen* screen : QGuiApplication::screens()) {
    const QRect g = screen->geometry();
    tw::logLine(QStringLiteral("SCREEN %1 %2 %3 %4 %5 %6")
                    .arg(screen->name())
                    .arg(g.x())
                    .arg(g.y())
                    .arg(g.width())
                    .arg(g.height())
                    .arg(screen->devicePixelRatio()));
  }
  tw::logLine(QStringLiteral("HEIGHT %1").arg(*helper.mainScreenHeight));
  if (args.contains(QLatin1String("--root-gradient"))) coverRootWithGradient();

  const bool withLens = args.contains(QLatin1String("--lens"));
  QPointer<tw::PickLens> lens;
  auto arm = [&] {
    helper.bPickScreenColor = true;
    if (!withLens) return;
    lens = new tw::PickLens(backend.lens,
                            [&helper] { return static_cast<bool>(helper.bPickScreenColor); });
    QObject::connect(lens, &tw::PickLens::placed, [](const QRect& r) {
      tw::logLine(QStringLiteral("LENS_PLACED %1 %2 %3 %4")
                      .arg(r.x())
                      .arg(r.y())
                      .arg(r.width())
                      .arg(r.height()));
    });
    QObject::connect(lens, &tw::PickLens::pickRequested, [&helper] { helper.mouseDownHandler(); });
    QObject::connect(lens, &tw::PickLens::cancelRequested, [&helper] {
      helper.bPickScreenColor = false;
      tw::logLine(std::string_view("CANCELLED"));
    });
    QObject::connect(lens, &QObject::destroyed,
                     [] { tw::logLine(std::string_view("LENS_CLOSED")); });
    lens->start();
    tw::logLine(QStringLiteral("LENS_WINID %1").arg(lens->winId()));
    // The keyboard grab waits for the window to be mapped.
    auto* poll = new QTimer(lens);
    QObject::connect(poll, &QTimer::timeout, poll, [poll, l = lens] {
      if (!l || !l->hasKeyboard()) return;
      tw::x11::syncQtConnection();
      tw::logLine(std::string_view("LENS_KEYBOARD"));
      poll->stop();
    });
    poll->start(10);
  };
  if (args.contains(QLatin1String("--arm"))) {
    if (withLens)
      QTimer::singleShot(0, arm);
    else
      helper.bPickScreenColor = true;
  }

  QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
  QObject::connect(&input, &QSocketNotifier::activated, [&] {
    char buffer[256];
    const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (n <= 0) {
      input.setEnabled(false);
      return;
    }
    const QByteArray commands(buffer, static_cast<int>(n));
    for (const QByteArray& command : commands.split('\n')) {
      if (command == "arm") {
        arm();
        tw::logLine(std::string_view("ARMED"));
      } else if (command == "lens") {
        tw::logLine(QStringLiteral("LENS_INFO %1 %2 %3 %4")
                        .arg(lens ? lens->centreHex() : QStringLiteral("-"))
                        .arg(lens ? lens->framesDrawn() : 0)
                        .arg(lens && lens->screen() ? lens->screen()->name() : QStringLiteral("-"))
                        .arg(lens ? lens->devicePixelRatioF() : 0.0));
      } else if (command == "quit") {
        QApplication::quit();
      }
    }
  });

  tw::ClearWindow* picker = nullptr;
  auto ready = [&] {
    tw::x11::syncQtConnection();
    tw::logLine(std::string_view("READY"));
  };
  Target target(even, odd, args.contains(QLatin1String("--gradient")), [&] {
    if (!pickerOver) return ready();
    picker = tw::ClearWindow::windowWithContentViewController(new tw::ClearViewVC);
    picker->orderFrontEvenWithoutCompositor();
    tw::logLine(QStringLiteral("PICKER_WINID %1").arg(picker->winId()));
    QTimer::singleShot(200, ready);
  });
  target.setGeometry(at.value(0).toInt(), at.value(1).toInt(), at.value(2).toInt(),
                     at.value(3).toInt());
  target.show();

  QTimer::singleShot(60000, &app, &QApplication::quit);  // never outlive a stuck test
  return app.exec();
}
