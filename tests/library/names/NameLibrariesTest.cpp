#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "library/names/NameLibraries.h"

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
  EXPECT_EQ(libraries.titles(),
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
  EXPECT_EQ(error, QStringLiteral("not a .csv file"));
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
