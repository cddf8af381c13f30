#pragma once

#include <QColor>
#include <QString>
#include <QtGlobal>

namespace tw {

// The colour space a platform colour is in. Colours built from channels (the
// pen's, the start-up colour) are in the device-independent RGB space; a
// screen pick stays in the space of the display it was read from. Platform
// colours of different spaces are never equal, whatever their components.
enum class ColorSpace { deviceIndependentRgb, display };

// One colour as it travels between the pen, the screen picker, the panel and the
// bridge. Channels are 8-bit values held in signed 64-bit integers.
struct ColorStruct {
  qint64 iR = 0;
  qint64 iG = 0;
  qint64 iB = 0;
  // Six upper-case hexadecimal digits, red then green then blue, no prefix.
  QString colorHex;
  // The platform colour's components: channels / 255.0 with alpha 1.0, or for
  // a screen pick the sampled colour itself.
  QColor color;
  // The space `color` is in.
  ColorSpace colorSpace = ColorSpace::deviceIndependentRgb;

  // Builds the hex text and the platform colour from the three channels.
  static ColorStruct fromChannels(qint64 red, qint64 green, qint64 blue);

  // Whether the two platform colours are equal as the platform compares them:
  // the same colour space, and equal QColors (spec and components). A screen
  // pick never equals a colour built from channels, even with the same ones.
  bool hasSameColor(const ColorStruct& other) const {
    return colorSpace == other.colorSpace && color == other.color;
  }

  friend bool operator==(const ColorStruct&, const ColorStruct&) = default;
};

// "%02X" applied to red, green and blue in turn. A channel above 255 gives three
// digits and nothing clamps it.
QString hexText(qint64 red, qint64 green, qint64 blue);

// The platform colour for three 8-bit channels: each divided by 255.0, alpha 1.0.
QColor platformColor(qint64 red, qint64 green, qint64 blue);

}  // namespace tw
