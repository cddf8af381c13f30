#include "tools/CommandLine.h"

#include <cstring>

namespace tw {

std::optional<QString> optionValue(const char* name, int argc, char** argv, int& i, bool& missing) {
  const char* arg = argv[i];
  const std::size_t length = std::strlen(name);
  if (std::strncmp(arg, name, length) != 0) return std::nullopt;
  if (arg[length] == '=') return QString::fromUtf8(arg + length + 1);
  if (arg[length] != '\0') return std::nullopt;
  if (i + 1 >= argc) {
    missing = true;
    return std::nullopt;
  }
  return QString::fromUtf8(argv[++i]);
}

}  // namespace tw
