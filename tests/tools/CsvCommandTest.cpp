#include <gtest/gtest.h>

#include <unistd.h>

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <cstdlib>

#include "tests/support/RunTool.h"

namespace tw {
namespace {

using testing::runTool;

TEST(CsvCommand, StandardInputIsPrintedAsOneJsonObject) {
  const auto run = runTool({"csv"}, "a,b\n1,2\n");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out,
            "{\"columnCount\": 2, \"headers\": [\"a\", \"b\"], \"rows\": [[\"1\", \"2\"]], "
            "\"keyedRows\": [{\"a\": \"1\", \"b\": \"2\"}]}\n");
  EXPECT_EQ(run.err, "");
}

TEST(CsvCommand, FieldsAreVerbatimAndEscapedAsJson) {
  const auto run =
      runTool({"csv"}, "name,code\r\n\"Warm, Red\",  \"\"W/R\"\"\r\n\r\n\"two\nlines\",\t\r\n");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out,
            "{\"columnCount\": 2, \"headers\": [\"name\", \"code\"], \"rows\": "
            "[[\"\\\"Warm, Red\\\"\", \"  \\\"\\\"W/R\\\"\\\"\"], [\"\\\"two\\nlines\\\"\", "
            "\"\\t\"]], \"keyedRows\": [{\"name\": \"\\\"Warm, Red\\\"\", \"code\": "
            "\"  \\\"\\\"W/R\\\"\\\"\"}, {\"name\": \"\\\"two\\nlines\\\"\"}]}\n");
}

TEST(CsvCommand, KeyedRowMembersFollowHeaderOrderAndRepeatedNamesAppearOnce) {
  const auto run = runTool({"csv"}, "z,a,z,m\n1,2,3\n");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out,
            "{\"columnCount\": 4, \"headers\": [\"z\", \"a\", \"z\", \"m\"], \"rows\": "
            "[[\"1\", \"2\", \"3\"]], \"keyedRows\": [{\"z\": \"3\", \"a\": \"2\"}]}\n");
}

TEST(CsvCommand, SeparatorOptionTakesAnyLength) {
  const auto run = runTool({"csv", "--separator", "::"}, "a::b\n1::\"x::y\"::3\n");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out,
            "{\"columnCount\": 2, \"headers\": [\"a\", \"b\"], \"rows\": [[\"1\", "
            "\"\\\"x::y\\\"\", \"3\"]], \"keyedRows\": [{\"a\": \"1\", \"b\": "
            "\"\\\"x::y\\\"\"}]}\n");
  const auto equals = runTool({"csv", "--separator=;"}, "a;b\n1;2\n");
  EXPECT_EQ(equals.exitCode, 0);
  EXPECT_EQ(equals.out,
            "{\"columnCount\": 2, \"headers\": [\"a\", \"b\"], \"rows\": [[\"1\", \"2\"]], "
            "\"keyedRows\": [{\"a\": \"1\", \"b\": \"2\"}]}\n");
}

TEST(CsvCommand, HeadersOptionMakesEveryLineARow) {
  const auto run = runTool({"csv", "--headers", "x,y"}, "a,b\n1\n");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out,
            "{\"columnCount\": 2, \"headers\": [\"x\", \"y\"], \"rows\": [[\"a\", \"b\"], "
            "[\"1\"]], \"keyedRows\": [{\"x\": \"a\", \"y\": \"b\"}, {\"x\": \"1\"}]}\n");
}

TEST(CsvCommand, HeadersWithoutLinesGiveAnEmptyTable) {
  const auto run = runTool({"csv", "--headers", "x,y,z"}, " \n\r\n");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out,
            "{\"columnCount\": 3, \"headers\": [\"x\", \"y\", \"z\"], \"rows\": [], "
            "\"keyedRows\": []}\n");
  const auto none = runTool({"csv", "--headers="}, "");
  EXPECT_EQ(none.exitCode, 0);
  EXPECT_EQ(none.out, "{\"columnCount\": 0, \"headers\": [], \"rows\": [], \"keyedRows\": []}\n");
}

TEST(CsvCommand, NoLinesWithoutHeadersIsAnErrorNotACrash) {
  for (const QByteArray& input :
       {QByteArray(""), QByteArray("\n \n\t\r\n"), QByteArray("\r\n\r\n")}) {
    const auto run = runTool({"csv"}, input);
    EXPECT_EQ(run.exitCode, 1) << input.toStdString();
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(run.err.startsWith("tintwell csv: ")) << run.err.toStdString();
    EXPECT_FALSE(run.err.contains("fatal"));
  }
}

TEST(CsvCommand, FileArgumentIsRead) {
  QTemporaryDir dir;
  ASSERT_TRUE(dir.isValid());
  const QString path = dir.filePath("library.csv");
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  // UTF-8 with a byte order mark, as spreadsheets write it.
  file.write("\xef\xbb\xbfname\tabbr\n\xe7\xba\xa2\tR\n");
  file.close();
  const auto run = runTool({"csv", "--separator", "\t", path}, "ignored,input\n");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out,
            "{\"columnCount\": 2, \"headers\": [\"name\", \"abbr\"], \"rows\": [[\"\xe7\xba\xa2\", "
            "\"R\"]], \"keyedRows\": [{\"name\": \"\xe7\xba\xa2\", \"abbr\": \"R\"}]}\n");
}

TEST(CsvCommand, MissingFileIsReportedWithItsReason) {
  QTemporaryDir dir;
  const QString path = dir.filePath("absent.csv");
  const auto run = runTool({"csv", path});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err,
            "tintwell csv: cannot read " + path.toLocal8Bit() + ": No such file or directory\n");
}

TEST(CsvCommand, AFolderIsReportedAsOne) {
  QTemporaryDir dir;
  const auto run = runTool({"csv", dir.path()});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err,
            "tintwell csv: cannot read " + dir.path().toLocal8Bit() + ": Is a directory\n");
}

TEST(CsvCommand, AFileWithoutReadPermissionIsReportedAsSuch) {
  QTemporaryDir dir;
  const QString path = dir.filePath("locked.csv");
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  file.write("a,b\n1,2\n");
  file.close();
  ASSERT_TRUE(file.setPermissions(QFileDevice::Permissions()));
  // Root reads any file: run the tool without the two capabilities that allow it.
  QStringList command;
  if (::geteuid() == 0)
    command << "setpriv"
            << "--bounding-set=-dac_override,-dac_read_search"
            << "--";
  command << QString::fromLocal8Bit(std::getenv("TINTWELL_BIN")) << "csv" << path;
  QProcess process;
  process.start(command.takeFirst(), command);
  ASSERT_TRUE(process.waitForFinished(60000));
  EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
  EXPECT_EQ(process.exitCode(), 1);
  EXPECT_EQ(process.readAllStandardOutput(), "");
  EXPECT_EQ(process.readAllStandardError(),
            "tintwell csv: cannot read " + path.toLocal8Bit() + ": Permission denied\n");
}

TEST(CsvCommand, BadOptionsAreRejected) {
  for (const QStringList& args : {QStringList{"csv", "--bogus"}, QStringList{"csv", "--separator"},
                                  QStringList{"csv", "--headers"}, QStringList{"csv", "-x"},
                                  QStringList{"csv", "a.csv", "b.csv"}}) {
    const auto run = runTool(args, "a,b\n");
    EXPECT_EQ(run.exitCode, 2) << args.join(' ').toStdString();
    EXPECT_EQ(run.out, "");
    EXPECT_FALSE(run.err.isEmpty());
  }
}

TEST(CsvCommand, HelpDescribesTheOptions) {
  const auto run = runTool({"csv", "--help"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_TRUE(run.out.startsWith("Usage: tintwell csv [--separator S] [--headers a,b,c] [FILE]"));
  EXPECT_TRUE(run.out.contains("--separator"));
  EXPECT_TRUE(run.out.contains("--headers"));
}

TEST(CsvCommand, ALeadingByteOrderMarkIsDroppedAndAnyOtherWrittenEscaped) {
  const auto run = runTool({"csv"}, "\xEF\xBB\xBFk,\xEF\xBB\xBFk\n1,x\xEF\xBB\xBF\n");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out,
            "{\"columnCount\": 2, \"headers\": [\"k\", \"\\ufeffk\"], \"rows\": [[\"1\", "
            "\"x\\ufeff\"]], \"keyedRows\": [{\"k\": \"1\", \"\\ufeffk\": \"x\\ufeff\"}]}\n");
}

TEST(CsvCommand, MalformedUtf8BecomesReplacementCharacters) {
  const auto run = runTool({"csv", "--headers", "h"}, "a\xff\n");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.out,
            "{\"columnCount\": 1, \"headers\": [\"h\"], \"rows\": [[\"a\xef\xbf\xbd\"]], "
            "\"keyedRows\": [{\"h\": \"a\xef\xbf\xbd\"}]}\n");
}

}  // namespace
}  // namespace tw
