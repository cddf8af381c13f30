#pragma once

#include <QByteArrayView>
#include <QString>

#include "telemetry/Reachability.h"

namespace tw {

// Whether a kernel IPv4 routing table in the text form of /proc/net/route holds
// a default route that is up: a row whose Destination is 00000000 and whose
// Flags (hexadecimal) carry RTF_UP (0x1). The header row and malformed rows
// are skipped.
bool routeTableHasIPv4DefaultRoute(QByteArrayView table);

// Online exactly when the kernel has an IPv4 default route. Reads the routing
// table file; nothing is sent. An unreadable table counts as offline.
class RouteTableProbe final : public ReachabilityProbe {
 public:
  explicit RouteTableProbe(QString routeTablePath = QStringLiteral("/proc/net/route"));
  bool isConnectedToNetwork() const override;

 private:
  const QString path_;
};

}  // namespace tw
