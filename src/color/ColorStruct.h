#pragma once

#include <QColor>
#include <QString>
#include <QtGlobal>

namespace tw {

// One colour as it travels between the pen, the screen picker, the panel and the
// bridge. Channels are 8-bit values held in signed 64-bit integers.
struct ColorStruct {
  qint64 iR = 0;
  qint64 iG = 0;
  qint64 iB = 0;
  // Six upper-case hexadecimal digits, red then green then blue, no prefix.
  QString colorHex;
  // The platform colour: channels / 255.0 with alpha 1.0, or for a screen pick
  // the sampled colour itself. Equality follows QColor (spec and components).
  QColor color;

  // Builds the hex text and the platform colour from the three channels.
  static ColorStruct fromChannels(qint64 red, qint64 green, qint64 blue);

  friend bool operator==(const ColorStruct&, const ColorStruct&) = default;
};

// "%02X" applied to red, green and blue in turn. A channel above 255 gives three
// digits and nothing clamps it.
QString hexText(qint64 red, qint64 green, qint64 blue);

// The platform colour for three 8-bit channels: each divided by 255.0, alpha 1.0.
QColor platformColor(qint64 red, qint64 green, qint64 blue);

}  // namespace tw
