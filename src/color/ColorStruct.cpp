#include "color/ColorStruct.h"

#include <cstdio>

namespace tw {

QString hexText(qint64 red, qint64 green, qint64 blue) {
  char buffer[3 * 17];
  // "%02X" takes an unsigned int, as the C formatting it mirrors does.
  const int n = std::snprintf(buffer, sizeof buffer, "%02X%02X%02X", static_cast<unsigned>(red),
                              static_cast<unsigned>(green), static_cast<unsigned>(blue));
  return QString::fromLatin1(buffer, n);
}

QColor platformColor(qint64 red, qint64 green, qint64 blue) {
  return QColor::fromRgbF(static_cast<float>(static_cast<double>(red) / 255.0),
                          static_cast<float>(static_cast<double>(green) / 255.0),
                          static_cast<float>(static_cast<double>(blue) / 255.0), 1.0f);
}

ColorStruct ColorStruct::fromChannels(qint64 red, qint64 green, qint64 blue) {
  return ColorStruct{red, green, blue, hexText(red, green, blue), platformColor(red, green, blue)};
}

}  // namespace tw
