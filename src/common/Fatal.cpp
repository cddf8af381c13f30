#include "common/Fatal.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace tw {

void fatalStop(std::string_view cause) {
  std::string line(kFatalLinePrefix);
  line.append(cause);
  line.push_back('\n');
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
  std::abort();
}

}  // namespace tw
