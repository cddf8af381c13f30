#include "bridge/linux/ProcApplicationLister.h"

#include <sys/stat.h>
#include <unistd.h>
#include <QDir>
#include <QFile>

#include <algorithm>

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
  const uid_t me = geteuid();
  std::vector<qint64> pids;
  const QStringList entries =
      QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
  for (const QString& entry : entries) {
    bool numeric = false;
    const qint64 pid = entry.toLongLong(&numeric);
    if (!numeric || pid <= 0) continue;
    struct stat info {};
    // A /proc/<pid> folder belongs to the process's effective user.
    if (stat(QFile::encodeName(QStringLiteral("/proc/") + entry).constData(), &info) != 0) continue;
    if (info.st_uid != me) continue;
    pids.push_back(pid);
  }
  std::sort(pids.begin(), pids.end());
  return pids;
}

std::optional<RunningApplication> ProcApplicationLister::readProcess(qint64 pid) {
  QFile file(QStringLiteral("/proc/%1/cmdline").arg(pid));
  if (!file.open(QIODevice::ReadOnly)) return std::nullopt;
  const QByteArray commandLine = file.readAll();
  if (file.error() != QFileDevice::NoError) return std::nullopt;
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
