#pragma once

#include <QByteArray>
#include <QString>
#include <optional>
#include <vector>

namespace tw::palette {

// One named colour of a palette file. The channels are 8-bit sRGB.
struct Swatch {
  QString name;
  int red = 0;
  int green = 0;
  int blue = 0;

  friend bool operator==(const Swatch&, const Swatch&) = default;
};

// A titled list of swatches, in file order.
struct Palette {
  QString name;
  std::vector<Swatch> swatches;

  friend bool operator==(const Palette&, const Palette&) = default;
};

// The palette files Tintwell writes; it reads Gpl, Ase and Csv back.
//   Gpl  GIMP palette, read by GIMP, Inkscape and Krita
//   Ase  Adobe Swatch Exchange (RGB float entries, one group-less list)
//   Css  custom properties in a :root rule
//   Csv  a header line and one line per swatch with every notation, read by
//        Tintwell's own table reader
enum class Format { Gpl, Ase, Css, Csv };

// "gpl", "ase", "css" or "csv" in any case, with or without a leading dot, or
// a file name ending in one of them; nothing for anything else.
std::optional<Format> formatFromName(const QString& nameOrSuffix);
// "gpl", "ase", "css", "csv".
QString suffixOf(Format format);

// The whole file.
QByteArray writePalette(const Palette& palette, Format format);

// A palette read from a file's bytes, or why it could not be: malformed or
// hostile input gives an error text, never a crash, a hang or a huge
// allocation. Css is not read.
struct ReadResult {
  std::optional<Palette> palette;
  QString error;
};
ReadResult readPalette(const QByteArray& bytes, Format format);

}  // namespace tw::palette
