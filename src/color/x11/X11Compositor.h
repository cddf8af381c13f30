#pragma once

namespace tw::x11 {

// True when a compositing manager owns _NET_WM_CM_S<n> for the default screen:
// only then can a translucent window be blended instead of showing near-black.
bool compositorRunning();

}  // namespace tw::x11
