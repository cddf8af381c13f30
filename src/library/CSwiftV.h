#pragma once

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>
#include <optional>

namespace tw {

// Reads a block of separated text (a colour code library table) into rows of
// fields, a header list and one dictionary per row keyed by header.
//
// Fields are kept exactly as they stand between separators: quotes are not
// removed, a doubled quote stays doubled and blanks around a field are kept. A
// quoted field may hold the separator and line breaks; quoting is recognised
// only by counting double-quote characters, so unbalanced quotes join the rest
// of the text into the last field or line instead of failing.
//
// "Blank" below means made only of tabs and Unicode space separators (general
// category Zs, which includes U+0020 and U+3000). Line breaks, "\r" included, are
// not blank.
class CSwiftV {
 public:
  using KeyedRow = QHash<QString, QString>;

  // Reads `text` cut into fields at `separator` (any length), after every
  // "\r\n" in it is replaced by "\n" (one plain pass; a lone "\r" stays part
  // of its line). With `headers` every non-blank line is a row; without, the
  // first line gives the headers and the rest are rows. Without headers and
  // without a single non-blank line the process stops (tw::fatalStop): callers
  // that take outside input check with hasHeaderLine() first.
  CSwiftV(const QString& text, const QString& separator,
          const std::optional<QStringList>& headers = std::nullopt);
  // The same with the separator ",".
  explicit CSwiftV(const QString& text, const std::optional<QStringList>& headers = std::nullopt);

  // Number of headers.
  qint64 columnCount() const { return columnCount_; }
  // Column names, from the caller or from the first line.
  const QStringList& headers() const { return headers_; }
  // One dictionary per row of rows(); empty (never absent) when there are no
  // rows. Absent only while the constructor runs.
  const std::optional<QList<KeyedRow>>& keyedRows() const { return keyedRows_; }
  // The data lines, each split into fields; without the header line when the
  // headers come from the text.
  const QList<QStringList>& rows() const { return rows_; }

  // Cuts `text` at every occurrence of `separator` (left to right, without
  // overlaps), then joins a piece back onto the one before it, separator
  // restored, while the one before holds an odd number of '"'. An empty text
  // gives one empty piece. An empty separator occurs nowhere: the result is one
  // piece holding the whole text. Joining the result with `separator` always
  // gives `text` back.
  static QStringList split(const QString& separator, const QString& text);

  // The quote-aware split of `text` at "\n", keeping only the pieces that are
  // not blank (see above). Kept pieces are untrimmed; a piece of just "\r" is
  // kept. "\r\n" is not treated here: the constructor reduces it first.
  static QStringList splitLines(const QString& text);

  // True when the constructor, given `text` and no headers, finds a line to take
  // them from: splitLines() after the constructor's own "\r\n" replacement.
  // A caller that already replaced "\r\n" passes its text as it is; a second
  // pass can still remove lines ("\r\r\n" becomes "\r\n", then "\n").
  static bool hasHeaderLine(const QString& text);

  // headers[i] -> fields[i] for each field that is not blank and has a header;
  // a field past the last header is left out. With repeated header names the
  // later column wins.
  static KeyedRow keyedRow(const QStringList& fields, const QStringList& headers);

  // True for a text made only of blanks (tabs and Unicode space separators),
  // the empty text included.
  static bool isBlank(QStringView text);

 private:
  qint64 columnCount_ = 0;
  QStringList headers_;
  std::optional<QList<KeyedRow>> keyedRows_;
  QList<QStringList> rows_;
};

}  // namespace tw
