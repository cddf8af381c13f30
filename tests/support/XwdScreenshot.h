#pragma once

#include <QByteArray>
#include <QColor>
#include <QImage>
#include <QtEndian>

#include "tests/support/XvfbServer.h"

namespace tw::testing {

// The whole screen of `server` as the xwd program (x11-apps) dumps it: an
// outside reader of the pixels, to check picks against. A null image when xwd
// is missing or its output is not a TrueColor ZPixmap dump of 24 or 32 bits a pixel.
inline QImage xwdScreenshot(const XvfbServer& server) {
  int code = -1;
  const QByteArray dump = server.run(QStringLiteral("xwd"),
                                     {QStringLiteral("-root"), QStringLiteral("-silent")}, &code);
  if (code != 0 || dump.size() < 100) return {};
  const auto field = [&](int i) {
    return qFromBigEndian<quint32>(reinterpret_cast<const uchar*>(dump.constData()) + 4 * i);
  };
  const quint32 headerSize = field(0);
  const quint32 format = field(2);
  const int width = static_cast<int>(field(4));
  const int height = static_cast<int>(field(5));
  const quint32 byteOrder = field(7);  // 0: least significant byte first
  const quint32 bitsPerPixel = field(11);
  const quint32 bytesPerLine = field(12);
  const quint32 masks[3] = {field(14), field(15), field(16)};
  const quint32 colours = field(19);
  const qsizetype start = static_cast<qsizetype>(headerSize) + 12 * static_cast<qsizetype>(colours);
  if (format != 2 || (bitsPerPixel != 32 && bitsPerPixel != 24) ||
      dump.size() < start + static_cast<qsizetype>(bytesPerLine) * height)
    return {};
  const auto component = [](quint32 pixel, quint32 mask) {
    if (mask == 0) return 0;
    int shift = 0;
    while (((mask >> shift) & 1U) == 0) ++shift;
    const quint32 maximum = mask >> shift;
    return static_cast<int>(((pixel & mask) >> shift) * 255 / maximum);
  };
  QImage image(width, height, QImage::Format_RGB32);
  for (int y = 0; y < height; ++y) {
    const auto* row = reinterpret_cast<const uchar*>(dump.constData()) + start +
                      static_cast<qsizetype>(bytesPerLine) * y;
    for (int x = 0; x < width; ++x) {
      const uchar* at = row + static_cast<qsizetype>(bitsPerPixel / 8) * x;
      quint32 pixel = 0;
      for (quint32 b = 0; b < bitsPerPixel / 8; ++b) {
        const quint32 byte = at[b];
        pixel |= byteOrder == 0 ? byte << (8 * b) : byte << (8 * (bitsPerPixel / 8 - 1 - b));
      }
      image.setPixel(
          x, y,
          qRgb(component(pixel, masks[0]), component(pixel, masks[1]), component(pixel, masks[2])));
    }
  }
  return image;
}

}  // namespace tw::testing
