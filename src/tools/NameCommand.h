#pragma once

namespace tw {

// `tintwell name R G B [--library css|x11|FILE] [-n N]` (or `name #RRGGBB …`):
// arguments are the words after "name".
int runNameCommand(int argc, char** argv);

}  // namespace tw
