#pragma once

#include <sys/prctl.h>

#include <QProcess>
#include <csignal>

namespace tw::testing {

// A child that must not outlive the test process, even when it crashes or is
// killed: the kernel sends SIGTERM when the parent goes. A helper left behind
// would also hold the test's output pipe, and ctest would wait for it until
// its own time-out.
inline void endWithParent(QProcess& process) {
  process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
}

}  // namespace tw::testing
