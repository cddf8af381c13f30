#pragma once

// Moves the calling test process into a fresh network namespace: no routes,
// loopback up, so local servers still work but the machine is offline. Must be
// called before any thread starts (each GoogleTest case runs in its own process).

#include <sched.h>

#include <QProcess>
#include <QString>
#include <QStringList>
#include <cerrno>
#include <cstring>

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

}  // namespace tw::testing
