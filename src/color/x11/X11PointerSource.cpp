#include "color/x11/X11PointerSource.h"

#include <QGuiApplication>
#include <QScreen>
#include <cmath>

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
  if (!connection_->isOpen()) return QPointF(0, static_cast<double>(mainDisplayPixelsHigh()));
  int rootX = 0;
  int rootY = 0;
  connection_->queryPointer(rootX, rootY);
  return QPointF(rootX, static_cast<double>(mainDisplayPixelsHigh() - rootY));
}

}  // namespace tw::x11
