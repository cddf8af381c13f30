#pragma once

#include <QList>
#include <QPoint>
#include <QRect>
#include <QSize>

namespace tw {

// Where the magnifier goes, in device pixels. It sits beside the pointer, down
// and to the right by `gap` pixels, and flips to the left or above where it
// would leave the monitor under the pointer. It never overlaps the pixels it
// magnifies: `gap` must be more than half their side (checked by the caller's
// constant). `monitor` is the device rectangle of the monitor under the
// pointer; a lens taller or wider than the monitor keeps the flipped side.
QRect lensPlacement(QPoint pointer, QSize lens, const QRect& monitor, int gap);

// The monitor whose device rectangle holds `pointer`; the first one when none
// does (a pointer between monitors of different heights). An empty rectangle
// when there are none.
QRect monitorUnder(QPoint pointer, const QList<QRect>& monitors);

// The square of `side` device pixels (odd) centred on `pointer`.
QRect magnifiedArea(QPoint pointer, int side);

}  // namespace tw
