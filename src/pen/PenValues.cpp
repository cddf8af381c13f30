#include "pen/PenValues.h"

#include "common/Fatal.h"

namespace tw::pen {

namespace {

qint64 widened(const QByteArray& value, qsizetype i) {
  return static_cast<qint64>(static_cast<quint8>(value.at(i)));
}

}  // namespace

std::optional<std::string_view> colorPacketStop(const std::optional<QByteArray>& value) {
  if (!value) return "colour characteristic without a value";
  if (value->size() < 4) return "colour packet shorter than 4 bytes";
  return std::nullopt;
}

ColorPacket decodeColorPacket(const std::optional<QByteArray>& value) {
  if (const std::optional<std::string_view> cause = colorPacketStop(value)) fatalStop(*cause);
  return ColorPacket{widened(*value, 0), widened(*value, 1), widened(*value, 2),
                     widened(*value, 3)};
}

std::optional<std::string_view> batteryValueStop(const std::optional<QByteArray>& value) {
  if (value && value->isEmpty()) return "empty battery level value";
  return std::nullopt;
}

qint64 batteryLevelFromValue(const std::optional<QByteArray>& value) {
  if (const std::optional<std::string_view> cause = batteryValueStop(value)) fatalStop(*cause);
  return value ? widened(*value, 0) : 0;
}

}  // namespace tw::pen
