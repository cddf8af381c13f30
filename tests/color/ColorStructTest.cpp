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
  // fractions. Their components agree for the same channels (what keeps a
  // pick apart from a pen colour is its colour space).
  for (int v = 0; v < 256; ++v) {
    EXPECT_EQ(platformColor(v, 255 - v, v / 2), QColor(v, 255 - v, v / 2)) << v;
  }
}

TEST(ColorStruct, ColoursBuiltFromChannelsAreInTheDeviceIndependentSpace) {
  EXPECT_EQ(ColorStruct::fromChannels(1, 2, 3).colorSpace, ColorSpace::deviceIndependentRgb);
  EXPECT_EQ(ColorStruct{}.colorSpace, ColorSpace::deviceIndependentRgb);
}

TEST(ColorStruct, AScreenColourNeverHasTheSameColourAsOneBuiltFromItsChannels) {
  const ColorStruct built = ColorStruct::fromChannels(250, 250, 250);
  ColorStruct picked = built;
  picked.colorSpace = ColorSpace::display;
  EXPECT_EQ(picked.color, built.color);
  EXPECT_FALSE(picked.hasSameColor(built));
  EXPECT_FALSE(built.hasSameColor(picked));
  EXPECT_NE(picked, built);
}

TEST(ColorStruct, SameSpaceAndEqualColoursAreTheSameColour) {
  const ColorStruct a = ColorStruct::fromChannels(18, 52, 86);
  EXPECT_TRUE(a.hasSameColor(ColorStruct::fromChannels(18, 52, 86)));
  EXPECT_FALSE(a.hasSameColor(ColorStruct::fromChannels(18, 52, 87)));
  ColorStruct picked = a;
  picked.colorSpace = ColorSpace::display;
  ColorStruct pickedAgain = picked;
  EXPECT_TRUE(picked.hasSameColor(pickedAgain));
  // Equal components in another spec are another platform colour.
  pickedAgain.color = picked.color.toHsv();
  EXPECT_FALSE(picked.hasSameColor(pickedAgain));
}

}  // namespace
}  // namespace tw
