#pragma once

#include <QList>
#include <QPoint>
#include <QRect>
#include <QSize>

namespace tw {

// Where the magnifier goes, in device pixels. It sits beside the pointer, down
// and to the right by `gap` pixels, and flips to the left or above where it
// would leave `monitor` (the device rectangle of the monitor under the
// pointer). Where it fits on neither side along one axis but on one side
// along the other, it slides along the monitor's edge on the first axis
// instead; where it fits nowhere, it keeps the roomier side horizontally and
// stays on the monitor vertically. It always keeps `gap` pixels from the
// pointer along at least one axis, so it never overlaps the pixels it
// magnifies as long as `gap` is more than half their side.
QRect lensPlacement(QPoint pointer, QSize lens, const QRect& monitor, int gap);

// The monitor whose device rectangle holds `pointer`; the first one when none
// does (a pointer between monitors of different heights). An empty rectangle
// when there are none.
QRect monitorUnder(QPoint pointer, const QList<QRect>& monitors);

// The square of `side` device pixels (odd) centred on `pointer`.
QRect magnifiedArea(QPoint pointer, int side);

}  // namespace tw
