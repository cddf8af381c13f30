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

}  // namespace
}  // namespace tw
