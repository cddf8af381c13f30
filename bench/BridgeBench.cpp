// The bridge's costs: a whole colour push (scan, script write, shell and
// launcher) and a scan over a long process list.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "bridge/Commander.h"
#include "bridge/linux/ProcApplicationLister.h"

namespace tw {
namespace {

// Sends standard output (the bridge's log lines) to /dev/null while alive.
class QuietStdout {
 public:
  QuietStdout() {
    std::fflush(stdout);
    saved_ = dup(STDOUT_FILENO);
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    close(null);
  }
  ~QuietStdout() {
    std::fflush(stdout);
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
  }

 private:
  int saved_;
};

// A private home, data folder and Wine prefix, with a `wine` that does nothing.
class BenchEnvironment {
 public:
  BenchEnvironment() {
    const QString bin = dir_.path() + QStringLiteral("/bin");
    QDir().mkpath(bin);
    QFile::link(QStringLiteral("/bin/true"), bin + QStringLiteral("/wine"));
    qputenv("HOME", dir_.path().toLocal8Bit());
    qputenv("XDG_DATA_HOME", (dir_.path() + QStringLiteral("/data")).toLocal8Bit());
    qputenv("WINEPREFIX", (dir_.path() + QStringLiteral("/prefix")).toLocal8Bit());
    qputenv("PATH", bin.toLocal8Bit() + ':' + qgetenv("PATH"));
  }

 private:
  QTemporaryDir dir_;
};

void reportPercentiles(benchmark::State& state, std::vector<double> ms) {
  if (ms.empty()) return;
  std::sort(ms.begin(), ms.end());
  const auto at = [&](double q) {
    return ms[std::min(ms.size() - 1, static_cast<size_t>(q * (ms.size() - 1) + 0.5))];
  };
  state.counters["median_ms"] = at(0.5);
  state.counters["p99_ms"] = at(0.99);
  state.counters["max_ms"] = ms.back();
}

// One push to a running Photoshop (fed process list): scan, script write,
// /bin/bash -c with a launcher that does nothing, count.
void BM_SendColorToApps(benchmark::State& state) {
  BenchEnvironment env;
  auto lister = std::make_shared<FixedApplicationLister>(std::vector<RunningApplication>{
      {QStringLiteral("explorer.exe"), QStringLiteral("C:\\Windows\\explorer.exe")},
      {QStringLiteral("Photoshop.exe"),
       QStringLiteral("C:\\Program Files\\Adobe\\Adobe Photoshop 2021\\Photoshop.exe")}});
  Commander commander(std::make_shared<WineHostDescription>(lister));
  QuietStdout quiet;
  commander.initScriptFiles();
  commander.sendColorToApps();  // the start-up colour is never pushed
  std::vector<double> ms;
  qint64 i = 0;
  for (auto _ : state) {
    commander.setNewColor(ColorStruct::fromChannels(i % 256, (i / 256) % 256, 7));
    ++i;
    const auto start = std::chrono::steady_clock::now();
    commander.sendColorToApps();
    ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                     .count());
  }
  if (commander.tempApplicationRecord()->read().PS != i) state.SkipWithError("push not counted");
  reportPercentiles(state, std::move(ms));
}
BENCHMARK(BM_SendColorToApps)->Unit(benchmark::kMillisecond)->Iterations(300);

// The same push, with the process list read from the real /proc (every process
// of the user is read; only the Photoshop stand-in matches).
void BM_SendColorToAppsRealProc(benchmark::State& state) {
  BenchEnvironment env;
  const pid_t standIn = fork();
  if (standIn == 0) {
    execl("/bin/bash", "bash", "-c", "exec -a \"$0\" sleep 600",
          "C:\\Program Files\\Adobe\\Adobe Photoshop 2021\\Photoshop.exe",
          static_cast<char*>(nullptr));
    _exit(127);
  }
  usleep(200000);
  Commander commander;
  QuietStdout quiet;
  commander.initScriptFiles();
  commander.sendColorToApps();
  std::vector<double> ms;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    commander.sendColorToApps();
    ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                     .count());
  }
  if (commander.state().bPhotoshopFound != true) state.SkipWithError("stand-in not found");
  kill(standIn, SIGKILL);
  waitpid(standIn, nullptr, 0);
  reportPercentiles(state, std::move(ms));
}
BENCHMARK(BM_SendColorToAppsRealProc)->Unit(benchmark::kMillisecond)->Iterations(200);

// The running-application scan alone over this machine's /proc: the part of
// every push the panel's thread waits for even when no host runs.
void BM_ScanRealProc(benchmark::State& state) {
  const ProcApplicationLister lister;
  std::vector<double> ms;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(lister.runningApplications());
    ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                     .count());
  }
  reportPercentiles(state, std::move(ms));
}
BENCHMARK(BM_ScanRealProc)->Unit(benchmark::kMicrosecond)->Iterations(2000);

// The shell step alone: /bin/bash -c with the no-op launcher, output read to its end.
void BM_RunShellNoOpLauncher(benchmark::State& state) {
  BenchEnvironment env;
  Commander commander(std::make_shared<WineHostDescription>(nullptr));
  const QString command = WineHostDescription(nullptr).launcherCommand(
      QStringLiteral("C:\\PS\\Photoshop.exe"), QStringLiteral("/tmp/colorScriptPS.jsx"));
  for (auto _ : state) {
    benchmark::DoNotOptimize(commander.runShell(command));
  }
}
BENCHMARK(BM_RunShellNoOpLauncher)->Unit(benchmark::kMillisecond);

// A scan over 1,000 fed processes, one Photoshop and one Illustrator among them.
void BM_FindDesignApps1000(benchmark::State& state) {
  std::vector<RunningApplication> applications;
  for (int i = 0; i < 1000; ++i) {
    const QString name = i == 400   ? QStringLiteral("Photoshop.exe")
                         : i == 800 ? QStringLiteral("Illustrator.exe")
                                    : QStringLiteral("process-%1.exe").arg(i);
    applications.push_back({name, QStringLiteral("C:\\Program Files\\Vendor %1\\").arg(i) + name});
  }
  Commander commander(std::make_shared<WineHostDescription>(
      std::make_shared<FixedApplicationLister>(std::move(applications))));
  QuietStdout quiet;
  for (auto _ : state) {
    commander.findDesignApps();
  }
  if (commander.state().bIllustragorFound != true) state.SkipWithError("Illustrator not found");
}
BENCHMARK(BM_FindDesignApps1000)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace tw
