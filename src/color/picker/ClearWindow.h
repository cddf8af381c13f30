#pragma once

#include <QColor>
#include <QPointer>
#include <QWidget>

#include "events/NotificationCenter.h"

namespace tw {

class ClearViewVC;

// The picking window: full screen, frameless, above other windows, white at
// alpha 0.001 and transparent for input, so clicks reach whatever lies below
// and only the global monitor sees them. Deletes itself when closed.
//
// On X11 without a compositing manager a translucent window shows near-black,
// so there it is never mapped (pickingWindowCanBeShown()); everything else
// (arming, notifications, closing) goes on the same.
class ClearWindow : public QWidget {
  Q_OBJECT

 public:
  // Takes ownership of `contentViewController` and observes
  // "Notification_Mouse_Down" (for the rest of the process; a closed window's
  // observer does nothing).
  explicit ClearWindow(ClearViewVC* contentViewController);
  static ClearWindow* windowWithContentViewController(ClearViewVC* contentViewController);

  // The main panel's window, brought back by the next mouse-down.
  QPointer<QWidget> appMainWindow;

  ClearViewVC* contentViewController() const { return content_; }
  // White at alpha 0.001.
  static QColor backgroundColor();

  // Puts the window on screen over the whole primary screen when it can be
  // shown as a translucent window; otherwise leaves it unmapped (logged).
  void makeKeyAndOrderFront();
  void showWindow() { makeKeyAndOrderFront(); }
  // Maps the window whatever the compositor: for tests of input transparency.
  void orderFrontEvenWithoutCompositor();

  // Brings back appMainWindow, logs "down down", restores the cursor and
  // closes this window, all before returning.
  void mouseClickDownWithNotification(const Notification& notification);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  ClearViewVC* content_;
};

}  // namespace tw
