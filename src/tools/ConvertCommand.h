#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace tw {

// One input line of `tintwell convert`: exactly three decimal integers from 0 to
// 255, separated by blanks or tabs; blanks around them and a final carriage
// return (a CRLF file) are allowed. Anything else is rejected.
std::optional<std::array<int, 3>> parseChannelLine(std::string_view line);

// `tintwell convert [R G B]`: arguments are the words after "convert".
int runConvertCommand(int argc, char** argv);

}  // namespace tw
