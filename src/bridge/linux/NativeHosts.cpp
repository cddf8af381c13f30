#include "bridge/linux/NativeHosts.h"

#include "bridge/linux/GimpHost.h"
#include "bridge/linux/InkscapeHost.h"
#include "bridge/linux/KritaHost.h"

namespace tw {

std::vector<std::unique_ptr<DesignHost>> nativeDesignHosts() {
  std::vector<std::unique_ptr<DesignHost>> hosts;
  hosts.push_back(std::make_unique<GimpHost>());
  hosts.push_back(std::make_unique<InkscapeHost>());
  hosts.push_back(std::make_unique<KritaHost>());
  return hosts;
}

}  // namespace tw
