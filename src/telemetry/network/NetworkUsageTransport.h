#pragma once

#include <QList>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QString>
#include <map>
#include <memory>
#include <optional>

#include "telemetry/UsageTransport.h"

class QNetworkAccessManager;
class QNetworkReply;
class QObject;

namespace tw {

// Usage posts over HTTPS with QNetworkAccessManager. Certificate verification
// is always on: the system CA store, plus the PEM certificates of the file
// named by TINTWELL_TELEMETRY_CA when set (Qt ignores SSL_CERT_FILE). Lives on,
// and completes on, the thread it was made on (the main thread). The network
// manager and the TLS set-up (which loads the TLS library and the CA store)
// are made at the first post: nothing of it is on the path to the first paint.
class NetworkUsageTransport final : public UsageTransport {
 public:
  NetworkUsageTransport();
  ~NetworkUsageTransport() override;
  NetworkUsageTransport(const NetworkUsageTransport&) = delete;
  NetworkUsageTransport& operator=(const NetworkUsageTransport&) = delete;

  void post(const UsageRequest& request, Completion completion) override;

  // The extra trusted CAs from TINTWELL_TELEMETRY_CA; an unreadable file or one
  // without certificates stops the process, since posts could never succeed.
  static QList<QSslCertificate> extraCaCertificates();
  // Peer verification on; the system roots, plus `extra` when there are any.
  static QSslConfiguration makeTlsConfiguration(const QList<QSslCertificate>& extra);
  // What every request of this transport uses (made on first use).
  const QSslConfiguration& tlsConfiguration();

 private:
  void finish(QNetworkReply* reply, const Completion& completion);
  QNetworkAccessManager& manager();

  // The completions of the posts still out. One connection on the manager
  // serves them all: a connection per reply would hand our slot object to Qt,
  // which may free it on its network thread behind locks ThreadSanitizer
  // cannot see. Only used on the transport's thread.
  std::map<QNetworkReply*, Completion> pending_;
  std::unique_ptr<QObject> context_;  // owns the manager; its end cancels completions
  QNetworkAccessManager* manager_ = nullptr;
  std::optional<QSslConfiguration> tls_;
};

// Posts made in this process.
std::shared_ptr<UsageTransport> makeNetworkUsageTransport();

}  // namespace tw
