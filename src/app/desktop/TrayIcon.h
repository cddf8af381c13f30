#pragma once

#include <QColor>
#include <QObject>
#include <QPointer>
#include <optional>

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace tw {

class ViewController_plus;

// The panel in the desktop's tray (QSystemTrayIcon: a StatusNotifierItem when
// the session bus has a watcher, the X11 tray otherwise), while the
// preferences' "show tray icon" is on: a dot in the last colour, a tooltip
// with the connection and the battery in words, and a menu with the panel's
// own actions (the same QAction objects, so Quit is the panel's handshake).
class TrayIcon : public QObject {
 public:
  // `actions` in menu order; a null entry is a separator.
  TrayIcon(ViewController_plus& panel, const QList<QAction*>& actions, QObject* parent = nullptr);
  ~TrayIcon() override;

  // Made on first show, hidden (not deleted) when switched off.
  void setShown(bool shown);
  bool isShown() const;
  // Null until first shown.
  QSystemTrayIcon* icon() const { return icon_; }
  QMenu* menu() const { return menu_; }

  // "Tintwell" and, on the next line, "Pen connected, battery 80 %".
  QString toolTip() const;
  // A round dot in the colour on a transparent square.
  static QPixmap dot(const QColor& color, int size);

 private:
  void refresh();

  ViewController_plus& panel_;
  QList<QPointer<QAction>> actions_;
  QMenu* menu_ = nullptr;
  QSystemTrayIcon* icon_ = nullptr;
  QString connection_;
  QColor color_{250, 250, 250};
};

}  // namespace tw
