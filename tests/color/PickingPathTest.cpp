// Which screen-picking path a session takes, from Qt's platform and the
// session's environment.
#include "color/PickingPath.h"

#include <gtest/gtest.h>

#include <QProcessEnvironment>

namespace tw {
namespace {

QProcessEnvironment sessionWith(std::initializer_list<std::pair<const char*, const char*>> vars) {
  QProcessEnvironment env;
  for (const auto& [name, value] : vars)
    env.insert(QString::fromLatin1(name), QString::fromLatin1(value));
  return env;
}

TEST(PickingPath, XcbWithoutWaylandVariablesIsX11) {
  EXPECT_EQ(pickingPathFor(QStringLiteral("xcb"), sessionWith({{"DISPLAY", ":0"}})),
            PickingPath::X11);
}

TEST(PickingPath, XcbInAWaylandSessionByWaylandDisplayIsThePortal) {
  EXPECT_EQ(pickingPathFor(QStringLiteral("xcb"),
                           sessionWith({{"DISPLAY", ":0"}, {"WAYLAND_DISPLAY", "wayland-0"}})),
            PickingPath::Portal);
}

TEST(PickingPath, XcbInAWaylandSessionBySessionTypeIsThePortal) {
  EXPECT_EQ(pickingPathFor(QStringLiteral("xcb"),
                           sessionWith({{"DISPLAY", ":0"}, {"XDG_SESSION_TYPE", "wayland"}})),
            PickingPath::Portal);
}

TEST(PickingPath, QtOnWaylandIsThePortalWhateverTheEnvironment) {
  EXPECT_EQ(pickingPathFor(QStringLiteral("wayland"), sessionWith({})), PickingPath::Portal);
  EXPECT_EQ(pickingPathFor(QStringLiteral("wayland"), sessionWith({{"XDG_SESSION_TYPE", "x11"}})),
            PickingPath::Portal);
}

TEST(PickingPath, AnX11SessionWithoutWaylandDisplayIsX11) {
  EXPECT_EQ(pickingPathFor(QStringLiteral("xcb"), sessionWith({{"XDG_SESSION_TYPE", "x11"}})),
            PickingPath::X11);
}

TEST(PickingPath, AnEmptyWaylandDisplayIsNoWaylandSession) {
  EXPECT_EQ(pickingPathFor(QStringLiteral("xcb"), sessionWith({{"WAYLAND_DISPLAY", ""}})),
            PickingPath::X11);
  EXPECT_EQ(pickingPathFor(QStringLiteral("xcb"),
                           sessionWith({{"WAYLAND_DISPLAY", ""}, {"XDG_SESSION_TYPE", "x11"}})),
            PickingPath::X11);
}

TEST(PickingPath, OtherPlatformsFollowTheSession) {
  EXPECT_EQ(pickingPathFor(QStringLiteral("offscreen"), sessionWith({})), PickingPath::X11);
  EXPECT_EQ(pickingPathFor(QStringLiteral("offscreen"), sessionWith({{"WAYLAND_DISPLAY", "w"}})),
            PickingPath::Portal);
}

}  // namespace
}  // namespace tw
