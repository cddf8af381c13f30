#include "library/CSwiftV.h"

#include <utility>

#include "common/Fatal.h"

namespace tw {

namespace {

bool isBlankChar(QChar c) { return c == u'\t' || c.category() == QChar::Separator_Space; }

bool hasOddQuotes(QStringView text) { return (text.count(u'"') & 1) != 0; }

QString withPlainLineFeeds(const QString& text) {
  QString normalized = text;
  normalized.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
  return normalized;
}

}  // namespace

CSwiftV::CSwiftV(const QString& text, const QString& separator,
                 const std::optional<QStringList>& headers) {
  // keyedRows_ stays absent until the very end.
  const QStringList lines = splitLines(withPlainLineFeeds(text));

  rows_.reserve(lines.size());
  for (const QString& line : lines) rows_.append(split(separator, line));

  if (headers) {
    headers_ = *headers;
  } else {
    if (rows_.isEmpty()) fatalStop("CSwiftV: the text has no lines and no headers were given");
    headers_ = rows_.takeFirst();
  }
  columnCount_ = headers_.size();

  QList<KeyedRow> keyed;
  keyed.reserve(rows_.size());
  for (const QStringList& row : std::as_const(rows_)) keyed.append(keyedRow(row, headers_));
  keyedRows_ = std::move(keyed);
}

CSwiftV::CSwiftV(const QString& text, const std::optional<QStringList>& headers)
    : CSwiftV(text, QStringLiteral(","), headers) {}

QStringList CSwiftV::split(const QString& separator, const QString& text) {
  if (separator.isEmpty()) return {text};
  const QStringList pieces = text.split(separator, Qt::KeepEmptyParts, Qt::CaseSensitive);
  // Quote parity of the last output element, kept up to date instead of
  // recounting it, so that a long unbalanced run stays linear.
  const bool separatorOdd = hasOddQuotes(separator);
  QStringList out;
  out.reserve(pieces.size());
  bool lastOdd = false;
  for (const QString& piece : pieces) {
    const bool pieceOdd = hasOddQuotes(piece);
    if (!out.isEmpty() && lastOdd) {
      QString& last = out.last();
      last.append(separator);
      last.append(piece);
      lastOdd = lastOdd != separatorOdd;
      lastOdd = lastOdd != pieceOdd;
    } else {
      out.append(piece);
      lastOdd = pieceOdd;
    }
  }
  return out;
}

QStringList CSwiftV::splitLines(const QString& text) {
  QStringList lines = split(QStringLiteral("\n"), text);
  lines.removeIf([](const QString& line) { return isBlank(line); });
  return lines;
}

bool CSwiftV::hasHeaderLine(const QString& text) {
  return !splitLines(withPlainLineFeeds(text)).isEmpty();
}

CSwiftV::KeyedRow CSwiftV::keyedRow(const QStringList& fields, const QStringList& headers) {
  KeyedRow row;
  for (qsizetype i = 0; i < fields.size(); ++i) {
    if (isBlank(fields[i]) || i >= headers.size()) continue;
    row.insert(headers[i], fields[i]);
  }
  return row;
}

bool CSwiftV::isBlank(QStringView text) {
  for (const QChar c : text) {
    if (!isBlankChar(c)) return false;
  }
  return true;
}

}  // namespace tw
