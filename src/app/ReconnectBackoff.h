#pragma once

#include <algorithm>

namespace tw {

// The waits between automatic reconnection attempts: 1 s, 2 s, 4 s ... and
// then 60 s apart, back at 1 s once the pen is connected again. A pen out of
// range is not asked for every second all day, and a pen back in range is
// found within a minute.
class ReconnectBackoff {
 public:
  static constexpr double kFirstSeconds = 1.0;
  static constexpr double kMostSeconds = 60.0;

  // The wait before the next attempt, in seconds; each call doubles the one after.
  double next() {
    const double wait = next_;
    next_ = std::min(next_ * 2.0, kMostSeconds);
    return wait;
  }
  void reset() { next_ = kFirstSeconds; }

 private:
  double next_ = kFirstSeconds;
};

}  // namespace tw
