#include "telemetry/network/NetworkUsageTransport.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QObject>
#include <QSslConfiguration>
#include <QStringList>

#include "common/Fatal.h"

namespace tw {

namespace {

// Whether a reply that carries a status is the server's answer. Qt turns
// most non-2xx statuses into errors of its own (400 and 418 into
// ProtocolInvalidOperationError, 407 into ProxyAuthenticationRequiredError,
// 404 into ContentNotFoundError ...): those replies are still answers. The
// transfer itself failed, and the answer is cut short, when the error is one
// of the network layer's (below 100: connection closed, time-out, TLS), or
// when there is any error at all on a 2xx status, which Qt raises none for.
bool isAnswer(int status, QNetworkReply::NetworkError error) {
  if (error == QNetworkReply::NoError) return true;
  const int code = static_cast<int>(error);
  if (code < 100) return false;
  return status < 200 || status > 299;
}

QString describeResponse(const QNetworkReply& reply, int status) {
  QStringList headers;
  for (const auto& [name, value] : reply.rawHeaderPairs())
    headers << QString::fromLatin1(name) + QStringLiteral(": ") + QString::fromLatin1(value);
  return QStringLiteral("<HTTPResponse> { URL: %1 } { Status Code: %2, Headers { %3 } }")
      .arg(reply.url().toString())
      .arg(status)
      .arg(headers.join(QStringLiteral("; ")));
}

}  // namespace

NetworkUsageTransport::NetworkUsageTransport() : context_(std::make_unique<QObject>()) {}

QNetworkAccessManager& NetworkUsageTransport::manager() {
  if (manager_ != nullptr) return *manager_;
  manager_ = new QNetworkAccessManager(context_.get());
  // Only the request's own header fields travel; no cookies are kept.
  manager_->setCookieJar(nullptr);
  QObject::connect(manager_, &QNetworkAccessManager::finished, context_.get(),
                   [this](QNetworkReply* reply) {
                     const auto found = pending_.find(reply);
                     if (found == pending_.end()) return;
                     const Completion completion = std::move(found->second);
                     pending_.erase(found);
                     reply->deleteLater();
                     finish(reply, completion);
                   });
  return *manager_;
}

const QSslConfiguration& NetworkUsageTransport::tlsConfiguration() {
  if (!tls_) tls_ = makeTlsConfiguration(extraCaCertificates());
  return *tls_;
}

QSslConfiguration NetworkUsageTransport::makeTlsConfiguration(const QList<QSslCertificate>& extra) {
  QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
  tls.setPeerVerifyMode(QSslSocket::VerifyPeer);
  if (!extra.isEmpty()) {
    // Adding certificates turns off Qt's on-demand loading of the system
    // roots, so they are added explicitly, once, next to ours.
    tls.addCaCertificates(QSslConfiguration::systemCaCertificates());
    tls.addCaCertificates(extra);
  }
  return tls;
}

NetworkUsageTransport::~NetworkUsageTransport() = default;

QList<QSslCertificate> NetworkUsageTransport::extraCaCertificates() {
  const QString path = qEnvironmentVariable("TINTWELL_TELEMETRY_CA");
  if (path.isEmpty()) return {};
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) fatalStop("the telemetry CA file cannot be read");
  QList<QSslCertificate> certificates = QSslCertificate::fromData(file.readAll());
  if (certificates.isEmpty()) fatalStop("the telemetry CA file holds no PEM certificate");
  return certificates;
}

void NetworkUsageTransport::post(const UsageRequest& request, Completion completion) {
  QNetworkRequest networkRequest(request.url);
  for (const auto& [name, value] : request.headers) networkRequest.setRawHeader(name, value);
  networkRequest.setTransferTimeout(request.timeoutMs);
  networkRequest.setSslConfiguration(tlsConfiguration());

  QNetworkReply* reply = manager().sendCustomRequest(networkRequest, request.method, request.body);
  pending_[reply] = std::move(completion);
}

void NetworkUsageTransport::finish(QNetworkReply* reply, const Completion& completion) {
  const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
  const QNetworkReply::NetworkError error = reply->error();
  const bool answered = status.isValid();
  if (answered && isAnswer(status.toInt(), error)) {
    const int code = status.toInt();
    completion(reply->readAll(), UsageResponse{true, code, describeResponse(*reply, code)},
               std::nullopt);
    return;
  }
  completion(std::nullopt,
             answered ? std::optional<UsageResponse>(UsageResponse{
                            true, status.toInt(), describeResponse(*reply, status.toInt())})
                      : std::nullopt,
             reply->errorString());
}

std::shared_ptr<UsageTransport> makeNetworkUsageTransport() {
  return std::make_shared<NetworkUsageTransport>();
}

}  // namespace tw
