#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

#include "telemetry/UsageTransport.h"

namespace tw {

// What one post ended with, as a transport's completion receives it.
struct UsageAnswer {
  std::optional<QByteArray> data;
  std::optional<UsageResponse> response;
  std::optional<QString> error;
};

// The request and its answer as they cross between the application and the
// post helper (tintwell-post): one JSON object each, bodies in Base64 so any
// byte travels unchanged. A text that is not such an object decodes to
// nothing.
QByteArray encodeUsageRequest(const UsageRequest& request);
std::optional<UsageRequest> decodeUsageRequest(const QByteArray& text);
QByteArray encodeUsageAnswer(const UsageAnswer& answer);
std::optional<UsageAnswer> decodeUsageAnswer(const QByteArray& text);

}  // namespace tw
