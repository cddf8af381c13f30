// The one main of every test program: GoogleTest, and the Qt application the
// program's tests share, made once before any test runs and destroyed after
// the last. Its kind comes from the build (TW_TEST_APPLICATION: 0 none, 1
// QCoreApplication, 2 QGuiApplication, 3 QApplication).
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QtGlobal>
#include <memory>
#include <vector>

#include "tests/support/TestMain.h"

#if !defined(TW_TEST_APPLICATION) || TW_TEST_APPLICATION < 0 || TW_TEST_APPLICATION > 3
#error "TW_TEST_APPLICATION must be 0 (none), 1 (core), 2 (gui) or 3 (widgets)"
#endif

#if TW_TEST_APPLICATION == 2
#include <QGuiApplication>
#elif TW_TEST_APPLICATION == 3
#include <QApplication>
#endif

namespace tw::testing {

namespace {

std::vector<std::function<void()>>& steps() {
  static std::vector<std::function<void()>> list;
  return list;
}

}  // namespace

BeforeApplication::BeforeApplication(std::function<void()> step) {
  steps().push_back(std::move(step));
}

}  // namespace tw::testing

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
#if TW_TEST_APPLICATION >= 2
  // A window-system application with no display of the test's own: the
  // offscreen platform, whatever desktop the machine has; and no session bus,
  // whose daemons would outlive the test.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
    qunsetenv("DISPLAY");
    qunsetenv("WAYLAND_DISPLAY");
    qunsetenv("XDG_SESSION_TYPE");
    qputenv("QT_QPA_PLATFORM", "offscreen");
  }
  if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
    qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
#endif
  for (const auto& step : tw::testing::steps()) step();
#if TW_TEST_APPLICATION == 1
  auto app = std::make_unique<QCoreApplication>(argc, argv);
#elif TW_TEST_APPLICATION == 2
  auto app = std::make_unique<QGuiApplication>(argc, argv);
#elif TW_TEST_APPLICATION == 3
  auto app = std::make_unique<QApplication>(argc, argv);
  QApplication::setQuitOnLastWindowClosed(false);
#endif
  return RUN_ALL_TESTS();
}
