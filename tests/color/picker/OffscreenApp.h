#pragma once

#include <QApplication>
#include <QCoreApplication>
#include <cstdlib>

namespace tw::testing {

// One QApplication on the offscreen platform for the whole test process, with
// no X or Wayland display to find, whatever the machine has.
inline QApplication& offscreenApp() {
  static QApplication* app = [] {
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 1);
    static int argc = 1;
    static char name[] = "picker_test";
    static char* argv[] = {name, nullptr};
    return new QApplication(argc, argv);
  }();
  return *app;
}

// Runs deferred deletions and queued work.
inline void settle() {
  for (int i = 0; i < 3; ++i) {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
  }
}

}  // namespace tw::testing
