#pragma once

#include <QByteArray>
#include <QtGlobal>
#include <functional>
#include <optional>
#include <vector>

#include "bridge/RunningApplications.h"

namespace tw {

// The running applications from /proc: one per process, in the order of the
// process ids given (by default every process of the current user, ascending).
// Display name: argv[0] after its last '/' or '\' (Wine reports Windows paths);
// bundle location: argv[0] as reported. A process whose command line cannot be
// read (gone since it was listed, a kernel thread, a zombie) is skipped.
class ProcApplicationLister : public ApplicationLister {
 public:
  using PidSource = std::function<std::vector<qint64>()>;

  explicit ProcApplicationLister(PidSource pids = currentUserProcessIds);

  std::vector<RunningApplication> runningApplications() const override;

  // Ids of the processes in /proc owned by the current user, ascending.
  static std::vector<qint64> currentUserProcessIds();
  // The application behind one process id; absent when its command line cannot
  // be read or is empty.
  static std::optional<RunningApplication> readProcess(qint64 pid);
  // The application a /proc/<pid>/cmdline text names (NUL-separated words,
  // argv[0] first); absent when the text is empty.
  static std::optional<RunningApplication> applicationFromCommandLine(
      const QByteArray& commandLine);

 private:
  PidSource pids_;
};

}  // namespace tw
