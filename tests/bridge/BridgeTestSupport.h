#pragma once

// Real stand-ins for the design-application hosts: a temporary HOME,
// XDG_DATA_HOME and WINEPREFIX, child processes that report a Photoshop or
// Illustrator command line in /proc, and a `wine` first on PATH that records
// every call.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "bridge/AlertPresenter.h"
#include "bridge/HostDescription.h"
#include "bridge/linux/ProcApplicationLister.h"

namespace tw::bridge_testing {

inline QByteArray readBytes(const QString& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return QByteArrayLiteral("<unreadable>");
  return file.readAll();
}

inline void writeBytes(const QString& path, const QByteArray& bytes) {
  QDir().mkpath(path.left(path.lastIndexOf(QLatin1Char('/'))));
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
  ASSERT_EQ(file.write(bytes), bytes.size());
}

// Sets an environment variable for the life of the object.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const QByteArray& value)
      : name_(name), had_(qEnvironmentVariableIsSet(name)), old_(qgetenv(name)) {
    qputenv(name, value);
  }
  ScopedEnv(const char* name, std::nullptr_t)
      : name_(name), had_(qEnvironmentVariableIsSet(name)), old_(qgetenv(name)) {
    qunsetenv(name);
  }
  ~ScopedEnv() {
    if (had_) {
      qputenv(name_, old_);
    } else {
      qunsetenv(name_);
    }
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* name_;
  bool had_;
  QByteArray old_;
};

// A child process whose /proc command line starts with `argv0`, as a design
// application under Wine would show. Killed (and reaped) when the object goes;
// it also dies with the test process.
class StandInProcess {
 public:
  explicit StandInProcess(const QString& argv0) : argv0_(argv0) {
    const QByteArray name = argv0.toLocal8Bit();
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      execl("/bin/bash", "bash", "-c", "exec -a \"$0\" sleep 600", name.constData(),
            static_cast<char*>(nullptr));
      _exit(127);
    }
    // Wait until the exec has happened and /proc shows the new command line.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
      const QByteArray line = readBytes(QStringLiteral("/proc/%1/cmdline").arg(pid_));
      if (line == name + QByteArray("\0"
                                    "600"
                                    "\0",
                                    5)) {
        ready_ = true;
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
  ~StandInProcess() { stop(); }
  StandInProcess(const StandInProcess&) = delete;
  StandInProcess& operator=(const StandInProcess&) = delete;

  void stop() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
      pid_ = -1;
    }
  }
  qint64 pid() const { return pid_; }
  bool ready() const { return ready_; }
  const QString& argv0() const { return argv0_; }

 private:
  QString argv0_;
  pid_t pid_ = -1;
  bool ready_ = false;
};

// Reads the real /proc, but only the processes this test started, so other
// processes on the machine never interfere.
class OwnChildren {
 public:
  void add(const StandInProcess& process) {
    std::lock_guard lock(mutex_);
    pids_.insert(process.pid());
  }
  std::shared_ptr<ProcApplicationLister> lister() {
    return std::make_shared<ProcApplicationLister>([this] {
      std::vector<qint64> all = ProcApplicationLister::currentUserProcessIds();
      std::lock_guard lock(mutex_);
      std::erase_if(all, [this](qint64 pid) { return !pids_.contains(pid); });
      return all;
    });
  }

 private:
  std::mutex mutex_;
  std::set<qint64> pids_;
};

// Counts the alerts and keeps their texts.
class RecordingAlerts : public AlertPresenter {
 public:
  void showInformation(const QString& message, const QString& informative) override {
    std::lock_guard lock(mutex_);
    shown_.emplace_back(message, informative);
  }
  std::vector<std::pair<QString, QString>> shown() const {
    std::lock_guard lock(mutex_);
    return shown_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<QString, QString>> shown_;
};

inline const QString kPhotoshop2020 =
    QStringLiteral("C:\\Program Files\\Adobe\\Adobe Photoshop 2020\\Photoshop.exe");
inline const QString kPhotoshop2021 =
    QStringLiteral("C:\\Program Files\\Adobe\\Adobe Photoshop 2021\\Photoshop.exe");
inline const QString kPhotoshop2019 =
    QStringLiteral("C:\\Program Files\\Adobe\\Adobe Photoshop CC 2019\\Photoshop.exe");
inline const QString kIllustrator = QStringLiteral(
    "C:\\Program Files\\Adobe\\Adobe Illustrator 2021\\Support Files\\Contents\\"
    "Windows\\Illustrator.exe");

// A temporary home with its own data folder and Wine prefix, and a `wine`
// stand-in first on PATH. Each call of the stand-in appends to wineLog():
// "call", then each argument on its own line, then the text of the script file
// the second argument names (mapped back from Z:), then "end". If wineOutput()
// exists, the stand-in prints it to standard output.
class BridgeEnvironment {
 public:
  BridgeEnvironment()
      : home_(dir_.path() + QStringLiteral("/home")),
        data_(dir_.path() + QStringLiteral("/data")),
        prefix_(dir_.path() + QStringLiteral("/prefix")),
        bin_(dir_.path() + QStringLiteral("/bin")),
        homeEnv_("HOME", home_.toLocal8Bit()),
        dataEnv_("XDG_DATA_HOME", data_.toLocal8Bit()),
        prefixEnv_("WINEPREFIX", prefix_.toLocal8Bit()),
        userEnv_("USER", QByteArrayLiteral("painter")),
        pathEnv_("PATH", bin_.toLocal8Bit() + ':' + qgetenv("PATH")) {
    QDir().mkpath(home_);
    QDir().mkpath(bin_);
    const QByteArray script =
        "#!/bin/bash\n"
        "{\n"
        "  echo call\n"
        "  for a in \"$@\"; do printf '%s\\n' \"$a\"; done\n"
        "  p=\"${2#Z:}\"; p=\"${p//\\\\//}\"\n"
        "  cat \"$p\" 2>/dev/null || printf '<no script>'\n"
        "  printf '\\nend\\n'\n"
        "} >> '" +
        wineLog().toLocal8Bit() +
        "'\n"
        "if [ -f '" +
        wineOutput().toLocal8Bit() + "' ]; then cat '" + wineOutput().toLocal8Bit() + "'; fi\n";
    writeBytes(bin_ + QStringLiteral("/wine"), script);
    QFile::setPermissions(bin_ + QStringLiteral("/wine"),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
  }

  QString root() const { return dir_.path(); }
  QString home() const { return home_; }
  QString scriptFolder() const { return data_ + QStringLiteral("/Tintwell"); }
  QString psScript() const { return scriptFolder() + QStringLiteral("/colorScriptPS.jsx"); }
  QString aiScript() const { return scriptFolder() + QStringLiteral("/colorScriptAI.jsx"); }
  QString library() const {
    return prefix_ + QStringLiteral("/drive_c/users/painter/AppData/Roaming/Adobe");
  }
  QString settingsFolder(int version) const {
    switch (version) {
      case 0:
        return library() +
               QStringLiteral("/Adobe Photoshop CC 2019/Adobe Photoshop CC 2019 Settings");
      case 1:
        return library() + QStringLiteral("/Adobe Photoshop 2020/Adobe Photoshop 2020 Settings");
      default:
        return library() + QStringLiteral("/Adobe Photoshop 2021/Adobe Photoshop 2021 Settings");
    }
  }
  QString settingsFile(int version) const {
    return settingsFolder(version) + QStringLiteral("/PSUserConfig.txt");
  }
  void installPhotoshop(int version) { QDir().mkpath(settingsFolder(version)); }

  QString wineLog() const { return dir_.path() + QStringLiteral("/wine.log"); }
  QString wineOutput() const { return dir_.path() + QStringLiteral("/wine.out"); }
  QByteArray wineCalls() const {
    return QFile::exists(wineLog()) ? readBytes(wineLog()) : QByteArray();
  }

  // What the stand-in logs for one call.
  static QByteArray expectedCall(const QString& application, const QString& scriptPath,
                                 const QByteArray& scriptText) {
    QString z = scriptPath;
    z.replace(QLatin1Char('/'), QLatin1Char('\\'));
    return "call\n" + application.toLocal8Bit() + "\nZ:" + z.toLocal8Bit() + "\n" + scriptText +
           "\nend\n";
  }

 private:
  QTemporaryDir dir_;
  QString home_, data_, prefix_, bin_;
  ScopedEnv homeEnv_, dataEnv_, prefixEnv_, userEnv_, pathEnv_;
};

}  // namespace tw::bridge_testing
