#pragma once

#include <functional>

namespace tw::testing {

// Work a test program needs done before its Qt application exists (starting
// an X server and pointing DISPLAY at it, scaling the timers, private
// folders): registered at static initialisation, run by the shared test main
// in the order registered.
class BeforeApplication {
 public:
  explicit BeforeApplication(std::function<void()> step);
};

}  // namespace tw::testing

#define TW_BEFORE_APPLICATION_CAT2(a, b) a##b
#define TW_BEFORE_APPLICATION_CAT(a, b) TW_BEFORE_APPLICATION_CAT2(a, b)
// TW_BEFORE_APPLICATION([] { qputenv("TINTWELL_TIME_SCALE", "0.01"); });
#define TW_BEFORE_APPLICATION(step)                                                            \
  static const ::tw::testing::BeforeApplication TW_BEFORE_APPLICATION_CAT(twBeforeApplication, \
                                                                          __LINE__) {          \
    step                                                                                       \
  }
