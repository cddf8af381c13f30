#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QTemporaryDir>
#include <chrono>
#include <memory>
#include <optional>

#include "bridge/DesignHost.h"

namespace tw {

// Session-bus helpers shared by the hosts that are reached over D-Bus.

// A blocking call that gives up at `deadline` (at least 1 ms).
QDBusMessage callWithin(const QDBusConnection& bus, const QDBusMessage& call,
                        std::chrono::steady_clock::time_point deadline);
// The outcome a failed reply stands for (absent for a good reply): a missing
// service is NotRunning, no reply in time is a time-out, the rest is the
// error's own message.
std::optional<PushOutcome> callFailure(const QDBusMessage& reply,
                                       std::chrono::milliseconds timeout);
QString noAnswerReason(std::chrono::milliseconds timeout);

// A folder only this user can open (0700), for the files an application
// writes back to us: in $XDG_RUNTIME_DIR where there is one, else the
// temporary folder. Removed with the object.
std::unique_ptr<QTemporaryDir> privateFolder(const QString& prefix);

}  // namespace tw
