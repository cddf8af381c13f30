#pragma once

#include <atomic>

#include "telemetry/UsageTransport.h"

namespace tw::testing {

// A usage transport that counts the requests and never answers, for tests of
// the panel that never reach a send (or only count the sends).
class IdleTransport : public UsageTransport {
 public:
  void post(const UsageRequest&, Completion) override { ++posts; }
  std::atomic<int> posts{0};
};

}  // namespace tw::testing
