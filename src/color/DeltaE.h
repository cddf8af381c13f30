#pragma once

namespace tw {

// CIE L*a*b* as computed, not rounded for display (tw::Lab holds the panel's
// one-decimal values).
struct LabColor {
  double L = 0;
  double a = 0;
  double b = 0;
};

// CIEDE2000 colour difference with the parametric factors kL = kC = kH = 1.
// Follows Sharma, Wu and Dalal (2005): a colour of zero chroma after the a'
// scaling has hue 0, adds no hue difference, and the mean hue of such a pair
// is the plain sum; otherwise hue differences and means take the short way
// round the circle. Symmetric in its arguments.
double deltaE2000(const LabColor& first, const LabColor& second);

}  // namespace tw
