#include "telemetry/TelemetryConfig.h"

#include <QSettings>
#include <QtGlobal>

namespace tw {

QString telemetryBaseUrl() {
  QString fromEnv = qEnvironmentVariable("TINTWELL_TELEMETRY_URL");
  if (!fromEnv.isEmpty()) return fromEnv;
  const QSettings settings(QStringLiteral("Orlo"), QStringLiteral("Tintwell"));
  QString fromSettings = settings.value(QStringLiteral("telemetryBaseURL")).toString();
  if (!fromSettings.isEmpty()) return fromSettings;
  return QStringLiteral(TINTWELL_TELEMETRY_DEFAULT_URL);
}

}  // namespace tw
