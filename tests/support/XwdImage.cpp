#include "tests/support/XwdImage.h"

#include <bit>

namespace tw::testing {

namespace {

quint32 field(const QByteArray& bytes, int index) {
  // The header is 32-bit big-endian words.
  const auto* p = reinterpret_cast<const uchar*>(bytes.constData()) + index * 4;
  return (quint32(p[0]) << 24) | (quint32(p[1]) << 16) | (quint32(p[2]) << 8) | quint32(p[3]);
}

int shiftOf(quint32 mask) { return mask == 0 ? 0 : std::countr_zero(mask); }

}  // namespace

std::optional<QImage> imageFromXwd(const QByteArray& xwd) {
  if (xwd.size() < 100) return std::nullopt;
  const quint32 headerSize = field(xwd, 0);
  const quint32 version = field(xwd, 1);
  const quint32 format = field(xwd, 2);
  const quint32 width = field(xwd, 4);
  const quint32 height = field(xwd, 5);
  const quint32 byteOrder = field(xwd, 7);
  const quint32 bitsPerPixel = field(xwd, 11);
  const quint32 bytesPerLine = field(xwd, 12);
  const quint32 redMask = field(xwd, 14);
  const quint32 greenMask = field(xwd, 15);
  const quint32 blueMask = field(xwd, 16);
  const quint32 colors = field(xwd, 19);  // the colour map entries written
  // ZPixmap only, 24 or 32 bits a pixel.
  if (version != 7 || format != 2 || (bitsPerPixel != 24 && bitsPerPixel != 32))
    return std::nullopt;
  const int bytesPerPixel = int(bitsPerPixel / 8);
  // Rows too short for their pixels would be read past the data's end.
  if (qint64(bytesPerLine) < qint64(width) * bytesPerPixel) return std::nullopt;
  const qint64 dataStart = qint64(headerSize) + qint64(colors) * 12;
  if (dataStart + qint64(bytesPerLine) * height > xwd.size()) return std::nullopt;
  QImage image(int(width), int(height), QImage::Format_RGB32);
  const auto* data = reinterpret_cast<const uchar*>(xwd.constData()) + dataStart;
  for (quint32 y = 0; y < height; ++y) {
    const uchar* row = data + qint64(y) * bytesPerLine;
    auto* out = reinterpret_cast<QRgb*>(image.scanLine(int(y)));
    for (quint32 x = 0; x < width; ++x) {
      const uchar* p = row + qint64(x) * bytesPerPixel;
      quint32 pixel = 0;
      for (int i = 0; i < bytesPerPixel; ++i) {
        // byte order 0: least significant byte first.
        const int shift = byteOrder == 0 ? 8 * i : 8 * (bytesPerPixel - 1 - i);
        pixel |= quint32(p[i]) << shift;
      }
      out[x] = qRgb(int((pixel & redMask) >> shiftOf(redMask)),
                    int((pixel & greenMask) >> shiftOf(greenMask)),
                    int((pixel & blueMask) >> shiftOf(blueMask)));
    }
  }
  return image;
}

qsizetype countPixels(const QImage& image, QRgb rgb) {
  qsizetype count = 0;
  const QRgb wanted = rgb | 0xFF000000u;
  for (int y = 0; y < image.height(); ++y) {
    const auto* row = reinterpret_cast<const QRgb*>(image.constScanLine(y));
    for (int x = 0; x < image.width(); ++x) count += ((row[x] | 0xFF000000u) == wanted);
  }
  return count;
}

}  // namespace tw::testing
