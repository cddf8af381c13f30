#include "common/TimeScale.h"

#include <QString>
#include <QtGlobal>
#include <cmath>

namespace tw {

double timeScale() {
  static const double scale = [] {
    bool ok = false;
    const double value = qEnvironmentVariable("TINTWELL_TIME_SCALE").toDouble(&ok);
    return ok && std::isfinite(value) && value > 0.0 ? value : 1.0;
  }();
  return scale;
}

int scaledMs(double seconds) {
  const double ms = std::round(seconds * 1000.0 * timeScale());
  if (seconds > 0.0 && ms < 1.0) return 1;
  return ms > 2147483647.0 ? 2147483647 : static_cast<int>(ms);
}

}  // namespace tw
