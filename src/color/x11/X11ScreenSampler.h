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
  explicit X11ScreenSampler(std::shared_ptr<X11Connection> connection);
  std::optional<QColor> colorAt(QPointF at) override;

 private:
  std::shared_ptr<X11Connection> connection_;
};

}  // namespace tw::x11
