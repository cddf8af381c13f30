#include "bridge/HostDescription.h"
#include "bridge/mac/MacHostDescription.h"

#include <gtest/gtest.h>

#include "bridge/LoginName.h"
#include "tests/bridge/BridgeTestSupport.h"

namespace tw {
namespace {

using bridge_testing::ScopedEnv;

std::shared_ptr<FixedApplicationLister> fixedList() {
  return std::make_shared<FixedApplicationLister>(std::vector<RunningApplication>{
      {QStringLiteral("Photoshop.exe"), QStringLiteral("C:\\PS\\Photoshop.exe")},
      {QStringLiteral("Adobe Illustrator"),
       QStringLiteral("/Applications/Adobe Illustrator.app")}});
}

TEST(WineHost, LibraryIsTheAdobeFolderOfThePrefixUser) {
  ScopedEnv prefix("WINEPREFIX", "/tmp/pfx");
  ScopedEnv user("USER", "anna");
  EXPECT_EQ(WineHostDescription(nullptr).libraryFolder(),
            "/tmp/pfx/drive_c/users/anna/AppData/Roaming/Adobe");
}

TEST(WineHost, PrefixDefaultsToDotWineInHome) {
  ScopedEnv prefix("WINEPREFIX", nullptr);
  ScopedEnv home("HOME", "/tmp/somehome");
  ScopedEnv user("USER", "anna");
  EXPECT_EQ(WineHostDescription(nullptr).libraryFolder(),
            "/tmp/somehome/.wine/drive_c/users/anna/AppData/Roaming/Adobe");
}

TEST(WineHost, UserDefaultsToTheLoginName) {
  ScopedEnv prefix("WINEPREFIX", "/p");
  ScopedEnv user("USER", nullptr);
  ASSERT_FALSE(loginName().isEmpty());
  EXPECT_EQ(WineHostDescription(nullptr).libraryFolder(),
            "/p/drive_c/users/" + loginName() + "/AppData/Roaming/Adobe");
}

TEST(WineHost, SettingsFoldersSitInTheirInstallFolders) {
  const WineHostDescription host(nullptr);
  EXPECT_EQ(host.settingsFolder(0), "Adobe Photoshop CC 2019/Adobe Photoshop CC 2019 Settings");
  EXPECT_EQ(host.settingsFolder(1), "Adobe Photoshop 2020/Adobe Photoshop 2020 Settings");
  EXPECT_EQ(host.settingsFolder(2), "Adobe Photoshop 2021/Adobe Photoshop 2021 Settings");
  EXPECT_EQ(host.settingsFolder(7), "Adobe Photoshop 2021/Adobe Photoshop 2021 Settings");
  EXPECT_EQ(host.settingsFolder(-1), "Adobe Photoshop 2021/Adobe Photoshop 2021 Settings");
}

TEST(WineHost, LauncherStartsWithABlankAndUsesTheZDrivePath) {
  const WineHostDescription host(nullptr);
  EXPECT_EQ(
      host.launcherCommand(QStringLiteral("C:\\Program Files\\PS\\Photoshop.exe"),
                           QStringLiteral("/home/a b/.local/share/Tintwell/colorScriptPS.jsx")),
      " wine \"C:\\Program Files\\PS\\Photoshop.exe\" "
      "\"Z:\\home\\a b\\.local\\share\\Tintwell\\colorScriptPS.jsx\"");
}

TEST(WineHost, QuotesAndDollarsArePassedAsTheyAre) {
  EXPECT_EQ(WineHostDescription(nullptr).launcherCommand(QStringLiteral("C:\\a\"b$c"),
                                                         QStringLiteral("/x")),
            " wine \"C:\\a\"b$c\" \"Z:\\x\"");
}

TEST(WineHost, RunningApplicationsComeFromItsLister) {
  EXPECT_EQ(WineHostDescription(fixedList()).runningApplications(),
            fixedList()->runningApplications());
}

TEST(MacHost, LibraryIsInHome) {
  ScopedEnv home("HOME", "/Users/anna");
  EXPECT_EQ(MacHostDescription(nullptr).libraryFolder(), "/Users/anna/Library");
}

TEST(MacHost, SettingsFoldersAreUnderPreferences) {
  const MacHostDescription host(nullptr);
  EXPECT_EQ(host.settingsFolder(0), "Preferences/Adobe Photoshop CC 2019 Settings");
  EXPECT_EQ(host.settingsFolder(1), "Preferences/Adobe Photoshop 2020 Settings");
  EXPECT_EQ(host.settingsFolder(2), "Preferences/Adobe Photoshop 2021 Settings");
  EXPECT_EQ(host.settingsFolder(3), "Preferences/Adobe Photoshop 2021 Settings");
}

TEST(MacHost, LauncherIsOpenWithTheApplication) {
  EXPECT_EQ(MacHostDescription(nullptr).launcherCommand(
                QStringLiteral("/Applications/Adobe Photoshop 2020/Adobe Photoshop 2020.app"),
                QStringLiteral("/Users/a/Library/Application Support/Tintwell/colorScriptPS.jsx")),
            " open -a \"/Applications/Adobe Photoshop 2020/Adobe Photoshop 2020.app\" "
            "\"/Users/a/Library/Application Support/Tintwell/colorScriptPS.jsx\"");
}

TEST(MacHost, RunningApplicationsComeFromItsLister) {
  EXPECT_EQ(MacHostDescription(fixedList()).runningApplications(),
            fixedList()->runningApplications());
}

}  // namespace
}  // namespace tw
