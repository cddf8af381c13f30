#include "color/x11/X11LensSource.h"

// Xlib after Qt: its macros (Bool, Status, None) clash with Qt headers.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include "color/x11/X11Connection.h"
#include "color/x11/X11ScreenSampler.h"

namespace tw::x11 {

namespace {

int channel(unsigned long pixel, unsigned long mask) {
  return static_cast<int>(pixelChannel(pixel, mask));
}

}  // namespace

X11LensSource::X11LensSource(std::shared_ptr<X11Connection> connection)
    : connection_(std::move(connection)) {}

std::optional<QPoint> X11LensSource::pointerPixel() {
  int rootX = 0;
  int rootY = 0;
  const bool onScreen = connection_->queryPointer(rootX, rootY);
  connection_->readQueuedEvents();
  if (!onScreen) return std::nullopt;
  return QPoint(rootX, rootY);
}

QImage X11LensSource::grab(const QRect& area) {
  Display* display = connection_->display();
  if (!display || area.isEmpty()) return {};
  const int screen = DefaultScreen(display);
  // Only what is on the root window: a request beyond it is an X error.
  const QRect root(0, 0, DisplayWidth(display, screen), DisplayHeight(display, screen));
  QImage out(area.size(), QImage::Format_ARGB32);
  out.fill(Qt::transparent);
  const QRect visible = area.intersected(root);
  if (visible.isEmpty()) return out;

  XImage* image = XGetImage(display, connection_->rootWindow(), visible.x(), visible.y(),
                            static_cast<unsigned>(visible.width()),
                            static_cast<unsigned>(visible.height()), AllPlanes, ZPixmap);
  connection_->readQueuedEvents();
  if (!image) return {};
  const bool trueColor = image->red_mask != 0 || image->green_mask != 0 || image->blue_mask != 0;
  for (int y = 0; y < visible.height(); ++y) {
    for (int x = 0; x < visible.width(); ++x) {
      const unsigned long pixel = XGetPixel(image, x, y);
      QRgb rgb = 0;
      if (trueColor) {
        rgb = qRgb(channel(pixel, image->red_mask), channel(pixel, image->green_mask),
                   channel(pixel, image->blue_mask));
      } else {
        XColor color{};
        color.pixel = pixel;
        XQueryColor(display, DefaultColormap(display, screen), &color);
        rgb = qRgb(static_cast<int>(colormapChannel(color.red)),
                   static_cast<int>(colormapChannel(color.green)),
                   static_cast<int>(colormapChannel(color.blue)));
      }
      out.setPixel(visible.x() - area.x() + x, visible.y() - area.y() + y, rgb);
    }
  }
  XDestroyImage(image);
  return out;
}

void X11LensSource::movePointerBy(int dx, int dy) {
  Display* display = connection_->display();
  if (!display) return;
  // Relative to where the pointer is; the server keeps it on the screen.
  XWarpPointer(display, 0, 0, 0, 0, 0, 0, dx, dy);
  XSync(display, False);
  connection_->readQueuedEvents();
}

bool X11LensSource::placeWindow(quintptr window, const QRect& rect) {
  Display* display = connection_->display();
  if (!display || window == 0) return false;
  // Qt's own requests for the window (mapping it, moving it) first: the two
  // connections have no order between them.
  syncQtConnection();
  // Our own override-redirect window: no window manager moves it back.
  if (rect.isEmpty()) return false;
  XMoveResizeWindow(display, static_cast<Window>(window), rect.x(), rect.y(),
                    static_cast<unsigned>(rect.width()), static_cast<unsigned>(rect.height()));
  XFlush(display);
  return true;
}

}  // namespace tw::x11
