#include "color/PickingPath.h"

namespace tw {

PickingPath pickingPathFor(const QString& qtPlatform, const QProcessEnvironment& env) {
  if (qtPlatform == QLatin1String("wayland")) return PickingPath::Portal;
  if (!env.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty()) return PickingPath::Portal;
  if (env.value(QStringLiteral("XDG_SESSION_TYPE")) == QLatin1String("wayland"))
    return PickingPath::Portal;
  return PickingPath::X11;
}

}  // namespace tw
