// The palette file readers (library/palette/Palette.h) on any bytes: an
// error or a palette, never a crash, a hang or a huge allocation. What one
// reads, written and read again, is the same palette (for the GIMP palette
// after the first pass, which makes names one line and trims them).
#pragma once

#include <QByteArray>
#include <cstdint>

#include "FuzzInput.h"
#include "library/palette/Palette.h"

namespace tw {

inline void fuzzPaletteReader(const std::uint8_t* data, std::size_t size, palette::Format format) {
  const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
  const palette::ReadResult first = palette::readPalette(bytes, format);
  TW_FUZZ_CHECK(first.palette.has_value() != !first.error.isEmpty());
  if (!first.palette) return;
  // Nothing from nothing: every swatch took at least one input byte.
  TW_FUZZ_CHECK(first.palette->swatches.size() <= size);
  for (const palette::Swatch& s : first.palette->swatches) {
    TW_FUZZ_CHECK(s.red >= 0 && s.red <= 255 && s.green >= 0 && s.green <= 255 && s.blue >= 0 &&
                  s.blue <= 255);
  }

  const palette::ReadResult second =
      palette::readPalette(palette::writePalette(*first.palette, format), format);
  TW_FUZZ_CHECK(second.palette.has_value());
  TW_FUZZ_CHECK(second.palette->swatches.size() == first.palette->swatches.size());
  for (std::size_t i = 0; i < first.palette->swatches.size(); ++i) {
    const palette::Swatch& a = first.palette->swatches[i];
    const palette::Swatch& b = second.palette->swatches[i];
    TW_FUZZ_CHECK(a.red == b.red && a.green == b.green && a.blue == b.blue);
    if (format != palette::Format::Gpl) TW_FUZZ_CHECK(a.name == b.name);
  }
  if (format == palette::Format::Gpl) {
    const palette::ReadResult third =
        palette::readPalette(palette::writePalette(*second.palette, format), format);
    TW_FUZZ_CHECK(third.palette.has_value() && *third.palette == *second.palette);
  }
}

}  // namespace tw
