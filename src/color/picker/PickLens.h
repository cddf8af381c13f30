#pragma once

#include <QImage>
#include <QTimer>
#include <QWidget>
#include <functional>
#include <memory>

#include "color/ColorHelper.h"

namespace tw {

// The magnifier shown while a screen pick is armed: the 11 × 11 device pixels
// around the pointer at ten times their size, the centre one framed and its
// hex below. It follows the pointer beside it (never over the pixels it
// shows, so never over the one a click samples), flips at the monitor's
// edges, and takes the keyboard while it is up:
//   arrow keys   move the pointer one device pixel (with Shift, ten)
//   Enter, Space pick the pixel under the pointer (pickRequested)
//   Escape       give the pick up (cancelRequested)
// Closes itself (and is deleted) once `armed` answers false, which is how a
// click, a key pick or a cancel all end it.
class PickLens : public QWidget {
  Q_OBJECT

 public:
  static constexpr int kPixels = 11;  // side of the magnified square, odd
  static constexpr int kZoom = 10;    // logical pixels per magnified pixel
  static constexpr int kGap = 24;     // device pixels from the pointer
  static constexpr int kLabelHeight = 22;
  static_assert(kGap > kPixels / 2, "the lens must clear the pixels it shows");

  PickLens(std::shared_ptr<PickLensSource> source, std::function<bool()> armed);
  ~PickLens() override;

  // Shows the lens at the pointer and starts following it.
  void start();

  // The centre pixel's hex text ("#RRGGBB") as last drawn; empty before that.
  QString centreHex() const { return centreHex_; }
  // Frames drawn so far (for the frame-rate bench).
  quint64 framesDrawn() const { return frames_; }
  // Whether the keyboard is ours (a grab can fail: another client holds it).
  bool hasKeyboard() const { return keyboardGrabbed_; }

 Q_SIGNALS:
  void pickRequested();
  void cancelRequested();
  // The lens moved to `deviceRect` (device pixels, top-left origin).
  void placed(const QRect& deviceRect);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void follow();
  void place(QPoint pointer);
  void tryGrabKeyboard();

  std::shared_ptr<PickLensSource> source_;
  std::function<bool()> armed_;
  QTimer timer_;
  QImage pixels_;
  QString centreHex_;
  QPoint lastPointer_{-1, -1};
  QRect lastPlacement_;
  quint64 frames_ = 0;
  bool keyboardGrabbed_ = false;
  int grabTries_ = 0;
};

}  // namespace tw
