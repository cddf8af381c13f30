#include "color/x11/X11Compositor.h"

#include <X11/Xlib.h>

#include <string>

#include "color/x11/X11Connection.h"

namespace tw::x11 {

bool compositorRunning() {
  X11Connection connection;
  Display* display = connection.display();
  if (!display) return false;
  const std::string name = "_NET_WM_CM_S" + std::to_string(DefaultScreen(display));
  const Atom selection = XInternAtom(display, name.c_str(), False);
  return XGetSelectionOwner(display, selection) != None;
}

}  // namespace tw::x11
