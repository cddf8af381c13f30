#include "color/x11/X11ScreenSampler.h"

#include <QTimer>
#include <cmath>

// Xlib after Qt: its macros (Bool, Status, None) clash with Qt headers.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include "color/x11/X11Compositor.h"
#include "color/x11/X11Connection.h"

namespace tw::x11 {

double pixelComponent(unsigned long pixel, unsigned long mask) {
  if (mask == 0) return 0.0;
  int shift = 0;
  while (((mask >> shift) & 1UL) == 0) ++shift;
  const unsigned long maximum = mask >> shift;
  const unsigned long value = (pixel & mask) >> shift;
  return static_cast<double>(value) / static_cast<double>(maximum);
}

double colormapComponent(unsigned short value) { return value / 65535.0; }

qint64 pixelChannel(unsigned long pixel, unsigned long mask) {
  return channelFromComponent(pixelComponent(pixel, mask));
}

qint64 colormapChannel(unsigned short value) {
  return channelFromComponent(colormapComponent(value));
}

X11ScreenSampler::X11ScreenSampler(std::shared_ptr<X11Connection> connection)
    : connection_(std::move(connection)) {}

bool X11ScreenSampler::mustSettle() {
  return msSinceCoveringWindowGone() < kSettleMs || compositorRunning();
}

void X11ScreenSampler::sample(QPointF at, Completion done) {
  // Let the server see the picking window's unmap first.
  syncQtConnection();
  QTimer::singleShot(
      mustSettle() ? kSettleMs : 0, [connection = connection_, at, done = std::move(done)] {
        const std::optional<ScreenSample> color = X11ScreenSampler(connection).colorAt(at);
        connection->readQueuedEvents();
        done(color);
      });
}

std::optional<ScreenSample> X11ScreenSampler::colorAt(QPointF at) {
  Display* display = connection_->display();
  if (!display) return std::nullopt;
  const double x = std::trunc(at.x());
  const double y = std::trunc(at.y());
  if (!(x >= 0 && y >= 0 && x < DisplayWidth(display, DefaultScreen(display)) &&
        y < DisplayHeight(display, DefaultScreen(display))))
    return std::nullopt;

  syncQtConnection();
  XImage* image = XGetImage(display, connection_->rootWindow(), static_cast<int>(x),
                            static_cast<int>(y), 1, 1, AllPlanes, ZPixmap);
  if (!image) return std::nullopt;
  const unsigned long pixel = XGetPixel(image, 0, 0);
  const unsigned long redMask = image->red_mask;
  const unsigned long greenMask = image->green_mask;
  const unsigned long blueMask = image->blue_mask;
  XDestroyImage(image);

  if (redMask == 0 && greenMask == 0 && blueMask == 0) {
    // Not a TrueColor image: ask the colormap.
    XColor color{};
    color.pixel = pixel;
    XQueryColor(display, DefaultColormap(display, DefaultScreen(display)), &color);
    return ScreenSample::fromComponents(colormapComponent(color.red),
                                        colormapComponent(color.green),
                                        colormapComponent(color.blue));
  }
  return ScreenSample::fromComponents(pixelComponent(pixel, redMask),
                                      pixelComponent(pixel, greenMask),
                                      pixelComponent(pixel, blueMask));
}

}  // namespace tw::x11
