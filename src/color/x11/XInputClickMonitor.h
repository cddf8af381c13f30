#pragma once

#include <QObject>
#include <memory>
#include <vector>

#include "color/ColorHelper.h"

class QSocketNotifier;

namespace tw::x11 {

class X11Connection;

// Global left clicks on X11: XInput2 raw button presses (button 1) selected on
// the root window of our own connection. Raw events reach us whatever window
// is under the pointer and even while another client holds a grab. They are
// read in the main event loop through a socket notifier; no thread.
class XInputClickMonitor : public QObject, public GlobalClickMonitor {
  Q_OBJECT

 public:
  explicit XInputClickMonitor(std::shared_ptr<X11Connection> connection);
  ~XInputClickMonitor() override;

  void addHandler(Handler handler) override;
  // False when there is no X server or it lacks XInput 2.2; clicks are then
  // never reported (and that was logged).
  bool isListening() const { return notifier_ != nullptr; }

 private:
  void readEvents();

  std::shared_ptr<X11Connection> connection_;
  int xiOpcode_ = -1;
  QSocketNotifier* notifier_ = nullptr;
  std::vector<Handler> handlers_;
};

}  // namespace tw::x11
