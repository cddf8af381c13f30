// `tintwell listen` reading the preferences from its settings file: the real
// binary against the fake BlueZ on a private bus, a local HTTPS server for the
// usage reports, a Photoshop stand-in process and a `wine` that records
// launches, all in a throwaway HOME and XDG_CONFIG_HOME.
#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <csignal>

#include "tests/bridge/BridgeTestSupport.h"
#include "tests/pen/FakeBluezProcess.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/LineProcess.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/telemetry/TelemetryTestServer.h"

namespace tw {
namespace {

const QString kPen = QStringLiteral("AA:BB:CC:DD:EE:02");
const QString kAsked = QStringLiteral("i am in applicationShouldTerminate ~");
const QString kBye = QStringLiteral("Final bye bye ~");
const QString kReportsOff = QStringLiteral("Usage reports are off: nothing sent");
const QString kWillSend = QStringLiteral("I will send the color log!");

QString tintwellBin() {
  const QString fromCtest = qEnvironmentVariable("TINTWELL_BIN");
  return fromCtest.isEmpty() ? QStringLiteral(TINTWELL_BIN_DEFAULT) : fromCtest;
}

class ListenPreferencesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!network_.failure().isEmpty()) GTEST_SKIP() << network_.why();
    ASSERT_TRUE(sandbox_.isValid());
    fake_ = std::make_unique<testing::FakeBluez>(
        bus_.address(), QStringList{QStringLiteral("--pen"), QStringLiteral("QUILLA-Pen 02"),
                                    QStringLiteral("--interval-ms"), QStringLiteral("0")});
    ASSERT_TRUE(fake_->ready());
  }
  void writeSettings(const QByteArray& text) {
    QDir().mkpath(sandbox_.filePath(QStringLiteral("config/Orlo")));
    QFile file(sandbox_.filePath(QStringLiteral("config/Orlo/Tintwell.conf")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
  }
  // timeScale: the 600 s report period and the 60 s request time-out alike.
  QProcessEnvironment environment(const QString& timeScale) const {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    sandbox_.applyTo(env);
    env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), bus_.address());
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("disabled:"));
    env.insert(QStringLiteral("TINTWELL_TELEMETRY_URL"), server_.baseUrl());
    env.insert(QStringLiteral("TINTWELL_TELEMETRY_CA"), certificates_.caPath());
    env.insert(QStringLiteral("TINTWELL_TIME_SCALE"), timeScale);
    if (!env.contains(QStringLiteral("TSAN_OPTIONS")))
      env.insert(QStringLiteral("TSAN_OPTIONS"),
                 QStringLiteral("ignore_noninstrumented_modules=1"));
    return env;
  }
  // Starts the listener and has the pen send one colour, FF8000; returns once
  // the panel has taken it (its own hex line, after the link's).
  std::unique_ptr<testing::LineProcess> listenAndSendAColour(
      const QString& timeScale = QStringLiteral("0.05")) {
    auto listen = std::make_unique<testing::LineProcess>(
        tintwellBin(), QStringList{QStringLiteral("listen")}, environment(timeScale));
    EXPECT_TRUE(
        listen->waitForLine(QStringLiteral(" 電池 characteristic : <Characteristic UUID = 2A19>")))
        << listen->transcript().toStdString();
    QDeadlineTimer deadline(10000);
    while (
        !fake_->calls().contains(QStringLiteral("StartNotify ") + kPen + QStringLiteral(" 1F16")) &&
        !deadline.hasExpired()) {
    }
    EXPECT_TRUE(fake_->sendColor(kPen, QByteArray::fromHex("01FF8000")));
    EXPECT_TRUE(listen->waitForLine(QStringLiteral("FF8000"), 2))
        << listen->transcript().toStdString();
    return listen;
  }

  // First: online on every machine, with the server and children sharing it.
  testing::OwnNetwork network_{testing::OwnNetwork::kOnline};
  testing::BridgeSandbox sandbox_;
  testing::TestCertificates certificates_;
  testing::TelemetryTestServer server_{certificates_};
  testing::PrivateBus bus_;
  std::unique_ptr<testing::FakeBluez> fake_;
};

TEST_F(ListenPreferencesTest, WithReportsOnAColourIsPostedAtQuitAndTheQuitWaitsForThePosts) {
  server_.command(QStringLiteral("set * hang"));
  // The posts give up after 3 s.
  auto listen = listenAndSendAColour(QStringLiteral("0.05"));
  listen->signal(SIGTERM);
  ASSERT_TRUE(listen->finish()) << listen->transcript().toStdString();
  EXPECT_EQ(listen->exitCode(), 0);
  EXPECT_TRUE(listen->inOrder({kAsked, kWillSend, kBye})) << listen->transcript().toStdString();
  // The end came through the posts' time-out, not before it.
  const qsizetype error = listen->indexOfPrefix(QStringLiteral("error "));
  ASSERT_GE(error, 0) << listen->transcript().toStdString();
  EXPECT_LT(error, listen->indexOf(kBye));
  EXPECT_EQ(server_.requests().size(), 2);
}

TEST_F(ListenPreferencesTest, WithReportsOffNothingIsPostedNoTimerTicksAndSigtermEndsAtOnce) {
  writeSettings("[telemetry]\nenabled=false\n");
  server_.command(QStringLiteral("set * hang"));
  // The report period becomes 6 s.
  auto listen = listenAndSendAColour(QStringLiteral("0.01"));
  // A whole report period and more.
  EXPECT_FALSE(listen->waitForLine(QStringLiteral("Log Timer is trigger"), 1, 7500));
  listen->signal(SIGTERM);
  ASSERT_TRUE(listen->finish()) << listen->transcript().toStdString();
  EXPECT_EQ(listen->exitCode(), 0);
  // Answered at once: no post started, none waited for.
  const qsizetype asked = listen->indexOf(kAsked);
  ASSERT_GE(asked, 0) << listen->transcript().toStdString();
  EXPECT_EQ(listen->lines().mid(asked),
            (QStringList{kAsked, QStringLiteral("sending data"), kReportsOff, kBye}))
      << listen->transcript().toStdString();
  testing::pumpFor(300);
  EXPECT_TRUE(server_.events().isEmpty());
}

// A Photoshop the listener finds in /proc, as a design application under
// Wine shows itself.
class ListenHostSwitchTest : public ListenPreferencesTest {
 protected:
  void SetUp() override {
    ListenPreferencesTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_TRUE(photoshop_.ready());
  }
  bridge_testing::StandInProcess photoshop_{bridge_testing::kPhotoshop2021};
};

TEST_F(ListenHostSwitchTest, WithTheDefaultsTheColourIsLaunchedIntoPhotoshop) {
  auto listen = listenAndSendAColour();
  const QStringList launches = sandbox_.launches();
  ASSERT_EQ(launches.size(), 1) << listen->transcript().toStdString();
  EXPECT_TRUE(launches[0].startsWith(bridge_testing::kPhotoshop2021 + u'|'))
      << launches[0].toStdString();
  listen->signal(SIGKILL);
}

TEST_F(ListenHostSwitchTest, PhotoshopSwitchedOffInTheSettingsFileGetsNoLaunch) {
  writeSettings("[hosts]\nphotoshop=false\n");
  auto listen = listenAndSendAColour();
  EXPECT_TRUE(sandbox_.launches().isEmpty()) << sandbox_.launches().join('\n').toStdString();
  listen->signal(SIGKILL);
}

}  // namespace
}  // namespace tw
