#pragma once

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <csignal>

#include <vector>

namespace tw::testing {

// A private Xvfb on a free display (chosen by the server: -displayfd), with
// -noreset so the root window keeps its contents between clients. Stopped when
// the object goes.
class XvfbServer {
 public:
  explicit XvfbServer(const QStringList& screenArgs = {QStringLiteral("-screen"),
                                                       QStringLiteral("0"),
                                                       QStringLiteral("800x600x24")}) {
    int fds[2];
    if (::pipe(fds) != 0) return;
    // Everything the child needs is made before fork: only exec after it.
    std::vector<QByteArray> owned = {"Xvfb",     "-displayfd", QByteArray::number(fds[1]),
                                     "-noreset", "-nolisten",  "tcp"};
    for (const QString& a : screenArgs) owned.push_back(a.toLocal8Bit());
    std::vector<char*> argv;
    for (auto& a : owned) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {
      // A test that dies without its destructors must not leave the server
      // behind: it would hold the test's output pipe and stall ctest.
      ::prctl(PR_SET_PDEATHSIG, SIGTERM);
      ::close(fds[0]);
      ::execvp("Xvfb", argv.data());
      ::_exit(127);
    }
    ::close(fds[1]);
    QByteArray number;
    char c = 0;
    while (::read(fds[0], &c, 1) == 1 && c != '\n') number.push_back(c);
    ::close(fds[0]);
    if (!number.isEmpty()) display_ = QStringLiteral(":") + QString::fromLatin1(number);
  }
  ~XvfbServer() {
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      ::waitpid(pid_, nullptr, 0);
    }
  }
  XvfbServer(const XvfbServer&) = delete;
  XvfbServer& operator=(const XvfbServer&) = delete;

  bool isRunning() const { return !display_.isEmpty(); }
  QString display() const { return display_; }

  // The environment for a client of this server: no session bus (Qt would
  // start daemons), no Wayland, nothing from the machine's display.
  QProcessEnvironment environment() const {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), display_);
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("disabled:"));
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    env.remove(QStringLiteral("XDG_SESSION_TYPE"));
    env.remove(QStringLiteral("QT_SCALE_FACTOR"));
    env.remove(QStringLiteral("XAUTHORITY"));
    return env;
  }

  // Runs an X client (xdotool, xrandr, xwininfo) to its end; its output.
  QByteArray run(const QString& program, const QStringList& args, int* exitCode = nullptr) const {
    QProcess process;
    process.setProcessEnvironment(environment());
    process.start(program, args);
    process.waitForFinished(20000);
    if (exitCode)
      *exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return process.readAllStandardOutput();
  }

 private:
  pid_t pid_ = -1;
  QString display_;
};

}  // namespace tw::testing
