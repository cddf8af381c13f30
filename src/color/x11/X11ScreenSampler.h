#pragma once

#include <memory>

#include "color/ColorHelper.h"

namespace tw::x11 {

class X11Connection;

// A pixel's component as the pick reads it: the fraction of its maximum, so
// that × 255 truncated toward zero gives its 8-bit channel on any visual.
//
// TrueColor (and DirectColor images): the channel that `mask` selects, value /
// (mask >> its shift); 0 for an empty mask. A 5-bit channel of 15 is 15 / 31.
double pixelComponent(unsigned long pixel, unsigned long mask);
// Colormap visuals (PseudoColor and the like): an XColor component, value / 65535.
double colormapComponent(unsigned short value);

// The 8-bit channels a pick gets from these: the fraction × 255 truncated
// toward zero (channelFromComponent), never a shift or a rounding. 5 bits: 31
// gives 255, 15 gives 123, 3 gives 24; a colormap's 0x8000 gives 127.
qint64 pixelChannel(unsigned long pixel, unsigned long mask);
qint64 colormapChannel(unsigned short value);

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

  // Whether a read now has to wait kSettleMs: with a compositor (it repaints
  // a frame later), or when a window of ours covered the screen within the
  // last kSettleMs (see noteCoveringWindowGone()). Otherwise nothing of ours
  // was over the pixel, and it is read at once.
  static bool mustSettle();

  explicit X11ScreenSampler(std::shared_ptr<X11Connection> connection);
  // Reads after the settling time (mustSettle()), in the main event loop (no
  // nested loop, and never before sample() returns).
  void sample(QPointF at, Completion done) override;
  // The read itself, at once.
  std::optional<ScreenSample> colorAt(QPointF at);

 private:
  std::shared_ptr<X11Connection> connection_;
};

}  // namespace tw::x11
