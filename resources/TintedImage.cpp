#include "resources/TintedImage.h"

#include <QPainter>

namespace tw {

namespace {

template <typename Image>
void fillSourceAtop(Image& copy, const QColor& color) {
  QPainter painter(&copy);
  painter.setCompositionMode(QPainter::CompositionMode_SourceAtop);
  painter.fillRect(QRectF(QPointF(0, 0), copy.deviceIndependentSize()), color);
}

}  // namespace

QImage tintedImage(const QImage& image, const QColor& color) {
  if (image.isNull()) return image;
  // A deep copy in a format with alpha; painting never reaches the original.
  QImage copy = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
  copy.detach();
  fillSourceAtop(copy, color);
  return copy;
}

QPixmap tintedImage(const QPixmap& image, const QColor& color) {
  if (image.isNull()) return image;
  return QPixmap::fromImage(tintedImage(image.toImage(), color));
}

}  // namespace tw
