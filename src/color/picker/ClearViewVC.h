#pragma once

#include <QLabel>
#include <QPointF>
#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <optional>

namespace tw {

// The content of the picking window: a full-screen, nearly invisible view with
// the dropper image following the pointer. Controller and view in one widget.
class ClearViewVC : public QWidget {
  Q_OBJECT

 public:
  // Runs viewDidLoad(): the view takes the main screen's available size.
  explicit ClearViewVC(QWidget* parent = nullptr);
  // Logs "I'm closed!".
  ~ClearViewVC() override;

  // The dropper image, 30 by 30, following the pointer.
  QPointer<QLabel> dropperImgView;
  std::optional<QPointF> mousePos = QPointF(0, 0);
  // Held, not read: the dropper image is always 30 by 30 with no offset.
  qint64 xDiff = 0;
  qint64 yDiff = 0;
  double droppSize = 30.0;

  // Sets the frame to (0, 0) and the main screen's available size and logs
  // "clearWindow frame : " with it. Stops the process without a screen.
  void viewDidLoad();
  // Logs "mouseMoved xxx :" with the location in the window and puts the
  // dropper image's bottom-left corner (its tip) there.
  void mouseMoved(QPointF locationInWindow);

 protected:
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  void trackPointer();

  // The window ignores the mouse, so it gets no move events: the pointer is
  // followed by looking at it once a frame while the view is shown.
  QTimer pointerTimer_;
  QPointF lastPointer_{-1, -1};
};

}  // namespace tw
