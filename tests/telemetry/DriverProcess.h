#pragma once

// The telemetry driver (telemetry_driver.cpp) as a child process whose output
// lines a test can wait for.

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include "tests/support/LineProcess.h"

namespace tw::testing {

class DriverProcess : public LineProcess {
 public:
  explicit DriverProcess(const QProcessEnvironment& environment)
      : LineProcess(QStringLiteral(TW_TELEMETRY_DRIVER), QStringList{}, environment) {}

  // Whether it came up: the driver says "READY" once its objects exist.
  bool ready() { return waitForLine(QStringLiteral("READY"), 1, 20000); }
};

}  // namespace tw::testing
