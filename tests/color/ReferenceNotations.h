#pragma once

#include <string>

namespace tw::reference {

// A slow, literal transcription of the notation rules with printf formatting,
// written apart from the production code so each checks the other.
std::string notationLine(int red, int green, int blue);

}  // namespace tw::reference
