#pragma once

#include <string_view>

namespace tw {

// Stops the process for a state that must not happen: one line naming the cause
// on standard error, then abort(). There is deliberately no recovery path.
[[noreturn]] void fatalStop(std::string_view cause);

}  // namespace tw
