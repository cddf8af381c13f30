// GIMP palette text: a "GIMP Palette" line, optional "Name:" and "Columns:"
// lines, '#' comments, and one "R G B<blanks>name" line per swatch.

#include <QStringDecoder>
#include <QStringList>

#include "library/palette/PaletteFormats.h"

namespace tw::palette {

namespace {

bool isBlankChar(QChar c) {
  return c == u' ' || c == u'\t' || c == u'\r' || c == u'\f' || c == u'\v';
}

// A channel: decimal digits only, 0 to 255. At most three digits are looked
// at, so "0000001" and huge numbers are both refused without overflow.
std::optional<int> channel(QStringView token) {
  if (token.isEmpty() || token.size() > 3) return std::nullopt;
  int value = 0;
  for (const QChar c : token) {
    if (c < u'0' || c > u'9') return std::nullopt;
    value = value * 10 + (c.unicode() - u'0');
  }
  if (value > 255) return std::nullopt;
  return value;
}

QString lineError(qsizetype number, const QString& why) {
  return QStringLiteral("line %1: %2").arg(number).arg(why);
}

}  // namespace

QString oneLine(const QString& name) {
  QString out = name;
  for (QChar& c : out) {
    if (c.category() == QChar::Other_Control || c == QChar::LineSeparator ||
        c == QChar::ParagraphSeparator) {
      c = u' ';
    }
  }
  return out;
}

QByteArray writeGpl(const Palette& palette) {
  QByteArray out = "GIMP Palette\nName: ";
  out.append(oneLine(palette.name).toUtf8());
  // Columns 0 lets each application lay the swatches out itself.
  out.append("\nColumns: 0\n#\n");
  for (const Swatch& swatch : palette.swatches) {
    out.append(QStringLiteral("%1 %2 %3\t")
                   .arg(swatch.red, 3)
                   .arg(swatch.green, 3)
                   .arg(swatch.blue, 3)
                   .toUtf8());
    out.append(oneLine(swatch.name).toUtf8());
    out.append('\n');
  }
  return out;
}

// Blank lines, comments, and CRLF line ends are accepted anywhere; "Name:" and
// "Columns:" too (Columns is not checked: only the applications' layout uses
// it). A swatch line is three decimal channels separated by blanks, then the
// name, which keeps inner blanks but loses those around it.
ReadResult readGpl(const QByteArray& bytes) {
  QStringDecoder decoder(QStringDecoder::Utf8);
  const QString text = decoder.decode(bytes);
  const QList<QStringView> lines = QStringView(text).split(u'\n');

  qsizetype first = 0;
  while (first < lines.size() && lines[first].trimmed().isEmpty()) ++first;
  if (first == lines.size() || lines[first].trimmed() != u"GIMP Palette") {
    return {std::nullopt,
            QStringLiteral("not a GIMP palette: the first line is not \"GIMP Palette\"")};
  }

  Palette palette;
  for (qsizetype i = first + 1; i < lines.size(); ++i) {
    const QStringView line = lines[i].trimmed();
    const qsizetype number = i + 1;
    if (line.isEmpty() || line.startsWith(u'#')) continue;
    if (line.startsWith(u"Name:")) {
      palette.name = line.mid(5).trimmed().toString();
      continue;
    }
    if (line.startsWith(u"Columns:")) continue;

    int channels[3] = {0, 0, 0};
    qsizetype pos = 0;
    for (int k = 0; k < 3; ++k) {
      while (pos < line.size() && isBlankChar(line[pos])) ++pos;
      const qsizetype start = pos;
      while (pos < line.size() && !isBlankChar(line[pos])) ++pos;
      const QStringView token = line.mid(start, pos - start);
      if (token.isEmpty())
        return {std::nullopt, lineError(number, QStringLiteral("fewer than three channels"))};
      const std::optional<int> value = channel(token);
      if (!value) {
        return {std::nullopt,
                lineError(number, QStringLiteral("\"%1\" is not a channel from 0 to 255")
                                      .arg(token.left(16).toString()))};
      }
      channels[k] = *value;
    }
    palette.swatches.push_back(
        Swatch{line.mid(pos).trimmed().toString(), channels[0], channels[1], channels[2]});
  }
  return {std::move(palette), {}};
}

}  // namespace tw::palette
