#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace tw::testing {

// fake_portal.py on a given session bus (see that script): answers PickColor
// with `color` and the response `codes`, reports `version` for the Screenshot
// interface, and counts the PickColor calls it printed. The real portal cannot
// run in a test (it needs a desktop session and a backend).
class FakePortal {
 public:
  FakePortal(const QString& address, const QString& color, const QString& codes,
             const QString& version = QString()) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
    process_.setProcessEnvironment(env);
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QStringList arguments{QStringLiteral(FAKE_PORTAL_PATH), color, codes};
    if (!version.isEmpty()) arguments << version;
    process_.start(QStringLiteral("/usr/bin/python3"), arguments);
    process_.waitForReadyRead(10000);
    ready_ = process_.readLine().trimmed() == "ready";
  }
  ~FakePortal() {
    process_.kill();
    process_.waitForFinished(3000);
  }
  FakePortal(const FakePortal&) = delete;
  FakePortal& operator=(const FakePortal&) = delete;

  bool ready() const { return ready_; }
  int calls() {
    process_.waitForReadyRead(10);
    while (process_.canReadLine())
      if (process_.readLine().startsWith("PickColor")) ++calls_;
    return calls_;
  }

 private:
  QProcess process_;
  bool ready_ = false;
  int calls_ = 0;
};

template <typename Predicate>
bool spinUntil(Predicate done, int ms = 10000) {
  QDeadlineTimer deadline(ms);
  while (!done()) {
    if (deadline.hasExpired()) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
  }
  return true;
}

}  // namespace tw::testing
