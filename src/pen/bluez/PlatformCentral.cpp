#include "pen/bluez/BluezCentral.h"

namespace tw::pen {

CentralFactory platformCentralFactory() {
  return [](CentralDelegate* delegate, QThread* queue) -> std::unique_ptr<CentralManager> {
    return std::make_unique<BluezCentral>(delegate, queue);
  };
}

}  // namespace tw::pen
