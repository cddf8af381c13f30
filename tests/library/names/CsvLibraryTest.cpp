#include <gtest/gtest.h>

#include "library/names/NameLibrary.h"

namespace tw::names {
namespace {

CsvLoad load(const char* text) { return loadCsvLibrary(QByteArray(text), QStringLiteral("t")); }

TEST(CsvLibrary, HexWithAndWithoutHashInEitherCase) {
  const CsvLoad got = load("name,hex\nOne,#FF6347\nTwo,00ff7f\nThree,#a0B1c2\n");
  EXPECT_EQ(got.error, QString());
  EXPECT_EQ(got.skippedRows, 0);
  ASSERT_EQ(got.library.size(), 3);
  EXPECT_EQ(got.library.title(), QStringLiteral("t"));
  const auto& e = got.library.entries();
  EXPECT_EQ(e[0].name, QStringLiteral("One"));
  EXPECT_EQ(e[0].sR, 255);
  EXPECT_EQ(e[0].sG, 99);
  EXPECT_EQ(e[0].sB, 71);
  EXPECT_EQ(e[1].sR, 0);
  EXPECT_EQ(e[1].sG, 255);
  EXPECT_EQ(e[1].sB, 127);
  EXPECT_EQ(e[2].sR, 0xa0);
  EXPECT_EQ(e[2].sG, 0xb1);
  EXPECT_EQ(e[2].sB, 0xc2);
}

TEST(CsvLibrary, RgbColumnsAnyHeaderCaseAndOrderWithCode) {
  const CsvLoad got = load("Blue,CODE,Red,Name,GREEN\r\n3,W1,1,Warm,2\r\n255, C2 ,0,Cold,0\r\n");
  EXPECT_EQ(got.error, QString());
  EXPECT_EQ(got.skippedRows, 0);
  ASSERT_EQ(got.library.size(), 2);
  const auto& e = got.library.entries();
  EXPECT_EQ(e[0].name, QStringLiteral("Warm"));
  EXPECT_EQ(e[0].abbr, QStringLiteral("W1"));
  EXPECT_EQ(e[0].sR, 1);
  EXPECT_EQ(e[0].sG, 2);
  EXPECT_EQ(e[0].sB, 3);
  EXPECT_EQ(e[1].abbr, QStringLiteral("C2"));
  EXPECT_EQ(e[1].sB, 255);
}

TEST(CsvLibrary, AbbrWinsOverCode) {
  const CsvLoad got = load("name,code,abbr,hex\nA,c,a,#000000\n");
  ASSERT_EQ(got.library.size(), 1);
  EXPECT_EQ(got.library.entries()[0].abbr, QStringLiteral("a"));
}

TEST(CsvLibrary, QuotedFieldsAndHeadersAreUnquoted) {
  const CsvLoad got = load(
      "\"name\", \"hex\" ,\"abbr\"\n"
      "\"Warm, Red\",\"#F9423A\",\"\"\"WR\"\"\"\n"
      " \"two\nlines\" ,  #000001  ,\n");
  EXPECT_EQ(got.error, QString());
  EXPECT_EQ(got.skippedRows, 0);
  ASSERT_EQ(got.library.size(), 2);
  const auto& e = got.library.entries();
  EXPECT_EQ(e[0].name, QStringLiteral("Warm, Red"));
  EXPECT_EQ(e[0].abbr, QStringLiteral("\"WR\""));
  EXPECT_EQ(e[0].sR, 0xF9);
  EXPECT_EQ(e[1].name, QStringLiteral("two\nlines"));
  EXPECT_EQ(e[1].sB, 1);
  EXPECT_EQ(e[1].abbr, QString());
}

TEST(CsvLibrary, RowsWithoutNameOrValidColourAreSkippedAndCounted) {
  const CsvLoad hex = load(
      "name,hex\n"
      "ok,#010203\n"
      ",#010203\n"      // no name
      "short,#12345\n"  // five digits
      "bad,#12345g\n"
      "none\n"  // no colour field
      "\n"      // blank: not a row
      "long,#1234567\n"
      "fine,#FFFFFF\n");
  EXPECT_EQ(hex.error, QString());
  EXPECT_EQ(hex.skippedRows, 5);
  ASSERT_EQ(hex.library.size(), 2);
  EXPECT_EQ(hex.library.entries()[1].name, QStringLiteral("fine"));

  const CsvLoad rgb = load(
      "name,red,green,blue\n"
      "a,1,2,3\n"
      "b,256,0,0\n"
      "c,-1,0,0\n"
      "d,+1,0,0\n"
      "e,1,2\n"
      "f,1.5,2,3\n"
      "g,0001,2,3\n");
  EXPECT_EQ(rgb.skippedRows, 6);
  ASSERT_EQ(rgb.library.size(), 1);
  EXPECT_EQ(rgb.library.entries()[0].name, QStringLiteral("a"));
}

TEST(CsvLibrary, HexColumnDecidesWhenBothAreThere) {
  const CsvLoad got = load("name,hex,red,green,blue\nx,#0A0B0C,1,2,3\ny,,1,2,3\n");
  ASSERT_EQ(got.library.size(), 1);
  EXPECT_EQ(got.library.entries()[0].sR, 10);
  EXPECT_EQ(got.skippedRows, 1);
}

TEST(CsvLibrary, ByteOrderMarkIsDropped) {
  const CsvLoad got = load("\xEF\xBB\xBFname,hex\nx,#010101\n");
  EXPECT_EQ(got.error, QString());
  EXPECT_EQ(got.library.size(), 1);
}

TEST(CsvLibrary, MissingColumnsOrNoLinesAreErrors) {
  EXPECT_EQ(load("").error, QStringLiteral("no header row"));
  EXPECT_EQ(load(" \n\t\r\n").error, QStringLiteral("no header row"));
  EXPECT_EQ(load("label,hex\nx,#000000\n").error, QStringLiteral("no \"name\" column"));
  EXPECT_FALSE(load("name,red,green\nx,1,2\n").error.isEmpty());
  const CsvLoad headerOnly = load("name,hex\n");
  EXPECT_EQ(headerOnly.error, QString());
  EXPECT_TRUE(headerOnly.library.isEmpty());
  EXPECT_EQ(headerOnly.skippedRows, 0);
}

TEST(CsvLibrary, CarriageReturnsBeforeCrlfAreNoHeaderRow) {
  // The loader reduces "\r\n" and then the table reader does again, so
  // "\r\r\n" is an empty line by the time the table looks for one.
  EXPECT_EQ(load("\r\r\n").error, QStringLiteral("no header row"));
  EXPECT_EQ(load(" \r\r\n\t\r\r\n").error, QStringLiteral("no header row"));
}

TEST(CsvLibrary, LoadedLibraryAnswersNearest) {
  const CsvLoad got = load("name,hex\nInk,#101820\nPaper,#F5F5F0\n");
  const auto found = got.library.nearest(240, 240, 240);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].entry.name, QStringLiteral("Paper"));
}

}  // namespace
}  // namespace tw::names
