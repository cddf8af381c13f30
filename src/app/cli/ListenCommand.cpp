#include "app/cli/ListenCommand.h"

#include <QCoreApplication>
#include <cstdio>
#include <cstring>

#include "app/AppDelegate.h"
#include "app/PanelLogic.h"
#include "app/PanelView.h"
#include "app/TerminationSignals.h"
#include "app/cli/StderrAlertPresenter.h"
#include "bridge/HostDescription.h"
#include "bridge/linux/NativeHosts.h"
#include "pen/CentralManager.h"
#include "telemetry/HelperUsageTransport.h"

namespace tw {

int runListenCommand(int argc, char** argv) {
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--help") == 0) {
      std::puts(
          "Usage: tintwell listen\n"
          "Runs the pen link, the push into design applications and the usage reports\n"
          "without the window, and prints the hex text of every new colour.\n"
          "SIGINT or SIGTERM ends it after the usage counts are sent.");
      return 0;
    }
    std::fprintf(stderr, "tintwell listen: unexpected argument '%s'\n", argv[i]);
    return 2;
  }
  int qtArgc = 1;
  char name[] = "tintwell";
  char* qtArgv[] = {name, nullptr};
  QCoreApplication app(qtArgc, qtArgv);

  AppDelegate delegate;
  installTerminationSignalHandlers(delegate);
  HeadlessPanelView view;
  PanelLogic panel(view, delegate,
                   PanelParts{pen::platformCentralFactory(),
                              defaultHostDescription(),
                              std::make_shared<StderrAlertPresenter>(),
                              makeUsageTransport(),
                              {},
                              nativeDesignHosts,
                              openDefaultHistory});
  panel.viewDidLoad();
  panel.appear();
  delegate.applicationDidFinishLaunching();
  return app.exec();
}

}  // namespace tw
