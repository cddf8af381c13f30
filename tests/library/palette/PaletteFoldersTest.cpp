#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "library/palette/PaletteFolders.h"
#include "library/palette/PaletteFormats.h"

namespace tw::palette {
namespace {

QProcessEnvironment environmentFor(const QString& home) {
  QProcessEnvironment env;
  env.insert(QStringLiteral("HOME"), home);
  return env;
}

QStringList filesOf(const std::vector<PaletteFolder>& folders) {
  QStringList files;
  for (const PaletteFolder& f : folders) files.append(f.application + u'=' + f.paletteFile);
  return files;
}

TEST(PaletteFolders, DefaultsUnderHome) {
  EXPECT_EQ(filesOf(paletteFolders(environmentFor(QStringLiteral("/home/u")))),
            QStringList({"GIMP=/home/u/.config/GIMP/2.10/palettes/Tintwell.gpl",
                         "Inkscape=/home/u/.config/inkscape/palettes/Tintwell.gpl",
                         "Krita=/home/u/.local/share/krita/palettes/Tintwell.gpl"}));
  const std::vector<PaletteFolder> folders =
      paletteFolders(environmentFor(QStringLiteral("/home/u")));
  EXPECT_EQ(folders[0].profileDir, QStringLiteral("/home/u/.config/GIMP/2.10"));
  EXPECT_EQ(folders[1].profileDir, QStringLiteral("/home/u/.config/inkscape"));
  EXPECT_EQ(folders[2].profileDir, QStringLiteral("/home/u/.local/share/krita"));
  EXPECT_EQ(folders[2].paletteDir, QStringLiteral("/home/u/.local/share/krita/palettes"));
}

TEST(PaletteFolders, FollowTheXdgBasesAndTheApplicationsOwnVariables) {
  QProcessEnvironment env = environmentFor(QStringLiteral("/home/u"));
  env.insert(QStringLiteral("XDG_CONFIG_HOME"), QStringLiteral("/cfg/"));
  env.insert(QStringLiteral("XDG_DATA_HOME"), QStringLiteral("/data"));
  EXPECT_EQ(filesOf(paletteFolders(env)),
            QStringList({"GIMP=/cfg/GIMP/2.10/palettes/Tintwell.gpl",
                         "Inkscape=/cfg/inkscape/palettes/Tintwell.gpl",
                         "Krita=/data/krita/palettes/Tintwell.gpl"}));
  env.insert(QStringLiteral("GIMP2_DIRECTORY"), QStringLiteral("gimp-test"));
  env.insert(QStringLiteral("INKSCAPE_PROFILE_DIR"), QStringLiteral("/ink"));
  EXPECT_EQ(filesOf(paletteFolders(env)),
            QStringList({"GIMP=/home/u/gimp-test/palettes/Tintwell.gpl",
                         "Inkscape=/ink/palettes/Tintwell.gpl",
                         "Krita=/data/krita/palettes/Tintwell.gpl"}));
  env.insert(QStringLiteral("GIMP2_DIRECTORY"), QStringLiteral("/abs/gimp"));
  EXPECT_EQ(paletteFolders(env)[0].paletteFile, QStringLiteral("/abs/gimp/palettes/Tintwell.gpl"));
}

TEST(PaletteFolders, RelativeOrEmptyXdgValuesFallBackAndNoHomeGivesNothing) {
  QProcessEnvironment env = environmentFor(QStringLiteral("/home/u"));
  env.insert(QStringLiteral("XDG_CONFIG_HOME"), QStringLiteral("relative/cfg"));
  env.insert(QStringLiteral("XDG_DATA_HOME"), QString());
  EXPECT_EQ(paletteFolders(env)[0].paletteFile,
            QStringLiteral("/home/u/.config/GIMP/2.10/palettes/Tintwell.gpl"));
  EXPECT_EQ(paletteFolders(env)[2].paletteFile,
            QStringLiteral("/home/u/.local/share/krita/palettes/Tintwell.gpl"));
  EXPECT_TRUE(paletteFolders(QProcessEnvironment()).empty());
  EXPECT_TRUE(paletteFolders(environmentFor(QStringLiteral("home"))).empty());
}

TEST(PaletteSync, CreatesNoProfileForAnApplicationNeverStarted) {
  QTemporaryDir home;
  const Palette palette{QStringLiteral("x"), {{QStringLiteral("Red"), 255, 0, 0}}};
  const SyncReport report = syncPaletteFile(palette, environmentFor(home.path()));
  EXPECT_TRUE(report.written.isEmpty());
  EXPECT_TRUE(report.failed.isEmpty());
  EXPECT_EQ(report.skipped.size(), 3);
  EXPECT_TRUE(QDir(home.path())
                  .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden)
                  .isEmpty());
}

TEST(PaletteSync, WritesIntoExistingProfilesOnlyAndReplacesTheWholeFile) {
  QTemporaryDir home;
  ASSERT_TRUE(QDir().mkpath(home.filePath(QStringLiteral(".config/GIMP/2.10"))));
  ASSERT_TRUE(QDir().mkpath(home.filePath(QStringLiteral(".local/share/krita/palettes"))));
  const QProcessEnvironment env = environmentFor(home.path());
  const Palette first{QStringLiteral("History"),
                      {{QStringLiteral("Red"), 255, 0, 0}, {QStringLiteral("Blue"), 0, 0, 255}}};
  SyncReport report = syncPaletteFile(first, env);
  const QString gimp = home.filePath(QStringLiteral(".config/GIMP/2.10/palettes/Tintwell.gpl"));
  const QString krita = home.filePath(QStringLiteral(".local/share/krita/palettes/Tintwell.gpl"));
  EXPECT_EQ(report.written, QStringList({gimp, krita}));
  EXPECT_EQ(report.skipped,
            QStringList({home.filePath(QStringLiteral(".config/inkscape/palettes/Tintwell.gpl"))}));
  EXPECT_FALSE(QDir(home.filePath(QStringLiteral(".config/inkscape"))).exists());

  Palette titled = first;
  titled.name = QStringLiteral("Tintwell");
  for (const QString& path : {gimp, krita}) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    EXPECT_EQ(file.readAll(), writeGpl(titled));
  }

  const Palette second{QStringLiteral("History"), {{QStringLiteral("Green"), 0, 255, 0}}};
  report = syncPaletteFile(second, env);
  EXPECT_EQ(report.written.size(), 2);
  QFile file(gimp);
  ASSERT_TRUE(file.open(QIODevice::ReadOnly));
  const ReadResult read = readGpl(file.readAll());
  ASSERT_TRUE(read.palette);
  EXPECT_EQ(read.palette->swatches, second.swatches);
  // Only the file itself: no temporary file left beside it.
  EXPECT_EQ(QDir(home.filePath(QStringLiteral(".config/GIMP/2.10/palettes")))
                .entryList(QDir::Files | QDir::Hidden),
            QStringList({"Tintwell.gpl"}));
}

TEST(PaletteSync, AFolderThatCannotBeWrittenIsReportedAndTheOthersStillAre) {
  QTemporaryDir home;
  ASSERT_TRUE(QDir().mkpath(home.filePath(QStringLiteral(".config/GIMP/2.10"))));
  ASSERT_TRUE(QDir().mkpath(home.filePath(QStringLiteral(".config/inkscape"))));
  // A file where the palettes folder should be.
  QFile blocker(home.filePath(QStringLiteral(".config/GIMP/2.10/palettes")));
  ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
  blocker.close();
  const SyncReport report = syncPaletteFile({QStringLiteral("x"), {}}, environmentFor(home.path()));
  ASSERT_EQ(report.failed.size(), 1);
  EXPECT_TRUE(report.failed[0].startsWith(
      home.filePath(QStringLiteral(".config/GIMP/2.10/palettes/Tintwell.gpl: "))))
      << report.failed[0].toStdString();
  EXPECT_EQ(report.written,
            QStringList({home.filePath(QStringLiteral(".config/inkscape/palettes/Tintwell.gpl"))}));
}

}  // namespace
}  // namespace tw::palette
