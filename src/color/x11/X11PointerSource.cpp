#include "color/x11/X11PointerSource.h"

#include <QGuiApplication>
#include <QScreen>
#include <cmath>

// Xlib after Qt: its macros (Bool, Status, None) clash with Qt headers.
#include <X11/Xlib.h>

#include "color/x11/X11Connection.h"

namespace tw::x11 {

X11PointerSource::X11PointerSource(std::shared_ptr<X11Connection> connection)
    : connection_(std::move(connection)) {}

qint64 X11PointerSource::mainDisplayPixelsHigh() {
  const QScreen* screen = QGuiApplication::primaryScreen();
  if (!screen) return 0;
  return std::llround(screen->geometry().height() * screen->devicePixelRatio());
}

QPointF X11PointerSource::mouseLocation() {
  Display* display = connection_->display();
  if (!display) return QPointF(0, static_cast<double>(mainDisplayPixelsHigh()));
  Window root = 0;
  Window child = 0;
  int rootX = 0;
  int rootY = 0;
  int winX = 0;
  int winY = 0;
  unsigned int buttons = 0;
  XQueryPointer(display, connection_->rootWindow(), &root, &child, &rootX, &rootY, &winX, &winY,
                &buttons);
  return QPointF(rootX, static_cast<double>(mainDisplayPixelsHigh() - rootY));
}

}  // namespace tw::x11
