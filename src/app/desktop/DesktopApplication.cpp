#include "app/desktop/DesktopApplication.h"

#include <QApplication>
#include <QIcon>
#include <QTimer>

#include "app/AppDelegate.h"
#include "app/TerminationSignals.h"
#include "app/desktop/MessageBoxAlertPresenter.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/ViewController_plus.h"
#include "bridge/HostDescription.h"
#include "pen/CentralManager.h"
#include "resources/NamedImages.h"
#include "telemetry/network/NetworkUsageTransport.h"

namespace tw {

PanelParts desktopPanelParts() {
  return PanelParts{pen::platformCentralFactory(), defaultHostDescription(),
                    std::make_shared<MessageBoxAlertPresenter>(),
                    std::make_shared<NetworkUsageTransport>(),
                    [] { return std::make_unique<ColorHelper>(); }};
}

int runDesktopApplication(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Tintwell"));
  QApplication::setDesktopFileName(QStringLiteral("org.orlo.Tintwell"));
  // Quitting is the delegate's: closing the panel for a screen pick must not
  // end the loop, and closing it otherwise quits through the handshake.
  QApplication::setQuitOnLastWindowClosed(false);

  AppDelegate delegate;
  installTerminationSignalHandlers(delegate);

  auto* panel = new ViewController_plus(delegate, desktopPanelParts());
  PanelWindow window(delegate, panel);
  panel->viewDidLoad();
  window.show();
  // The window list's icon can follow the first paint.
  QTimer::singleShot(
      0, &app, [] { QApplication::setWindowIcon(QIcon(namedPixmap(QStringLiteral("tintwell")))); });
  delegate.applicationDidFinishLaunching();
  return QApplication::exec();
}

}  // namespace tw
