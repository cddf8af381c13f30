// The backend the helper chooses by itself in a Wayland session where Qt does
// not run on Wayland (xcb through XWayland; offscreen here): the desktop
// portal, found on the session bus. A private session bus carries the fake
// portal; one test per process, as Qt keeps its session bus connection.
#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QGuiApplication>
#include <string>

#include "color/ColorHelper.h"
#include "color/ColorStruct.h"
#include "tests/color/ScreenPickTestSupport.h"
#include "tests/color/portal/FakePortal.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PrivateBus.h"

namespace tw {
namespace {

TEST(PortalSession, AWaylandSessionPicksThroughThePortalEvenWithQtOffWayland) {
  ASSERT_NE(QGuiApplication::platformName(), QStringLiteral("wayland"));
  testing::PrivateBus bus{testing::PrivateBus::Kind::Session};
  ASSERT_FALSE(bus.address().isEmpty());
  bus.exportAddress();
  qputenv("WAYLAND_DISPLAY", "wayland-test");
  testing::FakePortal portal(bus.address(), QStringLiteral("0.25,0.5,1.0"), QStringLiteral("0"));
  ASSERT_TRUE(portal.ready());
  ASSERT_TRUE(QDBusConnection::sessionBus().isConnected());

  testing::PickRecorder& recorder = testing::PickRecorder::instance();
  recorder.clear();
  testing::LogCapture log;
  ColorHelper helper;
  EXPECT_TRUE(log.text().contains(QStringLiteral("screen picking: desktop portal PickColor\n")))
      << log.text().toStdString();
  EXPECT_FALSE(log.text().contains(QStringLiteral("screen picking: X11")));
  EXPECT_TRUE(pickingWindowCanBeShown());
  int unanswered = 0;
  helper.pickUnanswered = [&] { ++unanswered; };
  helper.installMonitor();
  helper.mainScreenHeight = helper.mainDisplayPixelsHigh();

  helper.bPickScreenColor = true;
  ASSERT_TRUE(testing::spinUntil([&] { return !recorder.newColors.empty(); }));
  EXPECT_EQ(portal.calls(), 1);
  EXPECT_EQ(unanswered, 0);
  const auto* color = std::any_cast<ColorStruct>(&recorder.newColors[0].object);
  ASSERT_NE(color, nullptr);
  EXPECT_EQ(color->colorHex, QStringLiteral("3F7FFF"));
  qunsetenv("WAYLAND_DISPLAY");
  recorder.clear();
}

}  // namespace
}  // namespace tw
