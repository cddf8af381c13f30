#include <gtest/gtest.h>

#include "color/ColorNotations.h"
#include "tests/color/ReferenceNotations.h"

namespace tw {
namespace {

// Each case walks a quarter of the red axis, so CTest can run them side by side.
class EveryColour : public ::testing::TestWithParam<int> {};

TEST_P(EveryColour, NotationLineMatchesTheReference) {
  const int firstRed = GetParam() * 64;
  long mismatches = 0;
  char buffer[kNotationLineMax];
  for (int r = firstRed; r < firstRed + 64; ++r) {
    for (int g = 0; g < 256; ++g) {
      for (int b = 0; b < 256; ++b) {
        const std::size_t n = formatNotationLine(computeNotations(r, g, b), buffer);
        const std::string expected = reference::notationLine(r, g, b);
        if (expected.size() != n || expected.compare(0, n, buffer, n) != 0) {
          if (++mismatches <= 10) {
            ADD_FAILURE() << r << ' ' << g << ' ' << b << "\n got      " << std::string(buffer, n)
                          << " expected " << expected;
          }
        }
      }
    }
  }
  EXPECT_EQ(mismatches, 0);
}

INSTANTIATE_TEST_SUITE_P(RedQuarters, EveryColour, ::testing::Range(0, 4));

TEST(EveryColourAllColor, TextsMatchTheLineForASample) {
  // AllColor's texts come from the same formatter; check the join on a stride.
  for (int v = 0; v < (1 << 24); v += 9973) {
    const int r = v >> 16, g = (v >> 8) & 255, b = v & 255;
    const auto c = convertToAllColor(r, g, b);
    const std::string joined =
        (c->Hex + '\t' + c->txtRGB + '\t' + c->txtCMYK + '\t' + c->txtHSB + '\t' + c->txtLAB + '\n')
            .toStdString();
    ASSERT_EQ(joined, reference::notationLine(r, g, b));
  }
}

}  // namespace
}  // namespace tw
