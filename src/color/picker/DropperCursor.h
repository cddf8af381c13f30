#pragma once

#include <QPoint>

namespace tw {

// The dropper's hot spot in Qt's convention: pixels from the top-left corner
// of the 30 x 30 cursor image. The drawing's hot spot is (0, -29) counted from
// the image's top edge with y growing upwards, i.e. 29 pixels down: the
// bottom-left pixel, where the dropper's tip is.
inline constexpr QPoint kDropperHotSpot{0, 29};

// Loads "dropper2.png" from the resources; without it nothing more happens.
// Otherwise makes the dropper the application's cursor and logs
// "cursor changed".
//
// Where it shows: an application can set the pointer's shape only over its own
// windows that take input (or during a pointer grab, which would swallow the
// click meant for the application below). The picking window takes no input,
// and on X11 without a compositor it is not even mapped, so on X11 and Wayland
// the dropper shows over Tintwell's other windows only; over other
// applications the pointer keeps their cursor.
void setDropperCursor();

// Undoes setDropperCursor(); does nothing when it is not set.
void restoreCursor();

}  // namespace tw
