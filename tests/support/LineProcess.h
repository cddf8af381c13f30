#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace tw::testing {

// A child process whose standard output is read as lines: the tintwell binary,
// the telemetry driver, any helper a test starts. Waiting runs the calling
// thread's events too, so objects of the test process keep working meanwhile.
// The child ends with the test process (the kernel sends it SIGTERM) and is
// killed when this object goes.
class LineProcess {
 public:
  LineProcess(const QString& program, const QStringList& args,
              const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment());
  ~LineProcess();
  LineProcess(const LineProcess&) = delete;
  LineProcess& operator=(const LineProcess&) = delete;

  bool started() const { return started_; }
  // The complete lines printed so far.
  QStringList lines();
  qsizetype count(const QString& line);
  qsizetype indexOf(const QString& line, qsizetype from = 0);
  // The first line at or after `from` that starts with `prefix`, or -1.
  qsizetype indexOfPrefix(const QString& prefix, qsizetype from = 0);
  // Whether these lines came in this order (others may sit between them).
  bool inOrder(const QStringList& expected);

  // Waits until `line` has been printed `times` times in all; false when the
  // time runs out or the process ends first.
  bool waitForLine(const QString& line, qsizetype times = 1, int ms = 15000);
  bool waitForLineStartingWith(const QString& prefix, int ms = 15000);

  // Writes `line` and a line end to the child's standard input.
  void send(const QString& line);
  void closeInput();
  void signal(int sig);
  void terminate() { signal(15); }
  // Waits for the process to end; whether it did.
  bool finish(int ms = 20000);
  bool running() const { return process_.state() != QProcess::NotRunning; }
  // The exit status, or -1 when it did not exit normally.
  int exitCode() const;
  qint64 pid() const { return process_.processId(); }
  QProcess& process() { return process_; }
  // What it wrote to standard error so far.
  QByteArray standardError();
  // Everything printed so far, standard error after standard output.
  QString transcript();

 private:
  void drain();
  // Runs events and reads output until `done` holds, the time runs out, or
  // the process has ended and everything it printed has been read.
  template <typename Done>
  bool pumpUntil(Done done, int ms);

  QProcess process_;
  QByteArray out_;
  QByteArray err_;
  QStringList lines_;
  bool started_ = false;
};

}  // namespace tw::testing
