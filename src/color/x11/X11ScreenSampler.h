#pragma once

#include <memory>

#include "color/ColorHelper.h"

namespace tw::x11 {

class X11Connection;

// One device pixel of the root window, read with XGetImage on our own
// connection. Working in root-window device pixels keeps the pixel under the
// pointer exact at any device pixel ratio and on screens whose origin is not
// (0, 0); Qt's grab takes logical coordinates and would round.
class X11ScreenSampler : public ScreenSampler {
 public:
  // How long the screen gets to settle before the read: windows that the
  // picking window covered repaint what X did not keep (without a compositor
  // nothing keeps covered pixels; with one, it repaints a frame later).
  static constexpr int kSettleMs = 100;

  explicit X11ScreenSampler(std::shared_ptr<X11Connection> connection);
  // Reads after kSettleMs, in the main event loop (no nested loop).
  void sample(QPointF at, Completion done) override;
  // The read itself, at once.
  std::optional<QColor> colorAt(QPointF at);

 private:
  std::shared_ptr<X11Connection> connection_;
};

}  // namespace tw::x11
