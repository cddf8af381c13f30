#include "resources/NamedImages.h"

#include <QFile>
#include <QImageReader>

namespace tw {

namespace {

// Every drawing is a PNG: name the format so Qt goes straight to its built-in
// reader instead of loading each image plugin to ask whether it knows the
// bytes (about 2 ms and a JPEG library on the way to the first paint).
QImage readPng(const QString& path) {
  QImageReader reader(path, QByteArrayLiteral("png"));
  reader.setAutoDetectImageFormat(false);
  return reader.read();
}

}  // namespace

QString namedImagePath(const QString& name, int scale) {
  QString base = name;
  if (base.endsWith(QLatin1String(".png"))) base.chop(4);
  const QString suffix = scale > 1 ? QStringLiteral("@%1x").arg(scale) : QString();
  return QStringLiteral(":/images/") + base + suffix + QStringLiteral(".png");
}

QImage namedImage(const QString& name, qreal devicePixelRatio) {
  if (devicePixelRatio > 1.0) {
    QImage sharp = readPng(namedImagePath(name, 2));
    if (!sharp.isNull()) {
      sharp.setDevicePixelRatio(2.0);
      return sharp;
    }
  }
  return readPng(namedImagePath(name, 1));
}

QPixmap namedPixmap(const QString& name, qreal devicePixelRatio) {
  return QPixmap::fromImage(namedImage(name, devicePixelRatio));
}

}  // namespace tw
