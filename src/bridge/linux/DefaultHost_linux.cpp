#include "bridge/HostDescription.h"
#include "bridge/linux/ProcApplicationLister.h"

namespace tw {

std::shared_ptr<HostDescription> defaultHostDescription() {
  return std::make_shared<WineHostDescription>(std::make_shared<ProcApplicationLister>());
}

}  // namespace tw
