// The desktop application's start as a newcomer meets it: the real `tintwell`
// binary without a command, in environments with and without a display.
#include <gtest/gtest.h>
#include <signal.h>

#include <QCoreApplication>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

#include "tests/support/BridgeSandbox.h"
#include "tests/support/LineProcess.h"

namespace tw {
namespace {

// This environment without any way to a display, and without a session bus or
// the network, in a sandboxed home.
QProcessEnvironment withoutDisplay(const testing::BridgeSandbox& home) {
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
    env.remove(QString::fromLatin1(name));
  home.applyTo(env);
  env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("disabled:"));
  env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), QStringLiteral("unix:path=/nonexistent"));
  env.insert(QStringLiteral("TINTWELL_TELEMETRY_URL"), QStringLiteral("https://127.0.0.1:9"));
  return env;
}

TEST(DesktopApplication, WithoutADisplayItSaysWhatToRunInOneLineAndExitsWithStatusOne) {
  testing::BridgeSandbox home;
  ASSERT_TRUE(home.isValid());
  QProcess tintwell;
  tintwell.setProcessEnvironment(withoutDisplay(home));
  tintwell.start(qEnvironmentVariable("TINTWELL_BIN"), QStringList{});
  ASSERT_TRUE(tintwell.waitForFinished(30000));
  const QByteArray err = tintwell.readAllStandardError();
  // Neither an abort nor any other signal: an ordinary exit.
  ASSERT_EQ(tintwell.exitStatus(), QProcess::NormalExit) << err.toStdString();
  EXPECT_EQ(tintwell.exitCode(), 1) << err.toStdString();
  EXPECT_EQ(tintwell.readAllStandardOutput(), "");
  EXPECT_EQ(err.count('\n'), 1) << err.toStdString();
  EXPECT_TRUE(err.endsWith('\n')) << err.toStdString();
  EXPECT_TRUE(err.startsWith("tintwell: ")) << err.toStdString();
  EXPECT_TRUE(err.contains("desktop session")) << err.toStdString();
  EXPECT_TRUE(err.contains("tintwell listen")) << err.toStdString();
  EXPECT_TRUE(err.contains("tintwell --help")) << err.toStdString();
}

TEST(DesktopApplication, APlatformChosenExplicitlyStillStartsWithoutADisplay) {
  testing::BridgeSandbox home;
  ASSERT_TRUE(home.isValid());
  QTemporaryDir runtime;
  QProcessEnvironment env = withoutDisplay(home);
  env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
  env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime.path());
  testing::LineProcess tintwell(qEnvironmentVariable("TINTWELL_BIN"), {}, env);
  // The start-up colour's line: the panel appeared.
  ASSERT_TRUE(tintwell.waitForLine(QStringLiteral("FAFAFA")))
      << tintwell.transcript().toStdString();
  tintwell.signal(SIGTERM);
  ASSERT_TRUE(tintwell.finish()) << tintwell.transcript().toStdString();
  EXPECT_EQ(tintwell.process().exitStatus(), QProcess::NormalExit);
  EXPECT_EQ(tintwell.process().exitCode(), 0) << tintwell.transcript().toStdString();
  EXPECT_FALSE(tintwell.transcript().contains("desktop session"));
}

}  // namespace
}  // namespace tw
