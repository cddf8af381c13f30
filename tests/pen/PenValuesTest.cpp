#include "pen/PenValues.h"

#include <gtest/gtest.h>

namespace tw::pen {
namespace {

TEST(PenValues, ColourPacketGivesByteZeroAndTheThreeChannels) {
  const ColorPacket packet = decodeColorPacket(QByteArray::fromHex("01FF8000"));
  EXPECT_EQ(packet.leading, 1);
  EXPECT_EQ(packet.red, 255);
  EXPECT_EQ(packet.green, 128);
  EXPECT_EQ(packet.blue, 0);
}

TEST(PenValues, BytesPastTheFourthAreIgnored) {
  const ColorPacket packet = decodeColorPacket(QByteArray::fromHex("000A0B0CFFFF"));
  EXPECT_EQ(packet.red, 10);
  EXPECT_EQ(packet.green, 11);
  EXPECT_EQ(packet.blue, 12);
}

TEST(PenValues, ColourStopIsNamedOnlyForAbsentOrShortValues) {
  EXPECT_EQ(colorPacketStop(std::nullopt), "colour characteristic without a value");
  for (const char* hex : {"", "01", "01FF", "01FF80"})
    EXPECT_EQ(colorPacketStop(QByteArray::fromHex(hex)), "colour packet shorter than 4 bytes")
        << hex;
  EXPECT_EQ(colorPacketStop(QByteArray::fromHex("01FF8000")), std::nullopt);
}

TEST(PenValues, ShortColourPacketStopsTheProcess) {
  EXPECT_DEATH(decodeColorPacket(QByteArray::fromHex("01FF80")),
               "^tintwell: fatal: colour packet shorter than 4 bytes\n$");
}

TEST(PenValues, BatteryLevelIsByteZeroWidenedAndZeroWithoutAValue) {
  EXPECT_EQ(batteryLevelFromValue(QByteArray::fromHex("FF01")), 255);
  EXPECT_EQ(batteryLevelFromValue(QByteArray::fromHex("55")), 85);
  EXPECT_EQ(batteryLevelFromValue(std::nullopt), 0);
  EXPECT_EQ(batteryValueStop(std::nullopt), std::nullopt);
  EXPECT_EQ(batteryValueStop(QByteArray("\x00", 1)), std::nullopt);
}

TEST(PenValues, EmptyBatteryValueStopsTheProcess) {
  EXPECT_EQ(batteryValueStop(QByteArray()), "empty battery level value");
  EXPECT_DEATH(batteryLevelFromValue(QByteArray()),
               "^tintwell: fatal: empty battery level value\n$");
}

}  // namespace
}  // namespace tw::pen
