#pragma once

namespace tw {

// The factor from TINTWELL_TIME_SCALE (a positive decimal, default 1) that
// multiplies every timer interval and delay, so tests can run the real schedule
// quickly. Read once; an unusable value falls back to 1.
double timeScale();

// A delay of `seconds`, scaled, in whole milliseconds (at least 1 when the
// unscaled delay is positive).
int scaledMs(double seconds);

}  // namespace tw
