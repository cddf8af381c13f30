#pragma once

namespace tw {

// Dispatches `tintwell COMMAND ...` (argv[1] is the command); returns the
// process exit status.
int runCli(int argc, char** argv);

// Usage text listing every sub-command.
const char* usageText();

}  // namespace tw
