#include "bridge/linux/ProcApplicationLister.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace tw {

ProcApplicationLister::ProcApplicationLister(PidSource pids) : pids_(std::move(pids)) {}

std::vector<RunningApplication> ProcApplicationLister::runningApplications() const {
  std::vector<RunningApplication> applications;
  for (const qint64 pid : pids_()) {
    if (auto application = readProcess(pid)) applications.push_back(std::move(*application));
  }
  return applications;
}

std::vector<qint64> ProcApplicationLister::currentUserProcessIds() {
  // Plain directory calls: the scan runs on every push, on the thread that
  // accepted the colour, and QDir's string lists cost several times more.
  const uid_t me = geteuid();
  std::vector<qint64> pids;
  DIR* proc = opendir("/proc");
  if (!proc) return pids;
  const int procFd = dirfd(proc);
  while (const dirent* entry = readdir(proc)) {
    char* end = nullptr;
    const long long pid = std::strtoll(entry->d_name, &end, 10);
    if (end == entry->d_name || *end != '\0' || pid <= 0) continue;
    struct stat info {};
    // A /proc/<pid> folder belongs to the process's effective user.
    if (fstatat(procFd, entry->d_name, &info, 0) != 0) continue;
    if (info.st_uid != me) continue;
    pids.push_back(pid);
  }
  closedir(proc);
  std::sort(pids.begin(), pids.end());
  return pids;
}

std::optional<RunningApplication> ProcApplicationLister::readProcess(qint64 pid) {
  char path[48];
  std::snprintf(path, sizeof path, "/proc/%lld/cmdline", static_cast<long long>(pid));
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  QByteArray commandLine;
  char chunk[4096];
  for (;;) {
    const ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n < 0) {
      if (errno == EINTR) continue;
      ::close(fd);
      return std::nullopt;
    }
    if (n == 0) break;
    commandLine.append(chunk, n);
  }
  ::close(fd);
  return applicationFromCommandLine(commandLine);
}

std::optional<RunningApplication> ProcApplicationLister::applicationFromCommandLine(
    const QByteArray& commandLine) {
  if (commandLine.isEmpty()) return std::nullopt;
  const qsizetype end = commandLine.indexOf('\0');
  const QString argv0 = QFile::decodeName(end < 0 ? commandLine : commandLine.left(end));
  const qsizetype slash =
      std::max(argv0.lastIndexOf(QLatin1Char('/')), argv0.lastIndexOf(QLatin1Char('\\')));
  RunningApplication application;
  application.localizedName = argv0.mid(slash + 1);
  application.bundleURL = argv0;
  return application;
}

}  // namespace tw
