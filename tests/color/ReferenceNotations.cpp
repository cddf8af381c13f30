#include "tests/color/ReferenceNotations.h"

#include <cmath>
#include <cstdio>

namespace tw::reference {
namespace {

long long toInteger(double v) { return static_cast<long long>(v); }

std::string format(const char* pattern, auto... values) {
  char buffer[256];
  const int n = std::snprintf(buffer, sizeof buffer, pattern, values...);
  return std::string(buffer, static_cast<size_t>(n));
}

}  // namespace

std::string notationLine(int red, int green, int blue) {
  const double r = red / 255.0;
  const double g = green / 255.0;
  const double b = blue / 255.0;

  long long C, M, Y, K;
  if (r == 0.0 && g == 0.0 && b == 0.0) {
    C = 0, M = 0, Y = 0, K = 1;
  } else {
    double k = 1.0 - r;
    if (1.0 - g < k) k = 1.0 - g;
    if (1.0 - b < k) k = 1.0 - b;
    C = toInteger(std::round(((1.0 - r) - k) * 100.0 / (1.0 - k)));
    M = toInteger(std::round(((1.0 - g) - k) * 100.0 / (1.0 - k)));
    Y = toInteger(std::round(((1.0 - b) - k) * 100.0 / (1.0 - k)));
    K = toInteger(std::round(k * 100.0));
  }

  // Hexcone: brightness is the largest channel, saturation the spread over it,
  // hue the sextant plus the position inside it.
  double hi = r, lo = r;
  if (g > hi) hi = g;
  if (b > hi) hi = b;
  if (g < lo) lo = g;
  if (b < lo) lo = b;
  double h = 0.0, s = 0.0;
  if (hi > 0.0) s = (hi - lo) / hi;
  if (hi - lo > 0.0) {
    const double spread = hi - lo;
    if (hi == r) {
      h = (g - b) / spread;
    } else if (hi == g) {
      h = 2.0 + (b - r) / spread;
    } else {
      h = 4.0 + (r - g) / spread;
    }
    h = h / 6.0;
    if (h < 0.0) h = h + 1.0;
  }
  const double H = std::round(h * 360.0), S = std::round(s * 100.0), V = std::round(hi * 100.0);

  double lin[3];
  const double channels[3] = {r, g, b};
  for (int i = 0; i < 3; ++i) {
    const double c = channels[i];
    lin[i] = (c > 0.04045 ? std::pow((c + 0.055) / 1.055, 2.4) : c / 12.92) * 100.0;
  }
  const double x = (lin[0] * 0.4124 + lin[1] * 0.3576 + lin[2] * 0.1805) / 95.047;
  const double y = (lin[0] * 0.2126 + lin[1] * 0.7152 + lin[2] * 0.0722) / 100.0;
  const double z = (lin[0] * 0.0193 + lin[1] * 0.1192 + lin[2] * 0.9505) / 108.883;
  auto f = [](double t) {
    return t > 0.008856 ? std::pow(t, 0.3333333333333333) : t * 7.787 + 0.13793103448275862;
  };
  const double L = std::round((f(y) * 116.0 - 16.0) * 10.0) / 10.0;
  const double A = std::round((f(x) - f(y)) * 500.0 * 10.0) / 10.0;
  const double B = std::round((f(y) - f(z)) * 200.0 * 10.0) / 10.0;

  return format("%02X%02X%02X", red, green, blue) + "\t" + format("%d  %d  %d", red, green, blue) +
         "\t" + format("%lld  %lld  %lld  %lld", C, M, Y, K) + "\t" +
         format("%.f  %.f  %.f", H, S, V) + "\t" + format("%.1f  %.1f  %.1f ", L, A, B) + "\n";
}

}  // namespace tw::reference
