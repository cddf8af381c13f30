#pragma once

#include <memory>

#include "color/ColorHelper.h"

namespace tw::x11 {

class X11Connection;

// The pointer in root-window device pixels, turned to a bottom-left origin
// against the primary screen's height, so that the picker's flip rule gives
// back the root-window row whatever screen the pointer is on.
class X11PointerSource : public PointerSource {
 public:
  explicit X11PointerSource(std::shared_ptr<X11Connection> connection);
  QPointF mouseLocation() override;
  // The primary screen's height in device pixels (logical height × ratio).
  qint64 mainDisplayPixelsHigh() override;

 private:
  std::shared_ptr<X11Connection> connection_;
};

}  // namespace tw::x11
