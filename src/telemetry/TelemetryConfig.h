#pragma once

#include <QString>

namespace tw {

// The telemetry server's base address: env TINTWELL_TELEMETRY_URL when set and
// not empty, else the settings key "telemetryBaseURL" (QSettings "Orlo",
// "Tintwell"), else the address this build was configured with. Read at each
// call, so a changed setting takes effect at the next post.
QString telemetryBaseUrl();

}  // namespace tw
