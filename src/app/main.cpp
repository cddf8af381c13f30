#include "app/cli/Cli.h"
#include "app/desktop/DesktopApplication.h"

// Without a command the desktop panel starts; every command is a tool that needs
// no display.
int main(int argc, char** argv) {
  if (argc < 2) return tw::runDesktopApplication(argc, argv);
  return tw::runCli(argc, argv);
}
