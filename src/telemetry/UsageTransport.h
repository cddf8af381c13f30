#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>
#include <functional>
#include <optional>
#include <utility>

namespace tw {

// One HTTP request as the telemetry sender builds it.
struct UsageRequest {
  QUrl url;
  QByteArray method;
  // Exactly the header fields the sender sets. The HTTP stack adds its own to
  // what goes out; Qt 6.4 adds Host, Content-Length, Connection ("Keep-Alive"),
  // Accept-Encoding (the encodings it can decode), Accept-Language (from the
  // system locale; "en,*" in the C locale) and User-Agent ("Mozilla/5.0").
  QList<std::pair<QByteArray, QByteArray>> headers;
  QByteArray body;
  int timeoutMs = 0;  // gives up after this long without progress
};

// The answer's head, when an answer arrived at all.
struct UsageResponse {
  bool isHttp = true;
  int statusCode = 0;
  QString description;  // one line naming the address, status and header fields
};

// Where usage posts travel. The sender's logic stays free of any network
// library; the real backend lives in telemetry/network.
//
// Contract for implementations:
// - post() starts the request and returns at once; it never calls the
//   completion itself.
// - The completion runs exactly once, on the thread the transport lives on,
//   unless the transport is destroyed first (then never).
// - A response that arrived is reported with its status whatever the status
//   is (a 404, 407 or 500 is an answer, not an error); `data` is then present
//   (possibly empty). A transport failure (no answer, TLS refusal, time-out,
//   connection dropped, an answer cut short) gives an error text and,
//   typically, no data and no response.
// - Certificates are always verified; an untrusted server is a failure.
class UsageTransport {
 public:
  using Completion =
      std::function<void(std::optional<QByteArray> data, std::optional<UsageResponse> response,
                         std::optional<QString> error)>;

  virtual ~UsageTransport() = default;
  virtual void post(const UsageRequest& request, Completion completion) = 0;
};

}  // namespace tw
