#pragma once

#include <QWidget>

namespace tw {

class AppDelegate;
class TrayIcon;
class ViewController_plus;

// The main window around the colour panel. Every appearance runs the panel's
// appear sequence; closing it runs viewDidDisappear() and, unless the panel
// closed it for a screen pick, quits the application through the delegate's
// handshake (closing the last window quits). Ctrl+Q quits the same way.
//
// At start the window can go on the screen before the start-up work: see
// showFirstFrame().
//
// After a screen pick the panel comes back (and runs its appear sequence) as
// the click is handled, but stays off the screen until the picked pixel has
// been read: otherwise a click where the panel had stood would read the panel.
class PanelWindow : public QWidget {
  Q_OBJECT

 public:
  PanelWindow(AppDelegate& delegate, ViewController_plus* contentViewController);

  ViewController_plus* contentViewController() const { return content_; }
  // The tray icon, shown while the preferences say so.
  TrayIcon& trayIcon() const { return *tray_; }

  // Puts the panel on the screen if it was held off it for a pick.
  void revealAfterScreenPick();
  // Brings the panel back after a pick that ended without a colour: shown
  // again as it was, not a new appearance (no start-up colour is posted).
  void returnAfterCancelledPick();

  void setVisible(bool visible) override;

  // Shows the panel with the start-up colour already drawn and, once that
  // first frame is on the screen, finishes the delegate's deferred launch
  // (which runs the appear sequence). Input that comes before it finishes the
  // launch first and is then handled as usual.
  void showFirstFrame();

 protected:
  void showEvent(QShowEvent* event) override;
  void closeEvent(QCloseEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void finishLaunching();

  AppDelegate& delegate_;
  ViewController_plus* content_;
  bool closingForScreenPick_ = false;
  // From arming a pick until its pixel has been read.
  bool holdOffScreen_ = false;
  bool revealing_ = false;
  TrayIcon* tray_ = nullptr;
};

}  // namespace tw
