#include <gtest/gtest.h>

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include "common/Json.h"
#include "telemetry/UsageRecords.h"

namespace tw {
namespace {

QStringList keysInOrder(const QByteArray& json) {
  QStringList keys;
  static const QRegularExpression member(QStringLiteral("^  \"([A-Za-z_]+)\" : "),
                                         QRegularExpression::MultilineOption);
  for (auto it = member.globalMatch(QString::fromUtf8(json)); it.hasNext();) {
    keys << it.next().captured(1);
  }
  return keys;
}

TEST(UsageRecords, ColorRecordStartsWithTheInitialValues) {
  const ColorRecord::Fields f = ColorRecord().read();
  EXPECT_EQ(f.session_begin, "");
  EXPECT_EQ(f.session_end, "");
  EXPECT_FALSE(f.session_full);
  EXPECT_EQ(f.vender, "Orlo");
  EXPECT_FALSE(f.debug);
  EXPECT_EQ(f.os, "Mac");
  EXPECT_EQ(f.app, "");
  EXPECT_EQ(f.version, "0.0.0");
  EXPECT_EQ(f.counter_screen, 0);
  EXPECT_EQ(f.counter_device, 0);
  EXPECT_EQ(f.colors_screen, "");
  EXPECT_EQ(f.colors_device, "");
}

TEST(UsageRecords, ColorRecordJsonHasDeclaredKeyOrderTypesAndEscapedSlashes) {
  ColorRecord record;
  record.update([](ColorRecord::Fields& f) {
    f.session_begin = "2021/03/04 09:05:00";
    f.session_end = "2021/03/04 09:15:00";
    f.session_full = true;
    f.vender = "Vandu";
    f.app = "TW+V";
    f.version = "1.2.0";
    f.counter_device = 2;
    f.colors_screen = "[]";
    f.colors_device = "[#1A2B3C,#FFFFFF]";
  });
  const QByteArray json = record.toJson();
  EXPECT_EQ(keysInOrder(json),
            QStringList({"session_begin", "session_end", "session_full", "vender", "debug", "os",
                         "app", "version", "counter_screen", "counter_device", "colors_screen",
                         "colors_device"}));
  EXPECT_TRUE(json.contains("\"2021\\/03\\/04 09:05:00\""));
  EXPECT_FALSE(json.contains("2021/03"));
  EXPECT_TRUE(json.contains("\"session_full\" : true"));
  EXPECT_TRUE(json.contains("\"debug\" : false"));
  EXPECT_TRUE(json.contains("\"counter_device\" : 2"));
  EXPECT_TRUE(json.contains("\"colors_device\" : \"[#1A2B3C,#FFFFFF]\""));
  // Pretty: one member per line.
  EXPECT_EQ(json.count('\n'), 13);
  // And it reads back to the example body, slashes restored.
  const QJsonObject o = QJsonDocument::fromJson(json).object();
  const QJsonObject expected =
      QJsonDocument::fromJson(
          R"({"session_begin":"2021/03/04 09:05:00","session_end":"2021/03/04 09:15:00","session_full":true,"vender":"Vandu","debug":false,"os":"Mac","app":"TW+V","version":"1.2.0","counter_screen":0,"counter_device":2,"colors_screen":"[]","colors_device":"[#1A2B3C,#FFFFFF]"})")
          .object();
  EXPECT_EQ(o, expected);
  EXPECT_TRUE(o.value("counter_device").isDouble());
  EXPECT_TRUE(o.value("session_full").isBool());
}

TEST(UsageRecords, ApplicationRecordJsonHasItsKeysInOrder) {
  ApplicationRecord record;
  record.update([](ApplicationRecord::Fields& f) {
    f.PS = 3;
    f.AI = 1;
    f.session_begin = "2021/03/04 09:05:00";
  });
  const QByteArray json = record.toJson();
  EXPECT_EQ(keysInOrder(json), QStringList({"session_begin", "session_end", "session_full", "os",
                                            "debug", "PS", "AI"}));
  const QJsonObject o = QJsonDocument::fromJson(json).object();
  EXPECT_EQ(o.value("PS").toInteger(), 3);
  EXPECT_EQ(o.value("AI").toInteger(), 1);
  EXPECT_EQ(o.value("os").toString(), "Mac");
  EXPECT_EQ(o.value("session_begin").toString(), "2021/03/04 09:05:00");
}

TEST(UsageRecords, JsonEscapingFollowsTheStandardForms) {
  EXPECT_EQ(json::quote(u"a\"b\\c/d", true), QByteArray(R"("a\"b\\c\/d")"));
  EXPECT_EQ(json::quote(u"a/b", false), QByteArray(R"("a/b")"));
  EXPECT_EQ(json::quote(u"\n\t\r\b\f", true), QByteArray(R"("\n\t\r\b\f")"));
  EXPECT_EQ(json::quote(QString(QChar(0x01)), true), QByteArray(R"("\u0001")"));
  EXPECT_EQ(json::quote(u"é✓", true), QByteArray("\"é✓\""));
}

TEST(UsageRecords, TimeTextIsLocalYearMonthDayAndClock) {
  const QString text = currentTimeText();
  EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\d{4}/\\d{2}/\\d{2} \\d{2}:\\d{2}:\\d{2}$"))
                  .match(text)
                  .hasMatch())
      << text.toStdString();
  const QDateTime parsed = QDateTime::fromString(text, QStringLiteral("yyyy/MM/dd HH:mm:ss"));
  ASSERT_TRUE(parsed.isValid());
  EXPECT_LE(std::abs(parsed.secsTo(QDateTime::currentDateTime())), 2);
}

TEST(UsageRecords, ColourListEntryIsHashAndUpperHex) {
  EXPECT_EQ(colorListEntry(26, 43, 60), "#1A2B3C");
  EXPECT_EQ(colorListEntry(0, 0, 0), "#000000");
}

TEST(UsageRecordsDeathTest, CounterOverflowStopsTheProcess) {
  qint64 counter = std::numeric_limits<qint64>::max();
  EXPECT_DEATH(incrementCounter(counter), "overflow");
}

}  // namespace
}  // namespace tw
