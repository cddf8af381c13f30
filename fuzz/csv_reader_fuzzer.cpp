// The colour library table reader (library/CSwiftV.h) on any text, any
// separator and any header list. A table without headers and without a
// non-blank line is a designed stop: it is only checked to be exactly that
// (splitLines finds no line) and not read.
//
// Input: byte 0 says whether headers are given (bit 0) and how the text is
// decoded (bit 1: UTF-16 units, which reach lone surrogates and every space
// separator; otherwise UTF-8); then a length-prefixed separator (a few common
// ones for small lengths), a length-prefixed comma-separated header list, and
// the text.
#include <QString>
#include <QStringList>
#include <cstdint>

#include "FuzzInput.h"
#include "library/CSwiftV.h"

namespace tw {
namespace {

using testing::FuzzInput;

QString decode(const QByteArray& bytes, bool utf16) {
  if (!utf16) return QString::fromUtf8(bytes);
  return QString(reinterpret_cast<const QChar*>(bytes.constData()), bytes.size() / 2);
}

QString pickSeparator(FuzzInput& in, bool utf16) {
  static const char16_t* const common[] = {u",", u";",  u"\t", u"|",     u"\"",
                                           u"",  u"\n", u", ", u"\u3000"};
  const std::uint8_t b = in.byte();
  if (b < 128) return QString::fromUtf16(common[b % std::size(common)]);
  return decode(in.lengthPrefixed(8), utf16);
}

void checkSplit(const QString& separator, const QString& text) {
  const QStringList pieces = CSwiftV::split(separator, text);
  TW_FUZZ_CHECK(!pieces.isEmpty());
  TW_FUZZ_CHECK(pieces.join(separator) == text);
  if (separator.isEmpty()) TW_FUZZ_CHECK(pieces.size() == 1);
  // A piece is joined onto the one before while that one holds an odd number
  // of quotes: only the last piece can be left odd.
  for (qsizetype i = 0; i + 1 < pieces.size(); ++i) TW_FUZZ_CHECK(pieces[i].count(u'"') % 2 == 0);
}

void runOne(FuzzInput& in) {
  const std::uint8_t mode = in.byte();
  const bool withHeaders = (mode & 1) != 0;
  const bool utf16 = (mode & 2) != 0;
  const QString separator = pickSeparator(in, utf16);
  const QString headerText = decode(in.lengthPrefixed(32), utf16);
  const std::optional<QStringList> headers =
      withHeaders ? std::optional<QStringList>(headerText.isEmpty() ? QStringList()
                                                                    : headerText.split(u','))
                  : std::nullopt;
  const QString text = decode(in.rest(), utf16);

  checkSplit(separator, text);
  QString normalized = text;
  normalized.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
  const QStringList lines = CSwiftV::splitLines(normalized);
  for (const QString& line : lines) TW_FUZZ_CHECK(!CSwiftV::isBlank(line));
  if (!headers && lines.isEmpty()) return;  // the designed stop; see above

  const CSwiftV table(text, separator, headers);
  TW_FUZZ_CHECK(table.keyedRows().has_value());
  const QList<CSwiftV::KeyedRow>& keyed = *table.keyedRows();
  const qsizetype skipped = headers ? 0 : 1;
  TW_FUZZ_CHECK(table.rows().size() == lines.size() - skipped);
  TW_FUZZ_CHECK(keyed.size() == table.rows().size());
  TW_FUZZ_CHECK(table.columnCount() == table.headers().size());
  if (headers)
    TW_FUZZ_CHECK(table.headers() == *headers);
  else
    TW_FUZZ_CHECK(table.headers() == CSwiftV::split(separator, lines.first()));

  for (qsizetype i = 0; i < table.rows().size(); ++i) {
    const QStringList& fields = table.rows()[i];
    // A row is its line cut at the separator: nothing lost, nothing added.
    TW_FUZZ_CHECK(fields.join(separator) == lines[i + skipped]);
    const CSwiftV::KeyedRow& row = keyed[i];
    // Never more keys than headers, every key a header, every value a
    // non-blank field of that column (the later column for repeated names).
    TW_FUZZ_CHECK(row.size() <= table.headers().size());
    CSwiftV::KeyedRow expected;
    for (qsizetype j = 0; j < fields.size() && j < table.headers().size(); ++j)
      if (!CSwiftV::isBlank(fields[j])) expected.insert(table.headers()[j], fields[j]);
    TW_FUZZ_CHECK(row == expected);
    TW_FUZZ_CHECK(CSwiftV::keyedRow(fields, table.headers()) == row);
  }
}

}  // namespace
}  // namespace tw

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tw::testing::FuzzInput in(data, size);
  tw::runOne(in);
  return 0;
}
