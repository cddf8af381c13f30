#include "telemetry/Reachability.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>

#include "telemetry/linux/RouteTableProbe.h"
#include "tests/support/NetworkNamespace.h"

namespace tw {
namespace {

constexpr const char* kHeader =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

struct RouteTableCase {
  const char* name;
  QByteArray rows;
  bool online;
};

void PrintTo(const RouteTableCase& c, std::ostream* os) { *os << c.name; }

class RouteTableParsing : public ::testing::TestWithParam<RouteTableCase> {};

TEST_P(RouteTableParsing, FindsAnIPv4DefaultRouteThatIsUp) {
  const QByteArray table = QByteArray(kHeader) + GetParam().rows;
  EXPECT_EQ(routeTableHasIPv4DefaultRoute(table), GetParam().online);
}

INSTANTIATE_TEST_SUITE_P(
    Tables, RouteTableParsing,
    ::testing::Values(
        RouteTableCase{"Empty", "", false},
        RouteTableCase{"GarbageRow", "not a routing table\n", false},
        RouteTableCase{"ShortRow", "eth0\t00000000\n", false},
        RouteTableCase{"BadFlags", "eth0\t00000000\t010200C0\tzz\t0\t0\t0\t00000000\t0\t0\t0\n",
                       false},
        RouteTableCase{"DefaultRouteDown",
                       "eth0\t00000000\t010200C0\t0002\t0\t0\t0\t00000000\t0\t0\t0\n", false},
        RouteTableCase{"OnlyTheLocalNetwork",
                       "eth0\t000200C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n", false},
        RouteTableCase{"DefaultRouteUpViaGateway",
                       "eth0\t00000000\t010200C0\t0003\t0\t0\t0\t00000000\t0\t0\t0\n", true},
        RouteTableCase{"DefaultRouteUpWithoutGateway",
                       "wg0\t00000000\t00000000\t0001\t0\t0\t0\t00000000\t0\t0\t0\n", true},
        RouteTableCase{"DefaultRouteAfterOtherRows",
                       "eth0\t000200C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n"
                       "eth1\t00000000\t010A000A\t0003\t0\t0\t100\t00000000\t0\t0\t0\n",
                       true},
        RouteTableCase{"SpacePaddedRow",
                       "eth0   00000000   010200C0   0003   0 0 0   00000000   0 0 0   \n", true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Reachability, HeaderRowIsNeverTakenForARoute) {
  EXPECT_FALSE(routeTableHasIPv4DefaultRoute(
      "Iface\t00000000\tGateway\t0003\t0\t0\t0\t00000000\t0\t0\t0\n"));
}

TEST(Reachability, UnreadableRouteTableCountsAsOffline) {
  EXPECT_FALSE(RouteTableProbe(QStringLiteral("/nonexistent/route")).isConnectedToNetwork());
}

TEST(Reachability, AgreesWithTheKernelsOwnAnswer) {
  QProcess ip;
  ip.start(QStringLiteral("ip"), {QStringLiteral("-4"), QStringLiteral("route"),
                                  QStringLiteral("show"), QStringLiteral("default")});
  ASSERT_TRUE(ip.waitForFinished(10000));
  const bool kernelHasDefault = !ip.readAllStandardOutput().trimmed().isEmpty();
  EXPECT_EQ(Reachability::isConnectedToNetwork(), kernelHasDefault);
}

TEST(Reachability, FreshNetworkNamespaceIsOfflineUntilADefaultRouteAppears) {
  const QString why = testing::enterFreshNetworkNamespace();
  if (!why.isEmpty()) GTEST_SKIP() << why.toStdString();
  EXPECT_FALSE(Reachability::isConnectedToNetwork());
  ASSERT_TRUE(testing::runIp({"link", "set", "lo", "up"}));
  EXPECT_FALSE(Reachability::isConnectedToNetwork());
  // Read afresh at each call: a route added later is seen.
  ASSERT_TRUE(testing::runIp({"route", "add", "default", "dev", "lo"}));
  EXPECT_TRUE(Reachability::isConnectedToNetwork());
  ASSERT_TRUE(testing::runIp({"route", "del", "default", "dev", "lo"}));
  EXPECT_FALSE(Reachability::isConnectedToNetwork());
}

}  // namespace
}  // namespace tw
