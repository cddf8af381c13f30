#pragma once

#include <QByteArray>
#include <QColor>
#include <QImage>
#include <optional>

namespace tw::testing {

// A screenshot as `xwd -root` writes it (ZPixmap, TrueColor), turned into an
// image. The header says how many bits a pixel takes; it changes between 24
// and 32 on the same display, so nothing is assumed.
std::optional<QImage> imageFromXwd(const QByteArray& xwd);
// How many pixels of `image` are exactly `rgb`.
qsizetype countPixels(const QImage& image, QRgb rgb);

}  // namespace tw::testing
