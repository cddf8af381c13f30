#pragma once

#include <signal.h>
#include <QByteArray>
#include <QDeadlineTimer>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include "common/ChildProcess.h"

namespace tw::testing {

// A child process whose standard output is read as lines, for black-box tests
// of the tintwell binary. It ends with the test process (SIGTERM from the
// kernel), and is killed when this object goes.
class LineProcess {
 public:
  LineProcess(const QString& program, const QStringList& args, const QProcessEnvironment& env) {
    process_.setProcessEnvironment(env);
    process_.setProcessChannelMode(QProcess::SeparateChannels);
    endWithParent(process_);
    process_.start(program, args);
    process_.waitForStarted();
  }
  ~LineProcess() {
    if (process_.state() != QProcess::NotRunning) {
      process_.kill();
      process_.waitForFinished();
    }
  }
  LineProcess(const LineProcess&) = delete;
  LineProcess& operator=(const LineProcess&) = delete;

  // The complete lines printed so far.
  QStringList lines() {
    out_.append(process_.readAllStandardOutput());
    QStringList l = QString::fromUtf8(out_).split(QLatin1Char('\n'));
    l.removeLast();  // the unfinished line, or the empty text after the last newline
    return l;
  }
  int count(const QString& line) { return static_cast<int>(lines().count(line)); }
  // Waits until `line` has been printed `times` times in all.
  bool waitForLine(const QString& line, int times = 1, int ms = 15000) {
    QDeadlineTimer deadline(ms);
    while (count(line) < times) {
      if (deadline.hasExpired() || process_.state() == QProcess::NotRunning) return false;
      process_.waitForReadyRead(20);
    }
    return true;
  }
  // Whether these lines came in this order (others may sit between them).
  bool inOrder(const QStringList& expected) {
    const QStringList all = lines();
    qsizetype at = -1;
    for (const QString& line : expected) {
      at = all.indexOf(line, at + 1);
      if (at < 0) return false;
    }
    return true;
  }
  void signal(int sig) { ::kill(static_cast<pid_t>(process_.processId()), sig); }
  bool finish(int ms = 20000) { return process_.waitForFinished(ms); }
  QProcess& process() { return process_; }
  // Everything printed so far, standard error after standard output.
  QString transcript() {
    err_.append(process_.readAllStandardError());
    return lines().join(QLatin1Char('\n')) + QStringLiteral("\n--- standard error:\n") +
           QString::fromUtf8(err_);
  }

 private:
  QProcess process_;
  QByteArray out_;
  QByteArray err_;
};

}  // namespace tw::testing
