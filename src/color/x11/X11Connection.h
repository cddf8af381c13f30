#pragma once

#include <functional>
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
  // The pointer's position on its root window, in device pixels (0, 0 without
  // a server). True when the pointer is on this connection's default screen.
  // A round trip: events it reads in wait for readQueuedEvents().
  bool queryPointer(int& x, int& y) const;
  _XDisplay* display() const { return display_; }
  unsigned long rootWindow() const;

  // Round trips (pointer and pixel queries) read whatever events arrived
  // meanwhile into Xlib's queue, where the socket notifier never sees them.
  // The event reader registers here; whoever made a round trip outside it
  // calls readQueuedEvents(), which hands such events over from the event loop.
  void setQueuedEventsReader(std::function<void()> reader) { reader_ = std::move(reader); }
  void readQueuedEvents();

 private:
  _XDisplay* display_ = nullptr;
  std::function<void()> reader_;
};

// Makes sure the X server has carried out every request Qt has sent so far
// (unmapping the picking window above all) before we read the screen on our
// own connection: requests on two connections have no order between them.
void syncQtConnection();

}  // namespace tw::x11
