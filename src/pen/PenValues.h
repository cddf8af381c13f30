#pragma once

#include <QByteArray>
#include <QtGlobal>
#include <optional>
#include <string_view>

namespace tw::pen {

// The pen's characteristic values as the link reads them. A value that cannot
// come from a working pen (a colour packet shorter than four bytes, an empty
// battery level) is a designed stop: the decoders below stop the process for
// it, and the *Stop functions say beforehand whether they would, and why.

// A colour notification: byte 0 (only logged), then red, green and blue; bytes
// past the fourth are ignored.
struct ColorPacket {
  qint64 leading = 0;
  qint64 red = 0;
  qint64 green = 0;
  qint64 blue = 0;
};

// The cause decodeColorPacket stops with for `value`, or nothing when it decodes.
std::optional<std::string_view> colorPacketStop(const std::optional<QByteArray>& value);
// Stops the process (tw::fatalStop) when colorPacketStop names a cause.
ColorPacket decodeColorPacket(const std::optional<QByteArray>& value);

// The cause batteryLevelFromValue stops with for `value`, or nothing.
std::optional<std::string_view> batteryValueStop(const std::optional<QByteArray>& value);
// Byte 0 widened; 0 while no value was ever read. Stops the process when
// batteryValueStop names a cause.
qint64 batteryLevelFromValue(const std::optional<QByteArray>& value);

}  // namespace tw::pen
