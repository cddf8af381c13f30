#pragma once

#include <memory>
#include <vector>

#include "bridge/DesignHost.h"

namespace tw {

// The native design applications of this desktop, in push order: GIMP,
// Inkscape, Krita. Each talks to the user's session bus or runtime folder.
std::vector<std::unique_ptr<DesignHost>> nativeDesignHosts();

}  // namespace tw
