// Chooses the screen-picking backend once: the desktop portal in a Wayland
// session (no global click monitor there, whether Qt runs on Wayland or on
// XWayland), X11 everywhere else.
#include <QGuiApplication>
#include <QProcessEnvironment>

#include "color/ColorHelper.h"
#include "color/PickingPath.h"
#include "color/portal/PortalColorPicker.h"
#include "color/x11/X11Compositor.h"
#include "color/x11/X11Connection.h"
#include "color/x11/X11LensSource.h"
#include "color/x11/X11PointerSource.h"
#include "color/x11/X11ScreenSampler.h"
#include "color/x11/XInputClickMonitor.h"
#include "common/Log.h"

namespace tw {

namespace {

bool portalPath() {
  return pickingPathFor(QGuiApplication::platformName(),
                        QProcessEnvironment::systemEnvironment()) == PickingPath::Portal;
}

}  // namespace

ScreenBackend makeScreenBackend() {
  if (portalPath()) {
    logLine(std::string_view("screen picking: desktop portal PickColor"));
    auto picker = std::make_shared<portal::PortalColorPicker>();
    return {picker, picker, picker};
  }
  logLine(std::string_view("screen picking: X11"));
  auto connection = std::make_shared<x11::X11Connection>();
  return {std::make_shared<x11::XInputClickMonitor>(connection),
          std::make_shared<x11::X11PointerSource>(connection),
          std::make_shared<x11::X11ScreenSampler>(connection),
          std::make_shared<x11::X11LensSource>(connection)};
}

ColorHelper::ColorHelper(QObject* parent) : ColorHelper(makeScreenBackend(), parent) {}

bool pickingWindowCanBeShown() { return portalPath() || x11::compositorRunning(); }

}  // namespace tw
