#pragma once

#include <QColor>
#include <QImage>
#include <QPixmap>

namespace tw {

// A copy of `image` with `color` painted over every non-transparent pixel by
// source-atop compositing: the copy keeps the original's alpha (and device
// pixel ratio), its colour becomes `color` (blended by the colour's alpha).
// The image passed in is not changed. The QPixmap form needs a
// QGuiApplication; the result has the ARGB32 premultiplied format.
QImage tintedImage(const QImage& image, const QColor& color);
QPixmap tintedImage(const QPixmap& image, const QColor& color);

}  // namespace tw
