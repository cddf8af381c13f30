#include "bridge/PhotoshopSettings.h"

#include <gtest/gtest.h>

namespace tw {
namespace {

TEST(PhotoshopSettings, EmptyFileBecomesTheLineAlone) {
  EXPECT_EQ(patchedPhotoshopSettings(""), QByteArray("WarnRunningScripts 0"));
}

TEST(PhotoshopSettings, BlankLinesAreDroppedAndKeptLinesEndWithALineFeed) {
  EXPECT_EQ(patchedPhotoshopSettings("\nA\n\n\nB"), QByteArray("A\nB\nWarnRunningScripts 0"));
}

TEST(PhotoshopSettings, CarriageReturnsAndOtherBytesAreKept) {
  EXPECT_EQ(patchedPhotoshopSettings("Caf\xe9\r\n\x80\n"),
            QByteArray("Caf\xe9\r\n\x80\nWarnRunningScripts 0"));
}

TEST(PhotoshopSettings, FileHoldingTheLineAnywhereIsLeftAsItIs) {
  EXPECT_EQ(patchedPhotoshopSettings("a\nxWarnRunningScripts 0y\n"), std::nullopt);
  EXPECT_EQ(patchedPhotoshopSettings("WarnRunningScripts 0"), std::nullopt);
}

TEST(PhotoshopSettings, LineSplitAcrossALineFeedDoesNotCount) {
  EXPECT_EQ(patchedPhotoshopSettings("WarnRunning\nScripts 0"),
            QByteArray("WarnRunning\nScripts 0\nWarnRunningScripts 0"));
}

}  // namespace
}  // namespace tw
