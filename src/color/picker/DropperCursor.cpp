#include "color/picker/DropperCursor.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

#include "common/Log.h"
#include "resources/NamedImages.h"

namespace tw {

namespace {

bool dropperSet = false;  // main thread only

}  // namespace

void setDropperCursor() {
  const QScreen* screen = QGuiApplication::primaryScreen();
  const QPixmap image =
      namedPixmap(QStringLiteral("dropper2.png"), screen ? screen->devicePixelRatio() : 1.0);
  if (image.isNull()) return;
  const QCursor dropper(image, kDropperHotSpot.x(), kDropperHotSpot.y());
  if (dropperSet)
    QGuiApplication::changeOverrideCursor(dropper);
  else
    QGuiApplication::setOverrideCursor(dropper);
  dropperSet = true;
  logLine(std::string_view("cursor changed"));
}

void restoreCursor() {
  if (!dropperSet) return;
  dropperSet = false;
  QGuiApplication::restoreOverrideCursor();
}

}  // namespace tw
