// `tintwell listen` as a black box: the real binary against the fake BlueZ on a
// private bus, with its own settings folder.
#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <csignal>

#include "tests/pen/FakeBluezProcess.h"
#include "tests/support/LineProcess.h"
#include "tests/support/NetworkNamespace.h"

namespace tw {
namespace {

const QString kPen = QStringLiteral("AA:BB:CC:DD:EE:02");
const QString kPenId = QStringLiteral("00000000-0000-0000-0000-AABBCCDDEE02");

QString tintwellBin() {
  const QString fromCtest = qEnvironmentVariable("TINTWELL_BIN");
  return fromCtest.isEmpty() ? QStringLiteral(TINTWELL_BIN_DEFAULT) : fromCtest;
}

QProcessEnvironment listenEnvironment(const QString& busAddress, const QString& configHome) {
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), busAddress);
  env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("disabled:"));
  env.insert(QStringLiteral("XDG_CONFIG_HOME"), configHome);
  // The bridge's script folder and the Wine prefix stay inside the test too,
  // and usage reports go to a local port nobody listens on.
  env.insert(QStringLiteral("XDG_DATA_HOME"), configHome + QStringLiteral("/data"));
  env.insert(QStringLiteral("WINEPREFIX"), configHome + QStringLiteral("/wine"));
  env.insert(QStringLiteral("TINTWELL_TELEMETRY_URL"), QStringLiteral("https://127.0.0.1:9"));
  env.insert(QStringLiteral("TINTWELL_TIME_SCALE"), QStringLiteral("0.1"));
  // Under ThreadSanitizer, leave out Debian's uninstrumented Qt (see
  // tests/support/SanitizerDefaults.cpp).
  if (!env.contains(QStringLiteral("TSAN_OPTIONS")))
    env.insert(QStringLiteral("TSAN_OPTIONS"), QStringLiteral("ignore_noninstrumented_modules=1"));
  return env;
}

// `tintwell listen` with its output as lines.
class Listen : public testing::LineProcess {
 public:
  Listen(const QString& busAddress, const QString& configHome)
      : LineProcess(tintwellBin(), {QStringLiteral("listen")},
                    listenEnvironment(busAddress, configHome)) {}
};

class ListenCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!network_.failure().isEmpty()) GTEST_SKIP() << network_.why();
    fake_ = std::make_unique<testing::FakeBluez>(
        bus_.address(), QStringList{QStringLiteral("--pen"), QStringLiteral("QUILLA-Pen 02"),
                                    QStringLiteral("--interval-ms"), QStringLiteral("0")});
    ASSERT_TRUE(fake_->ready());
  }
  // The colour notifications are on at the fake's end.
  bool waitForNotify() {
    QDeadlineTimer deadline(10000);
    while (
        !fake_->calls().contains(QStringLiteral("StartNotify ") + kPen + QStringLiteral(" 1F16")))
      if (deadline.hasExpired()) return false;
    return true;
  }
  QString settingsText() {
    QFile file(config_.filePath(QStringLiteral("Orlo/Tintwell.conf")));
    file.open(QIODevice::ReadOnly);
    return QString::fromUtf8(file.readAll());
  }

  // First: online on every machine, with the children below sharing it.
  testing::OwnNetwork network_{testing::OwnNetwork::kOnline};
  testing::PrivateBus bus_;
  QTemporaryDir config_;
  std::unique_ptr<testing::FakeBluez> fake_;
};

TEST_F(ListenCommandTest, FirstStartConnectsThroughTheScanAndTheNextThroughTheSavedPen) {
  {
    Listen listen(bus_.address(), config_.path());
    ASSERT_TRUE(
        listen.waitForLine(QStringLiteral(" 電池 characteristic : <Characteristic UUID = 2A19>")));
    // The start-up colour is posted on the main thread while the link starts on
    // its own: its place among the link's first lines is not fixed.
    QStringList lines = listen.lines();
    const qsizetype startUp = lines.indexOf(QStringLiteral("FAFAFA"));
    ASSERT_GE(startUp, 1);
    EXPECT_LT(startUp, lines.indexOf(QStringLiteral("connected hihi")));
    lines.removeAt(startUp);
    const QStringList expected{
        QStringLiteral("init CoreQuilla "),
        QStringLiteral("Bluetooth status is POWERED ON"),
        QStringLiteral("try 招式2 ~ using scan to connect "),
        QStringLiteral("!!  從招式2 (scanForPeripherals) 來的回應 "),
        QStringLiteral("QUILLA-Pen 02"),
        QStringLiteral("身份證id : identifier -  ") + kPenId,
        QStringLiteral("Peripheral state: disconnected"),
        QStringLiteral("connected hihi"),
        QStringLiteral("Peripheral state: connected"),
        QStringLiteral("我的 Service: <Service UUID = 1801>"),
        QStringLiteral("我的 Service: <Service UUID = 1F1F>"),
        QStringLiteral("我的 Service: <Service UUID = 180F>"),
        QStringLiteral(" 電池 characteristic : <Characteristic UUID = 2A19>")};
    EXPECT_EQ(lines.mid(0, expected.size()), expected);
    EXPECT_TRUE(settingsText().contains(QStringLiteral("connectedQuillaID=") + kPenId));
    listen.signal(SIGINT);
    ASSERT_TRUE(listen.finish());
    EXPECT_EQ(listen.process().exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(listen.process().exitCode(), 0);
  }
  Listen again(bus_.address(), config_.path());
  ASSERT_TRUE(again.waitForLine(QStringLiteral("connected hihi")));
  const QStringList lines = again.lines();
  const qsizetype on = lines.indexOf(QStringLiteral("Bluetooth status is POWERED ON"));
  ASSERT_GE(on, 0);
  EXPECT_EQ(lines.mid(on + 1, 3),
            (QStringList{QStringLiteral("defaults savedQuillaUUID: ") + kPenId,
                         QStringLiteral("try 招式1 ~ 取已存檔的 savedQuillaUUID "),
                         QStringLiteral("connected hihi")}));
}

TEST_F(ListenCommandTest, EachColourPrintsItsHexAndTheBatteryShowsAfterTheConnection) {
  Listen listen(bus_.address(), config_.path());
  ASSERT_TRUE(
      listen.waitForLine(QStringLiteral(" 電池 characteristic : <Characteristic UUID = 2A19>")));
  ASSERT_TRUE(waitForNotify());
  ASSERT_TRUE(fake_->sendColor(kPen, QByteArray::fromHex("01FF8000")));
  ASSERT_TRUE(listen.waitForLine(QStringLiteral("buffer[0] :  1")));
  ASSERT_TRUE(listen.waitForLine(QStringLiteral("Batter Level: 100 %")));
  const QStringList lines = listen.lines();
  const qsizetype i = lines.indexOf(QStringLiteral("buffer[0] :  1"));
  // The link's own line, then (after the push's lines, if a design
  // application runs on this machine) the count's line (the screen list, still
  // empty) and the panel's hex line.
  EXPECT_EQ(lines.value(i + 1), QStringLiteral("FF8000"));
  const qsizetype panelHex = lines.indexOf(QStringLiteral("FF8000"), i + 2);
  ASSERT_GT(panelHex, i + 1) << lines.join('\n').toStdString();
  EXPECT_EQ(lines.value(panelHex - 1), QString());
  listen.signal(SIGTERM);
  ASSERT_TRUE(listen.finish());
  EXPECT_EQ(listen.process().exitStatus(), QProcess::NormalExit);
  EXPECT_EQ(listen.process().exitCode(), 0);
  // A colour was counted, so quitting tries to send it first (nothing answers
  // on the local port, and the failed post ends the wait).
  const QStringList all = listen.lines();
  const qsizetype quit = all.indexOf(QStringLiteral("i am in applicationShouldTerminate ~"));
  ASSERT_GE(quit, 0);
  EXPECT_EQ(all.mid(quit + 1, 2), (QStringList{QStringLiteral("sending data"),
                                               QStringLiteral("I will send the color log!")}));
  // The first failed post answers the quit; the other post's failure line may
  // still come after the farewell.
  EXPECT_GT(all.indexOf(QStringLiteral("Final bye bye ~"), quit), quit);
}

TEST_F(ListenCommandTest, ShortPacketIsAControlledFatalStop) {
  Listen listen(bus_.address(), config_.path());
  ASSERT_TRUE(
      listen.waitForLine(QStringLiteral(" 電池 characteristic : <Characteristic UUID = 2A19>")));
  ASSERT_TRUE(waitForNotify());
  ASSERT_TRUE(fake_->sendColor(kPen, QByteArray::fromHex("01FF80")));
  ASSERT_TRUE(listen.finish());
  EXPECT_EQ(listen.process().exitStatus(), QProcess::CrashExit);
  EXPECT_EQ(listen.standardError(),
            QByteArray("tintwell: fatal: colour packet shorter than 4 bytes\n"));
  EXPECT_FALSE(listen.lines().contains(QStringLiteral("buffer[0] :  1")));
}

}  // namespace
}  // namespace tw
