// A small real application for the end-to-end screen-picking tests: it shows a
// window of known pixels, runs ColorHelper with the platform backend and
// reports on standard output what happens. Driven by the test through
// arguments, its standard input ("arm", "quit") and xdotool clicks.
//
//   --at X,Y,W,H            the target window's logical geometry
//   --fill R,G,B            fill it with one colour, or
//   --columns R,G,B/R,G,B   alternate two colours per device pixel column
//   --arm                   arm a pick at start
//   --picker-over           show the picking window over everything (even
//                           without a compositor) to test that clicks go through
//
// Lines: HEIGHT h, READY, ARMED, CLICK_SEEN, MOUSE_DOWN, BELOW_PRESS x y,
// NEW_COLOR r g b HEX quilla, PICKER_WINID id, plus the picker's own log lines.
#include <unistd.h>
#include <QApplication>
#include <QColor>
#include <QImage>
#include <QMouseEvent>
#include <QPainter>
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
#include "color/x11/X11Connection.h"
#include "common/Log.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"

namespace {

QColor parseColour(const QString& text) {
  const QStringList parts = text.split(QLatin1Char(','));
  return QColor(parts.value(0).toInt(), parts.value(1).toInt(), parts.value(2).toInt());
}

class Target : public QWidget {
 public:
  Target(QColor even, QColor odd, std::function<void()> firstPaint)
      : QWidget(nullptr, Qt::FramelessWindowHint),
        even_(even),
        odd_(odd),
        firstPaint_(std::move(firstPaint)) {}

 protected:
  void paintEvent(QPaintEvent*) override {
    // Painted in device pixels, so the columns are one device pixel wide.
    const qreal ratio = devicePixelRatioF();
    QImage image((size() * ratio), QImage::Format_RGB32);
    for (int x = 0; x < image.width(); ++x) {
      const QRgb c = (x % 2 ? odd_ : even_).rgb();
      for (int y = 0; y < image.height(); ++y) image.setPixel(x, y, c);
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
  tw::logLine(QStringLiteral("HEIGHT %1").arg(*helper.mainScreenHeight));
  if (args.contains(QLatin1String("--arm"))) helper.bPickScreenColor = true;

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
        helper.bPickScreenColor = true;
        tw::logLine(std::string_view("ARMED"));
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
  Target target(even, odd, [&] {
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
