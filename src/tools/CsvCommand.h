#pragma once

namespace tw {

// `tintwell csv [--separator S] [--headers a,b,c] [FILE]`: arguments are the
// words after "csv".
int runCsvCommand(int argc, char** argv);

}  // namespace tw
