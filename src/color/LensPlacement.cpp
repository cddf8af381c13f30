#include "color/LensPlacement.h"

namespace tw {

QRect lensPlacement(QPoint pointer, QSize lens, const QRect& monitor, int gap) {
  int x = pointer.x() + gap;
  if (x + lens.width() > monitor.x() + monitor.width()) x = pointer.x() - gap - lens.width();
  int y = pointer.y() + gap;
  if (y + lens.height() > monitor.y() + monitor.height()) y = pointer.y() - gap - lens.height();
  return QRect(QPoint(x, y), lens);
}

QRect monitorUnder(QPoint pointer, const QList<QRect>& monitors) {
  for (const QRect& monitor : monitors)
    if (monitor.contains(pointer)) return monitor;
  return monitors.isEmpty() ? QRect() : monitors.first();
}

QRect magnifiedArea(QPoint pointer, int side) {
  const int half = side / 2;
  return QRect(pointer.x() - half, pointer.y() - half, side, side);
}

}  // namespace tw
