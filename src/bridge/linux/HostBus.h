#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <chrono>
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

}  // namespace tw
