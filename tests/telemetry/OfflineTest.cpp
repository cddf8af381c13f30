// The machine offline: a fresh network namespace with loopback up (so the
// local server is reachable by address) and no default route.

#include <gtest/gtest.h>

#include "telemetry/Reachability.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/telemetry/DriverProcess.h"
#include "tests/telemetry/SenderTestSupport.h"

namespace tw {
namespace {

using testing::DriverProcess;
using testing::pumpFor;

class OfflineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const QString why = testing::enterFreshNetworkNamespace();
    if (!why.isEmpty()) GTEST_SKIP() << why.toStdString();
    ASSERT_TRUE(testing::runIp({"link", "set", "lo", "up"}));
    ASSERT_FALSE(Reachability::isConnectedToNetwork());
    // 600 s become 1.2 s.
    environment = std::make_unique<testing::SenderEnvironment>("0.002");
    certificates = std::make_unique<testing::TestCertificates>();
    server = std::make_unique<testing::TelemetryTestServer>(*certificates);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("disabled:"));
    env.insert(QStringLiteral("TINTWELL_TELEMETRY_URL"), server->baseUrl());
    env.insert(QStringLiteral("TINTWELL_TELEMETRY_CA"), certificates->caPath());
    driver = std::make_unique<DriverProcess>(env);
    ASSERT_TRUE(driver->ready()) << driver->transcript().toStdString();
  }

  std::unique_ptr<testing::SenderEnvironment> environment;
  std::unique_ptr<testing::TestCertificates> certificates;
  std::unique_ptr<testing::TelemetryTestServer> server;
  std::unique_ptr<DriverProcess> driver;
};

TEST_F(OfflineTest, TickPrintsNoConnectionAndSendsNothing) {
  driver->send(QStringLiteral("color 1 2 3"));
  ASSERT_TRUE(driver->waitForLine(QStringLiteral("Internet Connection not Available!")))
      << driver->transcript().toStdString();
  const qsizetype tick = driver->indexOf(QStringLiteral("Log Timer is trigger"));
  ASSERT_GE(tick, 0);
  EXPECT_EQ(driver->lines().value(tick + 1), QStringLiteral("Internet Connection not Available!"));
  // Counts keep growing while offline.
  driver->send(QStringLiteral("color 4 5 6"));
  driver->send(QStringLiteral("state"));
  ASSERT_TRUE(driver->waitForLineStartingWith(QStringLiteral("STATE device=2 ")))
      << driver->transcript().toStdString();
  EXPECT_EQ(driver->indexOfPrefix(QStringLiteral(" API ")), -1);
  pumpFor(200);
  EXPECT_TRUE(server->events().isEmpty());
}

TEST_F(OfflineTest, QuitPrintsNoInternetAndEndsAtOnce) {
  driver->send(QStringLiteral("color 1 2 3"));
  driver->send(QStringLiteral("quit"));
  ASSERT_TRUE(driver->finish(10000)) << driver->transcript().toStdString();
  EXPECT_EQ(driver->exitCode(), 0) << driver->transcript().toStdString();
  const QStringList expected = {
      QStringLiteral("i am in applicationShouldTerminate ~"), QStringLiteral("sending data"),
      QStringLiteral("No Internet found!"), QStringLiteral("Final bye bye ~")};
  QStringList got = driver->lines();
  got.removeAll(QStringLiteral("READY"));
  got.removeAll(QString());  // the screen list printed by the count
  // Nothing else: no tick came, no post was tried.
  EXPECT_EQ(got, expected) << driver->transcript().toStdString();
  pumpFor(200);
  EXPECT_TRUE(server->events().isEmpty());
}

}  // namespace
}  // namespace tw
