#pragma once

#include <QImage>
#include <QPixmap>
#include <QString>

namespace tw {

// The application's images by name ("BT on", "BT off", "10" ... "100",
// "crown", "dropper2.png"; a trailing ".png" is optional). At a device pixel
// ratio above 1 the 2x drawing is taken and marked with ratio 2, so it shows
// at the same size, sharper. A null image when there is no such name.
QImage namedImage(const QString& name, qreal devicePixelRatio = 1.0);
// The same as a pixmap (needs a QGuiApplication).
QPixmap namedPixmap(const QString& name, qreal devicePixelRatio = 1.0);

// The resource path of a name at scale 1 or 2: ":/images/<name>.png" or
// ":/images/<name>@2x.png".
QString namedImagePath(const QString& name, int scale = 1);

}  // namespace tw
