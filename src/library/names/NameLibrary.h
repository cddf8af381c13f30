#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QtGlobal>
#include <vector>

#include "color/DeltaE.h"
#include "library/ColorCodeLibrary.h"
#include "library/palette/Palette.h"

namespace tw::names {

// One answer of NameLibrary::nearest: a copy of the library entry with `delta`
// set to the colour difference in hundredths (rounded half away from zero), and
// the difference as computed.
struct NameMatch {
  ColorCodeLibrary entry;
  double deltaE = 0;
};

// A titled list of named colours that answers "which names are closest to this
// colour" by CIEDE2000. Entries keep the order they were given in ("library
// order"); it decides between equal differences. Immutable once built.
class NameLibrary {
 public:
  NameLibrary() = default;
  // Channels outside 0..255 are clamped; `delta` of the given entries is
  // ignored (nearest() fills it).
  NameLibrary(QString title, QList<ColorCodeLibrary> entries);

  const QString& title() const { return title_; }
  const QList<ColorCodeLibrary>& entries() const { return entries_; }
  qsizetype size() const { return entries_.size(); }
  bool isEmpty() const { return entries_.isEmpty(); }
  // The Lab of entries()[index], as labOfSRGB8 gives it.
  const LabColor& labAt(qsizetype index) const { return labs_[static_cast<std::size_t>(index)]; }

  // The min(n, size()) entries nearest to the colour, nearest first, by
  // deltaE2000(labOfSRGB8(query), entry's Lab). Equal differences keep library
  // order, so of two entries with the same channels (aqua and cyan) the earlier
  // one comes first. Channels are clamped to 0..255; n < 1 gives nothing, as
  // does an empty library. The answer is the same as a full scan's; see the
  // .cpp for how most entries are ruled out without computing their difference.
  std::vector<NameMatch> nearest(int red, int green, int blue, int n = 1) const;

  // The same by computing every entry's difference: the reference nearest()
  // is checked against, and the baseline of the benchmark.
  std::vector<NameMatch> nearestByFullScan(int red, int green, int blue, int n = 1) const;

  // The palette's swatches in order, titled with its name; no code.
  static NameLibrary fromPalette(const palette::Palette& palette);

 private:
  QString title_;
  QList<ColorCodeLibrary> entries_;
  std::vector<LabColor> labs_;
  // The search index: entries sorted by L (then library order), with what the
  // lower bound needs next to L so that the walk reads one compact array.
  struct Indexed {
    double L, a, b, chroma;
    qsizetype entry;
  };
  std::vector<Indexed> byLightness_;
  // The largest |L - 50| over the entries, for the lightness weight bound.
  double maxLightnessOffset_ = 0;
};

// A lower bound of deltaE2000(first, second) that costs a fraction of it: the
// one nearest() rules entries out with (derived in NameLibrary.cpp).
double deltaE2000LowerBound(const LabColor& first, const LabColor& second);
// The bound from lightness alone, |dL| / SL, with SL taken at its largest for
// colours whose |L - 50| is at most `maxOffsetFrom50`.
double deltaE2000LightnessBound(double deltaL, double maxOffsetFrom50);

// What reading a CSV name library gave: the library (possibly empty), how many
// data rows were left out, and why nothing could be read at all (then the
// library is empty and `error` says why; otherwise `error` is empty).
struct CsvLoad {
  NameLibrary library;
  qsizetype skippedRows = 0;
  QString error;
};

// Reads a name library from CSV bytes (UTF-8; a leading byte order mark is
// dropped) through the table reader (library/CSwiftV.h), with "," between
// fields and the first non-blank line as the header row.
//
// Columns, found by header name in any case, blanks and enclosing quotes
// around a header ignored:
//   name              required: the colour's name
//   hex               "#RRGGBB" or "RRGGBB", either case
//   red, green, blue  whole numbers 0 to 255, used when there is no hex column
//   abbr or code      optional short code (abbr when both are there)
// A header row without "name", or without "hex" and without all three of
// red/green/blue, is an error. With a repeated header the first column counts.
//
// A field enclosed in double quotes (blanks around the quotes allowed) is
// unquoted and a doubled quote inside becomes one; an unquoted field is taken
// with its surrounding blanks removed. A row whose name is empty or whose
// colour is missing or not valid is left out and counted in skippedRows.
// Blank lines are not rows.
CsvLoad loadCsvLibrary(const QByteArray& bytes, const QString& title);

// The three libraries compiled into the program.
// "CSS named colours": the 148 CSS Color Module Level 4 keywords, alphabetical
// (aliases such as aqua/cyan and gray/grey both present).
const NameLibrary& cssLibrary();
// "X11 colour names": the X11 rgb.txt list, one spelling per name, in the
// list's order.
const NameLibrary& x11Library();
// "Tango": the 27 colours of the Tango icon palette, in its order.
const NameLibrary& tangoLibrary();

}  // namespace tw::names
