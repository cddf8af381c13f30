#include "color/ColorNotations.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "common/Fatal.h"

namespace tw {

double linearSRGB(double c) { return c > 0.04045 ? std::pow((c + 0.055) / 1.055, 2.4) : c / 12.92; }

namespace {

// 2^63 is exactly representable; anything at or beyond it does not fit.
constexpr double kInt64Limit = 9223372036854775808.0;

[[noreturn]] void stopForValue() {
  fatalStop("a colour value is not finite or does not fit a 64-bit integer");
}

inline qint64 truncateChecked(double value) {
  if (!(value < kInt64Limit && value >= -kInt64Limit)) stopForValue();  // NaN fails both
  return static_cast<qint64>(value);
}

// std::round is an out-of-line call on baseline x86-64; this is the same
// function (half away from zero, the sign of zero kept) for the hot path.
inline double roundFast(double x) {
  constexpr double kExact = 4503599627370496.0;  // 2^52: from here on x is whole
  if (!(std::fabs(x) < kExact)) return x;        // whole, infinite or NaN
  double t = static_cast<double>(static_cast<qint64>(x));
  if (std::fabs(x - t) >= 0.5) t += std::copysign(1.0, x);
  return std::copysign(t, x);
}

}  // namespace

double roundHalfAway(double value) { return roundFast(value); }

qint64 checkedTruncate(double value) { return truncateChecked(value); }

CMYK rgbToCMYK(double red, double green, double blue) {
  if (red == 0.0 && green == 0.0 && blue == 0.0) {
    return CMYK{0, 0, 0, 1};
  }
  const double k0 = std::min(std::min(1.0 - red, 1.0 - green), 1.0 - blue);
  const double rest = 1.0 - k0;
  return CMYK{truncateChecked(roundFast(((1.0 - red) - k0) * 100.0 / rest)),
              truncateChecked(roundFast(((1.0 - green) - k0) * 100.0 / rest)),
              truncateChecked(roundFast(((1.0 - blue) - k0) * 100.0 / rest)),
              truncateChecked(roundFast(k0 * 100.0))};
}

namespace {

// The tables below are built by the compiler: the panel's first frame shows
// one colour's texts, and building them at run time was a quarter of the
// start's instructions on the main thread.

// roundFast for 0 <= x < 2^52, where it reduces to adding one when the
// fraction is at least a half; usable by the compiler.
constexpr double roundNonNegative(double x) {
  double t = static_cast<double>(static_cast<qint64>(x));
  if (x - t >= 0.5) t += 1.0;
  return t;
}

// For 8-bit channels the smallest complement is 1 - max exactly (1 - x never
// increases with x), so each of C, M, Y depends only on its own channel and the
// largest one, and K on the largest one alone. The tables hold what rgbToCMYK
// computes for those pairs, operation for operation (k0 = 1 - largest, every
// quotient non-negative), so the bits are the same; the exhaustive test
// compares every colour's line with printf's.
struct CmykTables {
  qint8 component[256][256];  // [largest][channel], channel <= largest
  qint8 black[256];           // [largest]
};

constexpr CmykTables makeCmykTables() {
  CmykTables t{};
  for (int largest = 1; largest < 256; ++largest) {
    const double k0 = 1.0 - largest / 255.0;
    const double rest = 1.0 - k0;
    t.black[largest] = static_cast<qint8>(roundNonNegative(k0 * 100.0));
    for (int channel = 0; channel <= largest; ++channel)
      t.component[largest][channel] =
          static_cast<qint8>(roundNonNegative(((1.0 - channel / 255.0) - k0) * 100.0 / rest));
  }
  return t;
}

constexpr CmykTables kCmykTables = makeCmykTables();

CMYK cmykOfBytes(int red, int green, int blue) {
  const int largest = std::max(std::max(red, green), blue);
  if (largest == 0) return CMYK{0, 0, 0, 1};
  const auto& row = kCmykTables.component[largest];
  return CMYK{row[red], row[green], row[blue], kCmykTables.black[largest]};
}

double labCurve(double t) {
  return t > 0.008856 ? std::pow(t, 0.3333333333333333) : t * 7.787 + 0.13793103448275862;
}

// Linearised and scaled channel for every 8-bit value; built with the same
// expression as the general path, so both give the same bits.
const std::array<double, 256>& linearTable() {
  static const std::array<double, 256> table = [] {
    std::array<double, 256> t{};
    for (int i = 0; i < 256; ++i) t[i] = linearSRGB(static_cast<double>(i) / 255.0) * 100.0;
    return t;
  }();
  return table;
}

// The one Lab computation: the panel's rounded texts and the unrounded values
// colour differences need both come from here, so they cannot drift apart.
LabColor unroundedLabFromLinear(double r, double g, double b) {
  const double x = (r * 0.4124 + g * 0.3576 + b * 0.1805) / 95.047;
  const double y = (r * 0.2126 + g * 0.7152 + b * 0.0722) / 100.0;
  const double z = (r * 0.0193 + g * 0.1192 + b * 0.9505) / 108.883;
  const double fx = labCurve(x);
  const double fy = labCurve(y);
  const double fz = labCurve(z);
  return LabColor{fy * 116.0 - 16.0, (fx - fy) * 500.0, (fy - fz) * 200.0};
}

// Each product is rounded as a double before scaling, exactly as when the
// rounding was written inline, so the displayed tenths are unchanged.
Lab labFromLinear(double r, double g, double b) {
  const LabColor u = unroundedLabFromLinear(r, g, b);
  return Lab{roundFast(u.L * 10.0) / 10.0, roundFast(u.a * 10.0) / 10.0,
             roundFast(u.b * 10.0) / 10.0};
}

bool isByte(qint64 v) { return v >= 0 && v <= 255; }

// Decimal text of 0 to 999, the range nearly every printed number falls in.
struct SmallNumbers {
  char text[1000][4];
  unsigned char length[1000];
};

// The decimal digits of v at p, as "%llu" writes them; returns their count.
constexpr int writeDigits(char* p, quint64 v) {
  char digits[20] = {};
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v != 0);
  for (int i = 0; i < n; ++i) p[i] = digits[n - 1 - i];
  return n;
}

constexpr SmallNumbers makeSmallNumbers() {
  SmallNumbers t{};
  for (int i = 0; i < 1000; ++i)
    t.length[i] = static_cast<unsigned char>(writeDigits(t.text[i], static_cast<quint64>(i)));
  return t;
}

constexpr SmallNumbers kSmallNumbers = makeSmallNumbers();

char* putUnsigned(char* p, quint64 v) {
  if (v < 1000) {
    std::memcpy(p, kSmallNumbers.text[v], 4);
    return p + kSmallNumbers.length[v];
  }
  return p + writeDigits(p, v);
}

// "%d" of a signed 64-bit value.
char* putInt(char* p, qint64 v) {
  if (v < 0) {
    *p++ = '-';
    return putUnsigned(p, 0 - static_cast<quint64>(v));
  }
  return putUnsigned(p, static_cast<quint64>(v));
}

// "%.f" of a whole number held as a double (the sign of zero survives).
char* putWhole(char* p, double v) {
  if (std::signbit(v)) *p++ = '-';
  return putUnsigned(p, static_cast<quint64>(truncateChecked(std::fabs(v))));
}

// "%.1f" of a value already rounded to one decimal: the nearest double to n/10
// prints as exactly n/10, so the digits come from n = |v| * 10 rounded.
// "%.1f" text of n / 10 for n below 10,000: every Lab component of an 8-bit colour.
struct TenthsTexts {
  static constexpr quint64 kCount = 10000;
  char text[kCount][8];
  unsigned char length[kCount];
};

constexpr TenthsTexts makeTenthsTexts() {
  TenthsTexts t{};
  for (quint64 n = 0; n < TenthsTexts::kCount; ++n) {
    const int whole = writeDigits(t.text[n], n / 10);
    t.text[n][whole] = '.';
    t.text[n][whole + 1] = static_cast<char>('0' + n % 10);
    t.length[n] = static_cast<unsigned char>(whole + 2);
  }
  return t;
}

constexpr TenthsTexts kTenthsTexts = makeTenthsTexts();

char* putTenths(char* p, double v) {
  if (std::signbit(v)) *p++ = '-';
  const quint64 tenths = static_cast<quint64>(truncateChecked(roundFast(std::fabs(v) * 10.0)));
  if (tenths < TenthsTexts::kCount) {
    std::memcpy(p, kTenthsTexts.text[tenths], 8);
    return p + kTenthsTexts.length[tenths];
  }
  p = putUnsigned(p, tenths / 10);
  *p++ = '.';
  *p++ = static_cast<char>('0' + tenths % 10);
  return p;
}

char* putSeparator(char* p) {
  *p++ = ' ';
  *p++ = ' ';
  return p;
}

char* putHex(char* p, const RGB& c) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  if (isByte(c.R) && isByte(c.G) && isByte(c.B)) {
    for (qint64 v : {c.R, c.G, c.B}) {
      *p++ = kDigits[v >> 4];
      *p++ = kDigits[v & 15];
    }
    return p;
  }
  const int n = std::snprintf(p, std::size_t{3} * 9, "%02X%02X%02X", static_cast<unsigned>(c.R),
                              static_cast<unsigned>(c.G), static_cast<unsigned>(c.B));
  return p + n;
}

char* putRGBText(char* p, const RGB& c) {
  p = putSeparator(putInt(p, c.R));
  p = putSeparator(putInt(p, c.G));
  return putInt(p, c.B);
}

char* putCMYKText(char* p, const CMYK& c) {
  p = putSeparator(putInt(p, c.C));
  p = putSeparator(putInt(p, c.M));
  p = putSeparator(putInt(p, c.Y));
  return putInt(p, c.K);
}

char* putHSBText(char* p, const HSB& c) {
  p = putSeparator(putWhole(p, c.H));
  p = putSeparator(putWhole(p, c.S));
  return putWhole(p, c.B);
}

char* putLabText(char* p, const Lab& c) {
  p = putSeparator(putTenths(p, c.L));
  p = putSeparator(putTenths(p, c.a));
  p = putTenths(p, c.b);
  *p++ = ' ';
  return p;
}

template <typename Record, typename Put>
QString textOf(const std::optional<Record>& record, Put put) {
  if (!record) fatalStop("a colour notation was read before it was computed");
  char buffer[kNotationLineMax];
  char* end = put(buffer, *record);
  return QString::fromLatin1(buffer, static_cast<qsizetype>(end - buffer));
}

}  // namespace

Lab rgbToLab(double red, double green, double blue) {
  return labFromLinear(linearSRGB(red) * 100.0, linearSRGB(green) * 100.0,
                       linearSRGB(blue) * 100.0);
}

LabColor labOfSRGB8(std::uint8_t red, std::uint8_t green, std::uint8_t blue) {
  const auto& table = linearTable();
  return unroundedLabFromLinear(table[red], table[green], table[blue]);
}

HSB rgbToHSB(double red, double green, double blue) {
  const double max = std::max(std::max(red, green), blue);
  const double min = std::min(std::min(red, green), blue);
  const double delta = max - min;
  double hue = 0.0;
  double saturation = 0.0;
  if (max > 0.0) saturation = delta / max;
  if (delta > 0.0) {
    if (red >= green && red >= blue) {
      hue = (green - blue) / delta;
    } else if (green >= blue) {
      hue = 2.0 + (blue - red) / delta;
    } else {
      hue = 4.0 + (red - green) / delta;
    }
    hue /= 6.0;
    if (hue < 0.0) hue += 1.0;
  }
  return HSB{roundFast(hue * 360.0), roundFast(saturation * 100.0), roundFast(max * 100.0)};
}

Notations computeNotations(qint64 red, qint64 green, qint64 blue) {
  const double r = static_cast<double>(red) / 255.0;
  const double g = static_cast<double>(green) / 255.0;
  const double b = static_cast<double>(blue) / 255.0;
  Notations n;
  n.rgb = RGB{red, green, blue};
  n.hsb = rgbToHSB(r, g, b);
  if (isByte(red) && isByte(green) && isByte(blue)) {
    n.cmyk = cmykOfBytes(static_cast<int>(red), static_cast<int>(green), static_cast<int>(blue));
    const auto& table = linearTable();
    n.lab = labFromLinear(table[red], table[green], table[blue]);
  } else {
    n.cmyk = rgbToCMYK(r, g, b);
    n.lab = rgbToLab(r, g, b);
  }
  return n;
}

std::size_t formatNotationLine(const Notations& n, char* out) {
  char* p = putHex(out, n.rgb);
  *p++ = '\t';
  p = putRGBText(p, n.rgb);
  *p++ = '\t';
  p = putCMYKText(p, n.cmyk);
  *p++ = '\t';
  p = putHSBText(p, n.hsb);
  *p++ = '\t';
  p = putLabText(p, n.lab);
  *p++ = '\n';
  return static_cast<std::size_t>(p - out);
}

std::shared_ptr<AllColor> convertToAllColor(qint64 red, qint64 green, qint64 blue) {
  const Notations n = computeNotations(red, green, blue);
  auto all = std::make_shared<AllColor>();
  all->RGB = n.rgb;
  all->CMYK = n.cmyk;
  all->HSB = n.hsb;
  all->Lab = n.lab;
  all->Hex = textOf(all->RGB, putHex);
  all->txtRGB = textOf(all->RGB, putRGBText);
  all->txtCMYK = textOf(all->CMYK, putCMYKText);
  all->txtHSB = textOf(all->HSB, putHSBText);
  all->txtLAB = textOf(all->Lab, putLabText);
  return all;
}

}  // namespace tw
