#pragma once

#include <QWidget>

namespace tw {

class AppDelegate;
class ViewController_plus;

// The main window around the colour panel. Every appearance runs the panel's
// appear sequence; closing it runs viewDidDisappear() and, unless the panel
// closed it for a screen pick, quits the application through the delegate's
// handshake (closing the last window quits). Ctrl+Q quits the same way.
class PanelWindow : public QWidget {
  Q_OBJECT

 public:
  PanelWindow(AppDelegate& delegate, ViewController_plus* contentViewController);

  ViewController_plus* contentViewController() const { return content_; }

 protected:
  void showEvent(QShowEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  AppDelegate& delegate_;
  ViewController_plus* content_;
  bool closingForScreenPick_ = false;
};

}  // namespace tw
