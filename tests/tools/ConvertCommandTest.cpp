#include <gtest/gtest.h>

#include "tests/support/RunTool.h"
#include "tools/ConvertCommand.h"

namespace tw {
namespace {

using testing::runTool;

const QByteArray kLightBlue =
    "ABCDEF\t171  205  239\t28  14  0  6\t210  28  94\t81.0  -3.7  -20.5 \n";

TEST(ConvertCommand, ThreeArgumentsPrintOneTabSeparatedLine) {
  const auto run = runTool({"convert", "171", "205", "239"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out, kLightBlue);
  EXPECT_EQ(run.err, "");
}

TEST(ConvertCommand, BadArgumentsAreRejected) {
  for (const QStringList& args :
       {QStringList{"convert", "1", "2"}, QStringList{"convert", "1", "2", "256"},
        QStringList{"convert", "a", "b", "c"}, QStringList{"convert", "1 2", "3", "4"}}) {
    const auto run = runTool(args);
    EXPECT_EQ(run.exitCode, 1) << args.join(' ').toStdString();
    EXPECT_EQ(run.out, "");
    EXPECT_FALSE(run.err.isEmpty());
  }
}

TEST(ConvertCommand, StandardInputGivesOneLinePerAcceptedLine) {
  const auto run = runTool({"convert"}, "0 0 0\n171\t205 239\n255 255 255");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out, QByteArray("000000\t0  0  0\t0  0  0  1\t0  0  0\t0.0  0.0  0.0 \n") +
                         kLightBlue +
                         "FFFFFF\t255  255  255\t0  0  0  0\t0  0  100\t100.0  0.0  -0.0 \n");
}

TEST(ConvertCommand, RejectedLinesAreNamedOnStandardErrorAndProcessingGoesOn) {
  const auto run = runTool({"convert"}, "1 2 3\nred green blue\n\n4 5 256\n171 205 239\n");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out.count('\n'), 2);
  EXPECT_TRUE(run.out.endsWith(kLightBlue));
  EXPECT_EQ(run.err,
            "tintwell convert: line 2: expected three integers from 0 to 255: red green blue\n"
            "tintwell convert: line 3: expected three integers from 0 to 255: \n"
            "tintwell convert: line 4: expected three integers from 0 to 255: 4 5 256\n");
}

TEST(ConvertCommand, CrlfInputIsAccepted) {
  const auto run = runTool({"convert"}, "171 205 239\r\n");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out, kLightBlue);
}

TEST(ConvertCommand, LongInputCrossesReadBuffers) {
  QByteArray input;
  for (int i = 0; i < 200000; ++i) input += "171 205 239\n";
  const auto run = runTool({"convert"}, input);
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out, kLightBlue.repeated(200000));
}

struct LineCase {
  const char* name;
  const char* line;
  bool accepted;
};

class ChannelLine : public ::testing::TestWithParam<LineCase> {};

TEST_P(ChannelLine, ParsesOrRejects) {
  EXPECT_EQ(parseChannelLine(GetParam().line).has_value(), GetParam().accepted);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ChannelLine,
    ::testing::Values(
        LineCase{"empty", "", false}, LineCase{"two_numbers", "1 2", false},
        LineCase{"four_numbers", "1 2 3 4", false}, LineCase{"above_255", "1 2 256", false},
        LineCase{"negative", "-1 2 3", false}, LineCase{"plus_sign", "+1 2 3", false},
        LineCase{"letters", "1 2 x", false}, LineCase{"glued", "1,2,3", false},
        LineCase{"decimal", "1.0 2 3", false}, LineCase{"huge", "99999999999999999999 2 3", false},
        LineCase{"lone_cr", "\r", false}, LineCase{"plain", "1 2 3", true},
        LineCase{"tabs_and_padding", "\t 0\t\t255  7 ", true},
        LineCase{"leading_zeros", "007 000 255", true}, LineCase{"crlf", "1 2 3\r", true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ChannelLineValues, KeepsTheNumbers) {
  const auto c = parseChannelLine(" 18 52\t86");
  ASSERT_TRUE(c);
  EXPECT_EQ((*c)[0], 18);
  EXPECT_EQ((*c)[1], 52);
  EXPECT_EQ((*c)[2], 86);
}

}  // namespace
}  // namespace tw
