// The preferences: their settings file (a private XDG_CONFIG_HOME), and the
// host switches as the bridge obeys them. Photoshop and Illustrator are the
// sandbox's stand-in processes with a recording `wine`; the native hosts are
// in-process hosts that record what reaches them through the real dispatcher.
#include "app/Preferences.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <mutex>

#include "bridge/Commander.h"
#include "bridge/HostDescription.h"
#include "bridge/HostDispatcher.h"
#include "bridge/RunningApplications.h"
#include "tests/bridge/BridgeTestSupport.h"
#include "tests/support/TestMain.h"

namespace tw {
namespace {

using bridge_testing::BridgeEnvironment;
using bridge_testing::kIllustrator;
using bridge_testing::kPhotoshop2021;
using bridge_testing::OwnChildren;
using bridge_testing::StandInProcess;

// QSettings reads XDG_CONFIG_HOME once per process; each case runs in its own.
QTemporaryDir& configHome() {
  static QTemporaryDir dir;
  return dir;
}
TW_BEFORE_APPLICATION([] { qputenv("XDG_CONFIG_HOME", configHome().path().toUtf8()); });

QString settingsPath() { return configHome().filePath(QStringLiteral("Orlo/Tintwell.conf")); }

void writeSettingsFile(const QByteArray& text) { bridge_testing::writeBytes(settingsPath(), text); }

QByteArray settingsFile() { return bridge_testing::readBytes(settingsPath()); }

TEST(PreferencesTest, WithoutASettingsFileEveryHostIsOnCopyIsOffInHexAndReportsAreOn) {
  const Preferences preferences = Preferences::load();
  for (const auto& host : Preferences::hosts()) EXPECT_TRUE(preferences.hostEnabled(host.key));
  EXPECT_FALSE(preferences.copyEnabled());
  EXPECT_EQ(preferences.copyNotation(), "hex");
  EXPECT_TRUE(preferences.telemetryEnabled());
  EXPECT_EQ(preferences, Preferences());
  EXPECT_FALSE(QFile::exists(settingsPath()));  // reading writes nothing
}

TEST(PreferencesTest, TheHostsAndNotationsAreTheFiveKnownOnesInOrder) {
  QStringList keys, names;
  for (const auto& host : Preferences::hosts()) {
    keys << host.key;
    names << host.name;
    EXPECT_EQ(host.native, host.key != "photoshop" && host.key != "illustrator");
  }
  EXPECT_EQ(keys, (QStringList{"photoshop", "illustrator", "gimp", "inkscape", "krita"}));
  EXPECT_EQ(names, (QStringList{"Photoshop", "Illustrator", "GIMP", "Inkscape", "Krita"}));
  EXPECT_EQ(Preferences::notations(), (QStringList{"hex", "rgb", "cmyk", "hsb", "lab"}));
}

TEST(PreferencesTest, SavedValuesComeBackOnTheNextLoad) {
  Preferences changed;
  changed.setHostEnabled("illustrator", false);
  changed.setHostEnabled("krita", false);
  changed.setCopyEnabled(true);
  ASSERT_TRUE(changed.setCopyNotation("lab"));
  changed.setTelemetryEnabled(false);
  changed.save();

  const Preferences loaded = Preferences::load();
  EXPECT_EQ(loaded, changed);
  EXPECT_TRUE(loaded.hostEnabled("photoshop"));
  EXPECT_FALSE(loaded.hostEnabled("illustrator"));
  EXPECT_TRUE(loaded.hostEnabled("gimp"));
  EXPECT_FALSE(loaded.hostEnabled("krita"));
  EXPECT_TRUE(loaded.copyEnabled());
  EXPECT_EQ(loaded.copyNotation(), "lab");
  EXPECT_FALSE(loaded.telemetryEnabled());
}

TEST(PreferencesTest, TheFileHoldsTheDocumentedKeys) {
  Preferences changed;
  changed.setHostEnabled("gimp", false);
  changed.setCopyEnabled(true);
  ASSERT_TRUE(changed.setCopyNotation("cmyk"));
  changed.setTelemetryEnabled(false);
  changed.save();
  const QSettings settings(settingsPath(), QSettings::IniFormat);
  EXPECT_EQ(settings.value("hosts/photoshop").toString(), "true");
  EXPECT_EQ(settings.value("hosts/illustrator").toString(), "true");
  EXPECT_EQ(settings.value("hosts/gimp").toString(), "false");
  EXPECT_EQ(settings.value("hosts/inkscape").toString(), "true");
  EXPECT_EQ(settings.value("hosts/krita").toString(), "true");
  EXPECT_EQ(settings.value("copy/enabled").toString(), "true");
  EXPECT_EQ(settings.value("copy/notation").toString(), "cmyk");
  EXPECT_EQ(settings.value("telemetry/enabled").toString(), "false");
}

TEST(PreferencesTest, SavingKeepsTheOtherKeysOfTheFile) {
  writeSettingsFile(
      "[General]\nconnectedQuillaID=00000000-0000-0000-0000-AABBCCDDEE02\n"
      "telemetryBaseURL=https://example.test\n");
  Preferences changed;
  changed.setTelemetryEnabled(false);
  changed.save();
  const QByteArray text = settingsFile();
  EXPECT_TRUE(text.contains("connectedQuillaID=00000000-0000-0000-0000-AABBCCDDEE02"))
      << text.toStdString();
  EXPECT_TRUE(text.contains("telemetryBaseURL=https://example.test")) << text.toStdString();
  EXPECT_TRUE(text.contains("[telemetry]\nenabled=false")) << text.toStdString();
}

TEST(PreferencesTest, AHandWrittenFileIsReadWithItsOwnSpellings) {
  writeSettingsFile(
      "[hosts]\nphotoshop=false\nillustrator=0\ngimp=1\ninkscape=FALSE\nkrita=true\n"
      "[copy]\nenabled=true\nnotation=hsb\n[telemetry]\nenabled=false\n");
  const Preferences loaded = Preferences::load();
  EXPECT_FALSE(loaded.hostEnabled("photoshop"));
  EXPECT_FALSE(loaded.hostEnabled("illustrator"));
  EXPECT_TRUE(loaded.hostEnabled("gimp"));
  EXPECT_FALSE(loaded.hostEnabled("inkscape"));
  EXPECT_TRUE(loaded.hostEnabled("krita"));
  EXPECT_TRUE(loaded.copyEnabled());
  EXPECT_EQ(loaded.copyNotation(), "hsb");
  EXPECT_FALSE(loaded.telemetryEnabled());
}

TEST(PreferencesTest, HistoryIsOnAndEveryOtherNewOptionOffByDefault) {
  const Preferences preferences = Preferences::load();
  EXPECT_TRUE(preferences.historyEnabled());
  EXPECT_FALSE(preferences.showRecentColors());
  EXPECT_FALSE(preferences.paletteFilesEnabled());
  EXPECT_FALSE(preferences.showColorNames());
  EXPECT_EQ(preferences.nameLibrary(), 0);
}

TEST(PreferencesTest, HistoryAndNameOptionsAreSavedUnderTheirKeys) {
  Preferences changed;
  changed.setHistoryEnabled(false);
  changed.setShowRecentColors(true);
  changed.setPaletteFilesEnabled(true);
  changed.setShowColorNames(true);
  changed.setNameLibrary(3);
  changed.save();
  const QSettings settings(settingsPath(), QSettings::IniFormat);
  EXPECT_EQ(settings.value("history/enabled").toString(), "false");
  EXPECT_EQ(settings.value("history/recent").toString(), "true");
  EXPECT_EQ(settings.value("history/palettes").toString(), "true");
  EXPECT_EQ(settings.value("names/show").toString(), "true");
  EXPECT_EQ(settings.value("names/library").toString(), "3");
  EXPECT_EQ(Preferences::load(), changed);
}

TEST(PreferencesTest, ANameLibraryRowThatIsNotANumberOrNegativeReadsAsTheFirst) {
  writeSettingsFile("[names]\nlibrary=css\n");
  EXPECT_EQ(Preferences::load().nameLibrary(), 0);
  writeSettingsFile("[names]\nlibrary=-4\n");
  EXPECT_EQ(Preferences::load().nameLibrary(), 0);
  writeSettingsFile("[names]\nlibrary= 2 \n");
  EXPECT_EQ(Preferences::load().nameLibrary(), 2);
}

TEST(PreferencesTest, ValuesThatAreNotOfTheirKindReadAsTheDefaults) {
  writeSettingsFile(
      "[hosts]\nphotoshop=maybe\nillustrator=\ngimp=no\n"
      "[copy]\nenabled=yes please\nnotation=HEX value\n[telemetry]\nenabled=off-ish\n");
  EXPECT_EQ(Preferences::load(), Preferences());
}

TEST(PreferencesTest, AnUnknownNotationIsRefusedAndTheOldOneKept) {
  Preferences preferences;
  ASSERT_TRUE(preferences.setCopyNotation("rgb"));
  EXPECT_FALSE(preferences.setCopyNotation("xyz"));
  EXPECT_FALSE(preferences.setCopyNotation("RGB"));
  EXPECT_EQ(preferences.copyNotation(), "rgb");
}

TEST(PreferencesTest, UnknownHostKeysAreIgnored) {
  Preferences preferences;
  preferences.setHostEnabled("indesign", false);
  EXPECT_TRUE(preferences.hostEnabled("indesign"));
  EXPECT_EQ(preferences, Preferences());
}

// Photoshop and Illustrator, both running as stand-ins; the recording `wine`
// shows which scripts were run.
class ScriptHostSwitchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const QString& argv0 : {kPhotoshop2021, kIllustrator}) {
      processes_.push_back(std::make_unique<StandInProcess>(argv0));
      ASSERT_TRUE(processes_.back()->ready());
      children_.add(*processes_.back());
    }
    commander_ =
        std::make_unique<Commander>(std::make_shared<WineHostDescription>(children_.lister()));
    commander_->initScriptFiles();
    commander_->sendColorToApps(ColorStruct::fromChannels(250, 250, 250));  // never pushed
  }
  QByteArray pushAndLog(qint64 r, qint64 g, qint64 b) {
    commander_->sendColorToApps(ColorStruct::fromChannels(r, g, b));
    return env_.wineCalls();
  }

  BridgeEnvironment env_;
  OwnChildren children_;
  std::vector<std::unique_ptr<StandInProcess>> processes_;
  std::unique_ptr<Commander> commander_;
};

TEST_F(ScriptHostSwitchTest, WithBothOnBothScriptsRun) {
  Preferences::load().applyHosts(*commander_);
  const QByteArray calls = pushAndLog(18, 52, 86);
  EXPECT_TRUE(calls.contains(kPhotoshop2021.toLocal8Bit())) << calls.toStdString();
  EXPECT_TRUE(calls.contains(kIllustrator.toLocal8Bit())) << calls.toStdString();
  EXPECT_EQ(commander_->tempApplicationRecord()->read().PS, 1);
  EXPECT_EQ(commander_->tempApplicationRecord()->read().AI, 1);
}

TEST_F(ScriptHostSwitchTest, PhotoshopSwitchedOffInTheFileGetsNoScriptAndIllustratorStillDoes) {
  writeSettingsFile("[hosts]\nphotoshop=false\n");
  Preferences::load().applyHosts(*commander_);
  EXPECT_FALSE(commander_->isScriptHostEnabled("photoshop"));
  const QByteArray calls = pushAndLog(18, 52, 86);
  EXPECT_FALSE(calls.contains(kPhotoshop2021.toLocal8Bit())) << calls.toStdString();
  EXPECT_TRUE(calls.contains(kIllustrator.toLocal8Bit())) << calls.toStdString();
  EXPECT_EQ(commander_->tempApplicationRecord()->read().PS, 0);
  EXPECT_EQ(commander_->tempApplicationRecord()->read().AI, 1);
}

TEST_F(ScriptHostSwitchTest, IllustratorSwitchedOffGetsNoScriptAndOnAgainGetsTheNextColour) {
  Preferences preferences;
  preferences.setHostEnabled("illustrator", false);
  preferences.applyHosts(*commander_);
  QByteArray calls = pushAndLog(18, 52, 86);
  EXPECT_TRUE(calls.contains(kPhotoshop2021.toLocal8Bit())) << calls.toStdString();
  EXPECT_FALSE(calls.contains(kIllustrator.toLocal8Bit())) << calls.toStdString();

  preferences.setHostEnabled("illustrator", true);
  preferences.applyHosts(*commander_);
  calls = pushAndLog(1, 2, 3);
  EXPECT_TRUE(calls.contains(kIllustrator.toLocal8Bit())) << calls.toStdString();
  EXPECT_TRUE(calls.contains("newColor.red = 1;")) << calls.toStdString();
  EXPECT_FALSE(calls.contains("newColor.red = 18;")) << calls.toStdString();
}

// A native host that keeps what reaches it: the dispatcher's real threads and
// switches, without a design application behind it.
class RecordingHost : public DesignHost {
 public:
  struct Log {
    std::mutex mutex;
    std::vector<HostColor> pushes;
  };
  RecordingHost(QString key, QString name, std::shared_ptr<Log> log)
      : key_(std::move(key)), name_(std::move(name)), log_(std::move(log)) {}
  QString key() const override { return key_; }
  QString displayName() const override { return name_; }
  bool isHostProcess(const RunningApplication& application) const override {
    return application.localizedName == key_;
  }
  PushOutcome push(const HostColor& color, std::chrono::milliseconds) override {
    std::lock_guard lock(log_->mutex);
    log_->pushes.push_back(color);
    return {PushStatus::Confirmed, {}};
  }
  std::optional<HostColor> readBack(std::chrono::milliseconds) override {
    std::lock_guard lock(log_->mutex);
    if (log_->pushes.empty()) return std::nullopt;
    return log_->pushes.back();
  }

 private:
  QString key_, name_;
  std::shared_ptr<Log> log_;
};

class NativeHostSwitchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::vector<std::unique_ptr<DesignHost>> hosts;
    std::vector<RunningApplication> running;
    for (const auto& host : Preferences::hosts()) {
      if (!host.native) continue;
      logs_[host.key] = std::make_shared<RecordingHost::Log>();
      hosts.push_back(std::make_unique<RecordingHost>(host.key, host.name, logs_[host.key]));
      running.push_back({host.key, QStringLiteral("/usr/bin/") + host.key});
    }
    commander_ = std::make_unique<Commander>(
        std::make_shared<WineHostDescription>(std::make_shared<FixedApplicationLister>(running)));
    dispatcher_ = std::make_shared<HostDispatcher>(std::move(hosts), nullptr,
                                                   std::chrono::milliseconds(2000));
    commander_->setNativeHosts(dispatcher_);
    commander_->sendColorToApps(ColorStruct::fromChannels(250, 250, 250));  // never pushed
  }
  std::vector<HostColor> pushesTo(const QString& key) {
    std::lock_guard lock(logs_[key]->mutex);
    return logs_[key]->pushes;
  }
  void push(int r, int g, int b) {
    commander_->sendColorToApps(ColorStruct::fromChannels(r, g, b));
    ASSERT_TRUE(dispatcher_->waitIdle(std::chrono::seconds(10)));
  }

  BridgeEnvironment env_;
  std::map<QString, std::shared_ptr<RecordingHost::Log>> logs_;
  std::unique_ptr<Commander> commander_;
  std::shared_ptr<HostDispatcher> dispatcher_;
};

TEST_F(NativeHostSwitchTest, WithTheDefaultsEveryNativeHostReceivesTheColour) {
  Preferences::load().applyHosts(*commander_);
  push(18, 52, 86);
  for (const QString key : {"gimp", "inkscape", "krita"})
    EXPECT_EQ(pushesTo(key), (std::vector<HostColor>{{18, 52, 86}})) << key.toStdString();
}

TEST_F(NativeHostSwitchTest, AHostSwitchedOffInTheFileReceivesNothingAndTheOthersDo) {
  writeSettingsFile("[hosts]\ngimp=false\nkrita=false\n");
  Preferences::load().applyHosts(*commander_);
  EXPECT_FALSE(dispatcher_->isEnabled("gimp"));
  EXPECT_TRUE(dispatcher_->isEnabled("inkscape"));
  EXPECT_FALSE(dispatcher_->isEnabled("krita"));
  push(18, 52, 86);
  push(1, 2, 3);
  EXPECT_TRUE(pushesTo("gimp").empty());
  EXPECT_TRUE(pushesTo("krita").empty());
  EXPECT_EQ(pushesTo("inkscape"), (std::vector<HostColor>{{18, 52, 86}, {1, 2, 3}}));
  EXPECT_EQ(dispatcher_->stats("gimp")->offered, 0u);
}

TEST_F(NativeHostSwitchTest, SwitchedOnAgainAHostGetsTheColoursThatFollow) {
  Preferences preferences;
  preferences.setHostEnabled("inkscape", false);
  preferences.applyHosts(*commander_);
  push(18, 52, 86);
  preferences.setHostEnabled("inkscape", true);
  preferences.applyHosts(*commander_);
  push(1, 2, 3);
  EXPECT_EQ(pushesTo("inkscape"), (std::vector<HostColor>{{1, 2, 3}}));
  EXPECT_EQ(pushesTo("gimp"), (std::vector<HostColor>{{18, 52, 86}, {1, 2, 3}}));
}

TEST(PreferencesWithoutDispatcherTest, NativeSwitchesNeedNoDispatcherAndScriptSwitchesStillApply) {
  Commander commander(std::make_shared<WineHostDescription>(
      std::make_shared<FixedApplicationLister>(std::vector<RunningApplication>{})));
  ASSERT_EQ(commander.nativeHosts(), nullptr);
  Preferences preferences;
  preferences.setHostEnabled("gimp", false);
  preferences.setHostEnabled("photoshop", false);
  preferences.applyHosts(commander);
  EXPECT_FALSE(commander.isScriptHostEnabled("photoshop"));
  EXPECT_TRUE(commander.isScriptHostEnabled("illustrator"));
}

TEST(PreferencesTest, TheMagnifierIsOffUntilSwitchedOnAndIsKeptUnderPicker) {
  EXPECT_FALSE(Preferences::load().magnifierEnabled());
  Preferences changed;
  changed.setMagnifierEnabled(true);
  changed.save();
  const QSettings settings(settingsPath(), QSettings::IniFormat);
  EXPECT_EQ(settings.value("picker/magnifier").toString(), "true");
  EXPECT_TRUE(Preferences::load().magnifierEnabled());
  writeSettingsFile("[picker]\nmagnifier=0\n");
  EXPECT_FALSE(Preferences::load().magnifierEnabled());
}

}  // namespace
}  // namespace tw
