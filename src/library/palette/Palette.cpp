#include "library/palette/Palette.h"

#include <algorithm>

#include "library/palette/PaletteFormats.h"

namespace tw::palette {

std::optional<Format> formatFromName(const QString& nameOrSuffix) {
  QString suffix = nameOrSuffix;
  const qsizetype dot = suffix.lastIndexOf(u'.');
  if (dot >= 0) {
    suffix = suffix.mid(dot + 1);
  } else if (suffix.contains(u'/')) {
    return std::nullopt;  // a file name without a suffix
  }
  for (const Format format : {Format::Gpl, Format::Ase, Format::Css, Format::Csv}) {
    if (suffix.compare(suffixOf(format), Qt::CaseInsensitive) == 0) return format;
  }
  return std::nullopt;
}

QString suffixOf(Format format) {
  switch (format) {
    case Format::Gpl:
      return QStringLiteral("gpl");
    case Format::Ase:
      return QStringLiteral("ase");
    case Format::Css:
      return QStringLiteral("css");
    case Format::Csv:
      return QStringLiteral("csv");
  }
  return {};
}

QByteArray writePalette(const Palette& palette, Format format) {
  // A channel out of range would make a file no reader takes back.
  Palette clamped = palette;
  for (Swatch& swatch : clamped.swatches) {
    swatch.red = std::clamp(swatch.red, 0, 255);
    swatch.green = std::clamp(swatch.green, 0, 255);
    swatch.blue = std::clamp(swatch.blue, 0, 255);
  }
  switch (format) {
    case Format::Gpl:
      return writeGpl(clamped);
    case Format::Ase:
      return writeAse(clamped);
    case Format::Css:
      return writeCss(clamped);
    case Format::Csv:
      return writeCsv(clamped);
  }
  return {};
}

ReadResult readPalette(const QByteArray& bytes, Format format) {
  switch (format) {
    case Format::Gpl:
      return readGpl(bytes);
    case Format::Ase:
      return readAse(bytes);
    case Format::Csv:
      return readCsv(bytes);
    case Format::Css:
      break;
  }
  return {std::nullopt, QStringLiteral("CSS palettes are written, not read")};
}

}  // namespace tw::palette
