#include "telemetry/Reachability.h"

#include "common/Fatal.h"

namespace tw {

bool Reachability::isConnectedToNetwork() {
  static const std::unique_ptr<ReachabilityProbe> probe = [] {
    auto made = makePlatformReachabilityProbe();
    if (!made) fatalStop("the network reachability probe could not be created");
    return made;
  }();
  return probe->isConnectedToNetwork();
}

}  // namespace tw
