#pragma once

namespace tw {

// `tintwell push R G B [--to HOST,...] [--timeout MS]`: one colour into the
// running design applications through the same bridge as the panel.
int runPushCommand(int argc, char** argv);

}  // namespace tw
