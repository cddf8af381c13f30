#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "library/names/NameLibraries.h"
#include "library/palette/Palette.h"

namespace tw::names {
namespace {

QString write(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes) {
  const QString path = dir.filePath(name);
  QFile file(path);
  EXPECT_TRUE(file.open(QIODevice::WriteOnly));
  file.write(bytes);
  return path;
}

TEST(NameLibraries, BuiltInRowsComeFirst) {
  QTemporaryDir home;
  const NameLibraries libraries(home.filePath(QStringLiteral("libraries")));
  EXPECT_EQ(libraries.titles(),
            QStringList({QStringLiteral("CSS named colours"), QStringLiteral("X11 colour names"),
                         QStringLiteral("Tango")}));
  EXPECT_EQ(libraries.count(), 3);
  ASSERT_TRUE(libraries.library(0).has_value());
  EXPECT_EQ(libraries.library(0)->size(), 148);
  EXPECT_EQ(libraries.library(1)->size(), 550);
  EXPECT_EQ(libraries.library(2)->size(), 27);
  EXPECT_EQ(libraries.library(2)->entries()[0].name, QStringLiteral("Butter 1"));
  QString error;
  EXPECT_FALSE(libraries.library(3, &error).has_value());
  EXPECT_FALSE(error.isEmpty());
  EXPECT_FALSE(libraries.library(-1).has_value());
}

TEST(NameLibraries, ImportedFilesFollowSortedByName) {
  QTemporaryDir source;
  QTemporaryDir home;
  const NameLibraries libraries(home.filePath(QStringLiteral("Tintwell/libraries")));
  const QString b = write(source, QStringLiteral("brand.csv"), "name,hex\nInk,#101820\n");
  const QString a = write(source, QStringLiteral("Autumn.CSV"), "name,hex\nRust,#8B3A1A\nx,bad\n");
  QString error;
  const auto copied = libraries.importFile(b, &error);
  ASSERT_TRUE(copied.has_value()) << error.toStdString();
  EXPECT_EQ(*copied, home.filePath(QStringLiteral("Tintwell/libraries/brand.csv")));
  ASSERT_TRUE(libraries.importFile(a).has_value());
  EXPECT_EQ(
      libraries.titles(),
      QStringList({QStringLiteral("CSS named colours"), QStringLiteral("X11 colour names"),
                   QStringLiteral("Tango"), QStringLiteral("Autumn"), QStringLiteral("brand")}));
  EXPECT_EQ(libraries.count(), 5);
  const auto autumn = libraries.library(3);
  ASSERT_TRUE(autumn.has_value());
  EXPECT_EQ(autumn->title(), QStringLiteral("Autumn"));
  ASSERT_EQ(autumn->size(), 1);
  EXPECT_EQ(autumn->entries()[0].name, QStringLiteral("Rust"));
  EXPECT_EQ(libraries.library(4)->entries()[0].name, QStringLiteral("Ink"));
  EXPECT_FALSE(libraries.library(5).has_value());

  // A second import of the same name replaces the first.
  write(source, QStringLiteral("brand.csv"), "name,hex\nPaper,#F5F5F0\n");
  ASSERT_TRUE(libraries.importFile(b).has_value());
  EXPECT_EQ(libraries.count(), 5);
  EXPECT_EQ(libraries.library(4)->entries()[0].name, QStringLiteral("Paper"));
}

TEST(NameLibraries, ImportRefusesWhatCannotBeALibrary) {
  QTemporaryDir source;
  QTemporaryDir home;
  const NameLibraries libraries(home.path());
  QString error;
  EXPECT_FALSE(libraries.importFile(write(source, QStringLiteral("x.txt"), "name,hex\na,#000000\n"),
                                    &error));
  EXPECT_EQ(error, QStringLiteral("not a .csv, .gpl or .ase file"));
  EXPECT_FALSE(
      libraries.importFile(write(source, QStringLiteral("none.csv"), "name,hex\na,zz\n"), &error));
  EXPECT_EQ(error, QStringLiteral("no colour in it"));
  EXPECT_FALSE(
      libraries.importFile(write(source, QStringLiteral("cols.csv"), "a,b\n1,2\n"), &error));
  EXPECT_EQ(error, QStringLiteral("no \"name\" column"));
  EXPECT_FALSE(libraries.importFile(source.filePath(QStringLiteral("missing.csv")), &error));
  EXPECT_FALSE(error.isEmpty());
  EXPECT_EQ(libraries.count(), 3);
}

TEST(NameLibraries, AFileGoneOrBrokenAfterListingGivesNoLibrary) {
  QTemporaryDir home;
  const NameLibraries libraries(home.path());
  write(home, QStringLiteral("broken.csv"), "no,columns\n");
  EXPECT_EQ(libraries.count(), 4);
  QString error;
  EXPECT_FALSE(libraries.library(3, &error).has_value());
  EXPECT_EQ(error, QStringLiteral("no \"name\" column"));
}

palette::Palette brandPalette() {
  return {QStringLiteral("Brand colours"),
          {{QStringLiteral("Ink, deep"), 16, 24, 32},
           {QString(), 1, 2, 3},
           {QStringLiteral("Paper"), 245, 245, 240},
           {QString::fromUtf8("Ros\xc3\xa9"), 210, 150, 160}}};
}

TEST(NameLibraries, GimpAndSwatchExchangePalettesImportAndList) {
  QTemporaryDir source;
  QTemporaryDir home;
  const NameLibraries libraries(home.path());
  const QString gpl = write(source, QStringLiteral("brand.gpl"),
                            palette::writePalette(brandPalette(), palette::Format::Gpl));
  const QString ase = write(source, QStringLiteral("Autumn.ASE"),
                            palette::writePalette(brandPalette(), palette::Format::Ase));
  QString error;
  ASSERT_TRUE(libraries.importFile(gpl, &error).has_value()) << error.toStdString();
  ASSERT_TRUE(libraries.importFile(ase, &error).has_value()) << error.toStdString();
  // A file that is none of the three stays out of the list.
  write(home, QStringLiteral("notes.txt"), "name,hex\nx,#000000\n");
  EXPECT_EQ(
      libraries.titles(),
      QStringList({QStringLiteral("CSS named colours"), QStringLiteral("X11 colour names"),
                   QStringLiteral("Tango"), QStringLiteral("Autumn"), QStringLiteral("brand")}));
  for (int row : {3, 4}) {
    SCOPED_TRACE(row);
    const auto library = libraries.library(row, &error);
    ASSERT_TRUE(library.has_value()) << error.toStdString();
    // Titled like its row, swatches in file order, the unnamed one left out.
    EXPECT_EQ(library->title(), row == 3 ? QStringLiteral("Autumn") : QStringLiteral("brand"));
    ASSERT_EQ(library->size(), 3);
    EXPECT_EQ(library->entries()[0].name, QStringLiteral("Ink, deep"));
    EXPECT_EQ(library->entries()[1].name, QStringLiteral("Paper"));
    EXPECT_EQ(library->entries()[2].name, QString::fromUtf8("Ros\xc3\xa9"));
    const auto nearest = library->nearest(245, 245, 241, 1);
    ASSERT_EQ(nearest.size(), 1u);
    EXPECT_EQ(nearest[0].entry.name, QStringLiteral("Paper"));
  }
  const CsvLoad load = loadLibraryFile(gpl);
  EXPECT_EQ(load.error, QString());
  EXPECT_EQ(load.skippedRows, 1);
  EXPECT_EQ(load.library.size(), 3);
}

TEST(NameLibraries, BrokenPaletteFilesAreRefusedWithAReason) {
  QTemporaryDir source;
  QTemporaryDir home;
  const NameLibraries libraries(home.path());
  const QByteArray ase = palette::writePalette(brandPalette(), palette::Format::Ase);
  const QString cut = write(source, QStringLiteral("cut.ase"), ase.left(ase.size() - 3));
  QString error;
  EXPECT_FALSE(libraries.importFile(cut, &error).has_value());
  EXPECT_FALSE(error.isEmpty());
  EXPECT_EQ(error, loadLibraryFile(cut).error);
  // CSV bytes under a palette suffix are read as that palette, and refused.
  const QString csv = write(source, QStringLiteral("table.gpl"), "name,hex\nInk,#101820\n");
  EXPECT_FALSE(libraries.importFile(csv, &error).has_value());
  EXPECT_FALSE(error.isEmpty());
  // A palette without one named swatch names nothing.
  const palette::Palette unnamed{QStringLiteral("x"), {{QString(), 1, 2, 3}}};
  const QString blank = write(source, QStringLiteral("blank.gpl"),
                              palette::writePalette(unnamed, palette::Format::Gpl));
  EXPECT_FALSE(libraries.importFile(blank, &error).has_value());
  EXPECT_EQ(error, QStringLiteral("no colour in it"));
  EXPECT_EQ(libraries.count(), 3);
  EXPECT_TRUE(QDir(home.path()).entryList(QDir::Files).isEmpty());
}

TEST(NameLibraries, DefaultFolderIsUnderTheDataHome) {
  QTemporaryDir home;
  const QByteArray saved = qgetenv("XDG_DATA_HOME");
  qputenv("XDG_DATA_HOME", home.path().toLocal8Bit());
  EXPECT_EQ(NameLibraries::defaultFolder(), home.path() + QStringLiteral("/Tintwell/libraries"));
  if (saved.isNull()) {
    qunsetenv("XDG_DATA_HOME");
  } else {
    qputenv("XDG_DATA_HOME", saved);
  }
}

}  // namespace
}  // namespace tw::names
