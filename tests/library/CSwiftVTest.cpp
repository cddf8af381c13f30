#include <gtest/gtest.h>

#include <QHash>
#include <QString>
#include <QStringList>

#include "library/CSwiftV.h"

namespace tw {
namespace {

using KeyedRow = CSwiftV::KeyedRow;

QString q(const char* utf8) { return QString::fromUtf8(utf8); }

// ---- Construction: the behaviours of a whole table -------------------------

TEST(CSwiftV, FirstLineGivesHeadersAndTheRestAreRows) {
  const CSwiftV table(q("a,b\n1,2\n"));
  EXPECT_EQ(table.headers(), QStringList({"a", "b"}));
  EXPECT_EQ(table.rows(), QList<QStringList>({{"1", "2"}}));
  EXPECT_EQ(table.columnCount(), 2);
  ASSERT_TRUE(table.keyedRows().has_value());
  EXPECT_EQ(*table.keyedRows(), QList<KeyedRow>({{{"a", "1"}, {"b", "2"}}}));
}

TEST(CSwiftV, CrlfLineEndsWithoutFinalLineEndGiveTheSameTable) {
  const CSwiftV table(q("a,b\r\n1,2"));
  EXPECT_EQ(table.headers(), QStringList({"a", "b"}));
  EXPECT_EQ(table.rows(), QList<QStringList>({{"1", "2"}}));
  EXPECT_EQ(table.columnCount(), 2);
  EXPECT_EQ(*table.keyedRows(), QList<KeyedRow>({{{"a", "1"}, {"b", "2"}}}));
}

TEST(CSwiftV, LoneCarriageReturnStaysInTheLastField) {
  const CSwiftV table(q("a,b\n1,2\r\n3,4\r"));
  EXPECT_EQ(table.rows(), QList<QStringList>({{"1", "2"}, {"3", "4\r"}}));
  EXPECT_EQ(table.keyedRows()->at(1), KeyedRow({{"a", "3"}, {"b", "4\r"}}));
  // Old-style line ends alone are no line breaks at all: one line.
  const CSwiftV oldStyle(q("a,b\r1,2\r"));
  EXPECT_EQ(oldStyle.headers(), QStringList({"a", "b\r1", "2\r"}));
  EXPECT_TRUE(oldStyle.rows().isEmpty());
}

TEST(CSwiftV, LineOfOnlyCarriageReturnIsNotDropped) {
  const CSwiftV atEnd(q("a,b\n1,2\n\r"));
  EXPECT_EQ(atEnd.rows(), QList<QStringList>({{"1", "2"}, {"\r"}}));
  EXPECT_EQ(atEnd.keyedRows()->at(1), KeyedRow({{"a", "\r"}}));
  // "\r\r\n" is reduced to "\r\n": a line "\r" ended by a line break.
  const CSwiftV between(q("a,b\r\n\r\r\n1,2\r\n"));
  EXPECT_EQ(between.rows(), QList<QStringList>({{"\r"}, {"1", "2"}}));
  // Without headers the "\r" line is a header line of its own.
  const CSwiftV first(q("\r\n\r"));
  EXPECT_EQ(first.headers(), QStringList({"\r"}));
  EXPECT_EQ(first.columnCount(), 1);
}

TEST(CSwiftV, QuotedFieldKeepsItsSeparatorAndItsQuotes) {
  const CSwiftV table(q("\"x,y\",z"), QStringList{"p", "q"});
  EXPECT_EQ(table.rows(), QList<QStringList>({{"\"x,y\"", "z"}}));
  EXPECT_EQ(*table.keyedRows(), QList<KeyedRow>({{{"p", "\"x,y\""}, {"q", "z"}}}));
}

TEST(CSwiftV, QuotedLineBreakStaysInOneLine) {
  const CSwiftV table(q("h1,h2\n\"line1\nline2\",3\n"));
  EXPECT_EQ(table.rows(), QList<QStringList>({{"\"line1\nline2\"", "3"}}));
  const CSwiftV crlf(q("h1,h2\r\n\"line1\r\nline2\",3\r\n"));
  EXPECT_EQ(crlf.rows(), QList<QStringList>({{"\"line1\nline2\"", "3"}}));
}

TEST(CSwiftV, ShortRowLacksTheMissingKeys) {
  const CSwiftV table(q("a,b,c\n1\n"));
  EXPECT_EQ(table.rows(), QList<QStringList>({{"1"}}));
  EXPECT_EQ(*table.keyedRows(), QList<KeyedRow>({{{"a", "1"}}}));
}

TEST(CSwiftV, LongRowKeepsAllFieldsButKeysOnlyTheHeaderCount) {
  const CSwiftV table(q("a,b\n1,2,3,4\n"));
  EXPECT_EQ(table.rows(), QList<QStringList>({{"1", "2", "3", "4"}}));
  EXPECT_EQ(table.columnCount(), 2);
  EXPECT_EQ(*table.keyedRows(), QList<KeyedRow>({{{"a", "1"}, {"b", "2"}}}));
}

TEST(CSwiftV, BlankFieldIsInRowsButNotInTheKeyedRow) {
  const CSwiftV table(q("a,b,c\n1,   ,\t\n"));
  EXPECT_EQ(table.rows(), QList<QStringList>({{"1", "   ", "\t"}}));
  EXPECT_EQ(*table.keyedRows(), QList<KeyedRow>({{{"a", "1"}}}));
}

TEST(CSwiftV, BlankLinesBetweenDataLinesAreDropped) {
  const CSwiftV table(q("a,b\n\n1,2\n   \n\t\n\xe3\x80\x80\n3,4\n\n"));
  EXPECT_EQ(table.rows(), QList<QStringList>({{"1", "2"}, {"3", "4"}}));
  EXPECT_EQ(table.keyedRows()->size(), 2);
}

TEST(CSwiftV, GivenHeadersWithoutLinesGiveAnEmptyTable) {
  for (const QString& text : {q(""), q("\n"), q(" \r\n\t\n")}) {
    const CSwiftV table(text, QStringList{"x", "y", "z"});
    EXPECT_EQ(table.headers(), QStringList({"x", "y", "z"}));
    EXPECT_EQ(table.columnCount(), 3);
    EXPECT_TRUE(table.rows().isEmpty());
    ASSERT_TRUE(table.keyedRows().has_value());
    EXPECT_TRUE(table.keyedRows()->isEmpty());
  }
}

TEST(CSwiftV, GivenHeadersMakeTheFirstLineARow) {
  const CSwiftV table(q("a,b\n1,2"), QStringList{"x", "y"});
  EXPECT_EQ(table.headers(), QStringList({"x", "y"}));
  EXPECT_EQ(table.rows(), QList<QStringList>({{"a", "b"}, {"1", "2"}}));
  EXPECT_EQ(*table.keyedRows(),
            QList<KeyedRow>({{{"x", "a"}, {"y", "b"}}, {{"x", "1"}, {"y", "2"}}}));
}

TEST(CSwiftV, HeaderLineAloneGivesNoRowsAndEmptyKeyedRows) {
  const CSwiftV table(q("a,b,c\n"));
  EXPECT_EQ(table.columnCount(), 3);
  EXPECT_TRUE(table.rows().isEmpty());
  ASSERT_TRUE(table.keyedRows().has_value());
  EXPECT_TRUE(table.keyedRows()->isEmpty());
}

TEST(CSwiftV, MultiCharacterSeparatorCutsFields) {
  const CSwiftV table(q("a::b\n1::\"x::y\"::3"), QStringLiteral("::"));
  EXPECT_EQ(table.headers(), QStringList({"a", "b"}));
  EXPECT_EQ(table.rows(), QList<QStringList>({{"1", "\"x::y\"", "3"}}));
}

TEST(CSwiftV, FieldsKeepBlanksAndDoubledQuotes) {
  const CSwiftV table(q(" a , b \n \"say \"\"hi\"\"\" ,2"));
  EXPECT_EQ(table.headers(), QStringList({" a ", " b "}));
  EXPECT_EQ(table.rows(), QList<QStringList>({{" \"say \"\"hi\"\"\" ", "2"}}));
  EXPECT_EQ(table.keyedRows()->at(0).value(" a "), q(" \"say \"\"hi\"\"\" "));
}

TEST(CSwiftV, RepeatedHeaderTakesTheLaterColumn) {
  const CSwiftV table(q("k,k,m\n1,2,3\n4,,6\n"));
  EXPECT_EQ(*table.keyedRows(),
            QList<KeyedRow>({{{"k", "2"}, {"m", "3"}}, {{"k", "4"}, {"m", "6"}}}));
}

TEST(CSwiftV, UnbalancedQuoteJoinsTheRestIntoTheLastField) {
  const CSwiftV table(q("a,b\n\"1,2\n3,4\n"));
  EXPECT_EQ(table.rows(), QList<QStringList>({{"\"1,2\n3,4\n"}}));
  EXPECT_EQ(*table.keyedRows(), QList<KeyedRow>({{{"a", "\"1,2\n3,4\n"}}}));
}

TEST(CSwiftV, EmptySeparatorMakesEachLineOneField) {
  const CSwiftV table(q("a,b\n1,2"), QString());
  EXPECT_EQ(table.headers(), QStringList({"a,b"}));
  EXPECT_EQ(table.rows(), QList<QStringList>({{"1,2"}}));
}

TEST(CSwiftV, CrlfIsReducedByPlainReplacement) {
  // One pass: "\r\r\n" becomes "\r\n", whose "\r" then stays in the line
  // before the break instead of being reduced again.
  const CSwiftV table(q("a\r\r\n1"), QStringList{"h"});
  EXPECT_EQ(table.rows(), QList<QStringList>({{"a\r"}, {"1"}}));
}

TEST(CSwiftV, HasHeaderLineAnswersWhatTheConstructorFinds) {
  EXPECT_FALSE(CSwiftV::hasHeaderLine(q("")));
  EXPECT_FALSE(CSwiftV::hasHeaderLine(q(" \r\n\t\n\n")));
  EXPECT_TRUE(CSwiftV::hasHeaderLine(q("\r\r\n")));  // one pass leaves a line of "\r"
  EXPECT_TRUE(CSwiftV::hasHeaderLine(q("\r")));
  EXPECT_TRUE(CSwiftV::hasHeaderLine(q("\n\na\n")));
  EXPECT_EQ(CSwiftV(q("\r\r\n")).headers(), QStringList({"\r"}));
}

TEST(CSwiftVDeathTest, NoLinesAndNoHeadersStopTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH({ CSwiftV table(q("")); }, "tintwell: fatal: CSwiftV: the text has no lines");
  EXPECT_DEATH({ CSwiftV table(q(" \r\n\t\n\n"), QStringLiteral(";")); },
               "no lines and no headers");
}

// ---- Quote-aware split ------------------------------------------------------

struct SplitCase {
  const char* name;
  const char* separator;
  const char* text;
  QStringList pieces;
};

void PrintTo(const SplitCase& c, std::ostream* os) { *os << c.name; }

class QuoteAwareSplit : public ::testing::TestWithParam<SplitCase> {};

TEST_P(QuoteAwareSplit, CutsOutsideQuotesAndLosesNothing) {
  const SplitCase& c = GetParam();
  const QStringList got = CSwiftV::split(q(c.separator), q(c.text));
  EXPECT_EQ(got, c.pieces);
  if (!QString::fromUtf8(c.separator).isEmpty()) {
    EXPECT_EQ(got.join(q(c.separator)), q(c.text));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, QuoteAwareSplit,
    ::testing::Values(
        SplitCase{"empty_text", ",", "", {""}}, SplitCase{"only_separator", ",", ",", {"", ""}},
        SplitCase{"no_separator", ",", "abc", {"abc"}},
        SplitCase{"plain", ",", "a,b,c", {"a", "b", "c"}},
        SplitCase{"empty_fields", ",", ",a,,b,", {"", "a", "", "b", ""}},
        SplitCase{"quoted_separator", ",", "\"x,y\",z", {"\"x,y\"", "z"}},
        SplitCase{"doubled_quote_keeps_parity", ",", "\"a\"\",b\",c", {"\"a\"\",b\"", "c"}},
        SplitCase{"quote_in_middle", ",", "a\"b,c\"d,e", {"a\"b,c\"d", "e"}},
        SplitCase{"unbalanced_runs_to_end", ",", "\"a,b,c", {"\"a,b,c"}},
        SplitCase{"balanced_then_unbalanced", ",", "\"a\",\"b,c", {"\"a\"", "\"b,c"}},
        SplitCase{"blanks_kept", ",", " a , b ", {" a ", " b "}},
        SplitCase{"multi_char", "::", "a::b:::c", {"a", "b", ":c"}},
        SplitCase{"multi_char_no_overlap", "aa", "aaa", {"", "a"}},
        SplitCase{"multi_char_quoted", "<>", "\"1<>2\"<>3", {"\"1<>2\"", "3"}},
        SplitCase{"quote_as_separator", "\"", "a\"b\"c", {"a", "b", "c"}},
        SplitCase{"restored_separator_quote_counts", "x\"", "\"ax\"bx\"c", {"\"ax\"b", "c"}},
        SplitCase{"newline_separator", "\n", "a\n\"b\nc\"\nd", {"a", "\"b\nc\"", "d"}},
        SplitCase{"tab_separator", "\t", "a\tb", {"a", "b"}},
        SplitCase{"non_ascii",
                  "\xe3\x80\x81",
                  "\xe7\xba\xa2\xe3\x80\x81\xf0\x9f\x8e\xa8",
                  {q("\xe7\xba\xa2"), q("\xf0\x9f\x8e\xa8")}},
        SplitCase{"empty_separator_keeps_whole_text", "", "a,b\nc", {"a,b\nc"}},
        SplitCase{"empty_separator_empty_text", "", "", {""}}),
    [](const ::testing::TestParamInfo<SplitCase>& info) { return info.param.name; });

// ---- Line split --------------------------------------------------------------

struct LinesCase {
  const char* name;
  const char* text;
  QStringList lines;
};

void PrintTo(const LinesCase& c, std::ostream* os) { *os << c.name; }

class LineSplit : public ::testing::TestWithParam<LinesCase> {};

TEST_P(LineSplit, KeepsNonBlankLinesUntrimmed) {
  EXPECT_EQ(CSwiftV::splitLines(q(GetParam().text)), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    Table, LineSplit,
    ::testing::Values(LinesCase{"empty", "", {}}, LinesCase{"only_line_breaks", "\n\n\n", {}},
                      LinesCase{"blanks_and_tabs", " \n\t\n \t ", {}},
                      LinesCase{"unicode_spaces", "\xc2\xa0\n\xe3\x80\x80\n\xe2\x80\x83", {}},
                      LinesCase{"one_line", "abc", {"abc"}},
                      LinesCase{"final_line_break", "a\nb\n", {"a", "b"}},
                      LinesCase{"untrimmed", "  a \n\tb\t", {"  a ", "\tb\t"}},
                      LinesCase{"carriage_return_kept", "\r\na\r", {"\r", "a\r"}},
                      LinesCase{"vertical_tab_is_not_blank", "\v\n\f", {"\v", "\f"}},
                      LinesCase{"quoted_line_break", "\"a\nb\"\nc", {"\"a\nb\"", "c"}},
                      LinesCase{"quoted_blank_line", "\"\n\n\"", {"\"\n\n\""}},
                      LinesCase{"unbalanced_quote", "a\n\"b\n\nc", {"a", "\"b\n\nc"}},
                      LinesCase{"blank_between", "a\n \n\nb", {"a", "b"}}),
    [](const ::testing::TestParamInfo<LinesCase>& info) { return info.param.name; });

// ---- Keyed row ---------------------------------------------------------------

struct KeyedCase {
  const char* name;
  QStringList fields;
  QStringList headers;
  KeyedRow row;
};

void PrintTo(const KeyedCase& c, std::ostream* os) { *os << c.name; }

class KeyedRowTable : public ::testing::TestWithParam<KeyedCase> {};

TEST_P(KeyedRowTable, MapsHeadersToNonBlankFields) {
  EXPECT_EQ(CSwiftV::keyedRow(GetParam().fields, GetParam().headers), GetParam().row);
}

INSTANTIATE_TEST_SUITE_P(
    Table, KeyedRowTable,
    ::testing::Values(
        KeyedCase{"no_fields", {}, {"a"}, {}}, KeyedCase{"no_headers", {"1", "2"}, {}, {}},
        KeyedCase{"equal_length", {"1", "2"}, {"a", "b"}, {{"a", "1"}, {"b", "2"}}},
        KeyedCase{"short_row", {"1"}, {"a", "b"}, {{"a", "1"}}},
        KeyedCase{"long_row", {"1", "2", "3"}, {"a", "b"}, {{"a", "1"}, {"b", "2"}}},
        KeyedCase{"empty_field", {"", "2"}, {"a", "b"}, {{"b", "2"}}},
        KeyedCase{"blank_field", {" \t ", "2"}, {"a", "b"}, {{"b", "2"}}},
        KeyedCase{"unicode_blank_field", {QString(QChar(0x3000)), "2"}, {"a", "b"}, {{"b", "2"}}},
        KeyedCase{"untrimmed_value", {" 1 "}, {"a"}, {{"a", " 1 "}}},
        KeyedCase{"carriage_return_is_a_value", {"\r"}, {"a"}, {{"a", "\r"}}},
        KeyedCase{"line_break_is_a_value", {"\n"}, {"a"}, {{"a", "\n"}}},
        KeyedCase{"repeated_header_later_wins", {"1", "2"}, {"a", "a"}, {{"a", "2"}}},
        KeyedCase{
            "repeated_header_blank_later_keeps_earlier", {"1", " "}, {"a", "a"}, {{"a", "1"}}},
        KeyedCase{"empty_header_name", {"1"}, {""}, {{"", "1"}}}),
    [](const ::testing::TestParamInfo<KeyedCase>& info) { return info.param.name; });

}  // namespace
}  // namespace tw
