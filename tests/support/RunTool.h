#pragma once

#include <QByteArray>
#include <QProcess>
#include <QStringList>
#include <cstdlib>

namespace tw::testing {

struct ToolRun {
  int exitCode = -1;
  QByteArray out;
  QByteArray err;
};

// Runs the real tintwell binary (its path comes from CTest) with the given
// arguments, standard input and environment (the test's own by default).
inline ToolRun runTool(
    const QStringList& args, const QByteArray& input = {},
    const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment()) {
  QProcess process;
  process.setProcessEnvironment(environment);
  process.start(QString::fromLocal8Bit(std::getenv("TINTWELL_BIN")), args);
  process.waitForStarted();
  process.write(input);
  process.closeWriteChannel();
  process.waitForFinished(60000);
  return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
          process.readAllStandardOutput(), process.readAllStandardError()};
}

}  // namespace tw::testing
