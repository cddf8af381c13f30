// A table for Tintwell's own reader (library/CSwiftV.h): a header line, then
// one line per swatch with the colour in every notation the panel shows.
//
// The reader keeps quotes in fields as they stand, so the quoting is ours: a
// name holding a comma, a double quote, a line break or only blanks is written
// between double quotes with each inner quote doubled, and readCsv() takes the
// outer quotes off and halves the inner ones again. Any field that starts and
// ends with a quote is read that way. The reader turns every "\r\n" into "\n"
// before splitting, so a name holding "\r\n" reads back with "\n" there; and
// as one pass of that can leave "\r\n" behind ("\r\r\n"), readCsv() drops
// every run of "\r" before a "\n" in a name, so that what it reads is written
// and read back the same.

#include <QStringDecoder>

#include "color/ColorNotations.h"
#include "library/CSwiftV.h"
#include "library/palette/PaletteFormats.h"

namespace tw::palette {

namespace {

QString quoteField(const QString& field) {
  const bool quote = field.contains(u',') || field.contains(u'"') || field.contains(u'\n') ||
                     field.contains(u'\r') || (!field.isEmpty() && CSwiftV::isBlank(field));
  if (!quote) return field;
  QString inner = field;
  inner.replace(QStringLiteral("\""), QStringLiteral("\"\""));
  return u'"' + inner + u'"';
}

QString unquoteField(const QString& field) {
  if (field.size() < 2 || !field.startsWith(u'"') || !field.endsWith(u'"')) return field;
  QString inner = field.mid(1, field.size() - 2);
  inner.replace(QStringLiteral("\"\""), QStringLiteral("\""));
  return inner;
}

std::optional<int> channelOf(const QString& field) {
  const QString text = unquoteField(field).trimmed();
  if (text.isEmpty() || text.size() > 3) return std::nullopt;
  bool ok = false;
  const int value = text.toInt(&ok, 10);
  if (!ok || value < 0 || value > 255) return std::nullopt;
  for (const QChar c : text)
    if (c < u'0' || c > u'9') return std::nullopt;
  return value;
}

// Six hex digits, with or without '#'.
bool hexOf(const QString& field, Swatch& swatch) {
  QString text = unquoteField(field).trimmed();
  if (text.startsWith(u'#')) text.remove(0, 1);
  if (text.size() != 6) return false;
  for (const QChar c : text)
    if (!c.isDigit() && !(c.toLower() >= u'a' && c.toLower() <= u'f')) return false;
  bool ok = false;
  const uint rgb = text.toUInt(&ok, 16);
  if (!ok) return false;
  swatch.red = int((rgb >> 16) & 0xFF);
  swatch.green = int((rgb >> 8) & 0xFF);
  swatch.blue = int(rgb & 0xFF);
  return true;
}

QString withoutCarriageReturnsBeforeLineFeeds(const QString& text) {
  if (!text.contains(u'\r')) return text;
  QString out;
  out.reserve(text.size());
  for (const QChar c : text) {
    if (c == u'\n')
      while (out.endsWith(u'\r')) out.chop(1);
    out.append(c);
  }
  return out;
}

}  // namespace

QByteArray writeCsv(const Palette& palette) {
  QByteArray out = "name,hex,red,green,blue,cmyk,hsb,lab\n";
  for (const Swatch& swatch : palette.swatches) {
    const std::shared_ptr<AllColor> all = convertToAllColor(swatch.red, swatch.green, swatch.blue);
    const QStringList fields = {quoteField(swatch.name),
                                QLatin1Char('#') + all->Hex,
                                QString::number(swatch.red),
                                QString::number(swatch.green),
                                QString::number(swatch.blue),
                                all->txtCMYK,
                                all->txtHSB,
                                all->txtLAB};
    out.append(fields.join(u',').toUtf8());
    out.append('\n');
  }
  return out;
}

// Columns are found by header, in any case and order, blanks and quotes around
// a header ignored. A hex column ("#RRGGBB" or "RRGGBB") or all three of red,
// green and blue are needed; the name column is optional. Where a row has a
// hex text it is used, otherwise its red, green and blue. A data row without
// a valid colour fails the whole read with its line number: a half-read
// palette would quietly lose swatches.
ReadResult readCsv(const QByteArray& bytes) {
  QStringDecoder decoder(QStringDecoder::Utf8);
  QString text = decoder.decode(bytes);
  text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
  // The table reader stops the process on a text without a line.
  if (!CSwiftV::hasHeaderLine(text)) {
    return {std::nullopt, QStringLiteral("no header line")};
  }

  // Line numbers of the non-blank lines, in the reader's quote-aware split.
  QList<qsizetype> lineNumbers;
  qsizetype line = 1;
  for (const QString& piece : CSwiftV::split(QStringLiteral("\n"), text)) {
    if (!CSwiftV::isBlank(piece)) lineNumbers.append(line);
    line += piece.count(u'\n') + 1;
  }

  const CSwiftV table(text, QStringLiteral(","));
  qsizetype name = -1, hex = -1, red = -1, green = -1, blue = -1;
  for (qsizetype i = 0; i < table.headers().size(); ++i) {
    const QString header = unquoteField(table.headers()[i].trimmed()).trimmed().toLower();
    qsizetype* column = header == u"name"    ? &name
                        : header == u"hex"   ? &hex
                        : header == u"red"   ? &red
                        : header == u"green" ? &green
                        : header == u"blue"  ? &blue
                                             : nullptr;
    if (column && *column < 0) *column = i;
  }
  if (hex < 0 && (red < 0 || green < 0 || blue < 0)) {
    return {std::nullopt,
            QStringLiteral("line %1: no hex column and no red, green and blue columns")
                .arg(lineNumbers.value(0, 1))};
  }

  Palette palette;
  for (qsizetype r = 0; r < table.rows().size(); ++r) {
    const QStringList& fields = table.rows()[r];
    const auto field = [&fields](qsizetype i) {
      return i >= 0 && i < fields.size() ? fields[i] : QString();
    };
    Swatch swatch;
    swatch.name = withoutCarriageReturnsBeforeLineFeeds(unquoteField(field(name)));
    bool ok = false;
    if (hex >= 0 && !CSwiftV::isBlank(field(hex))) {
      ok = hexOf(field(hex), swatch);
    } else if (red >= 0 && green >= 0 && blue >= 0) {
      const auto r8 = channelOf(field(red));
      const auto g8 = channelOf(field(green));
      const auto b8 = channelOf(field(blue));
      ok = r8 && g8 && b8;
      if (ok) {
        swatch.red = *r8;
        swatch.green = *g8;
        swatch.blue = *b8;
      }
    }
    if (!ok) {
      return {std::nullopt,
              QStringLiteral("line %1: no valid colour").arg(lineNumbers.value(r + 1, r + 2))};
    }
    palette.swatches.push_back(std::move(swatch));
  }
  return {std::move(palette), {}};
}

}  // namespace tw::palette
