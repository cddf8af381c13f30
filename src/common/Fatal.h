#pragma once

#include <string_view>

namespace tw {

// How a fatal stop's line begins; another process of ours that stops this way
// (the post helper) is recognised by it.
inline constexpr std::string_view kFatalLinePrefix = "tintwell: fatal: ";

// Stops the process for a state that must not happen: one line naming the cause
// on standard error, then abort(). There is deliberately no recovery path.
[[noreturn]] void fatalStop(std::string_view cause);

}  // namespace tw
