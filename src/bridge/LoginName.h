#pragma once

#include <QString>

namespace tw {

// The current user's login name from the user database; empty when unknown.
QString loginName();

}  // namespace tw
