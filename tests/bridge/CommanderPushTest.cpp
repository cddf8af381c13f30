// Pushing a colour: the scripts as written, the launcher calls as a `wine`
// stand-in receives them, the counts, the log lines, and the failure paths.

#include <gtest/gtest.h>

#include <QFileInfo>
#include <QSaveFile>
#include <atomic>
#include <thread>

#include "bridge/Commander.h"
#include "tests/bridge/BridgeTestSupport.h"
#include "tests/support/LogCapture.h"

namespace tw {
namespace {

using bridge_testing::BridgeEnvironment;
using bridge_testing::kIllustrator;
using bridge_testing::kPhotoshop2021;
using bridge_testing::OwnChildren;
using bridge_testing::readBytes;
using bridge_testing::StandInProcess;
using bridge_testing::writeBytes;

QByteArray photoshopBytes(int r, int g, int b) {
  const QByteArray R = QByteArray::number(r), G = QByteArray::number(g), B = QByteArray::number(b);
  return "app.foregroundColor.rgb.red = " + R + ";app.foregroundColor.rgb.green = " + G +
         ";app.foregroundColor.rgb.blue = " + B + ";app.backgroundColor.rgb.red = " + R +
         ";app.backgroundColor.rgb.green = " + G + ";app.backgroundColor.rgb.blue = " + B + ";";
}

QByteArray illustratorBytes(int r, int g, int b) {
  return "var newColor = new RGBColor();newColor.red = " + QByteArray::number(r) +
         ";newColor.green = " + QByteArray::number(g) +
         ";newColor.blue = " + QByteArray::number(b) +
         ";try {  app.activeDocument.defaultFillColor = newColor; }catch(err) {}";
}

class CommanderPushTest : public ::testing::Test {
 protected:
  void SetUp() override {
    commander =
        std::make_unique<Commander>(std::make_shared<WineHostDescription>(children.lister()));
    commander->initScriptFiles();
  }
  StandInProcess& run(const QString& argv0) {
    processes.push_back(std::make_unique<StandInProcess>(argv0));
    EXPECT_TRUE(processes.back()->ready()) << argv0.toStdString();
    children.add(*processes.back());
    return *processes.back();
  }
  // Pushes once to get past the start-up colour, which is never pushed.
  void skipFirstColor() {
    testing::LogCapture log;
    commander->sendColorToApps();
    EXPECT_EQ(log.text(), "");
  }
  std::string push(qint64 r, qint64 g, qint64 b) {
    commander->setNewColor(ColorStruct::fromChannels(r, g, b));
    testing::LogCapture log;
    commander->sendColorToApps();
    return log.text().toStdString();
  }
  ApplicationRecord::Fields record() const { return commander->tempApplicationRecord()->read(); }

  BridgeEnvironment env;
  OwnChildren children;
  std::vector<std::unique_ptr<StandInProcess>> processes;
  std::unique_ptr<Commander> commander;
};

TEST_F(CommanderPushTest, FirstColourIsNeitherPushedNorCountedAndTheSecondIs) {
  run(kPhotoshop2021);
  const std::string first = push(18, 52, 86);
  EXPECT_EQ(first, "");  // not even a scan
  EXPECT_FALSE(commander->state().bFirstColor);
  EXPECT_FALSE(commander->state().bPhotoshopFound.has_value());
  EXPECT_FALSE(QFileInfo::exists(env.psScript()));
  EXPECT_EQ(env.wineCalls(), "");
  EXPECT_EQ(record().PS, 0);

  const std::string second = push(18, 52, 86);
  EXPECT_EQ(readBytes(env.psScript()),
            "app.foregroundColor.rgb.red = 18;app.foregroundColor.rgb.green = 52;"
            "app.foregroundColor.rgb.blue = 86;app.backgroundColor.rgb.red = 18;"
            "app.backgroundColor.rgb.green = 52;app.backgroundColor.rgb.blue = 86;");
  EXPECT_EQ(env.wineCalls(), BridgeEnvironment::expectedCall(kPhotoshop2021, env.psScript(),
                                                             photoshopBytes(18, 52, 86)));
  EXPECT_EQ(record().PS, 1);
  EXPECT_EQ(record().AI, 0);
  EXPECT_EQ(second, "Photoshop is open\nrunShell result :  \n");
}

TEST_F(CommanderPushTest, BlackGivesSixZeroComponents) {
  run(kPhotoshop2021);
  skipFirstColor();
  push(0, 0, 0);
  const QByteArray script = readBytes(env.psScript());
  EXPECT_EQ(script, photoshopBytes(0, 0, 0));
  EXPECT_EQ(script.count("= 0;"), 6);
}

TEST_F(CommanderPushTest, ComponentsAreWrittenAsPlainDecimals) {
  run(kPhotoshop2021);
  run(kIllustrator);
  skipFirstColor();
  push(255, 128, 7);
  EXPECT_EQ(readBytes(env.psScript()),
            "app.foregroundColor.rgb.red = 255;app.foregroundColor.rgb.green = 128;"
            "app.foregroundColor.rgb.blue = 7;app.backgroundColor.rgb.red = 255;"
            "app.backgroundColor.rgb.green = 128;app.backgroundColor.rgb.blue = 7;");
  EXPECT_EQ(readBytes(env.aiScript()),
            "var newColor = new RGBColor();newColor.red = 255;newColor.green = 128;"
            "newColor.blue = 7;try {  app.activeDocument.defaultFillColor = newColor; }"
            "catch(err) {}");
}

TEST_F(CommanderPushTest, NeitherApplicationRunningOnlyScans) {
  run(QStringLiteral("C:\\Windows\\notepad.exe"));
  skipFirstColor();
  EXPECT_EQ(push(1, 2, 3), "");
  const Commander::State state = commander->state();
  EXPECT_EQ(state.bPhotoshopFound, false);  // the scan did run
  EXPECT_EQ(state.bIllustragorFound, false);
  EXPECT_FALSE(QFileInfo::exists(env.psScript()));
  EXPECT_FALSE(QFileInfo::exists(env.aiScript()));
  EXPECT_EQ(env.wineCalls(), "");
  EXPECT_EQ(record().PS, 0);
  EXPECT_EQ(record().AI, 0);
}

TEST_F(CommanderPushTest, BothRunningPushesPhotoshopFirstThenIllustrator) {
  // Illustrator is listed first; Photoshop is still served first.
  run(kIllustrator);
  run(kPhotoshop2021);
  skipFirstColor();
  const std::string out = push(18, 52, 86);
  EXPECT_EQ(env.wineCalls(), BridgeEnvironment::expectedCall(kPhotoshop2021, env.psScript(),
                                                             photoshopBytes(18, 52, 86)) +
                                 BridgeEnvironment::expectedCall(kIllustrator, env.aiScript(),
                                                                 illustratorBytes(18, 52, 86)));
  EXPECT_EQ(record().PS, 1);
  EXPECT_EQ(record().AI, 1);
  // Illustrator's launcher output is printed alone: here an empty line.
  EXPECT_EQ(out, "Photoshop is open\nrunShell result :  \n\n");
  push(1, 2, 3);
  EXPECT_EQ(record().PS, 2);
  EXPECT_EQ(record().AI, 2);
  EXPECT_EQ(readBytes(env.aiScript()), illustratorBytes(1, 2, 3));
}

TEST_F(CommanderPushTest, LauncherOutputIsPrintedAndThePushCounted) {
  run(kPhotoshop2021);
  run(kIllustrator);
  writeBytes(env.wineOutput(), "fixme:Photoshop started \xe2\x9c\x93");
  skipFirstColor();
  EXPECT_EQ(push(9, 9, 9),
            "Photoshop is open\n"
            "runShell result :  fixme:Photoshop started \xe2\x9c\x93\n"
            "fixme:Photoshop started \xe2\x9c\x93\n");
}

TEST_F(CommanderPushTest, UnwritableScriptSkipsThatApplicationOnly) {
  // The Illustrator script path is taken by a folder: no write can replace it,
  // even for root (a read-only folder would not stop root).
  QDir().mkpath(env.aiScript());
  run(kIllustrator);
  run(kPhotoshop2021);
  skipFirstColor();
  const std::string out = push(18, 52, 86);
  EXPECT_EQ(env.wineCalls(), BridgeEnvironment::expectedCall(kPhotoshop2021, env.psScript(),
                                                             photoshopBytes(18, 52, 86)));
  EXPECT_EQ(record().PS, 1);
  EXPECT_EQ(record().AI, 0);
  // The write error's description, one line, after Photoshop's lines.
  const std::string prefix = "Photoshop is open\nrunShell result :  \n";
  ASSERT_EQ(out.rfind(prefix, 0), 0u) << out;
  const std::string error = out.substr(prefix.size());
  QSaveFile probe(env.aiScript());
  EXPECT_FALSE(probe.open(QIODevice::WriteOnly));
  EXPECT_EQ(error, probe.errorString().toStdString() + "\n");
  EXPECT_GT(error.size(), 1u);
  EXPECT_TRUE(QFileInfo(env.aiScript()).isDir());
}

TEST_F(CommanderPushTest, DoubleQuoteInTheApplicationPathIsPassedUnescaped) {
  // The shell misreads the command line and never starts the launcher; the push
  // is counted all the same, and Illustrator is still served.
  const QString quoted = QStringLiteral("C:\\Ado\"be\\Photoshop.exe");
  run(quoted);
  run(kIllustrator);
  skipFirstColor();
  const std::string out = push(18, 52, 86);
  EXPECT_EQ(readBytes(env.psScript()), photoshopBytes(18, 52, 86));
  EXPECT_EQ(env.wineCalls(), BridgeEnvironment::expectedCall(kIllustrator, env.aiScript(),
                                                             illustratorBytes(18, 52, 86)));
  EXPECT_EQ(record().PS, 1);
  EXPECT_EQ(record().AI, 1);
  EXPECT_EQ(out, "Photoshop is open\nrunShell result :  \n\n");
  // The command line as built: quotes put around the path as it is.
  EXPECT_EQ(WineHostDescription(nullptr).launcherCommand(quoted, env.psScript()),
            " wine \"C:\\Ado\"be\\Photoshop.exe\" \"" +
                WineHostDescription::winePath(env.psScript()) + "\"");
}

TEST_F(CommanderPushTest, PhotoshopVanishingBetweenListingAndReadingIsNotPushed) {
  // Photoshop quits after /proc was listed but before its command line is read:
  // it is skipped, and the Illustrator next to it is still served.
  auto photoshop = std::make_unique<StandInProcess>(kPhotoshop2021);
  StandInProcess illustrator(kIllustrator);
  ASSERT_TRUE(photoshop->ready() && illustrator.ready());
  const qint64 photoshopPid = photoshop->pid();
  int scans = 0;
  auto lister = std::make_shared<ProcApplicationLister>([&] {
    std::vector<qint64> pids = ProcApplicationLister::currentUserProcessIds();
    std::erase_if(pids,
                  [&](qint64 pid) { return pid != photoshopPid && pid != illustrator.pid(); });
    EXPECT_EQ(pids.size(), scans == 0 ? 2u : 1u);
    if (scans++ == 0) photoshop->stop();
    return pids;
  });
  Commander vanishing(std::make_shared<WineHostDescription>(lister));
  vanishing.initScriptFiles();
  vanishing.sendColorToApps();  // the first colour: no scan
  testing::LogCapture log;
  vanishing.sendColorToApps(ColorStruct::fromChannels(18, 52, 86));
  EXPECT_EQ(log.text(), "\n");
  EXPECT_EQ(scans, 1);
  EXPECT_EQ(vanishing.state().bPhotoshopFound, false);
  EXPECT_FALSE(QFileInfo::exists(env.psScript()));
  EXPECT_EQ(env.wineCalls(), BridgeEnvironment::expectedCall(kIllustrator, env.aiScript(),
                                                             illustratorBytes(18, 52, 86)));
  EXPECT_EQ(vanishing.tempApplicationRecord()->read().PS, 0);
  EXPECT_EQ(vanishing.tempApplicationRecord()->read().AI, 1);
}

TEST_F(CommanderPushTest, LauncherPrintingNonUtf8StopsTheProcess) {
  run(kPhotoshop2021);
  writeBytes(env.wineOutput(), "bad \xff\xfe output");
  skipFirstColor();
  commander->setNewColor(ColorStruct::fromChannels(4, 5, 6));
  EXPECT_DEATH(commander->sendColorToApps(), "launcher output is not valid UTF-8");
  // The script was in place before the launcher ran, and the launcher did run.
  EXPECT_EQ(readBytes(env.psScript()), photoshopBytes(4, 5, 6));
  EXPECT_EQ(env.wineCalls(), BridgeEnvironment::expectedCall(kPhotoshop2021, env.psScript(),
                                                             photoshopBytes(4, 5, 6)));
}

TEST_F(CommanderPushTest, CountsGoIntoTheRecordHeldAtTheTime) {
  run(kPhotoshop2021);
  skipFirstColor();
  push(1, 1, 1);
  const auto old = commander->tempApplicationRecord();
  auto fresh = std::make_shared<ApplicationRecord>();
  commander->setTempApplicationRecord(fresh);
  push(2, 2, 2);
  EXPECT_EQ(old->read().PS, 1);
  EXPECT_EQ(fresh->read().PS, 1);
  EXPECT_EQ(commander->tempApplicationRecord(), fresh);
}

TEST_F(CommanderPushTest, AbsentRecordStopsTheProcessAtTheCount) {
  run(kPhotoshop2021);
  skipFirstColor();
  commander->setTempApplicationRecord(nullptr);
  EXPECT_DEATH(commander->sendColorToApps(), "no application record");
}

TEST_F(CommanderPushTest, PushBeforeTheScriptPathsAreFixedStopsTheProcess) {
  run(kPhotoshop2021);
  Commander fresh(std::make_shared<WineHostDescription>(children.lister()));
  fresh.sendColorToApps();  // the first colour
  EXPECT_DEATH(fresh.sendColorToApps(), "no Photoshop script path");
}

TEST_F(CommanderPushTest, SendWithAColourSetsItAndPushesIt) {
  run(kPhotoshop2021);
  skipFirstColor();
  {
    testing::LogCapture quiet;
    commander->sendColorToApps(ColorStruct::fromChannels(10, 20, 30));
  }
  EXPECT_EQ(commander->newColor(), ColorStruct::fromChannels(10, 20, 30));
  EXPECT_EQ(readBytes(env.psScript()), photoshopBytes(10, 20, 30));
}

TEST_F(CommanderPushTest, ConcurrentPushesAndRecordSwapsLoseNoCount) {
  run(kPhotoshop2021);
  run(kIllustrator);
  skipFirstColor();
  constexpr int kThreads = 3;
  constexpr int kPushes = 4;
  std::vector<std::shared_ptr<ApplicationRecord>> records{commander->tempApplicationRecord()};
  std::mutex recordsMutex;
  std::atomic<bool> done{false};
  auto quiet = std::make_unique<testing::LogCapture>();
  // The telemetry side swaps the record while pushes run.
  std::thread swapper([&] {
    while (!done) {
      auto fresh = std::make_shared<ApplicationRecord>();
      {
        std::lock_guard lock(recordsMutex);
        records.push_back(fresh);
      }
      commander->setTempApplicationRecord(fresh);
      (void)commander->tempApplicationRecord()->read();
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  std::vector<std::thread> pushers;
  for (int t = 0; t < kThreads; ++t) {
    pushers.emplace_back([&, t] {
      for (int i = 0; i < kPushes; ++i) {
        commander->sendColorToApps(ColorStruct::fromChannels(t, i, 7));
        (void)commander->newColor();
        (void)commander->state();
      }
    });
  }
  for (auto& thread : pushers) thread.join();
  done = true;
  swapper.join();
  quiet.reset();
  qint64 ps = 0, ai = 0;
  for (const auto& r : records) {
    ps += r->read().PS;
    ai += r->read().AI;
  }
  EXPECT_EQ(ps, kThreads * kPushes);
  EXPECT_EQ(ai, kThreads * kPushes);
  // Every launcher call saw a whole script, never a torn one.
  const QByteArray calls = env.wineCalls();
  EXPECT_EQ(calls.count("call\n"), 2 * kThreads * kPushes);
  EXPECT_EQ(
      calls.count(";try {  app.activeDocument.defaultFillColor = newColor; }catch(err) {}\nend\n"),
      kThreads * kPushes);
}

}  // namespace
}  // namespace tw
