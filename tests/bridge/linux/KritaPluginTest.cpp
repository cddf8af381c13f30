#include "bridge/linux/KritaPlugin.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "tests/bridge/BridgeTestSupport.h"

namespace tw {
namespace {

using bridge_testing::readBytes;
using bridge_testing::ScopedEnv;
using bridge_testing::writeBytes;

QByteArray sourceFile(const char* name) {
  return readBytes(QStringLiteral(TW_SOURCE_DIR "/resources/krita/") + QLatin1String(name));
}

ino_t inode(const QString& path) {
  struct stat info {};
  return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_ino : 0;
}

TEST(KritaPluginFilesTest, TheCompiledInFilesAreTheOnesInTheTree) {
  EXPECT_EQ(krita_plugin::module(), sourceFile("tintwell_bridge/__init__.py"));
  EXPECT_EQ(krita_plugin::desktopEntry(), sourceFile("tintwell_bridge.desktop"));
  EXPECT_FALSE(krita_plugin::module().isEmpty());
}

TEST(KritaPluginFilesTest, TheShippedModuleDeclaresAPositiveVersion) {
  const std::optional<int> version = krita_plugin::versionOf(krita_plugin::module());
  ASSERT_TRUE(version.has_value());
  EXPECT_GE(*version, 1);
  EXPECT_EQ(krita_plugin::shippedVersion(), *version);
}

TEST(KritaPluginFilesTest, TheDesktopEntryNamesThePythonPackage) {
  const QList<QByteArray> lines = krita_plugin::desktopEntry().split('\n');
  EXPECT_TRUE(lines.contains("ServiceTypes=Krita/PythonPlugin"));
  EXPECT_TRUE(lines.contains("X-KDE-Library=tintwell_bridge"));
  EXPECT_TRUE(lines.contains("Name=Tintwell bridge"));
  EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const QByteArray& line) {
    return line.startsWith("Comment=") && line.size() > 10;
  }));
}

struct VersionCase {
  const char* name;
  QByteArray text;
  std::optional<int> version;
};

void PrintTo(const VersionCase& c, std::ostream* os) { *os << c.name; }

class PluginVersionLineTest : public ::testing::TestWithParam<VersionCase> {};

TEST_P(PluginVersionLineTest, ReadsOnlyTheTopLevelLine) {
  EXPECT_EQ(krita_plugin::versionOf(GetParam().text), GetParam().version);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PluginVersionLineTest,
    ::testing::Values(VersionCase{"NoLine", "import os\n", std::nullopt},
                      VersionCase{"Empty", "", std::nullopt},
                      VersionCase{"NotANumber", "PLUGIN_VERSION = one\n", std::nullopt},
                      VersionCase{"Indented", "def f():\n    PLUGIN_VERSION = 4\n", std::nullopt},
                      VersionCase{"CommentedOut", "# PLUGIN_VERSION = 4\n", std::nullopt},
                      VersionCase{"Negative", "PLUGIN_VERSION = -4\n", std::nullopt},
                      VersionCase{"Plain", "import os\nPLUGIN_VERSION = 7\nx = 1\n", 7},
                      VersionCase{"LastLineWithoutLineEnd", "PLUGIN_VERSION = 12", 12},
                      VersionCase{"CarriageReturn", "a = 1\r\nPLUGIN_VERSION = 3\r\n", 3}),
    [](const ::testing::TestParamInfo<VersionCase>& info) { return std::string(info.param.name); });

class KritaPluginInstallerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(dir_.isValid());
    locations_.pykrita = dir_.filePath(QStringLiteral("data/krita/pykrita"));
    locations_.kritarc = dir_.filePath(QStringLiteral("config/kritarc"));
    locations_.pythonModules = dir_.filePath(QStringLiteral("dist-packages"));
    givePythonModules(true, Sip::InPyQt5);
  }

  enum class Sip { None, InPyQt5, TopLevel };
  void givePythonModules(bool qtCore, Sip sip) {
    QDir(locations_.pythonModules).removeRecursively();
    const QString pyqt = locations_.pythonModules + QStringLiteral("/PyQt5");
    ASSERT_TRUE(QDir().mkpath(pyqt));
    writeBytes(pyqt + QStringLiteral("/__init__.py"), "");
    writeBytes(pyqt + QStringLiteral("/QtGui.abi3.so"), "");
    if (qtCore) writeBytes(pyqt + QStringLiteral("/QtCore.abi3.so"), "");
    if (sip == Sip::InPyQt5) {
      writeBytes(pyqt + QStringLiteral("/sip.cpython-311-x86_64-linux-gnu.so"), "");
    } else if (sip == Sip::TopLevel) {
      writeBytes(locations_.pythonModules + QStringLiteral("/sip.cpython-311-x86_64-linux-gnu.so"),
                 "");
    }
  }

  QString entryPath() const {
    return locations_.pykrita + QStringLiteral("/tintwell_bridge.desktop");
  }
  QString modulePath() const {
    return locations_.pykrita + QStringLiteral("/tintwell_bridge/__init__.py");
  }
  QByteArray olderModule() const {
    QByteArray text = krita_plugin::module();
    text.replace(QByteArrayLiteral("\nPLUGIN_VERSION = ") +
                     QByteArray::number(krita_plugin::shippedVersion()) + '\n',
                 QByteArrayLiteral("\nPLUGIN_VERSION = 0\n"));
    return text;
  }

  QTemporaryDir dir_;
  KritaLocations locations_;
};

TEST_F(KritaPluginInstallerTest, AnEmptyProfileGetsBothFilesAndTheSwitch) {
  KritaPluginInstaller installer(locations_);
  EXPECT_FALSE(installer.isCurrent());
  EXPECT_EQ(installer.installedVersion(), std::nullopt);
  EXPECT_EQ(installer.install(), std::nullopt);
  EXPECT_EQ(readBytes(entryPath()), krita_plugin::desktopEntry());
  EXPECT_EQ(readBytes(modulePath()), krita_plugin::module());
  EXPECT_EQ(readBytes(locations_.kritarc).toStdString(), "[python]\nenable_tintwell_bridge=true\n");
  EXPECT_EQ(installer.installedVersion(), krita_plugin::shippedVersion());
  EXPECT_TRUE(installer.isCurrent());
}

TEST_F(KritaPluginInstallerTest, AnOlderVersionIsReplacedWithItsByteCode) {
  writeBytes(modulePath(), olderModule());
  writeBytes(entryPath(), "[Desktop Entry]\nName=old\n");
  const QString cache = locations_.pykrita + QStringLiteral("/tintwell_bridge/__pycache__");
  writeBytes(cache + QStringLiteral("/__init__.cpython-311.pyc"), "stale");
  writeBytes(locations_.kritarc, "[python]\nenable_tintwell_bridge=false\n");
  KritaPluginInstaller installer(locations_);
  ASSERT_EQ(installer.installedVersion(), 0);
  EXPECT_FALSE(installer.isCurrent());

  EXPECT_EQ(installer.install(), std::nullopt);
  EXPECT_EQ(readBytes(modulePath()), krita_plugin::module());
  EXPECT_EQ(readBytes(entryPath()), krita_plugin::desktopEntry());
  EXPECT_FALSE(QFileInfo::exists(cache));
  EXPECT_EQ(readBytes(locations_.kritarc).toStdString(), "[python]\nenable_tintwell_bridge=true\n");
  EXPECT_TRUE(installer.isCurrent());
}

TEST_F(KritaPluginInstallerTest, AModuleWithoutAVersionIsReplaced) {
  writeBytes(modulePath(), "print('someone else')\n");
  writeBytes(entryPath(), krita_plugin::desktopEntry());
  KritaPluginInstaller installer(locations_);
  EXPECT_EQ(installer.installedVersion(), std::nullopt);
  EXPECT_FALSE(installer.isCurrent());
  EXPECT_EQ(installer.install(), std::nullopt);
  EXPECT_EQ(readBytes(modulePath()), krita_plugin::module());
}

TEST_F(KritaPluginInstallerTest, TheCurrentVersionWithoutItsDesktopEntryIsNotCurrent) {
  writeBytes(modulePath(), krita_plugin::module());
  KritaPluginInstaller installer(locations_);
  EXPECT_FALSE(installer.isCurrent());
  EXPECT_EQ(installer.install(), std::nullopt);
  EXPECT_EQ(readBytes(entryPath()), krita_plugin::desktopEntry());
}

TEST_F(KritaPluginInstallerTest, ACurrentPluginIsLeftUntouchedAndSoIsTheUsersSwitch) {
  KritaPluginInstaller installer(locations_);
  ASSERT_EQ(installer.install(), std::nullopt);
  // The user turned it off in Krita's Python Plugin Manager since.
  writeBytes(locations_.kritarc, "[python]\nenable_tintwell_bridge=false\n");
  const ino_t module = inode(modulePath());
  const ino_t entry = inode(entryPath());
  const ino_t settings = inode(locations_.kritarc);

  EXPECT_TRUE(installer.isCurrent());
  EXPECT_EQ(installer.install(), std::nullopt);
  EXPECT_EQ(inode(modulePath()), module);
  EXPECT_EQ(inode(entryPath()), entry);
  EXPECT_EQ(inode(locations_.kritarc), settings);
  EXPECT_EQ(readBytes(locations_.kritarc).toStdString(),
            "[python]\nenable_tintwell_bridge=false\n");
}

TEST_F(KritaPluginInstallerTest, AnUnwritablePluginFolderIsAReason) {
  // A file where the plug-in folder has to go.
  writeBytes(locations_.pykrita, "not a folder");
  KritaPluginInstaller installer(locations_);
  const std::optional<QString> failed = installer.install();
  ASSERT_TRUE(failed.has_value());
  EXPECT_TRUE(failed->contains(locations_.pykrita)) << failed->toStdString();
  EXPECT_FALSE(QFileInfo::exists(locations_.kritarc));
}

TEST_F(KritaPluginInstallerTest, TheNoticeSaysWhatGoesWhereAndThatKritaMustRestart) {
  const KritaPluginInstaller installer(locations_);
  const QString shipped = QString::number(krita_plugin::shippedVersion());
  EXPECT_EQ(installer.notice().toStdString(),
            (QStringLiteral("Tintwell adds its plug-in \"Tintwell bridge\" (version ") + shipped +
             QStringLiteral(") to Krita, so that it can set Krita's foreground colour:\n  ") +
             entryPath() + QStringLiteral("\n  ") + modulePath() +
             QStringLiteral("\nand turns it on in ") + locations_.kritarc +
             QStringLiteral(" (enable_tintwell_bridge=true in its [python] group).\n"
                            "Restart Krita (quit it and start it again) to load it; until then "
                            "colours do not reach Krita."))
                .toStdString());
}

TEST_F(KritaPluginInstallerTest, TheNoticeForAnOlderVersionNamesBothVersions) {
  writeBytes(modulePath(), olderModule());
  const KritaPluginInstaller installer(locations_);
  const QString notice = installer.notice();
  EXPECT_TRUE(notice.startsWith(
      QStringLiteral("Tintwell updates its Krita plug-in \"Tintwell bridge\" from version 0 to "
                     "version %1,")
          .arg(krita_plugin::shippedVersion())))
      << notice.toStdString();
  EXPECT_TRUE(notice.contains(QStringLiteral("Restart Krita"))) << notice.toStdString();
}

TEST_F(KritaPluginInstallerTest, TheNoticeForAModuleOfUnknownVersionSaysSo) {
  writeBytes(modulePath(), "print('someone else')\n");
  const QString notice = KritaPluginInstaller(locations_).notice();
  EXPECT_TRUE(notice.startsWith(
      QStringLiteral("Tintwell updates its Krita plug-in \"Tintwell bridge\" from an unknown "
                     "version to version %1,")
          .arg(krita_plugin::shippedVersion())))
      << notice.toStdString();
}

TEST_F(KritaPluginInstallerTest, TheCurrentModuleWithoutItsEntryIsAddedNotUpdated) {
  writeBytes(modulePath(), krita_plugin::module());
  const QString notice = KritaPluginInstaller(locations_).notice();
  EXPECT_TRUE(notice.startsWith(QStringLiteral("Tintwell adds its plug-in")))
      << notice.toStdString();
}

TEST_F(KritaPluginInstallerTest, TheNoticeAsksForTheMissingPythonModules) {
  const QString command = QStringLiteral("\n  sudo apt install python3-pyqt5 python3-sip");
  struct Case {
    const char* name;
    bool qtCore;
    Sip sip;
    bool present;
  };
  for (const Case& c :
       {Case{"everything", true, Sip::InPyQt5, true},
        Case{"sip at the top level", true, Sip::TopLevel, true},
        Case{"no QtCore", false, Sip::InPyQt5, false}, Case{"no sip", true, Sip::None, false}}) {
    SCOPED_TRACE(c.name);
    givePythonModules(c.qtCore, c.sip);
    const KritaPluginInstaller installer(locations_);
    EXPECT_EQ(installer.pythonModulesPresent(), c.present);
    const QString notice = installer.notice();
    EXPECT_EQ(notice.endsWith(command), !c.present) << notice.toStdString();
    EXPECT_EQ(notice.contains(QStringLiteral("PyQt5 and sip, which are not installed")),
              !c.present);
  }
  QDir(locations_.pythonModules).removeRecursively();
  EXPECT_TRUE(KritaPluginInstaller(locations_).notice().endsWith(command));
}

TEST(KritaLocationsTest, TheXdgFoldersWinOverHome) {
  ScopedEnv home("HOME", "/home/someone");
  ScopedEnv data("XDG_DATA_HOME", "/elsewhere/data");
  ScopedEnv config("XDG_CONFIG_HOME", "/elsewhere/config");
  const KritaLocations locations = KritaLocations::fromEnvironment();
  EXPECT_EQ(locations.pykrita.toStdString(), "/elsewhere/data/krita/pykrita");
  EXPECT_EQ(locations.kritarc.toStdString(), "/elsewhere/config/kritarc");
  EXPECT_EQ(locations.pythonModules.toStdString(), "/usr/lib/python3/dist-packages");
}

TEST(KritaLocationsTest, WithoutXdgFoldersHomeIsUsed) {
  ScopedEnv home("HOME", "/home/someone");
  ScopedEnv data("XDG_DATA_HOME", nullptr);
  ScopedEnv config("XDG_CONFIG_HOME", nullptr);
  const KritaLocations locations = KritaLocations::fromEnvironment();
  EXPECT_EQ(locations.pykrita.toStdString(), "/home/someone/.local/share/krita/pykrita");
  EXPECT_EQ(locations.kritarc.toStdString(), "/home/someone/.config/kritarc");
}

}  // namespace
}  // namespace tw
