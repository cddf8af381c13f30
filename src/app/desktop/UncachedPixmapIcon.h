#pragma once

#include <QIcon>
#include <QPixmap>

namespace tw {

// An icon of one pixmap, scaled smoothly to each size asked for (keeping its
// aspect ratio) and never put into Qt's pixmap cache. The crown button gets a
// new icon with every colour; the default icon engine would store every
// pixmap it draws, and a key for it, in the process-wide cache, which under a
// stream of pen colours only grows.
QIcon uncachedPixmapIcon(const QPixmap& pixmap);

}  // namespace tw
