#pragma once

#include <QColor>
#include <QList>
#include <QObject>
#include <QPoint>
#include <QPointer>
#include <functional>

class QLineEdit;
class QMimeData;
class QWidget;

namespace tw {

// What a dragged colour carries: the colour itself as application/x-color,
// which colour choosers and design tools take, and the text "#RRGGBB" for
// everything else (text fields, editors, terminals).
QMimeData* colorMimeData(const QColor& color);

// Takes the panel's colour out to other applications:
// - dragging the crown or the hex field drags the colour shown
//   (colorMimeData);
// - a plain click on a notation text (hex, RGB, CMYK, HSB, Lab) copies that
//   text as shown to the clipboard. Dragging across a notation selects, as in
//   any text field, and copies nothing.
// - Enter or Space on a focused notation text copies it as a click does, and
//   on the focused crown copies the colour a drag would carry.
class ColorTransfer : public QObject {
  Q_OBJECT
 public:
  // `hex` shows "#RRGGBB"; its colour is the one dragged from both sources.
  ColorTransfer(QWidget* crown, QLineEdit* hex, const QList<QLineEdit*>& notations,
                QObject* parent = nullptr);

  // Starts the drag of `data` from `source`; by default a real QDrag (copy).
  using DragStarter = std::function<void(QWidget* source, QMimeData* data)>;
  void setDragStarter(DragStarter starter) { startDrag_ = std::move(starter); }

  // The colour a drag would carry now; invalid before any colour is shown.
  QColor colorShown() const;

  // Puts `text` on the clipboard as a click on a notation does, without the
  // "Copied" tip (nothing was clicked): the copy option's way out.
  static void copyToClipboard(const QString& text);

 Q_SIGNALS:
  // A notation text went to the clipboard.
  void copied(const QString& text);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  bool isDragSource(QObject* watched) const;

  QPointer<QWidget> crown_;
  QPointer<QLineEdit> hex_;
  QList<QPointer<QLineEdit>> notations_;
  DragStarter startDrag_;
  // The press the current gesture started with, on `pressedOn_`.
  QPointer<QObject> pressedOn_;
  QPoint pressAt_;
  bool dragging_ = false;
};

}  // namespace tw
