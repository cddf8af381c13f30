#pragma once

// The telemetry driver (telemetry_driver.cpp) as a child process whose output
// lines a test can wait for. Needs a QCoreApplication: it is read through the
// event loop (pumpUntil).

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include "common/ChildProcess.h"
#include "telemetry/TelemetryTestServer.h"

namespace tw::testing {

class DriverProcess {
 public:
  explicit DriverProcess(const QProcessEnvironment& environment) {
    process_.setProcessEnvironment(environment);
    process_.setProcessChannelMode(QProcess::SeparateChannels);
    QObject::connect(&process_, &QProcess::readyReadStandardOutput, [this] { readLines(); });
    QObject::connect(&process_, &QProcess::readyReadStandardError,
                     [this] { err_ += process_.readAllStandardError(); });
    endWithParent(process_);
    process_.start(QStringLiteral(TW_TELEMETRY_DRIVER), QStringList{});
  }
  ~DriverProcess() {
    if (process_.state() != QProcess::NotRunning) {
      process_.kill();
      process_.waitForFinished(5000);
    }
  }

  bool started() { return waitForLine(QStringLiteral("READY"), 20000); }
  void send(const QString& line) { process_.write((line + u'\n').toUtf8()); }
  void terminate() { process_.terminate(); }  // SIGTERM
  qint64 pid() const { return process_.processId(); }

  bool waitForLine(const QString& line, int timeoutMs = 20000) {
    return pumpUntil([&] { return lines_.contains(line); }, timeoutMs);
  }
  bool waitForCount(const QString& line, qsizetype times, int timeoutMs = 20000) {
    return pumpUntil([&] { return lines_.count(line) >= times; }, timeoutMs);
  }
  bool waitForLineStartingWith(const QString& prefix, int timeoutMs = 20000) {
    return pumpUntil([&] { return indexOfPrefix(prefix) >= 0; }, timeoutMs);
  }
  qsizetype indexOf(const QString& line) const { return lines_.indexOf(line); }
  qsizetype indexOfPrefix(const QString& prefix, qsizetype from = 0) const {
    for (qsizetype i = from; i < lines_.size(); ++i)
      if (lines_[i].startsWith(prefix)) return i;
    return -1;
  }
  qsizetype count(const QString& line) const { return lines_.count(line); }
  bool waitForExit(int timeoutMs = 20000) {
    return pumpUntil([&] { return process_.state() == QProcess::NotRunning; }, timeoutMs);
  }
  bool running() const { return process_.state() != QProcess::NotRunning; }
  int exitCode() const {
    return process_.exitStatus() == QProcess::NormalExit ? process_.exitCode() : -1;
  }
  const QStringList& lines() const { return lines_; }
  QString transcript() const {
    return lines_.join(u'\n') + QStringLiteral("\n--- stderr:\n") + QString::fromUtf8(err_);
  }

 private:
  void readLines() {
    while (process_.canReadLine()) lines_ << QString::fromUtf8(process_.readLine()).chopped(1);
  }

  QProcess process_;
  QStringList lines_;
  QByteArray err_;
};

}  // namespace tw::testing
