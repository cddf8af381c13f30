#include "app/cli/Cli.h"

int main(int argc, char** argv) { return tw::runCli(argc, argv); }
