#pragma once

#include <memory>

#include "color/ColorHelper.h"

namespace tw::x11 {

class X11Connection;

// The magnifier's view of an X11 screen: the pointer and the pixels of the
// root window in device pixels (what is on the screen, every monitor), and
// relative pointer warps. Round trips on the shared connection hand any
// events they read in to the click monitor afterwards.
class X11LensSource : public PickLensSource {
 public:
  explicit X11LensSource(std::shared_ptr<X11Connection> connection);
  std::optional<QPoint> pointerPixel() override;
  QImage grab(const QRect& area) override;
  void movePointerBy(int dx, int dy) override;
  bool placeWindow(quintptr window, const QRect& rect) override;

 private:
  std::shared_ptr<X11Connection> connection_;
};

}  // namespace tw::x11
