#pragma once

#include <QString>
#include <QtGlobal>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "color/DeltaE.h"

namespace tw {

// Channels exactly as given to the conversion; not clamped.
struct RGB {
  qint64 R = 0;
  qint64 G = 0;
  qint64 B = 0;
};

// Percentages 0 to 100, rounded half away from zero. Pure black is the exception:
// it gives C = M = Y = 0 and K = 1 (not 100), and is shown that way on purpose.
struct CMYK {
  qint64 C = 0;
  qint64 M = 0;
  qint64 Y = 0;
  qint64 K = 0;
};

// Hexcone hue in whole degrees 0 to 360 (360 when the hue fraction rounds up from
// just below 1), saturation and brightness in whole percent 0 to 100; whole
// numbers held as doubles.
struct HSB {
  double H = 0;
  double S = 0;
  double B = 0;
};

// CIE L*a*b* for D65 white and the 2 degree observer, each rounded half away from
// zero to one decimal. The sRGB matrix has four significant digits and the
// thresholds are the older 0.008856 and 7.787: the displayed texts depend on them.
struct Lab {
  double L = 0;
  double a = 0;
  double b = 0;
};

// A colour in every notation the panel shows, as numbers and as display texts.
// Shared by reference between the panel and whoever holds it.
class AllColor {
 public:
  QString Hex;      // six upper-case hex digits, no prefix
  QString txtRGB;   // "%d  %d  %d"
  QString txtCMYK;  // "%d  %d  %d  %d"
  QString txtHSB;   // "%.f  %.f  %.f"
  QString txtLAB;   // "%.1f  %.1f  %.1f " (the trailing blank belongs to it)
  std::optional<tw::RGB> RGB;
  std::optional<tw::CMYK> CMYK;
  std::optional<tw::HSB> HSB;
  std::optional<tw::Lab> Lab;
};

// Converts three channel values (0 to 255 in practice) to all notations.
std::shared_ptr<AllColor> convertToAllColor(qint64 red, qint64 green, qint64 blue);

// Fractions 0.0 to 1.0 in, rounded percentages out (black gives K = 1).
CMYK rgbToCMYK(double red, double green, double blue);

// Fractions 0.0 to 1.0 in; each component rounded to one decimal.
Lab rgbToLab(double red, double green, double blue);

// The Lab of an 8-bit sRGB colour before rounding: the same white point,
// matrix and curve as the panel's Lab, so rounding these half away from zero
// to one decimal gives the displayed text.
LabColor labOfSRGB8(std::uint8_t red, std::uint8_t green, std::uint8_t blue);

// What the platform colour reports as hue, saturation and brightness for these
// fractions, scaled and rounded to whole degrees and percent.
HSB rgbToHSB(double red, double green, double blue);

// sRGB channel fraction to linear light: divided by 12.92 up to 0.04045, the
// 2.4 power curve above.
double linearSRGB(double channel);

// Rounds half away from zero (2.5 -> 3, -2.5 -> -3).
double roundHalfAway(double value);

// Truncates toward zero; a value that is not finite or does not fit a signed
// 64-bit integer stops the process.
qint64 checkedTruncate(double value);

// The numbers of every notation for 8-bit channels, without building texts.
struct Notations {
  tw::RGB rgb;
  tw::CMYK cmyk;
  tw::HSB hsb;
  tw::Lab lab;
};
Notations computeNotations(qint64 red, qint64 green, qint64 blue);

// Writes Hex, txtRGB, txtCMYK, txtHSB and txtLAB joined by one TAB each, then a
// line feed, into `out` (at least kNotationLineMax bytes). Returns the length.
inline constexpr std::size_t kNotationLineMax = 512;
std::size_t formatNotationLine(const Notations& n, char* out);

}  // namespace tw
