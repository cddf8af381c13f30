#include "color/DeltaE.h"

#include <cmath>

namespace tw {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kRadiansPerDegree = kPi / 180.0;
constexpr double k25Pow7 = 6103515625.0;  // 25^7

double pow7(double x) {
  const double x2 = x * x;
  return x2 * x2 * x2 * x;
}

// Hue angle in degrees, 0 up to 360; 0 when a and b are both zero.
double hueDegrees(double a, double b) {
  if (a == 0.0 && b == 0.0) return 0.0;
  double h = std::atan2(b, a) / kRadiansPerDegree;
  if (h < 0.0) h += 360.0;
  return h;
}

double cosDegrees(double degrees) { return std::cos(degrees * kRadiansPerDegree); }
double sinDegrees(double degrees) { return std::sin(degrees * kRadiansPerDegree); }

}  // namespace

double deltaE2000(const LabColor& first, const LabColor& second) {
  // Chroma-dependent stretch of a*, so that near-neutral colours are weighted
  // as observers see them.
  const double chroma1 = std::sqrt(first.a * first.a + first.b * first.b);
  const double chroma2 = std::sqrt(second.a * second.a + second.b * second.b);
  const double meanChromaPow7 = pow7((chroma1 + chroma2) / 2.0);
  const double g = 0.5 * (1.0 - std::sqrt(meanChromaPow7 / (meanChromaPow7 + k25Pow7)));
  const double a1 = (1.0 + g) * first.a;
  const double a2 = (1.0 + g) * second.a;
  const double c1 = std::sqrt(a1 * a1 + first.b * first.b);
  const double c2 = std::sqrt(a2 * a2 + second.b * second.b);
  const double h1 = hueDegrees(a1, first.b);
  const double h2 = hueDegrees(a2, second.b);

  const double deltaL = second.L - first.L;
  const double deltaC = c2 - c1;
  const bool neutral = c1 * c2 == 0.0;  // a hue is undefined
  double deltaHue = 0.0;
  if (!neutral) {
    deltaHue = h2 - h1;
    if (deltaHue > 180.0) {
      deltaHue -= 360.0;
    } else if (deltaHue < -180.0) {
      deltaHue += 360.0;
    }
  }
  const double deltaH = 2.0 * std::sqrt(c1 * c2) * sinDegrees(deltaHue / 2.0);

  const double meanL = (first.L + second.L) / 2.0;
  const double meanC = (c1 + c2) / 2.0;
  double meanHue = h1 + h2;
  if (!neutral) {
    if (std::fabs(h1 - h2) <= 180.0) {
      meanHue = (h1 + h2) / 2.0;
    } else if (h1 + h2 < 360.0) {
      meanHue = (h1 + h2 + 360.0) / 2.0;
    } else {
      meanHue = (h1 + h2 - 360.0) / 2.0;
    }
  }

  const double t = 1.0 - 0.17 * cosDegrees(meanHue - 30.0) + 0.24 * cosDegrees(2.0 * meanHue) +
                   0.32 * cosDegrees(3.0 * meanHue + 6.0) - 0.20 * cosDegrees(4.0 * meanHue - 63.0);
  const double hueOffset = (meanHue - 275.0) / 25.0;
  const double deltaTheta = 30.0 * std::exp(-hueOffset * hueOffset);
  const double meanCPow7 = pow7(meanC);
  const double rc = 2.0 * std::sqrt(meanCPow7 / (meanCPow7 + k25Pow7));
  const double lOffset2 = (meanL - 50.0) * (meanL - 50.0);
  const double sl = 1.0 + 0.015 * lOffset2 / std::sqrt(20.0 + lOffset2);
  const double sc = 1.0 + 0.045 * meanC;
  const double sh = 1.0 + 0.015 * meanC * t;
  const double rt = -sinDegrees(2.0 * deltaTheta) * rc;

  const double l = deltaL / sl;
  const double c = deltaC / sc;
  const double h = deltaH / sh;
  return std::sqrt(l * l + c * c + h * h + rt * c * h);
}

}  // namespace tw
