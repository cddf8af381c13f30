#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include "library/palette/Palette.h"
#include "tests/support/RunTool.h"

namespace tw {
namespace {

using testing::runTool;

TEST(NameCommand, NearestCssNameByDefault) {
  const auto run = runTool({"name", "255", "99", "71"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out, "tomato\t#FF6347\t0.00\n");
  EXPECT_EQ(run.err, "");
}

TEST(NameCommand, SeveralNamesNearestFirstWithTwoDecimals) {
  const auto run = runTool({"name", "250", "100", "70", "-n", "3"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out, "tomato\t#FF6347\t0.93\ncoral\t#FF7F50\t6.90\norangered\t#FF4500\t7.72\n");
}

TEST(NameCommand, HexWithOrWithoutHashAndAliasesInLibraryOrder) {
  const auto run = runTool({"name", "#00ffff", "-n", "2"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out, "aqua\t#00FFFF\t0.00\ncyan\t#00FFFF\t0.00\n");
  EXPECT_EQ(runTool({"name", "FF00FF"}).out, "fuchsia\t#FF00FF\t0.00\n");
}

TEST(NameCommand, X11Library) {
  const auto run = runTool({"name", "190", "190", "190", "--library", "x11"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out, "gray\t#BEBEBE\t0.00\n");
  EXPECT_EQ(runTool({"name", "127", "127", "127", "--library=x11"}).out, "gray50\t#7F7F7F\t0.00\n");
  EXPECT_EQ(runTool({"name", "128", "128", "128", "--library", "css"}).out,
            "gray\t#808080\t0.00\n");
}

TEST(NameCommand, TangoLibrary) {
  const auto run = runTool({"name", "#3465A4", "--library", "tango", "-n", "2"});
  EXPECT_EQ(run.exitCode, 0);
  ASSERT_TRUE(run.out.startsWith("Sky Blue 2\t#3465A4\t0.00\nSky Blue ")) << run.out.toStdString();
}

TEST(NameCommand, CsvLibraryFileWithCodesAndSkippedRows) {
  QTemporaryDir dir;
  const QString path = dir.filePath("brand.csv");
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  file.write("Name,Hex,Code\n\"Ink, deep\",#101820,K1\nPaper,F5F5F0,\nbroken,#12\n");
  file.close();
  const auto run = runTool({"name", "16", "24", "32", "--library", path, "-n", "5"});
  EXPECT_EQ(run.exitCode, 0);
  ASSERT_TRUE(run.out.startsWith("Ink, deep\t#101820\t0.00\tK1\nPaper\t#F5F5F0\t"));
  EXPECT_EQ(run.out.count('\n'), 2);
  EXPECT_EQ(run.err, "tintwell name: " + path.toLocal8Bit() +
                         ": rows without a name or a valid colour left out: 1\n");
}

TEST(NameCommand, ControlCharactersInNamesPrintAsBlanks) {
  QTemporaryDir dir;
  const QString path = dir.filePath("odd.csv");
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  file.write("name,hex\n\"two\nlines\ttab\",#000000\n");
  file.close();
  EXPECT_EQ(runTool({"name", "0", "0", "0", "--library", path}).out,
            "two lines tab\t#000000\t0.00\n");
}

TEST(NameCommand, UnreadableOrEmptyLibraryExitsOne) {
  QTemporaryDir dir;
  const auto missing = runTool({"name", "1", "2", "3", "--library", dir.filePath("none.csv")});
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.out, "");
  EXPECT_TRUE(missing.err.startsWith("tintwell name: cannot read ")) << missing.err.constData();

  const auto folder = runTool({"name", "1", "2", "3", "--library", dir.path()});
  EXPECT_EQ(folder.exitCode, 1);
  EXPECT_TRUE(folder.err.endsWith(": is a directory\n")) << folder.err.constData();

  const QString path = dir.filePath("nothing.csv");
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  file.write("name,hex\n");
  file.close();
  const auto empty = runTool({"name", "1", "2", "3", "--library", path});
  EXPECT_EQ(empty.exitCode, 1);
  EXPECT_EQ(empty.err, "tintwell name: " + path.toLocal8Bit() + " holds no colour\n");

  const QString noColumns = dir.filePath("cols.csv");
  QFile other(noColumns);
  ASSERT_TRUE(other.open(QIODevice::WriteOnly));
  other.write("label,hex\nx,#000000\n");
  other.close();
  const auto columns = runTool({"name", "1", "2", "3", "--library", noColumns});
  EXPECT_EQ(columns.exitCode, 1);
  EXPECT_EQ(columns.err,
            "tintwell name: cannot read " + noColumns.toLocal8Bit() + ": no \"name\" column\n");
}

QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes) {
  const QString path = dir.filePath(name);
  QFile file(path);
  EXPECT_TRUE(file.open(QIODevice::WriteOnly));
  file.write(bytes);
  return path;
}

const palette::Palette kBrand{QStringLiteral("Brand"),
                              {{QStringLiteral("Ink, deep"), 16, 24, 32},
                               {QString(), 17, 24, 32},
                               {QStringLiteral("Paper"), 245, 245, 240}}};

TEST(NameCommand, GimpPaletteAsLibrary) {
  QTemporaryDir dir;
  const QString path =
      writeFile(dir, "brand.gpl", palette::writePalette(kBrand, palette::Format::Gpl));
  const auto run = runTool({"name", "16", "24", "32", "--library", path, "-n", "5"});
  EXPECT_EQ(run.exitCode, 0) << run.err.constData();
  ASSERT_TRUE(run.out.startsWith("Ink, deep\t#101820\t0.00\nPaper\t#F5F5F0\t"))
      << run.out.constData();
  EXPECT_EQ(run.out.count('\n'), 2);
  // The swatch without a name is left out, and said so.
  EXPECT_EQ(run.err, "tintwell name: " + path.toLocal8Bit() +
                         ": rows without a name or a valid colour left out: 1\n");
}

TEST(NameCommand, SwatchExchangeFileAsLibraryAnySuffixCase) {
  QTemporaryDir dir;
  const QString path =
      writeFile(dir, "brand.ASE", palette::writePalette(kBrand, palette::Format::Ase));
  const auto run = runTool({"name", "#F4F4F0", "--library", path});
  EXPECT_EQ(run.exitCode, 0) << run.err.constData();
  EXPECT_TRUE(run.out.startsWith("Paper\t#F5F5F0\t")) << run.out.constData();
  EXPECT_EQ(run.out.count('\n'), 1);
}

TEST(NameCommand, BrokenSwatchExchangeFileExitsOneWithTheReason) {
  QTemporaryDir dir;
  const QByteArray ase = palette::writePalette(kBrand, palette::Format::Ase);
  const QString path = writeFile(dir, "cut.ase", ase.left(ase.size() - 3));
  const auto run = runTool({"name", "1", "2", "3", "--library", path});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out, "");
  const QByteArray prefix = "tintwell name: cannot read " + path.toLocal8Bit() + ": ";
  EXPECT_TRUE(run.err.startsWith(prefix)) << run.err.constData();
  EXPECT_GT(run.err.size(), prefix.size() + 1);
  EXPECT_TRUE(run.err.endsWith("\n"));
}

TEST(NameCommand, BadUsageExitsTwoWithAMessage) {
  const QList<QStringList> bad = {
      {"name"},
      {"name", "1", "2"},
      {"name", "1", "2", "256"},
      {"name", "1", "2", "-3"},
      {"name", "1", "2", "3", "4"},
      {"name", "#12345"},
      {"name", "#12345G"},
      {"name", "1", "2", "3", "-n"},
      {"name", "1", "2", "3", "-n", "0"},
      {"name", "1", "2", "3", "-n", "x"},
      {"name", "1", "2", "3", "--library"},
      {"name", "1", "2", "3", "--library="},
      {"name", "1", "2", "3", "--bogus"},
  };
  for (const QStringList& args : bad) {
    const auto run = runTool(args);
    EXPECT_EQ(run.exitCode, 2) << args.join(' ').toStdString();
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(run.err.startsWith("tintwell name: ")) << run.err.constData();
    EXPECT_TRUE(run.err.endsWith("Try 'tintwell name --help'.\n"));
  }
}

TEST(NameCommand, HelpAndTopLevelUsageDescribeTheCommand) {
  const auto help = runTool({"name", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_TRUE(help.out.startsWith("Usage: tintwell name R G B"));
  EXPECT_TRUE(help.out.contains("NAME  #RRGGBB  DIFFERENCE [CODE]"));
  const auto top = runTool({"--help"});
  EXPECT_TRUE(top.out.contains("  name R G B|#RRGGBB [--library css|x11|tango|FILE] [-n N]\n"));
}

}  // namespace
}  // namespace tw
