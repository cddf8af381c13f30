#include "app/desktop/DesktopApplication.h"

#include <QApplication>
#include <QIcon>
#include <cstdio>
#include <thread>

#include <fontconfig/fontconfig.h>

#include "app/AppDelegate.h"
#include "app/TerminationSignals.h"
#include "app/desktop/MessageBoxAlertPresenter.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/ViewController_plus.h"
#include "bridge/HostDescription.h"
#include "bridge/linux/NativeHosts.h"
#include "pen/CentralManager.h"
#include "resources/NamedImages.h"
#include "telemetry/HelperUsageTransport.h"

namespace tw {

PanelParts desktopPanelParts() {
  return PanelParts{pen::platformCentralFactory(),
                    defaultHostDescription(),
                    std::make_shared<MessageBoxAlertPresenter>(),
                    makeUsageTransport(),
                    [] { return std::make_unique<ColorHelper>(); },
                    nativeDesignHosts,
                    openDefaultHistory};
}

namespace {

// Without a display Qt stops the process with a long message and an abort.
// A platform named explicitly (QT_QPA_PLATFORM=offscreen, say) is the user's
// choice and is left to Qt.
bool hasDesktopSession() {
  return !qEnvironmentVariableIsEmpty("DISPLAY") ||
         !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
         !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

}  // namespace

int runDesktopApplication(int argc, char** argv) {
  if (!hasDesktopSession()) {
    std::fputs(
        "tintwell: the panel needs a desktop session (neither DISPLAY nor WAYLAND_DISPLAY is "
        "set); 'tintwell listen' runs without one, 'tintwell --help' lists the commands\n",
        stderr);
    return 1;
  }
  // Fontconfig's configuration and font list, which the panel's first text
  // needs and which are about a quarter of the start's work, load on a thread of
  // their own while QApplication connects to the display.
  std::thread fonts([] { FcInit(); });
  QApplication app(argc, argv);
  fonts.join();
  QApplication::setApplicationName(QStringLiteral("Tintwell"));
  QApplication::setDesktopFileName(QStringLiteral("org.orlo.Tintwell"));
  // Quitting is the delegate's: closing the panel for a screen pick must not
  // end the loop, and closing it otherwise quits through the handshake.
  QApplication::setQuitOnLastWindowClosed(false);

  AppDelegate delegate;
  installTerminationSignalHandlers(delegate);

  auto* panel = new ViewController_plus(delegate, desktopPanelParts());
  PanelWindow window(delegate, panel);
  // The panel is on the screen first; everything that does not draw it (the
  // pen link's bus calls, the script files, the history, the tray,
  // telemetry) follows its first frame, in the same order as ever.
  delegate.deferLaunch([panel] {
    panel->viewDidLoad();
    panel->viewWillAppear();
    // The window list's icon too.
    QApplication::setWindowIcon(QIcon(namedPixmap(QStringLiteral("tintwell"))));
  });
  window.showFirstFrame();
  return QApplication::exec();
}

}  // namespace tw
