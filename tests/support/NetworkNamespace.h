#pragma once

// Moves the calling test process into a network namespace of its own, so a
// test sees the same network on every machine: offline (no routes, loopback
// up, so local servers still work) or online (the same with an IPv4 default
// route through loopback: the reachability check sees a network, yet nothing
// can leave this machine). Call before starting the servers and children the
// test talks to: they must share the namespace. Threads started earlier stay
// where they were, so call it early (each GoogleTest case runs in its own
// process under CTest). Needs root.

#include <sched.h>

#include <QProcess>
#include <QString>
#include <QStringList>
#include <cerrno>
#include <cstring>
#include <string>

namespace tw::testing {

// Empty on success, else why it is not possible here.
inline QString enterFreshNetworkNamespace() {
  if (::unshare(CLONE_NEWNET) != 0)
    return QStringLiteral("unshare(CLONE_NEWNET) is not permitted here (%1); run as root")
        .arg(QString::fromLocal8Bit(std::strerror(errno)));
  return {};
}

// Runs `ip` with the arguments; true when it succeeded.
inline bool runIp(const QStringList& args) {
  QProcess ip;
  ip.start(QStringLiteral("ip"), args);
  return ip.waitForFinished(10000) && ip.exitStatus() == QProcess::NormalExit && ip.exitCode() == 0;
}

// A fresh namespace with loopback up and no default route. Empty on success,
// else why not.
inline QString enterOfflineNetworkNamespace() {
  if (QString why = enterFreshNetworkNamespace(); !why.isEmpty()) return why;
  if (!runIp({QStringLiteral("link"), QStringLiteral("set"), QStringLiteral("lo"),
              QStringLiteral("up")}))
    return QStringLiteral("`ip link set lo up` failed in the new network namespace");
  return {};
}

// A fresh namespace with loopback up and a default route through it. Empty on
// success, else why not.
inline QString enterOnlineNetworkNamespace() {
  if (QString why = enterOfflineNetworkNamespace(); !why.isEmpty()) return why;
  if (!runIp({QStringLiteral("route"), QStringLiteral("add"), QStringLiteral("default"),
              QStringLiteral("dev"), QStringLiteral("lo")}))
    return QStringLiteral("`ip route add default dev lo` failed in the new network namespace");
  return {};
}

// A fixture's first member: enters the namespace as the fixture is made, so
// the servers and children the later members start share it. The fixture's
// SetUp skips when `failure()` is not empty.
class OwnNetwork {
 public:
  enum Kind { kOffline, kOnline };
  explicit OwnNetwork(Kind kind)
      : failure_(kind == kOnline ? enterOnlineNetworkNamespace() : enterOfflineNetworkNamespace()) {
  }
  const QString& failure() const { return failure_; }
  std::string why() const { return failure_.toStdString(); }

 private:
  QString failure_;
};

}  // namespace tw::testing
