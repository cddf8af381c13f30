#pragma once

#include <memory>

struct _XDisplay;

namespace tw::x11 {

// Our own connection to the X server, apart from Qt's: the click monitor reads
// its events there, and the pointer and pixel queries are round trips on it.
// Opened from $DISPLAY; isOpen() is false when there is no X server.
class X11Connection {
 public:
  X11Connection();
  ~X11Connection();
  X11Connection(const X11Connection&) = delete;
  X11Connection& operator=(const X11Connection&) = delete;

  bool isOpen() const { return display_ != nullptr; }
  _XDisplay* display() const { return display_; }
  unsigned long rootWindow() const;

 private:
  _XDisplay* display_ = nullptr;
};

// Makes sure the X server has carried out every request Qt has sent so far
// (unmapping the picking window above all) before we read the screen on our
// own connection: requests on two connections have no order between them.
void syncQtConnection();

}  // namespace tw::x11
