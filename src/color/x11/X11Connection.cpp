#include "color/x11/X11Connection.h"

#include <QGuiApplication>
#include <QTimer>
#include <cstdlib>

// Xlib after Qt: its macros (Bool, Status, None) clash with Qt headers.
#include <X11/Xlib.h>
#include <xcb/xcb.h>

namespace tw::x11 {

X11Connection::X11Connection() : display_(XOpenDisplay(nullptr)) {}

X11Connection::~X11Connection() {
  if (display_) XCloseDisplay(display_);
}

unsigned long X11Connection::rootWindow() const {
  return display_ ? DefaultRootWindow(display_) : 0;
}

bool X11Connection::queryPointer(int& x, int& y) const {
  x = 0;
  y = 0;
  if (!display_) return false;
  Window root = 0;
  Window child = 0;
  int winX = 0;
  int winY = 0;
  unsigned int buttons = 0;
  return XQueryPointer(display_, rootWindow(), &root, &child, &x, &y, &winX, &winY, &buttons);
}

void X11Connection::readQueuedEvents() {
  if (!display_ || !reader_ || XEventsQueued(display_, QueuedAlready) == 0) return;
  QTimer::singleShot(0, reader_);
}

void syncQtConnection() {
  auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
  if (!x11 || !x11->connection()) return;
  xcb_connection_t* connection = x11->connection();
  // A round trip: the reply comes after every earlier request was processed.
  std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
}

}  // namespace tw::x11
