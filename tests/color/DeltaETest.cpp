#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "color/ColorNotations.h"
#include "color/DeltaE.h"

namespace tw {
namespace {

struct Pair {
  LabColor first;
  LabColor second;
  double deltaE;
};

// Table 1 of G. Sharma, W. Wu and E. N. Dalal, "The CIEDE2000 color-difference
// formula: implementation notes, supplementary test data, and mathematical
// observations", Color Research & Application 30(1), 21-30 (2005): the 34
// pairs with their published differences, rounded there to four decimals.
// Pairs 7 to 16 exercise the zero-chroma and hue-wrapping cases.
constexpr Pair kPublished[] = {
    {{50.0000, 2.6772, -79.7751}, {50.0000, 0.0000, -82.7485}, 2.0425},
    {{50.0000, 3.1571, -77.2803}, {50.0000, 0.0000, -82.7485}, 2.8615},
    {{50.0000, 2.8361, -74.0200}, {50.0000, 0.0000, -82.7485}, 3.4412},
    {{50.0000, -1.3802, -84.2814}, {50.0000, 0.0000, -82.7485}, 1.0000},
    {{50.0000, -1.1848, -84.8006}, {50.0000, 0.0000, -82.7485}, 1.0000},
    {{50.0000, -0.9009, -85.5211}, {50.0000, 0.0000, -82.7485}, 1.0000},
    {{50.0000, 0.0000, 0.0000}, {50.0000, -1.0000, 2.0000}, 2.3669},
    {{50.0000, -1.0000, 2.0000}, {50.0000, 0.0000, 0.0000}, 2.3669},
    {{50.0000, 2.4900, -0.0010}, {50.0000, -2.4900, 0.0009}, 7.1792},
    {{50.0000, 2.4900, -0.0010}, {50.0000, -2.4900, 0.0010}, 7.1792},
    {{50.0000, 2.4900, -0.0010}, {50.0000, -2.4900, 0.0011}, 7.2195},
    {{50.0000, 2.4900, -0.0010}, {50.0000, -2.4900, 0.0012}, 7.2195},
    {{50.0000, -0.0010, 2.4900}, {50.0000, 0.0009, -2.4900}, 4.8045},
    {{50.0000, -0.0010, 2.4900}, {50.0000, 0.0010, -2.4900}, 4.8045},
    {{50.0000, -0.0010, 2.4900}, {50.0000, 0.0011, -2.4900}, 4.7461},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 0.0000, -2.5000}, 4.3065},
    {{50.0000, 2.5000, 0.0000}, {73.0000, 25.0000, -18.0000}, 27.1492},
    {{50.0000, 2.5000, 0.0000}, {61.0000, -5.0000, 29.0000}, 22.8977},
    {{50.0000, 2.5000, 0.0000}, {56.0000, -27.0000, -3.0000}, 31.9030},
    {{50.0000, 2.5000, 0.0000}, {58.0000, 24.0000, 15.0000}, 19.4535},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 3.1736, 0.5854}, 1.0000},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 3.2972, 0.0000}, 1.0000},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 1.8634, 0.5757}, 1.0000},
    {{50.0000, 2.5000, 0.0000}, {50.0000, 3.2592, 0.3350}, 1.0000},
    {{60.2574, -34.0099, 36.2677}, {60.4626, -34.1751, 39.4387}, 1.2644},
    {{63.0109, -31.0961, -5.8663}, {62.8187, -29.7946, -4.0864}, 1.2630},
    {{61.2901, 3.7196, -5.3901}, {61.4292, 2.2480, -4.9620}, 1.8731},
    {{35.0831, -44.1164, 3.7933}, {35.0232, -40.0716, 1.5901}, 1.8645},
    {{22.7233, 20.0904, -46.6940}, {23.0331, 14.9730, -42.5619}, 2.0373},
    {{36.4612, 47.8580, 18.3852}, {36.2715, 50.5065, 21.2231}, 1.4146},
    {{90.8027, -2.0831, 1.4410}, {91.1528, -1.6435, 0.0447}, 1.4441},
    {{90.9257, -0.5406, -0.9208}, {88.6381, -0.8985, -0.7239}, 1.5381},
    {{6.7747, -0.2908, -2.4247}, {5.8714, -0.0985, -2.2286}, 0.6377},
    {{2.0776, 0.0795, -1.1350}, {0.9033, -0.0636, -0.5514}, 0.9082},
};

TEST(DeltaE2000, MatchesEveryPublishedPairToFourDecimals) {
  static_assert(std::size(kPublished) == 34);
  int number = 1;
  for (const Pair& p : kPublished) {
    SCOPED_TRACE("pair " + std::to_string(number++));
    EXPECT_NEAR(deltaE2000(p.first, p.second), p.deltaE, 5e-5);
  }
}

TEST(DeltaE2000, IsSymmetricOverRandomColours) {
  std::mt19937_64 random(20050101);
  std::uniform_real_distribution<double> lightness(0.0, 100.0);
  std::uniform_real_distribution<double> axis(-128.0, 127.0);
  for (int i = 0; i < 5000; ++i) {
    const LabColor x{lightness(random), axis(random), axis(random)};
    const LabColor y{lightness(random), axis(random), axis(random)};
    const double forward = deltaE2000(x, y);
    ASSERT_TRUE(std::isfinite(forward));
    ASSERT_GT(forward, 0.0);
    ASSERT_DOUBLE_EQ(forward, deltaE2000(y, x)) << "pair " << i;
  }
}

TEST(DeltaE2000, PublishedPairsAreSymmetricToo) {
  for (const Pair& p : kPublished) {
    EXPECT_DOUBLE_EQ(deltaE2000(p.first, p.second), deltaE2000(p.second, p.first));
  }
}

TEST(DeltaE2000, IdenticalColoursDifferByZero) {
  for (const LabColor& c :
       {LabColor{0, 0, 0}, LabColor{100, 0, 0}, LabColor{50, 2.5, 0}, LabColor{53.24, 80.09, 67.2},
        LabColor{32.3, 79.19, -107.86}, LabColor{0.9033, -0.0636, -0.5514}}) {
    EXPECT_EQ(deltaE2000(c, c), 0.0);
  }
}

// What `tintwell convert` prints as Lab for these colours (captured from the
// command), against the unrounded values rounded to the printed one decimal.
struct Printed {
  std::uint8_t r, g, b;
  const char* lab;
};

std::string tenths(const LabColor& c) {
  char text[64];
  std::snprintf(text, sizeof text, "%.1f  %.1f  %.1f ", roundHalfAway(c.L * 10.0) / 10.0,
                roundHalfAway(c.a * 10.0) / 10.0, roundHalfAway(c.b * 10.0) / 10.0);
  return text;
}

TEST(LabOfSRGB8, AgreesWithTheConvertCommand) {
  constexpr Printed kPrinted[] = {
      {255, 0, 0, "53.2  80.1  67.2 "},    {171, 205, 239, "81.0  -3.7  -20.5 "},
      {0, 0, 0, "0.0  0.0  0.0 "},         {255, 255, 255, "100.0  0.0  -0.0 "},
      {18, 52, 86, "21.0  1.1  -24.1 "},   {128, 128, 128, "53.6  0.0  -0.0 "},
      {1, 2, 3, "0.5  -0.1  -0.5 "},       {250, 128, 114, "67.3  45.2  29.1 "},
      {34, 139, 34, "50.6  -49.6  45.0 "}, {75, 0, 130, "20.5  51.7  -53.3 "},
  };
  for (const Printed& p : kPrinted) {
    EXPECT_EQ(tenths(labOfSRGB8(p.r, p.g, p.b)), p.lab)
        << int{p.r} << " " << int{p.g} << " " << int{p.b};
  }
}

// Across a coarse walk of the cube the rounded values are exactly the panel's.
TEST(LabOfSRGB8, RoundsToThePanelsLabEverywhere) {
  for (int r = 0; r < 256; r += 15) {
    for (int g = 0; g < 256; g += 17) {
      for (int b = 0; b < 256; b += 5) {
        const LabColor u = labOfSRGB8(static_cast<std::uint8_t>(r), static_cast<std::uint8_t>(g),
                                      static_cast<std::uint8_t>(b));
        const Lab shown = computeNotations(r, g, b).lab;
        ASSERT_EQ(roundHalfAway(u.L * 10.0) / 10.0, shown.L);
        ASSERT_EQ(roundHalfAway(u.a * 10.0) / 10.0, shown.a);
        ASSERT_EQ(roundHalfAway(u.b * 10.0) / 10.0, shown.b);
      }
    }
  }
}

TEST(LabOfSRGB8, NearbyColoursDifferLittleAndDistantOnesMuch) {
  const double near = deltaE2000(labOfSRGB8(200, 100, 50), labOfSRGB8(201, 100, 50));
  EXPECT_GT(near, 0.0);
  EXPECT_LT(near, 1.0);
  EXPECT_GT(deltaE2000(labOfSRGB8(0, 0, 0), labOfSRGB8(255, 255, 255)), 99.0);
}

}  // namespace
}  // namespace tw
