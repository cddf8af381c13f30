// Commander's state, script folder, settings patch, restart alert and the scan
// for running design applications, against real files and real processes.

#include "bridge/Commander.h"

#include <gtest/gtest.h>

#include <QFileInfo>

#include "tests/bridge/BridgeTestSupport.h"
#include "tests/support/LogCapture.h"

namespace tw {
namespace {

using bridge_testing::BridgeEnvironment;
using bridge_testing::kIllustrator;
using bridge_testing::kPhotoshop2019;
using bridge_testing::kPhotoshop2020;
using bridge_testing::kPhotoshop2021;
using bridge_testing::OwnChildren;
using bridge_testing::readBytes;
using bridge_testing::RecordingAlerts;
using bridge_testing::StandInProcess;
using bridge_testing::writeBytes;

const QString kAlertInformative = QStringLiteral(
    "Tintwell has changed Photoshop setting, please restart Photoshop to use color picking!");

class CommanderTest : public ::testing::Test {
 protected:
  std::unique_ptr<Commander> makeCommander() {
    return std::make_unique<Commander>(std::make_shared<WineHostDescription>(children.lister()),
                                       alerts);
  }
  // Starts a stand-in and lets the scans see it.
  StandInProcess& run(const QString& argv0) {
    processes.push_back(std::make_unique<StandInProcess>(argv0));
    EXPECT_TRUE(processes.back()->ready()) << argv0.toStdString();
    children.add(*processes.back());
    return *processes.back();
  }

  BridgeEnvironment env;
  OwnChildren children;
  std::shared_ptr<RecordingAlerts> alerts = std::make_shared<RecordingAlerts>();
  std::vector<std::unique_ptr<StandInProcess>> processes;
};

TEST_F(CommanderTest, ConstructionSetsTheInitialStateAndTouchesNoFile) {
  auto commander = makeCommander();
  const Commander::State state = commander->state();
  EXPECT_EQ(state.newColor.iR, 0);
  EXPECT_EQ(state.newColor.iG, 0);
  EXPECT_EQ(state.newColor.iB, 0);
  EXPECT_EQ(state.newColor.colorHex, "FFFFFF");
  EXPECT_EQ(state.newColor.color, QColor::fromRgbF(1.0f, 1.0f, 1.0f, 1.0f));
  EXPECT_EQ(commander->newColor(), state.newColor);
  EXPECT_FALSE(state.jfxFilePathPS);
  EXPECT_FALSE(state.jfxFilePathAI);
  EXPECT_FALSE(state.jfxFilePathID);
  EXPECT_FALSE(state.vbsFilePathID);
  EXPECT_FALSE(state.appPathPhotoshop);
  EXPECT_FALSE(state.appPathIllustrator);
  EXPECT_FALSE(state.bPhotoshopFound.has_value());
  EXPECT_FALSE(state.bIllustragorFound.has_value());
  EXPECT_TRUE(state.bFirstColor);
  const ApplicationRecord::Fields record = commander->tempApplicationRecord()->read();
  EXPECT_EQ(record.session_begin, "");
  EXPECT_EQ(record.session_end, "");
  EXPECT_FALSE(record.session_full);
  EXPECT_EQ(record.os, "Mac");
  EXPECT_FALSE(record.debug);
  EXPECT_EQ(record.PS, 0);
  EXPECT_EQ(record.AI, 0);
  EXPECT_FALSE(QFileInfo::exists(env.scriptFolder()));
}

TEST_F(CommanderTest, ScriptDirectoryIsCreatedInTheDataFolder) {
  auto commander = makeCommander();
  EXPECT_EQ(commander->scriptDirectory(), env.scriptFolder());
  EXPECT_TRUE(QFileInfo(env.scriptFolder()).isDir());
  // An existing folder is taken as it is.
  EXPECT_EQ(commander->scriptDirectory(), env.scriptFolder());
}

TEST_F(CommanderTest, ScriptDirectoryThatIsAFileIsAbsent) {
  writeBytes(env.scriptFolder(), "not a folder");
  auto commander = makeCommander();
  EXPECT_FALSE(commander->scriptDirectory());
}

TEST_F(CommanderTest, InitScriptFilesWithoutAScriptFolderStopsTheProcess) {
  writeBytes(env.scriptFolder(), "not a folder");
  auto commander = makeCommander();
  EXPECT_DEATH(commander->initScriptFiles(), "no script folder");
}

TEST_F(CommanderTest, InitScriptFilesFixesThreePathsAndWritesNoScript) {
  auto commander = makeCommander();
  commander->initScriptFiles();
  const Commander::State state = commander->state();
  EXPECT_EQ(state.jfxFilePathPS, env.psScript());
  EXPECT_EQ(state.jfxFilePathAI, env.aiScript());
  EXPECT_EQ(state.jfxFilePathID, env.scriptFolder() + "/colorScriptID.jsx");
  EXPECT_FALSE(state.vbsFilePathID);
  EXPECT_EQ(QDir(env.scriptFolder()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
            QStringList());
}

TEST_F(CommanderTest, Only2020SettingsFolderGetsATwentyByteFileAndTheOthersAreSkipped) {
  env.installPhotoshop(1);
  makeCommander()->initScriptFiles();
  const QByteArray written = readBytes(env.settingsFile(1));
  EXPECT_EQ(written, "WarnRunningScripts 0");
  EXPECT_EQ(written.size(), 20);
  EXPECT_FALSE(QFileInfo::exists(env.settingsFolder(0)));
  EXPECT_FALSE(QFileInfo::exists(env.settingsFolder(2)));
}

TEST_F(CommanderTest, BlankLinesAreDroppedAndTheLineIsAddedWithoutALineEnd) {
  writeBytes(env.settingsFile(2), "A\n\nB\n");
  makeCommander()->patchPhotoshopSettings(2);
  EXPECT_EQ(readBytes(env.settingsFile(2)), "A\nB\nWarnRunningScripts 0");
}

TEST_F(CommanderTest, LineHoldingTheTextInsideCountsAsPatched) {
  run(kPhotoshop2020);
  writeBytes(env.settingsFile(1), "\n\nxWarnRunningScripts 0y");
  const QDateTime before = QFileInfo(env.settingsFile(1)).lastModified();
  makeCommander()->patchPhotoshopSettings(1);
  EXPECT_EQ(readBytes(env.settingsFile(1)), "\n\nxWarnRunningScripts 0y");
  EXPECT_EQ(QFileInfo(env.settingsFile(1)).lastModified(), before);
  EXPECT_TRUE(alerts->shown().empty());
}

TEST_F(CommanderTest, EmptySettingsFileBecomesTheLineAlone) {
  writeBytes(env.settingsFile(0), "");
  makeCommander()->patchPhotoshopSettings(0);
  EXPECT_EQ(readBytes(env.settingsFile(0)), "WarnRunningScripts 0");
}

TEST_F(CommanderTest, OtherWarnRunningScriptsValueIsKeptAndTheLineAddedAfterIt) {
  writeBytes(env.settingsFile(0), "WarnRunningScripts 1\r\nOther 2");
  makeCommander()->patchPhotoshopSettings(0);
  EXPECT_EQ(readBytes(env.settingsFile(0)),
            "WarnRunningScripts 1\r\nOther 2\nWarnRunningScripts 0");
}

TEST_F(CommanderTest, Photoshop2021RunningGetsThePatchButNoAlert) {
  run(kPhotoshop2021);
  for (int version = 0; version < 3; ++version) env.installPhotoshop(version);
  makeCommander()->initScriptFiles();
  for (int version = 0; version < 3; ++version) {
    EXPECT_EQ(readBytes(env.settingsFile(version)), "WarnRunningScripts 0");
  }
  EXPECT_TRUE(alerts->shown().empty());
}

TEST_F(CommanderTest, Photoshop2020RunningGetsOneAlertPerFolderPatchedThisStart) {
  run(kPhotoshop2020);
  for (int version = 0; version < 3; ++version) env.installPhotoshop(version);
  makeCommander()->initScriptFiles();
  const auto shown = alerts->shown();
  ASSERT_EQ(shown.size(), 3u);
  for (const auto& [message, informative] : shown) {
    EXPECT_EQ(message, "Information");
    EXPECT_EQ(informative, kAlertInformative);
  }
  // The next start finds every file patched: neither a write nor an alert.
  const QDateTime before = QFileInfo(env.settingsFile(1)).lastModified();
  makeCommander()->initScriptFiles();
  EXPECT_EQ(alerts->shown().size(), 3u);
  EXPECT_EQ(QFileInfo(env.settingsFile(1)).lastModified(), before);
}

TEST_F(CommanderTest, AlertFollowsTheRunningPhotoshopNotThePatchedFolder) {
  // Only the 2021 folder is patched, but the running Photoshop is a 2019 one.
  run(kPhotoshop2019);
  env.installPhotoshop(2);
  writeBytes(env.settingsFile(1), "WarnRunningScripts 0");
  makeCommander()->initScriptFiles();
  EXPECT_EQ(alerts->shown().size(), 1u);
}

TEST_F(CommanderTest, NoPhotoshopRunningGetsNoAlert) {
  run(kIllustrator);
  env.installPhotoshop(1);
  makeCommander()->initScriptFiles();
  EXPECT_EQ(readBytes(env.settingsFile(1)), "WarnRunningScripts 0");
  EXPECT_TRUE(alerts->shown().empty());
}

TEST_F(CommanderTest, CheckPhotoshopRestartScansAndAlertsOnItsOwn) {
  run(kPhotoshop2019);
  auto commander = makeCommander();
  commander->checkPhotoshopRestart();
  EXPECT_EQ(alerts->shown().size(), 1u);
  EXPECT_EQ(commander->state().appPathPhotoshop, kPhotoshop2019);
}

TEST_F(CommanderTest, LaterOfTwoRunningPhotoshopsWins) {
  const StandInProcess& first = run(kPhotoshop2020);
  const StandInProcess& second = run(kPhotoshop2021);
  auto commander = makeCommander();
  testing::LogCapture log;
  commander->findDesignApps();
  const std::string out = log.text().toStdString();
  // The listing runs in ascending process id.
  const QString later = first.pid() > second.pid() ? first.argv0() : second.argv0();
  EXPECT_EQ(commander->state().appPathPhotoshop, later);
  EXPECT_EQ(commander->state().bPhotoshopFound, true);
  EXPECT_EQ(out, "Photoshop is open\nPhotoshop is open\n");
}

TEST_F(CommanderTest, NameWithBothWordsCountsAsPhotoshopOnly) {
  run(QStringLiteral("/opt/Adobe/Adobe Illustrator Photoshop Bridge"));
  auto commander = makeCommander();
  commander->findDesignApps();
  const Commander::State state = commander->state();
  EXPECT_EQ(state.bPhotoshopFound, true);
  EXPECT_EQ(state.appPathPhotoshop, "/opt/Adobe/Adobe Illustrator Photoshop Bridge");
  EXPECT_EQ(state.bIllustragorFound, false);
  EXPECT_FALSE(state.appPathIllustrator);
}

TEST_F(CommanderTest, MatchingIsCaseSensitiveAndUsesTheNameOnly) {
  // "photoshop" in lower case, and "Photoshop" only in the folder part.
  run(QStringLiteral("C:\\Adobe\\photoshop.exe"));
  run(QStringLiteral("/opt/Photoshop/viewer"));
  auto commander = makeCommander();
  commander->findDesignApps();
  EXPECT_EQ(commander->state().bPhotoshopFound, false);
  EXPECT_EQ(commander->state().bIllustragorFound, false);
}

TEST_F(CommanderTest, ScanClearsWhatTheLastScanFound) {
  StandInProcess& photoshop = run(kPhotoshop2020);
  run(kIllustrator);
  auto commander = makeCommander();
  commander->findDesignApps();
  EXPECT_EQ(commander->state().appPathIllustrator, kIllustrator);
  photoshop.stop();
  commander->findDesignApps();
  const Commander::State state = commander->state();
  EXPECT_EQ(state.bPhotoshopFound, false);
  EXPECT_FALSE(state.appPathPhotoshop);
  EXPECT_EQ(state.bIllustragorFound, true);
}

TEST_F(CommanderTest, ApplicationWithoutANameStopsTheProcess) {
  auto host = std::make_shared<WineHostDescription>(std::make_shared<FixedApplicationLister>(
      std::vector<RunningApplication>{{std::nullopt, QStringLiteral("/bin/x")}}));
  Commander commander(host);
  EXPECT_DEATH(commander.findDesignApps(), "has no name");
}

TEST_F(CommanderTest, MatchedApplicationWithoutABundleStopsTheProcess) {
  auto photoshop = std::make_shared<WineHostDescription>(std::make_shared<FixedApplicationLister>(
      std::vector<RunningApplication>{{QStringLiteral("Photoshop.exe"), std::nullopt}}));
  EXPECT_DEATH(Commander(photoshop).findDesignApps(), "Photoshop has no bundle location");
  auto illustrator = std::make_shared<WineHostDescription>(std::make_shared<FixedApplicationLister>(
      std::vector<RunningApplication>{{QStringLiteral("Illustrator.exe"), std::nullopt}}));
  EXPECT_DEATH(Commander(illustrator).findDesignApps(), "Illustrator has no bundle location");
  // An application that matches neither needs no bundle location.
  auto other = std::make_shared<WineHostDescription>(std::make_shared<FixedApplicationLister>(
      std::vector<RunningApplication>{{QStringLiteral("notepad.exe"), std::nullopt}}));
  Commander commander(other);
  commander.findDesignApps();
  EXPECT_EQ(commander.state().bPhotoshopFound, false);
}

TEST_F(CommanderTest, UnreadableSettingsFileStopsTheProcessAfterEarlierFoldersArePatched) {
  // A folder where the file should be cannot be read, even by root.
  env.installPhotoshop(0);
  QDir().mkpath(env.settingsFile(1));
  env.installPhotoshop(2);
  auto commander = makeCommander();
  EXPECT_DEATH(commander->initScriptFiles(), "cannot read .*PSUserConfig.txt");
  // The 2019 folder, patched before the failure, keeps its complete file; the
  // 2021 one was never reached.
  EXPECT_EQ(readBytes(env.settingsFile(0)), "WarnRunningScripts 0");
  EXPECT_FALSE(QFileInfo::exists(env.settingsFile(2)));
}

TEST_F(CommanderTest, UnwritableSettingsFileStopsTheProcess) {
  // The "settings folder" is a plain file, so the file inside it cannot be made.
  writeBytes(env.settingsFolder(1), "a file, not a folder");
  auto commander = makeCommander();
  EXPECT_DEATH(commander->patchPhotoshopSettings(1), "cannot write .*PSUserConfig.txt");
  EXPECT_EQ(readBytes(env.settingsFolder(1)), "a file, not a folder");
}

TEST_F(CommanderTest, SettingsFileThatIsNotUtf8StopsTheProcessWithOneLineAndIsLeftAsItIs) {
  // Latin-1 "é": the file cannot be read as UTF-8 text.
  const QByteArray original = "# Caf\xe9\n\nKeep 1\n";
  writeBytes(env.settingsFile(2), original);
  auto commander = makeCommander();
  EXPECT_DEATH(commander->patchPhotoshopSettings(2),
               "^tintwell: fatal: cannot read [^\n]*/Adobe Photoshop 2021 Settings/"
               "PSUserConfig\\.txt: not UTF-8 text\n$");
  EXPECT_EQ(readBytes(env.settingsFile(2)), original);
}

TEST_F(CommanderTest, Utf8SettingsFileKeepsItsByteOrderMarkAndOtherCharacters) {
  writeBytes(env.settingsFile(2), "\xef\xbb\xbf# Caf\xc3\xa9\r\n\nKeep 1\n");
  makeCommander()->patchPhotoshopSettings(2);
  EXPECT_EQ(readBytes(env.settingsFile(2)),
            "\xef\xbb\xbf# Caf\xc3\xa9\r\nKeep 1\nWarnRunningScripts 0");
}

TEST_F(CommanderTest, NoLibraryFolderSkipsEveryVersion) {
  class NoLibrary : public WineHostDescription {
   public:
    using WineHostDescription::WineHostDescription;
    std::optional<QString> libraryFolder() const override { return std::nullopt; }
  };
  run(kPhotoshop2020);
  for (int version = 0; version < 3; ++version) env.installPhotoshop(version);
  Commander commander(std::make_shared<NoLibrary>(children.lister()), alerts);
  commander.initScriptFiles();
  for (int version = 0; version < 3; ++version) {
    EXPECT_FALSE(QFileInfo::exists(env.settingsFile(version)));
  }
  EXPECT_TRUE(alerts->shown().empty());
}

}  // namespace
}  // namespace tw
