#include "tests/support/LineProcess.h"

#include <signal.h>

#include <QCoreApplication>
#include <QDeadlineTimer>

#include "tests/support/ChildProcess.h"

namespace tw::testing {

LineProcess::LineProcess(const QString& program, const QStringList& args,
                         const QProcessEnvironment& env) {
  process_.setProcessEnvironment(env);
  process_.setProcessChannelMode(QProcess::SeparateChannels);
  endWithParent(process_);
  process_.start(program, args);
  started_ = process_.waitForStarted(20000);
}

LineProcess::~LineProcess() {
  if (process_.state() != QProcess::NotRunning) {
    process_.kill();
    process_.waitForFinished(5000);
  }
}

void LineProcess::drain() {
  out_.append(process_.readAllStandardOutput());
  err_.append(process_.readAllStandardError());
  qsizetype end;
  while ((end = out_.indexOf('\n')) >= 0) {
    lines_ << QString::fromUtf8(out_.constData(), end);
    out_.remove(0, end + 1);
  }
}

template <typename Done>
bool LineProcess::pumpUntil(Done done, int ms) {
  QDeadlineTimer deadline(ms);
  for (;;) {
    drain();
    if (done()) return true;
    if (process_.state() == QProcess::NotRunning) {
      drain();
      return done();
    }
    if (deadline.hasExpired()) return false;
    if (QCoreApplication::instance()) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    process_.waitForReadyRead(10);
  }
}

QStringList LineProcess::lines() {
  drain();
  return lines_;
}

qsizetype LineProcess::count(const QString& line) {
  drain();
  return lines_.count(line);
}

qsizetype LineProcess::indexOf(const QString& line, qsizetype from) {
  drain();
  return lines_.indexOf(line, from);
}

qsizetype LineProcess::indexOfPrefix(const QString& prefix, qsizetype from) {
  drain();
  for (qsizetype i = from; i < lines_.size(); ++i)
    if (lines_[i].startsWith(prefix)) return i;
  return -1;
}

bool LineProcess::inOrder(const QStringList& expected) {
  drain();
  qsizetype at = -1;
  for (const QString& line : expected) {
    at = lines_.indexOf(line, at + 1);
    if (at < 0) return false;
  }
  return true;
}

bool LineProcess::waitForLine(const QString& line, qsizetype times, int ms) {
  return pumpUntil([&] { return lines_.count(line) >= times; }, ms);
}

bool LineProcess::waitForLineStartingWith(const QString& prefix, int ms) {
  return pumpUntil([&] { return indexOfPrefix(prefix) >= 0; }, ms);
}

void LineProcess::send(const QString& line) {
  process_.write((line + QLatin1Char('\n')).toUtf8());
  process_.waitForBytesWritten(5000);
}

void LineProcess::closeInput() { process_.closeWriteChannel(); }

void LineProcess::signal(int sig) {
  if (process_.state() != QProcess::NotRunning)
    ::kill(static_cast<pid_t>(process_.processId()), sig);
}

bool LineProcess::finish(int ms) {
  return pumpUntil([&] { return process_.state() == QProcess::NotRunning; }, ms);
}

int LineProcess::exitCode() const {
  if (process_.state() != QProcess::NotRunning) return -1;
  return process_.exitStatus() == QProcess::NormalExit ? process_.exitCode() : -1;
}

QByteArray LineProcess::standardError() {
  drain();
  return err_;
}

QString LineProcess::transcript() {
  drain();
  QString text = lines_.join(QLatin1Char('\n'));
  if (!out_.isEmpty()) text += QLatin1Char('\n') + QString::fromUtf8(out_);
  return text + QStringLiteral("\n--- standard error:\n") + QString::fromUtf8(err_);
}

}  // namespace tw::testing
