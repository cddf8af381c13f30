#pragma once

#include <QString>
#include <optional>

namespace tw {

// One option with a value, as the commands take them: "--name VALUE" or
// "--name=VALUE". Gives the value when argv[i] is this option (i then points
// at the last word used), nothing otherwise; sets `missing` when argv[i] is
// the option but no value follows.
std::optional<QString> optionValue(const char* name, int argc, char** argv, int& i, bool& missing);

}  // namespace tw
