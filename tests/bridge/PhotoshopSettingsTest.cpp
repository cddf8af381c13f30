#include "bridge/PhotoshopSettings.h"

#include <gtest/gtest.h>

namespace tw {
namespace {

TEST(PhotoshopSettings, EmptyFileBecomesTheLineAlone) {
  EXPECT_EQ(patchedPhotoshopSettings(""), QString("WarnRunningScripts 0"));
}

TEST(PhotoshopSettings, BlankLinesAreDroppedAndKeptLinesEndWithALineFeed) {
  EXPECT_EQ(patchedPhotoshopSettings("\nA\n\n\nB"), QString("A\nB\nWarnRunningScripts 0"));
}

TEST(PhotoshopSettings, CarriageReturnsAndOtherCharactersAreKept) {
  EXPECT_EQ(patchedPhotoshopSettings(QString::fromUtf8("Caf\u00e9\r\n\u4e2d\n")),
            QString::fromUtf8("Caf\u00e9\r\n\u4e2d\nWarnRunningScripts 0"));
}

TEST(PhotoshopSettings, FileHoldingTheLineAnywhereIsLeftAsItIs) {
  EXPECT_EQ(patchedPhotoshopSettings("a\nxWarnRunningScripts 0y\n"), std::nullopt);
  EXPECT_EQ(patchedPhotoshopSettings("WarnRunningScripts 0"), std::nullopt);
}

TEST(PhotoshopSettings, LineSplitAcrossALineFeedDoesNotCount) {
  EXPECT_EQ(patchedPhotoshopSettings("WarnRunning\nScripts 0"),
            QString("WarnRunning\nScripts 0\nWarnRunningScripts 0"));
}

struct BadBytes {
  const char* name;
  QByteArray bytes;
};

class SettingsBytesThatAreNotUtf8 : public ::testing::TestWithParam<BadBytes> {};

TEST_P(SettingsBytesThatAreNotUtf8, AreNoText) {
  EXPECT_EQ(photoshopSettingsText(GetParam().bytes), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Table, SettingsBytesThatAreNotUtf8,
                         ::testing::Values(BadBytes{"latin1", QByteArray("# Caf\xe9\nKeep 1\n")},
                                           BadBytes{"strayContinuation", QByteArray("A \x80\n")},
                                           BadBytes{"cutSequence", QByteArray("A \xe4\xb8")},
                                           BadBytes{"overlongSlash", QByteArray("\xc0\xaf")},
                                           BadBytes{"encodedSurrogate", QByteArray("\xed\xa0\x80")},
                                           BadBytes{"beyondUnicode",
                                                    QByteArray("\xf4\x90\x80\x80")},
                                           BadBytes{"utf16", QByteArray("\xff\xfe"
                                                                        "A\0",
                                                                        4)}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PhotoshopSettings, Utf8BytesAreTheirText) {
  EXPECT_EQ(photoshopSettingsText(""), QString(""));
  EXPECT_EQ(photoshopSettingsText("Caf\xc3\xa9\r\n\xe4\xb8\xad\n"),
            QString::fromUtf8("Caf\u00e9\r\n\u4e2d\n"));
  // A NUL is valid UTF-8 like any other character.
  EXPECT_EQ(photoshopSettingsText(QByteArray("A\0B", 3)), QString("A") + QChar(0) + QString("B"));
}

TEST(PhotoshopSettings, AByteOrderMarkStaysInTheText) {
  const std::optional<QString> text = photoshopSettingsText(
      "\xef\xbb\xbf"
      "A\n");
  ASSERT_TRUE(text);
  EXPECT_EQ(*text, QChar(0xFEFF) + QString("A\n"));
  EXPECT_EQ(patchedPhotoshopSettings(*text)->toUtf8(),
            "\xef\xbb\xbf"
            "A\nWarnRunningScripts 0");
}

}  // namespace
}  // namespace tw
