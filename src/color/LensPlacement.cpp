#include "color/LensPlacement.h"

#include <algorithm>

namespace tw {

QRect lensPlacement(QPoint pointer, QSize lens, const QRect& monitor, int gap) {
  const int left = monitor.x();
  const int top = monitor.y();
  const int right = monitor.x() + monitor.width();
  const int bottom = monitor.y() + monitor.height();
  const int toRight = pointer.x() + gap;
  const int toLeft = pointer.x() - gap - lens.width();
  const int below = pointer.y() + gap;
  const int above = pointer.y() - gap - lens.height();
  const bool rightFits = toRight + lens.width() <= right;
  const bool leftFits = toLeft >= left;
  const bool belowFits = below + lens.height() <= bottom;
  const bool aboveFits = above >= top;
  const auto clamp = [](int value, int low, int high) {
    return high < low ? low : std::min(std::max(value, low), high);
  };

  // Beside the pointer on one axis is enough to keep clear of it; on the
  // other the lens may then slide along the monitor's edge to stay on it.
  int x = rightFits || !leftFits ? toRight : toLeft;
  int y = belowFits || !aboveFits ? below : above;
  if (!rightFits && !leftFits && pointer.x() - left > right - pointer.x()) x = toLeft;
  if (!belowFits && !aboveFits && pointer.y() - top > bottom - pointer.y()) y = above;
  if (rightFits || leftFits)
    y = belowFits || aboveFits ? y : clamp(y, top, bottom - lens.height());
  else if (belowFits || aboveFits)
    x = clamp(x, left, right - lens.width());
  else
    y = clamp(y, top, bottom - lens.height());
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
