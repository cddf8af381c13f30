// How the X11 sampler turns a pixel into a pick's 8-bit channels, on every
// kind of visual: the component's fraction of its maximum × 255, truncated.
#include "color/x11/X11ScreenSampler.h"

#include "color/x11/X11Compositor.h"

#include <gtest/gtest.h>

#include <string>

namespace tw::x11 {
namespace {

struct PixelCase {
  const char* name;
  unsigned long pixel;
  unsigned long mask;
  qint64 channel;
};

class PixelChannel : public ::testing::TestWithParam<PixelCase> {};

TEST_P(PixelChannel, IsTheFractionOfTheMaskTimes255Truncated) {
  EXPECT_EQ(pixelChannel(GetParam().pixel, GetParam().mask), GetParam().channel);
}

// 5-6-5: red 0xF800, green 0x07E0, blue 0x001F. 24 bits: 0xFF0000 and so on.
// 30 bits (10-10-10): red 0x3FF00000.
INSTANTIATE_TEST_SUITE_P(
    Table, PixelChannel,
    ::testing::Values(PixelCase{"emptyMask", 0xFFFFFF, 0x0, 0},
                      PixelCase{"fiveBitZero", 0x0000, 0x001F, 0},
                      PixelCase{"fiveBitFull", 0x001F, 0x001F, 255},
                      PixelCase{"fiveBit15", 15, 0x001F, 123},  // 123.39
                      PixelCase{"fiveBit3", 3, 0x001F, 24},     // 24.68, not 25
                      PixelCase{"fiveBit1", 1, 0x001F, 8},      // 8.23
                      PixelCase{"fiveBitRedFull", 0xF800, 0xF800, 255},
                      PixelCase{"fiveBitRed3", 3UL << 11, 0xF800, 24},
                      PixelCase{"sixBitFull", 0x07E0, 0x07E0, 255},
                      PixelCase{"sixBit11", 11UL << 5, 0x07E0, 44},   // 44.52, not 45
                      PixelCase{"sixBit32", 32UL << 5, 0x07E0, 129},  // 129.52
                      PixelCase{"otherChannelsIgnored", 0xFFFF & ~0x07E0UL, 0x07E0, 0},
                      PixelCase{"eightBit250", 0xFAFAFA, 0xFF0000, 250},
                      PixelCase{"eightBitGreen", 0x3C7FE0, 0x00FF00, 127},
                      PixelCase{"eightBitBlue", 0x3C7FE0, 0x0000FF, 224},
                      PixelCase{"tenBit512", 512UL << 20, 0x3FF00000, 127},  // 127.62
                      PixelCase{"tenBitFull", 0x3FF00000, 0x3FF00000, 255}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PixelComponent, IsTheValueOverTheMasksMaximum) {
  EXPECT_EQ(pixelComponent(15, 0x1F), 15.0 / 31.0);
  EXPECT_EQ(pixelComponent(11UL << 5, 0x07E0), 11.0 / 63.0);
  EXPECT_EQ(pixelComponent(0xFA0000, 0xFF0000), 250.0 / 255.0);
  EXPECT_EQ(pixelComponent(0x123456, 0), 0.0);
}

TEST(PixelChannel, EveryValueOfFiveSixAndEightBitsIsItsExactFloor) {
  for (unsigned bits : {5u, 6u, 8u}) {
    const unsigned long maximum = (1UL << bits) - 1;
    for (unsigned long value = 0; value <= maximum; ++value) {
      EXPECT_EQ(pixelChannel(value << 3, maximum << 3), static_cast<qint64>(value * 255 / maximum))
          << bits << " bits, value " << value;
    }
  }
}

struct ColormapCase {
  const char* name;
  unsigned short value;
  qint64 channel;
};

class ColormapChannel : public ::testing::TestWithParam<ColormapCase> {};

TEST_P(ColormapChannel, IsTheFractionOf65535Times255Truncated) {
  EXPECT_EQ(colormapChannel(GetParam().value), GetParam().channel);
}

// A shift by 8 would give 128, 1, 128 and 255 for the four rows after "zero".
INSTANTIATE_TEST_SUITE_P(
    Table, ColormapChannel,
    ::testing::Values(ColormapCase{"zero", 0x0000, 0}, ColormapCase{"half", 0x8000, 127},  // 127.50
                      ColormapCase{"low", 0x0100, 0},                                      // 0.996
                      ColormapCase{"below128", 0x807F, 127}, ColormapCase{"below255", 0xFFFE, 254},
                      ColormapCase{"eightBit128", 0x8080, 128}, ColormapCase{"full", 0xFFFF, 255}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ColormapChannel, EveryValueIsItsExactFloor) {
  for (unsigned value = 0; value <= 0xFFFF; ++value)
    ASSERT_EQ(colormapChannel(static_cast<unsigned short>(value)),
              static_cast<qint64>(value * 255 / 65535))
        << value;
}

TEST(X11ScreenSampler, ReadsAtOnceUnlessAWindowOfOursJustLeftTheScreen) {
  if (compositorRunning()) GTEST_SKIP() << "a compositor runs here: every read waits";
  EXPECT_FALSE(X11ScreenSampler::mustSettle());
  noteCoveringWindowGone();
  EXPECT_TRUE(X11ScreenSampler::mustSettle());
}

}  // namespace
}  // namespace tw::x11
