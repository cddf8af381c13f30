#include "color/x11/XInputClickMonitor.h"

#include <QPointer>
#include <QSocketNotifier>

// Xlib after Qt: its macros (Bool, Status, None) clash with Qt headers.
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

#include "color/x11/X11Connection.h"
#include "common/Log.h"

namespace tw::x11 {

XInputClickMonitor::XInputClickMonitor(std::shared_ptr<X11Connection> connection)
    : connection_(std::move(connection)) {
  Display* display = connection_->display();
  if (!display) {
    logLine(std::string_view("X11: no X server; global clicks are not seen"));
    return;
  }
  int event = 0;
  int error = 0;
  int major = 2;
  int minor = 2;  // 2.1+ delivers raw events to the root window during grabs too
  if (!XQueryExtension(display, "XInputExtension", &xiOpcode_, &event, &error) ||
      XIQueryVersion(display, &major, &minor) != Success) {
    logLine(std::string_view("X11: no XInput 2.2; global clicks are not seen"));
    return;
  }

  unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
  XISetMask(bits, XI_RawButtonPress);
  // Master devices only: each physical click then arrives once, not once per
  // slave and once more for its master.
  XIEventMask mask{XIAllMasterDevices, static_cast<int>(sizeof bits), bits};
  XISelectEvents(display, connection_->rootWindow(), &mask, 1);
  XSync(display, False);

  notifier_ = new QSocketNotifier(ConnectionNumber(display), QSocketNotifier::Read, this);
  connect(notifier_, &QSocketNotifier::activated, this, &XInputClickMonitor::readEvents);
  connection_->setQueuedEventsReader([self = QPointer<XInputClickMonitor>(this)] {
    if (self) self->readEvents();
  });
  logLine(std::string_view("X11: global clicks from XInput2 raw button events"));
}

XInputClickMonitor::~XInputClickMonitor() { connection_->setQueuedEventsReader(nullptr); }

void XInputClickMonitor::addHandler(Handler handler) { handlers_.push_back(std::move(handler)); }

void XInputClickMonitor::readEvents() {
  Display* display = connection_->display();
  if (!display || !notifier_) return;
  // XPending also takes in what earlier round trips (pointer and pixel
  // queries on this connection) left queued, which the notifier never sees.
  while (XPending(display) > 0) {
    XEvent event;
    XNextEvent(display, &event);
    XGenericEventCookie* cookie = &event.xcookie;
    if (cookie->type != GenericEvent || cookie->extension != xiOpcode_) continue;
    if (!XGetEventData(display, cookie)) continue;
    const bool leftPress =
        cookie->evtype == XI_RawButtonPress && static_cast<XIRawEvent*>(cookie->data)->detail == 1;
    XFreeEventData(display, cookie);
    if (!leftPress) continue;
    // Copy: a handler may add handlers.
    const auto handlers = handlers_;
    for (const auto& handler : handlers) handler();
  }
}

}  // namespace tw::x11
