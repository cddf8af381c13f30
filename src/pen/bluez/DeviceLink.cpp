#include "pen/bluez/DeviceLink.h"

#include <algorithm>
#include <utility>

namespace tw::pen::bluez {

int DeviceLink::peripheralState() const {
  if (reportedConnected_) return Peripheral::kConnected;
  if (connectsOut_ > 0) return Peripheral::kConnecting;
  return Peripheral::kDisconnected;
}

bool DeviceLink::connectAnswered(bool succeeded, bool deviceConnected) {
  connectsOut_ = std::max(0, connectsOut_ - 1);
  if (!succeeded || reportedConnected_ || !deviceConnected) return false;
  reportedConnected_ = true;
  return true;
}

DeviceLink::Report DeviceLink::connectedChanged(bool connected) {
  if (connected) {
    if (connectsOut_ == 0 || reportedConnected_) return Report::None;
    reportedConnected_ = true;
    return Report::Connected;
  }
  return drop() ? Report::Disconnected : Report::None;
}

bool DeviceLink::drop() {
  wantServices_ = false;
  batteryWaitExpired_ = false;
  return std::exchange(reportedConnected_, false);
}

void DeviceLink::servicesFound(QList<ServicePtr> services) {
  wantServices_ = false;
  services_ = std::move(services);
}

}  // namespace tw::pen::bluez
