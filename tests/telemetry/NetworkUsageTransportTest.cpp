#include "telemetry/network/NetworkUsageTransport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include "tests/telemetry/TelemetryTestServer.h"

namespace tw {
namespace {

class NetworkUsageTransportTest : public ::testing::Test {
 protected:
  NetworkUsageTransportTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  int argc = 1;
  char name[16] = "transport_test";
  char* argv[2] = {name, nullptr};
  QCoreApplication app{argc, argv};
};

TEST_F(NetworkUsageTransportTest, ExtraCaIsTrustedNextToTheSystemRoots) {
  testing::TestCertificates certificates;
  qputenv("TINTWELL_TELEMETRY_CA", certificates.caPath().toLocal8Bit());
  NetworkUsageTransport transport;
  const QSslConfiguration& tls = transport.tlsConfiguration();
  EXPECT_EQ(tls.peerVerifyMode(), QSslSocket::VerifyPeer);
  const QList<QSslCertificate> trusted = tls.caCertificates();
  QFile ca(certificates.caPath());
  ASSERT_TRUE(ca.open(QIODevice::ReadOnly));
  const QSslCertificate testCa = QSslCertificate::fromData(ca.readAll()).value(0);
  EXPECT_TRUE(trusted.contains(testCa));
  const QList<QSslCertificate> system = QSslConfiguration::systemCaCertificates();
  for (const QSslCertificate& root : system) EXPECT_TRUE(trusted.contains(root));
  EXPECT_GE(trusted.size(), system.size() + 1);
}

TEST_F(NetworkUsageTransportTest, WithoutExtraCaVerificationIsStillOn) {
  qunsetenv("TINTWELL_TELEMETRY_CA");
  NetworkUsageTransport transport;
  EXPECT_EQ(transport.tlsConfiguration().peerVerifyMode(), QSslSocket::VerifyPeer);
  EXPECT_TRUE(NetworkUsageTransport::extraCaCertificates().isEmpty());
}

TEST_F(NetworkUsageTransportTest, UnreadableCaFileStopsTheProcess) {
  qputenv("TINTWELL_TELEMETRY_CA", "/nonexistent/ca.pem");
  EXPECT_DEATH(NetworkUsageTransport::extraCaCertificates(), "CA file cannot be read");
}

TEST_F(NetworkUsageTransportTest, CaFileWithoutCertificatesStopsTheProcess) {
  QTemporaryDir dir;
  QFile file(dir.filePath(QStringLiteral("empty.pem")));
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  file.write("not a certificate\n");
  file.close();
  qputenv("TINTWELL_TELEMETRY_CA", file.fileName().toLocal8Bit());
  EXPECT_DEATH(NetworkUsageTransport::extraCaCertificates(), "holds no PEM certificate");
}

// What one post's completion reported.
struct Outcome {
  bool done = false;
  std::optional<QByteArray> data;
  std::optional<UsageResponse> response;
  std::optional<QString> error;
};

// Posts to a real local HTTPS server, trusted through TINTWELL_TELEMETRY_CA.
class TransportPostTest : public NetworkUsageTransportTest {
 protected:
  TransportPostTest() { qputenv("TINTWELL_TELEMETRY_CA", certificates.caPath().toLocal8Bit()); }
  Outcome post(const QString& answer) {
    server.command(QStringLiteral("set * ") + answer);
    NetworkUsageTransport transport;
    UsageRequest request;
    request.url = QUrl(server.baseUrl() + QStringLiteral("/api/color_usage"));
    request.method = "POST";
    request.headers = {{"Content-Type", "application/json"}, {"Accept", "application/json"}};
    request.body = "{}";
    request.timeoutMs = 20000;
    Outcome outcome;
    transport.post(request,
                   [&](std::optional<QByteArray> data, std::optional<UsageResponse> response,
                       std::optional<QString> error) {
                     outcome = {true, std::move(data), std::move(response), std::move(error)};
                   });
    EXPECT_TRUE(testing::pumpUntil([&] { return outcome.done; }, 20000));
    return outcome;
  }

  testing::TestCertificates certificates;
  testing::TelemetryTestServer server{certificates};
};

class TransportStatusTest : public TransportPostTest, public ::testing::WithParamInterface<int> {};

// Qt reports these statuses as errors of its own (400 and 418 as an invalid
// operation, 407 as a proxy wanting credentials, 404 as missing content);
// each is still the server's answer.
TEST_P(TransportStatusTest, NonSuccessStatusIsAnAnswerNotATransportError) {
  const int status = GetParam();
  const Outcome outcome = post(QString::number(status));
  ASSERT_TRUE(outcome.done);
  EXPECT_FALSE(outcome.error) << outcome.error.value_or(QString()).toStdString();
  ASSERT_TRUE(outcome.response);
  EXPECT_TRUE(outcome.response->isHttp);
  EXPECT_EQ(outcome.response->statusCode, status);
  EXPECT_TRUE(outcome.response->description.contains(QStringLiteral("Status Code: %1").arg(status)))
      << outcome.response->description.toStdString();
  ASSERT_TRUE(outcome.data);
  EXPECT_EQ(*outcome.data, R"({"ok":false})");
}

INSTANTIATE_TEST_SUITE_P(Statuses, TransportStatusTest,
                         ::testing::Values(400, 401, 404, 407, 418, 429, 500, 503),
                         [](const auto& info) { return "status" + std::to_string(info.param); });

TEST_F(TransportPostTest, SuccessIsAnAnswerWithItsBody) {
  const Outcome outcome = post(QStringLiteral("201"));
  ASSERT_TRUE(outcome.done);
  EXPECT_FALSE(outcome.error);
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.response->statusCode, 201);
  EXPECT_EQ(outcome.data, QByteArray(R"({"ok":true})"));
}

TEST_F(TransportPostTest, AnAnswerCutShortAfterItsHeadIsATransportError) {
  // A 200 head, then the connection closes before the body's announced end.
  const Outcome outcome = post(QStringLiteral("cut"));
  ASSERT_TRUE(outcome.done);
  EXPECT_TRUE(outcome.error);
  EXPECT_FALSE(outcome.data);
}

TEST_F(TransportPostTest, ADroppedConnectionIsATransportError) {
  const Outcome outcome = post(QStringLiteral("drop"));
  ASSERT_TRUE(outcome.done);
  EXPECT_TRUE(outcome.error);
  EXPECT_FALSE(outcome.data);
  EXPECT_FALSE(outcome.response);
}

}  // namespace
}  // namespace tw
