#include "telemetry/linux/RouteTableProbe.h"

#include <QFile>
#include <QList>

namespace tw {

namespace {

constexpr unsigned kRtfUp = 0x1;

}  // namespace

bool routeTableHasIPv4DefaultRoute(QByteArrayView table) {
  const QList<QByteArray> lines = table.toByteArray().split('\n');
  for (qsizetype i = 1; i < lines.size(); ++i) {  // row 0 names the columns
    const QList<QByteArray> columns = lines[i].simplified().split(' ');
    if (columns.size() < 4) continue;
    if (columns[1] != "00000000") continue;
    bool ok = false;
    const unsigned flags = columns[3].toUInt(&ok, 16);
    if (ok && (flags & kRtfUp)) return true;
  }
  return false;
}

RouteTableProbe::RouteTableProbe(QString routeTablePath) : path_(std::move(routeTablePath)) {}

bool RouteTableProbe::isConnectedToNetwork() const {
  QFile file(path_);
  if (!file.open(QIODevice::ReadOnly)) return false;
  // A proc file has no size; read to its end.
  return routeTableHasIPv4DefaultRoute(file.readAll());
}

std::unique_ptr<ReachabilityProbe> makePlatformReachabilityProbe() {
  return std::make_unique<RouteTableProbe>();
}

}  // namespace tw
