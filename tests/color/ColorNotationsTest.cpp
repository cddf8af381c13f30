#include <gtest/gtest.h>

#include "color/ColorNotations.h"

namespace tw {
namespace {

struct Texts {
  const char* hex;
  const char* rgb;
  const char* cmyk;
  const char* hsb;
  const char* lab;
};

Texts textsOf(const AllColor& c) {
  static thread_local std::string s[5];
  s[0] = c.Hex.toStdString();
  s[1] = c.txtRGB.toStdString();
  s[2] = c.txtCMYK.toStdString();
  s[3] = c.txtHSB.toStdString();
  s[4] = c.txtLAB.toStdString();
  return {s[0].c_str(), s[1].c_str(), s[2].c_str(), s[3].c_str(), s[4].c_str()};
}

TEST(ColorNotations, BlackTakesTheEarlyExitWithKOne) {
  const auto c = convertToAllColor(0, 0, 0);
  const Texts t = textsOf(*c);
  EXPECT_STREQ(t.hex, "000000");
  EXPECT_STREQ(t.rgb, "0  0  0");
  EXPECT_STREQ(t.cmyk, "0  0  0  1");
  EXPECT_STREQ(t.hsb, "0  0  0");
  EXPECT_STREQ(t.lab, "0.0  0.0  0.0 ");
}

TEST(ColorNotations, WhiteKeepsTheSignOfARoundedNegativeZero) {
  const auto c = convertToAllColor(255, 255, 255);
  const Texts t = textsOf(*c);
  EXPECT_STREQ(t.hex, "FFFFFF");
  EXPECT_STREQ(t.cmyk, "0  0  0  0");
  EXPECT_STREQ(t.hsb, "0  0  100");
  EXPECT_STREQ(t.lab, "100.0  0.0  -0.0 ");
  EXPECT_TRUE(std::signbit(c->Lab->b));
}

TEST(ColorNotations, PureRedInEveryNotation) {
  const auto c = convertToAllColor(255, 0, 0);
  const Texts t = textsOf(*c);
  EXPECT_STREQ(t.hex, "FF0000");
  EXPECT_STREQ(t.cmyk, "0  100  100  0");
  EXPECT_STREQ(t.hsb, "0  100  100");
  EXPECT_STREQ(t.lab, "53.2  80.1  67.2 ");
}

TEST(ColorNotations, LightBlueLabAndUpperCaseHex) {
  const auto c = convertToAllColor(171, 205, 239);
  const Texts t = textsOf(*c);
  EXPECT_STREQ(t.hex, "ABCDEF");
  EXPECT_STREQ(t.lab, "81.0  -3.7  -20.5 ");
  EXPECT_STREQ(t.rgb, "171  205  239");
}

TEST(ColorNotations, NearBlackTakesTheGeneralCmykPath) {
  const CMYK c = rgbToCMYK(1.0 / 255.0, 0.0, 0.0);
  EXPECT_EQ(c.C, 0);
  EXPECT_EQ(c.M, 100);
  EXPECT_EQ(c.Y, 100);
  EXPECT_EQ(c.K, 100);  // round(99.6078...)
}

TEST(ColorNotations, ChannelTenIsLinearisedByDivisionAndElevenByPower) {
  const double ten = 10.0 / 255.0;
  const double eleven = 11.0 / 255.0;
  ASSERT_LT(ten, 0.04045);
  ASSERT_GT(eleven, 0.04045);
  EXPECT_EQ(linearSRGB(ten), ten / 12.92);
  EXPECT_NE(linearSRGB(ten), std::pow((ten + 0.055) / 1.055, 2.4));
  EXPECT_EQ(linearSRGB(eleven), std::pow((eleven + 0.055) / 1.055, 2.4));
  EXPECT_NE(linearSRGB(eleven), eleven / 12.92);
  // The Lab conversion goes through the same curve.
  const double y = linearSRGB(eleven) * 100.0 * 0.0722 / 100.0;
  const double f = y > 0.008856 ? std::pow(y, 0.3333333333333333) : y * 7.787 + 16.0 / 116.0;
  EXPECT_EQ(rgbToLab(0, 0, eleven).L, std::round((f * 116.0 - 16.0) * 10.0) / 10.0);
}

TEST(ColorNotations, OnlyTheLabTextEndsWithABlank) {
  for (const auto& rgb : {std::array<int, 3>{0, 0, 0}, {255, 255, 255}, {18, 52, 86}, {1, 2, 3}}) {
    const auto c = convertToAllColor(rgb[0], rgb[1], rgb[2]);
    EXPECT_TRUE(c->txtLAB.endsWith(QLatin1Char(' ')));
    EXPECT_FALSE(c->txtLAB.endsWith(QLatin1String("  ")));
    for (const QString* text : {&c->Hex, &c->txtRGB, &c->txtCMYK, &c->txtHSB}) {
      EXPECT_FALSE(text->endsWith(QLatin1Char(' '))) << text->toStdString();
    }
  }
}

TEST(ColorNotations, HueReaches360WhenItRoundsUpFromJustBelowOne) {
  const auto c = convertToAllColor(255, 0, 1);
  EXPECT_EQ(c->HSB->H, 360.0);
  EXPECT_EQ(c->txtHSB, QLatin1String("360  100  100"));
}

TEST(ColorNotations, HueOfPrimariesAndSecondaries) {
  EXPECT_EQ(convertToAllColor(0, 255, 0)->txtHSB, QLatin1String("120  100  100"));
  EXPECT_EQ(convertToAllColor(0, 0, 255)->txtHSB, QLatin1String("240  100  100"));
  EXPECT_EQ(convertToAllColor(255, 255, 0)->txtHSB, QLatin1String("60  100  100"));
  EXPECT_EQ(convertToAllColor(0, 255, 255)->txtHSB, QLatin1String("180  100  100"));
  EXPECT_EQ(convertToAllColor(255, 0, 255)->txtHSB, QLatin1String("300  100  100"));
  EXPECT_EQ(convertToAllColor(128, 128, 128)->txtHSB, QLatin1String("0  0  50"));
}

TEST(ColorNotations, RecordsHoldTheNumbersBehindTheTexts) {
  const auto c = convertToAllColor(18, 52, 86);
  ASSERT_TRUE(c->RGB && c->CMYK && c->HSB && c->Lab);
  EXPECT_EQ(c->RGB->R, 18);
  EXPECT_EQ(c->RGB->G, 52);
  EXPECT_EQ(c->RGB->B, 86);
  EXPECT_EQ(c->txtCMYK, QStringLiteral("%1  %2  %3  %4")
                            .arg(c->CMYK->C)
                            .arg(c->CMYK->M)
                            .arg(c->CMYK->Y)
                            .arg(c->CMYK->K));
}

TEST(ColorNotations, FreshAllColorIsEmpty) {
  const AllColor c;
  EXPECT_TRUE(c.Hex.isEmpty() && c.txtRGB.isEmpty() && c.txtCMYK.isEmpty() && c.txtHSB.isEmpty() &&
              c.txtLAB.isEmpty());
  EXPECT_FALSE(c.RGB || c.CMYK || c.HSB || c.Lab);
}

TEST(ColorNotations, ChannelsAreNotClampedInHexAndRgb) {
  const auto c = convertToAllColor(256, 0, 0);
  EXPECT_EQ(c->Hex, QLatin1String("1000000"));
  EXPECT_EQ(c->txtRGB, QLatin1String("256  0  0"));
}

TEST(ColorNotations, RoundingIsHalfAwayFromZero) {
  EXPECT_EQ(roundHalfAway(2.5), 3.0);
  EXPECT_EQ(roundHalfAway(-2.5), -3.0);
  EXPECT_EQ(roundHalfAway(0.49999999999999994), 0.0);
}

TEST(ColorNotationsDeathTest, ANonFiniteValueStopsTheProcess) {
  EXPECT_DEATH(checkedTruncate(std::nan("")), "not finite");
  EXPECT_DEATH(checkedTruncate(1e300), "not finite");
}

TEST(ColorNotationsDeathTest, ANegativeChannelThatZeroesTheCmykDivisorStops) {
  // (-1, 0, 0): the smallest of the three complements is 1, so the divisor is 0.
  EXPECT_DEATH(convertToAllColor(-1, 0, 0), "not finite");
}

TEST(ColorNotations, NotationLineJoinsTheTextsWithTabs) {
  char buffer[kNotationLineMax];
  const std::size_t n = formatNotationLine(computeNotations(171, 205, 239), buffer);
  const std::string line(buffer, n);
  const auto c = convertToAllColor(171, 205, 239);
  EXPECT_EQ(line, (c->Hex + '\t' + c->txtRGB + '\t' + c->txtCMYK + '\t' + c->txtHSB + '\t' +
                   c->txtLAB + '\n')
                      .toStdString());
}

}  // namespace
}  // namespace tw
