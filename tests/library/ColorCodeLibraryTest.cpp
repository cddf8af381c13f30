#include <gtest/gtest.h>

#include <type_traits>

#include "library/ColorCodeLibrary.h"

namespace tw {
namespace {

TEST(ColorCodeLibrary, NewEntryIsEmptyWithZeroChannels) {
  const ColorCodeLibrary entry;
  EXPECT_TRUE(entry.name.isEmpty());
  EXPECT_TRUE(entry.abbr.isEmpty());
  EXPECT_EQ(entry.sR, 0);
  EXPECT_EQ(entry.sG, 0);
  EXPECT_EQ(entry.sB, 0);
  EXPECT_EQ(entry.delta, 0);
}

TEST(ColorCodeLibrary, HoldsTwoTextsAndFourSigned64BitIntegersInOrder) {
  // Designated initialisers only compile in declaration order.
  const ColorCodeLibrary entry{.name = QStringLiteral("Warm Red"),
                               .abbr = QStringLiteral("WR"),
                               .sR = 249,
                               .sG = 66,
                               .sB = 58,
                               .delta = -1};
  EXPECT_EQ(entry.name, QStringLiteral("Warm Red"));
  EXPECT_EQ(entry.abbr, QStringLiteral("WR"));
  EXPECT_EQ(entry.sR, 249);
  EXPECT_EQ(entry.sG, 66);
  EXPECT_EQ(entry.sB, 58);
  EXPECT_EQ(entry.delta, -1);
  static_assert(std::is_same_v<decltype(ColorCodeLibrary::name), QString>);
  static_assert(std::is_same_v<decltype(ColorCodeLibrary::abbr), QString>);
  static_assert(std::is_same_v<decltype(ColorCodeLibrary::sR), qint64>);
  static_assert(std::is_same_v<decltype(ColorCodeLibrary::sG), qint64>);
  static_assert(std::is_same_v<decltype(ColorCodeLibrary::sB), qint64>);
  static_assert(std::is_same_v<decltype(ColorCodeLibrary::delta), qint64>);
  // Nothing else: two texts and four integers.
  static_assert(sizeof(ColorCodeLibrary) == 2 * sizeof(QString) + 4 * sizeof(qint64));
}

TEST(ColorCodeLibrary, CopiesAreIndependent) {
  ColorCodeLibrary a{.name = QStringLiteral("Blue"), .abbr = QStringLiteral("B"), .sB = 255};
  ColorCodeLibrary b = a;
  b.name = QStringLiteral("Navy");
  b.sB = 128;
  EXPECT_EQ(a.name, QStringLiteral("Blue"));
  EXPECT_EQ(a.sB, 255);
  EXPECT_EQ(b.name, QStringLiteral("Navy"));
  EXPECT_EQ(b.sB, 128);
}

}  // namespace
}  // namespace tw
