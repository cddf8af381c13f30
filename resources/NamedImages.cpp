#include "resources/NamedImages.h"

#include <QFile>

namespace tw {

QString namedImagePath(const QString& name, int scale) {
  QString base = name;
  if (base.endsWith(QLatin1String(".png"))) base.chop(4);
  const QString suffix = scale > 1 ? QStringLiteral("@%1x").arg(scale) : QString();
  return QStringLiteral(":/images/") + base + suffix + QStringLiteral(".png");
}

QImage namedImage(const QString& name, qreal devicePixelRatio) {
  if (devicePixelRatio > 1.0) {
    QImage sharp(namedImagePath(name, 2));
    if (!sharp.isNull()) {
      sharp.setDevicePixelRatio(2.0);
      return sharp;
    }
  }
  return QImage(namedImagePath(name, 1));
}

QPixmap namedPixmap(const QString& name, qreal devicePixelRatio) {
  return QPixmap::fromImage(namedImage(name, devicePixelRatio));
}

}  // namespace tw
