#pragma once

#include <QProcessEnvironment>
#include <QString>

namespace tw {

// How the screen is picked: X11's global click monitor and pixel reads, or
// the desktop portal's interactive PickColor.
enum class PickingPath { X11, Portal };

// The path for Qt's platform name (QGuiApplication::platformName()) and the
// session's environment. A Wayland session takes the portal even when Qt runs
// on xcb through XWayland: the X11 path would see only XWayland's windows and
// read every other pixel as black. Wayland is recognised by a non-empty
// WAYLAND_DISPLAY or XDG_SESSION_TYPE=wayland.
PickingPath pickingPathFor(const QString& qtPlatform, const QProcessEnvironment& env);

}  // namespace tw
