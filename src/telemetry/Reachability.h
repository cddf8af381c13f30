#pragma once

#include <memory>

namespace tw {

// Tells whether the machine is online at all, without sending anything.
// Backends live in per-platform folders (telemetry/linux); exactly one is
// built and makePlatformReachabilityProbe() returns it.
class ReachabilityProbe {
 public:
  virtual ~ReachabilityProbe() = default;
  // true when a route to the internet at large exists (the 0.0.0.0 test).
  // Must be safe to call from any thread.
  virtual bool isConnectedToNetwork() const = 0;
};

std::unique_ptr<ReachabilityProbe> makePlatformReachabilityProbe();

class Reachability {
 public:
  Reachability() = delete;
  // Asks this platform's probe, made once per process.
  static bool isConnectedToNetwork();
};

}  // namespace tw
