#include "pen/BluetoothUuid.h"

#include <gtest/gtest.h>

namespace tw::pen {
namespace {

TEST(BluetoothUuidTest, SixteenBitFormEqualsItsBaseForm) {
  EXPECT_EQ(parseBluetoothUuid(QStringLiteral("0x1F1F")),
            parseBluetoothUuid(QStringLiteral("00001F1F-0000-1000-8000-00805F9B34FB")));
  EXPECT_EQ(parseBluetoothUuid(QStringLiteral("1f16")), penColorCharUUID());
  EXPECT_EQ(parseBluetoothUuid(QStringLiteral("0000180f-0000-1000-8000-00805f9b34fb")),
            batteryServiceUUID());
  EXPECT_EQ(uuidFrom16Bit(0x2A19), batteryLevelCharUUID());
  EXPECT_NE(penServiceUUID(), penColorCharUUID());
}

TEST(BluetoothUuidTest, BadTextGivesANullUuid) {
  for (const char* bad : {"", "garbage", "0x1G16", "1F1", "00001F1F-0000-1000-8000"})
    EXPECT_TRUE(parseBluetoothUuid(QString::fromLatin1(bad)).isNull()) << bad;
}

TEST(BluetoothUuidTest, CanonicalTextIsUpperCaseWithoutBraces) {
  EXPECT_EQ(canonicalUuidText(
                QUuid::fromString(QStringLiteral("{aabbccdd-0000-0000-0000-aabbccddee01}"))),
            QStringLiteral("AABBCCDD-0000-0000-0000-AABBCCDDEE01"));
}

TEST(BluetoothUuidTest, ShortTextOnlyForTheBaseUuid) {
  EXPECT_EQ(shortUuidText(penServiceUUID()), QStringLiteral("1F1F"));
  EXPECT_EQ(
      shortUuidText(QUuid::fromString(QStringLiteral("00000000-0000-0000-0000-AABBCCDDEE01"))),
      QStringLiteral("00000000-0000-0000-0000-AABBCCDDEE01"));
}

}  // namespace
}  // namespace tw::pen
