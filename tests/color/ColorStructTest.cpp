#include <gtest/gtest.h>

#include "color/ColorStruct.h"

namespace tw {
namespace {

TEST(ColorStruct, FromChannelsBuildsHexAndPlatformColour) {
  const ColorStruct c = ColorStruct::fromChannels(255, 128, 0);
  EXPECT_EQ(c.iR, 255);
  EXPECT_EQ(c.iG, 128);
  EXPECT_EQ(c.iB, 0);
  EXPECT_EQ(c.colorHex, QLatin1String("FF8000"));
  EXPECT_EQ(c.color.spec(), QColor::Rgb);
  EXPECT_EQ(c.color.red(), 255);
  EXPECT_EQ(c.color.green(), 128);
  EXPECT_EQ(c.color.blue(), 0);
  EXPECT_EQ(c.color.alphaF(), 1.0f);
}

TEST(ColorStruct, HexIsUpperCaseAndPadded) {
  EXPECT_EQ(hexText(10, 11, 12), QLatin1String("0A0B0C"));
  EXPECT_EQ(hexText(171, 205, 239), QLatin1String("ABCDEF"));
}

TEST(ColorStruct, SameChannelsInAnotherColourSpaceAreNotEqual) {
  const ColorStruct a = ColorStruct::fromChannels(10, 20, 30);
  ColorStruct b = a;
  EXPECT_EQ(a.color, b.color);
  b.color = a.color.toHsv();
  EXPECT_NE(a.color, b.color);
  EXPECT_NE(a, b);
}

TEST(ColorStruct, PlatformColourMatchesAnEightBitSample) {
  // A screen sample arrives as 8-bit channels; the pen's colour is built from
  // fractions. Both must compare equal for the same channels.
  for (int v = 0; v < 256; ++v) {
    EXPECT_EQ(platformColor(v, 255 - v, v / 2), QColor(v, 255 - v, v / 2)) << v;
  }
}

}  // namespace
}  // namespace tw
