#include "app/cli/Cli.h"

#include <cstdio>
#include <cstring>

#include "app/cli/ListenCommand.h"
#include "app/cli/PushCommand.h"
#include "common/Version.h"
#include "tools/ConvertCommand.h"
#include "tools/CsvCommand.h"
#include "tools/HistoryCommand.h"

#include "tools/NameCommand.h"

namespace tw {

const char* usageText() {
  return "Usage: tintwell [COMMAND] [ARGS...]\n"
         "\n"
         "Desktop companion for the Quilla colour pen. Without a command, starts the\n"
         "desktop panel.\n"
         "\n"
         "Commands:\n"
         "  convert [R G B]      Print a colour in HEX, RGB, CMYK, HSB and Lab, TAB separated.\n"
         "                       Without arguments, reads lines of \"R G B\" from standard input.\n"
         "  csv [--separator S] [--headers a,b,c] [FILE]\n"
         "                       Read a colour library table (standard input without FILE)\n"
         "                       and print it as JSON.\n"
         "  name R G B|#RRGGBB [--library css|x11|tango|FILE] [-n N]\n"
         "                       Print the N colour names nearest to a colour (default 1;\n"
         "                       library: the CSS named colours unless given), one per line:\n"
         "                       name, #RRGGBB, CIEDE2000 difference with two decimals,\n"
         "                       and the entry's code when it has one, TAB separated.\n"
         "  listen               Run the pen link without the window; print each new colour's "
         "hex.\n"
         "  push R G B [--to HOST,...]\n"
         "                       Send one colour to the running design applications (or the\n"
         "                       named ones: photoshop, illustrator, gimp, inkscape, krita).\n"
         "  history [--json|--csv] [--since TIME]\n"
         "                       Print the colour history, newest first.\n"
         "  export --format gpl|ase|css|csv [FILE]\n"
         "                       Write the colour history as a palette file.\n"
         "  --help               Show this text.\n"
         "  --version            Show the version.\n";
}

int runCli(int argc, char** argv) {
  const char* command = argv[1];
  if (std::strcmp(command, "--help") == 0 || std::strcmp(command, "-h") == 0 ||
      std::strcmp(command, "help") == 0) {
    std::fputs(usageText(), stdout);
    return 0;
  }
  if (std::strcmp(command, "--version") == 0) {
    std::printf("tintwell %s\n", kVersion);
    return 0;
  }
  if (std::strcmp(command, "convert") == 0) return runConvertCommand(argc - 2, argv + 2);
  if (std::strcmp(command, "csv") == 0) return runCsvCommand(argc - 2, argv + 2);
  if (std::strcmp(command, "name") == 0) return runNameCommand(argc - 2, argv + 2);
  if (std::strcmp(command, "listen") == 0) return runListenCommand(argc - 2, argv + 2);
  if (std::strcmp(command, "push") == 0) return runPushCommand(argc - 2, argv + 2);
  if (std::strcmp(command, "history") == 0) return runHistoryCommand(argc - 2, argv + 2);
  if (std::strcmp(command, "export") == 0) return runExportCommand(argc - 2, argv + 2);
  std::fprintf(stderr, "tintwell: unknown command '%s'\n\n%s", command, usageText());
  return 2;
}

}  // namespace tw
