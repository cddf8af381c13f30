#include "color/x11/X11Compositor.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/XvfbServer.h"

// Xlib after Qt: its macros clash with Qt headers.
#include <X11/Xlib.h>

namespace tw {
namespace {

class X11CompositorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(server.isRunning());
    setenv("DISPLAY", server.display().toLocal8Bit().constData(), 1);
  }
  testing::XvfbServer server;
};

TEST_F(X11CompositorTest, NoSelectionOwnerMeansNoCompositor) {
  EXPECT_FALSE(x11::compositorRunning());
}

TEST_F(X11CompositorTest, OwnerOfTheCompositingSelectionMeansCompositor) {
  Display* display = XOpenDisplay(nullptr);
  ASSERT_NE(display, nullptr);
  const Window owner =
      XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
  XSetSelectionOwner(display, XInternAtom(display, "_NET_WM_CM_S0", False), owner, CurrentTime);
  XSync(display, False);
  EXPECT_TRUE(x11::compositorRunning());
  XCloseDisplay(display);  // the selection goes with its owner
  EXPECT_FALSE(x11::compositorRunning());
}

TEST(X11CompositorNoServer, NoXServerMeansNoCompositor) {
  setenv("DISPLAY", ":-1", 1);
  EXPECT_FALSE(x11::compositorRunning());
}

}  // namespace
}  // namespace tw
