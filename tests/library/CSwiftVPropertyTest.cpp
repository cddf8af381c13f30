#include <gtest/gtest.h>

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>
#include <random>

#include "library/CSwiftV.h"

namespace tw {
namespace {

using KeyedRow = CSwiftV::KeyedRow;
using namespace Qt::Literals::StringLiterals;

constexpr int kIterations = 2000;
constexpr std::uint64_t kSeed = 0x7431'6e77'656c'6c00ULL;

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}
  int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(engine_); }
  bool chance(int percent) { return below(100) < percent; }
  template <typename T>
  const T& pick(const QList<T>& items) {
    return items[below(static_cast<int>(items.size()))];
  }

 private:
  std::mt19937_64 engine_;
};

// The blanks the generator uses; the reader's whitespace set holds them all.
bool isGeneratedBlank(const QString& text) {
  for (const QChar c : text) {
    if (c != u' ' && c != u'\t' && c != QChar(0x00A0) && c != QChar(0x3000)) return false;
  }
  return true;
}

// What the reader must give back, computed from the generated fields alone.
KeyedRow expectedKeyedRow(const QStringList& fields, const QStringList& headers) {
  KeyedRow row;
  for (qsizetype i = 0; i < fields.size() && i < headers.size(); ++i) {
    if (!isGeneratedBlank(fields[i])) row[headers[i]] = fields[i];
  }
  return row;
}

// The same for any text: blanks are tabs and Unicode space separators.
KeyedRow expectedKeyedRowAny(const QStringList& fields, const QStringList& headers) {
  KeyedRow row;
  for (qsizetype i = 0; i < fields.size() && i < headers.size(); ++i) {
    bool blank = true;
    for (const QChar c : fields[i])
      blank = blank && (c == u'\t' || c.category() == QChar::Separator_Space);
    if (!blank) row[headers[i]] = fields[i];
  }
  return row;
}

struct GeneratedTable {
  QString separator;
  QString text;
  std::optional<QStringList> givenHeaders;
  QStringList headers;
  QList<QStringList> rows;
};

class TableGenerator {
 public:
  explicit TableGenerator(Random& random) : random_(random) {}

  GeneratedTable make() {
    GeneratedTable table;
    table.separator = makeSeparator();
    alphabet_.clear();
    // Plain characters never occur in the separator, so the only separators in
    // the text are the ones put there on purpose.
    for (const QString& c : kAlphabet) {
      bool clash = false;
      for (const QChar s : table.separator) clash = clash || c.contains(s);
      if (!clash) alphabet_.append(c);
    }
    const bool crlf = random_.chance(50);
    const bool mixedLineEnds = random_.chance(20);

    const bool headersInText = random_.chance(60);
    if (headersInText) {
      table.headers = makeRow(table.separator, 1 + random_.below(6));
    } else {
      table.givenHeaders = QStringList();
      const int count = random_.below(6);
      for (int i = 0; i < count; ++i) {
        table.givenHeaders->append(random_.chance(30) && i > 0 ? table.givenHeaders->at(0)
                                                               : makeField(table.separator));
      }
      table.headers = *table.givenHeaders;
    }
    const int rowCount = random_.below(headersInText ? 8 : 9);
    for (int i = 0; i < rowCount; ++i) {
      table.rows.append(makeRow(table.separator, 1 + random_.below(8)));
    }

    QList<QStringList> lines;
    if (headersInText) lines.append(table.headers);
    lines.append(table.rows);
    for (qsizetype i = 0; i < lines.size(); ++i) {
      table.text += blankLines(crlf, mixedLineEnds);
      table.text += lines[i].join(table.separator);
      if (i + 1 < lines.size() || random_.chance(50)) table.text += lineEnd(crlf, mixedLineEnds);
    }
    if (random_.chance(30)) {
      table.text += lineEnd(crlf, mixedLineEnds);
      table.text += blankLines(crlf, mixedLineEnds);
    }
    return table;
  }

 private:
  QString makeSeparator() {
    static const QList<QString> kSeparatorChars = {u","_s,
                                                   u";"_s,
                                                   u"|"_s,
                                                   u":"_s,
                                                   u"\t"_s,
                                                   u" "_s,
                                                   u"<"_s,
                                                   u">"_s,
                                                   QString(QChar(0x3001)),
                                                   QString(QChar(0x00A7))};
    if (random_.chance(50)) return u","_s;
    QString separator;
    const int length = 1 + random_.below(3);
    for (int i = 0; i < length; ++i) separator += random_.pick(kSeparatorChars);
    return separator;
  }

  QString plainChar() { return random_.pick(alphabet_); }

  QString makeField(const QString& separator) {
    QString field;
    const int segments = random_.below(4);
    for (int s = 0; s < segments; ++s) {
      if (random_.chance(40)) {
        // A quoted segment: separators, line breaks and doubled quotes inside.
        field += u'"';
        const int items = random_.below(6);
        for (int i = 0; i < items; ++i) {
          switch (random_.below(5)) {
            case 0:
              field += separator;
              break;
            case 1:
              field += u'\n';
              break;
            case 2:
              field += u"\"\""_s;
              break;
            default:
              field += plainChar();
          }
        }
        field += u'"';
      } else {
        const int length = random_.below(7);
        for (int i = 0; i < length; ++i) field += plainChar();
      }
    }
    return field;
  }

  QStringList makeRow(const QString& separator, int fieldCount) {
    QStringList row;
    for (int i = 0; i < fieldCount; ++i) row.append(makeField(separator));
    // A blank line would be skipped, not read as a row.
    if (isGeneratedBlank(row.join(separator))) row[0].prepend(u'x');
    return row;
  }

  QString lineEnd(bool crlf, bool mixed) {
    if (mixed) return random_.chance(50) ? u"\r\n"_s : u"\n"_s;
    return crlf ? u"\r\n"_s : u"\n"_s;
  }

  QString blankLines(bool crlf, bool mixed) {
    static const QList<QString> kBlank = {
        u""_s, u" "_s, u"\t"_s, u"  \t "_s, QString(QChar(0x3000)), QString(QChar(0x00A0))};
    QString out;
    if (!random_.chance(25)) return out;
    const int count = 1 + random_.below(3);
    for (int i = 0; i < count; ++i) out += random_.pick(kBlank) + lineEnd(crlf, mixed);
    return out;
  }

  inline static const QList<QString> kAlphabet = {u"a"_s,
                                                  u"b"_s,
                                                  u"Z"_s,
                                                  u"0"_s,
                                                  u"7"_s,
                                                  u"-"_s,
                                                  u"."_s,
                                                  u"#"_s,
                                                  u" "_s,
                                                  u"\t"_s,
                                                  u","_s,
                                                  u";"_s,
                                                  u"|"_s,
                                                  u":"_s,
                                                  u"<"_s,
                                                  u">"_s,
                                                  QString(QChar(0x00E9)),
                                                  QString(QChar(0x7EA2)),
                                                  QString(QChar(0x3000)),
                                                  QString(QChar(0x00A0)),
                                                  QString(QChar(0x3001)),
                                                  QString(QChar(0x00A7)),
                                                  QString::fromUtf8("\xf0\x9f\x8e\xa8")};

  Random& random_;
  QList<QString> alphabet_;
};

TEST(CSwiftVProperty, GeneratedTablesReadBackExactly) {
  Random random(kSeed);
  TableGenerator generator(random);
  for (int iteration = 0; iteration < kIterations; ++iteration) {
    const GeneratedTable table = generator.make();
    SCOPED_TRACE(::testing::Message()
                 << "iteration " << iteration << ", separator " << table.separator.toStdString()
                 << ", text " << table.text.toStdString());
    const CSwiftV read(table.text, table.separator, table.givenHeaders);
    ASSERT_EQ(read.headers(), table.headers);
    ASSERT_EQ(read.columnCount(), table.headers.size());
    ASSERT_EQ(read.rows(), table.rows);
    ASSERT_TRUE(read.keyedRows().has_value());
    ASSERT_EQ(read.keyedRows()->size(), table.rows.size());
    for (qsizetype i = 0; i < table.rows.size(); ++i) {
      ASSERT_EQ(read.keyedRows()->at(i), expectedKeyedRow(table.rows[i], table.headers))
          << "row " << i;
    }
  }
}

TEST(CSwiftVProperty, CommaOverloadReadsLikeAnExplicitComma) {
  Random random(kSeed + 1);
  TableGenerator generator(random);
  int compared = 0;
  for (int iteration = 0; iteration < kIterations && compared < 300; ++iteration) {
    const GeneratedTable table = generator.make();
    if (table.separator != u","_s) continue;
    ++compared;
    const CSwiftV read(table.text, table.givenHeaders);
    EXPECT_EQ(read.headers(), table.headers);
    EXPECT_EQ(read.rows(), table.rows);
  }
  EXPECT_GT(compared, 100);
}

QString randomText(Random& random, int maxBytes) {
  static const QByteArray kInteresting =
      QByteArray("\"\",,;;\n\n\r\r  \t\tab") + "\xe3\x80\x80" + "\xc2\xa0" + "\xf0\x9f";
  QByteArray bytes;
  const int length = random.below(maxBytes + 1);
  for (int i = 0; i < length; ++i) {
    bytes.append(random.chance(60) ? kInteresting[random.below(kInteresting.size())]
                                   : static_cast<char>(random.below(256)));
  }
  return QString::fromUtf8(bytes);
}

// Properties that hold for any input: nothing is lost by the split, the table
// matches its lines, keyed rows only use headers and fields of their row.
void checkTable(const QString& text, const QString& separator,
                const std::optional<QStringList>& headers) {
  QString normalized = text;
  normalized.replace(u"\r\n"_s, u"\n"_s);
  const QStringList lines = CSwiftV::splitLines(normalized);
  const CSwiftV table(text, separator, headers);

  ASSERT_TRUE(table.keyedRows().has_value());
  ASSERT_EQ(table.columnCount(), table.headers().size());
  ASSERT_EQ(table.keyedRows()->size(), table.rows().size());
  qsizetype firstRowLine = 0;
  if (headers) {
    ASSERT_EQ(table.headers(), *headers);
  } else {
    ASSERT_FALSE(lines.isEmpty());
    ASSERT_EQ(table.headers(), CSwiftV::split(separator, lines[0]));
    firstRowLine = 1;
  }
  ASSERT_EQ(table.rows().size(), lines.size() - firstRowLine);
  for (qsizetype i = 0; i < table.rows().size(); ++i) {
    const QStringList& row = table.rows()[i];
    ASSERT_FALSE(row.isEmpty());
    if (!separator.isEmpty()) {
      ASSERT_EQ(row.join(separator), lines[firstRowLine + i]);
    } else {
      ASSERT_EQ(row, QStringList{lines[firstRowLine + i]});
    }
    ASSERT_EQ(table.keyedRows()->at(i), expectedKeyedRowAny(row, table.headers()));
  }
}

TEST(CSwiftVProperty, RandomBytesWithHeadersNeverBreakTheReader) {
  Random random(kSeed + 2);
  for (int iteration = 0; iteration < kIterations; ++iteration) {
    const QString text = randomText(random, 300);
    const QString separator = randomText(random, 3);
    QStringList headers;
    const int count = random.below(5);
    for (int i = 0; i < count; ++i) headers.append(randomText(random, 4));
    SCOPED_TRACE(::testing::Message() << "iteration " << iteration);
    checkTable(text, separator, headers);
    if (HasFatalFailure()) return;
  }
}

TEST(CSwiftVProperty, RandomBytesWithAtLeastOneLineNeverBreakTheReader) {
  Random random(kSeed + 3);
  int read = 0;
  for (int iteration = 0; iteration < kIterations; ++iteration) {
    const QString text = randomText(random, 300);
    const QString separator = randomText(random, 3);
    QString normalized = text;
    normalized.replace(u"\r\n"_s, u"\n"_s);
    if (CSwiftV::splitLines(normalized).isEmpty()) continue;
    ++read;
    SCOPED_TRACE(::testing::Message() << "iteration " << iteration);
    checkTable(text, separator, std::nullopt);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(read, kIterations / 2);
}

TEST(CSwiftVProperty, SplitJoinedWithTheSeparatorGivesTheTextBack) {
  Random random(kSeed + 4);
  for (int iteration = 0; iteration < kIterations; ++iteration) {
    const QString text = randomText(random, 200);
    QString separator = randomText(random, 3);
    if (separator.isEmpty()) separator = u","_s;
    const QStringList pieces = CSwiftV::split(separator, text);
    ASSERT_FALSE(pieces.isEmpty());
    ASSERT_EQ(pieces.join(separator), text) << "iteration " << iteration;
    // Every piece but the last is closed: an even number of quotes.
    for (qsizetype i = 0; i + 1 < pieces.size(); ++i) {
      ASSERT_EQ(pieces[i].count(u'"') % 2, 0) << "iteration " << iteration;
    }
  }
}

}  // namespace
}  // namespace tw
