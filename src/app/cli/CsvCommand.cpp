#include "app/cli/CsvCommand.h"

#include <cstdio>

namespace tw {

// Unfinished: the table reader lands next.
int runCsvCommand(int, char**) {
  std::fputs("tintwell csv: not available yet\n", stderr);
  return 1;
}

}  // namespace tw
