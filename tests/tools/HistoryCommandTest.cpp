#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <vector>

#include "color/ColorNotations.h"
#include "library/history/HistoryStore.h"
#include "tests/support/RunTool.h"
#include "tools/HistoryCommand.h"

namespace tw {
namespace {

using history::Entry;
using history::Source;
using testing::runTool;
using testing::ToolRun;

// "Ink, "deep" Tintë 墨": a comma, quotes and letters outside ASCII.
const QString kInkAlias = QString::fromUtf8("Ink, \"deep\" Tint\xc3\xab \xe5\xa2\xa8");

qint64 utcMs(const char* iso) {
  const QDateTime at = QDateTime::fromString(QString::fromLatin1(iso), Qt::ISODateWithMs);
  EXPECT_TRUE(at.isValid()) << iso;
  return at.toMSecsSinceEpoch();
}

Entry entry(qint64 timeMs, Source source, int r, int g, int b, const QString& alias = {},
            bool starred = false) {
  Entry e;
  e.timeMs = timeMs;
  e.source = source;
  e.red = r;
  e.green = g;
  e.blue = b;
  e.alias = alias;
  e.starred = starred;
  return e;
}

// Writes the colours into a new history file (ids 1, 2, … in this order).
void fillHistory(const QString& path, const std::vector<Entry>& entries) {
  history::HistoryStore::Options options;
  options.path = path;
  history::HistoryStore store(options);
  ASSERT_EQ(store.importEntries(entries), static_cast<qint64>(entries.size()));
}

// Three colours, oldest first: a pen colour without a name, a starred screen
// colour with an awkward name, an imported one.
std::vector<Entry> sampleEntries() {
  return {entry(utcMs("2026-01-02T03:04:05Z"), Source::Pen, 255, 99, 71),
          entry(utcMs("2026-03-04T10:20:30Z"), Source::Screen, 16, 24, 32, kInkAlias, true),
          entry(utcMs("2026-05-06T23:59:59.500Z"), Source::Imported, 0, 128, 255,
                QStringLiteral("Sky"))};
}

QProcessEnvironment utcEnvironment() {
  QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
  environment.insert(QStringLiteral("TZ"), QStringLiteral("UTC"));
  return environment;
}

// `tintwell <command> args…` with the child's local time set to UTC.
ToolRun run(const QString& command, const QStringList& args) {
  return runTool(QStringList{command} + args, {}, utcEnvironment());
}

QByteArray readBytes(const QString& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return {};
  return file.readAll();
}

void writeBytes(const QString& path, const QByteArray& bytes) {
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  ASSERT_EQ(file.write(bytes), bytes.size());
}

// `tintwell csv FILE` on the bytes, as parsed JSON.
QJsonObject readThroughCsvCommand(const QByteArray& bytes) {
  QTemporaryDir dir;
  const QString path = dir.filePath(QStringLiteral("table.csv"));
  writeBytes(path, bytes);
  const ToolRun csv = runTool({QStringLiteral("csv"), path});
  EXPECT_EQ(csv.exitCode, 0) << csv.err.constData();
  return QJsonDocument::fromJson(csv.out).object();
}

class HistoryCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(dir_.isValid());
    database_ = dir_.filePath(QStringLiteral("history.sqlite"));
    fillHistory(database_, sampleEntries());
  }

  ToolRun history(const QStringList& args) {
    return run(QStringLiteral("history"),
               QStringList{QStringLiteral("--database"), database_} + args);
  }

  QTemporaryDir dir_;
  QString database_;
};

TEST_F(HistoryCommand, PlainLinesNewestFirstInLocalTime) {
  const ToolRun out = history({});
  EXPECT_EQ(out.exitCode, 0);
  EXPECT_EQ(out.err, "");
  EXPECT_EQ(QString::fromUtf8(out.out),
            QStringLiteral("2026-05-06 23:59:59\timported\t#0080FF\t-\tSky\n") +
                QStringLiteral("2026-03-04 10:20:30\tscreen\t#101820\t*\t") + kInkAlias +
                QStringLiteral("\n2026-01-02 03:04:05\tpen\t#FF6347\t-\t\n"));
}

TEST_F(HistoryCommand, PlainTimesFollowTheLocalZone) {
  QProcessEnvironment tokyo = QProcessEnvironment::systemEnvironment();
  tokyo.insert(QStringLiteral("TZ"), QStringLiteral("Asia/Tokyo"));
  const ToolRun out =
      runTool({QStringLiteral("history"), QStringLiteral("--database"), database_}, {}, tokyo);
  EXPECT_EQ(out.exitCode, 0);
  // Tokyo is UTC+9 all year.
  EXPECT_TRUE(out.out.startsWith("2026-05-07 08:59:59\timported\t")) << out.out.constData();
}

TEST_F(HistoryCommand, PlainNamesKeepToOneLineAndOneColumn) {
  QTemporaryDir dir;
  const QString path = dir.filePath(QStringLiteral("odd.sqlite"));
  fillHistory(path, {entry(utcMs("2026-01-01T00:00:00Z"), Source::Pen, 1, 2, 3,
                           QStringLiteral("tab\there\r\nnext"))});
  const ToolRun out = run(QStringLiteral("history"), {QStringLiteral("--database"), path});
  EXPECT_EQ(out.exitCode, 0);
  EXPECT_EQ(out.out, "2026-01-01 00:00:00\tpen\t#010203\t-\ttab here  next\n");
}

TEST_F(HistoryCommand, JsonHasEveryFieldNewestFirst) {
  const ToolRun out = history({QStringLiteral("--json")});
  EXPECT_EQ(out.exitCode, 0);
  EXPECT_EQ(out.err, "");
  QJsonParseError error;
  const QJsonDocument document = QJsonDocument::fromJson(out.out, &error);
  ASSERT_EQ(error.error, QJsonParseError::NoError) << out.out.constData();
  ASSERT_TRUE(document.isArray());
  const QJsonArray array = document.array();
  ASSERT_EQ(array.size(), 3);

  struct Expected {
    int id;
    const char* time;
    const char* source;
    const char* hex;
    int red, green, blue;
    QString alias;
    bool starred;
  };
  const Expected expected[] = {
      {3, "2026-05-06T23:59:59.500Z", "imported", "#0080FF", 0, 128, 255, QStringLiteral("Sky"),
       false},
      {2, "2026-03-04T10:20:30.000Z", "screen", "#101820", 16, 24, 32, kInkAlias, true},
      {1, "2026-01-02T03:04:05.000Z", "pen", "#FF6347", 255, 99, 71, QString(), false},
  };
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    const QJsonObject object = array.at(i).toObject();
    EXPECT_EQ(object.keys().size(), 9);
    EXPECT_EQ(object.value(QStringLiteral("id")).toInt(), expected[i].id);
    EXPECT_EQ(object.value(QStringLiteral("time")).toString(),
              QString::fromLatin1(expected[i].time));
    EXPECT_EQ(object.value(QStringLiteral("source")).toString(),
              QString::fromLatin1(expected[i].source));
    EXPECT_EQ(object.value(QStringLiteral("hex")).toString(), QString::fromLatin1(expected[i].hex));
    EXPECT_EQ(object.value(QStringLiteral("red")).toInt(-1), expected[i].red);
    EXPECT_EQ(object.value(QStringLiteral("green")).toInt(-1), expected[i].green);
    EXPECT_EQ(object.value(QStringLiteral("blue")).toInt(-1), expected[i].blue);
    ASSERT_TRUE(object.value(QStringLiteral("alias")).isString());
    EXPECT_EQ(object.value(QStringLiteral("alias")).toString(), expected[i].alias);
    ASSERT_TRUE(object.value(QStringLiteral("starred")).isBool());
    EXPECT_EQ(object.value(QStringLiteral("starred")).toBool(), expected[i].starred);
  }
}

TEST_F(HistoryCommand, CsvReadsBackThroughTheCsvCommand) {
  const ToolRun out = history({QStringLiteral("--csv")});
  EXPECT_EQ(out.exitCode, 0);
  EXPECT_EQ(out.err, "");
  const QJsonObject table = readThroughCsvCommand(out.out);
  const QJsonArray headers{"id",  "time", "source", "hex", "red",   "green",  "blue",
                           "rgb", "cmyk", "hsb",    "lab", "alias", "starred"};
  EXPECT_EQ(table.value(QStringLiteral("headers")).toArray(), headers);
  EXPECT_EQ(table.value(QStringLiteral("columnCount")).toInt(), 13);
  const QJsonArray rows = table.value(QStringLiteral("rows")).toArray();
  ASSERT_EQ(rows.size(), 3);

  const auto notations = convertToAllColor(16, 24, 32);
  ASSERT_TRUE(notations);
  // The reader keeps quotes as they stand: the name comes back quoted, inner
  // quotes doubled.
  QString quotedAlias = kInkAlias;
  quotedAlias.replace(QStringLiteral("\""), QStringLiteral("\"\""));
  quotedAlias = u'"' + quotedAlias + u'"';
  const QJsonArray ink{"2",
                       "2026-03-04T10:20:30.000Z",
                       "screen",
                       "#101820",
                       "16",
                       "24",
                       "32",
                       "16  24  32",
                       notations->txtCMYK,
                       notations->txtHSB,
                       notations->txtLAB.trimmed(),
                       quotedAlias,
                       "1"};
  EXPECT_EQ(rows.at(1).toArray(), ink);

  const QJsonArray sky = rows.at(0).toArray();
  ASSERT_EQ(sky.size(), 13);
  EXPECT_EQ(sky.at(0).toString(), QStringLiteral("3"));
  EXPECT_EQ(sky.at(1).toString(), QStringLiteral("2026-05-06T23:59:59.500Z"));
  EXPECT_EQ(sky.at(2).toString(), QStringLiteral("imported"));
  EXPECT_EQ(sky.at(7).toString(), QStringLiteral("0  128  255"));
  EXPECT_EQ(sky.at(11).toString(), QStringLiteral("Sky"));
  EXPECT_EQ(sky.at(12).toString(), QStringLiteral("0"));

  const QJsonArray pen = rows.at(2).toArray();
  ASSERT_EQ(pen.size(), 13);
  EXPECT_EQ(pen.at(2).toString(), QStringLiteral("pen"));
  EXPECT_EQ(pen.at(3).toString(), QStringLiteral("#FF6347"));
  EXPECT_EQ(pen.at(11).toString(), QString());
  // The notations are the panel's, not blanks.
  for (int column = 8; column <= 10; ++column)
    EXPECT_FALSE(pen.at(column).toString().trimmed().isEmpty()) << column;
}

TEST_F(HistoryCommand, SinceADateOrADateAndTime) {
  EXPECT_EQ(history({QStringLiteral("--since"), QStringLiteral("2026-03-04")}).out.count('\n'), 2);
  EXPECT_EQ(history({QStringLiteral("--since"), QStringLiteral("2026-03-05")}).out.count('\n'), 1);
  // At or after: the colour of exactly that second is in.
  const ToolRun at = history({QStringLiteral("--since"), QStringLiteral("2026-03-04T10:20:30")});
  EXPECT_EQ(at.exitCode, 0);
  EXPECT_EQ(at.out.count('\n'), 2);
  const ToolRun after = history({QStringLiteral("--since"), QStringLiteral("2026-03-04T10:20:31")});
  EXPECT_EQ(after.exitCode, 0);
  EXPECT_TRUE(after.out.startsWith("2026-05-06 23:59:59\timported\t"));
  EXPECT_EQ(after.out.count('\n'), 1);
  // An explicit offset wins over the local zone: 12:20 at +02:00 is 10:20 UTC.
  EXPECT_EQ(history({QStringLiteral("--since"), QStringLiteral("2026-03-04T12:20:31+02:00")})
                .out.count('\n'),
            1);
  EXPECT_EQ(history({QStringLiteral("--since"), QStringLiteral("2026-03-04T12:20:30+02:00")})
                .out.count('\n'),
            2);
  EXPECT_EQ(
      history({QStringLiteral("--since"), QStringLiteral("2027-01-01"), QStringLiteral("--json")})
          .out,
      "[]\n");
}

TEST(HistoryCommandSince, AnAgeCountsBackFromNow) {
  QTemporaryDir dir;
  const QString path = dir.filePath(QStringLiteral("recent.sqlite"));
  const qint64 now = QDateTime::currentMSecsSinceEpoch();
  fillHistory(path,
              {entry(now - 3 * 86400 * 1000LL, Source::Pen, 3, 3, 3, QStringLiteral("three days")),
               entry(now - 3600 * 1000LL, Source::Pen, 1, 1, 1, QStringLiteral("an hour"))});
  const auto since = [&path](const char* age) {
    const ToolRun out = run(
        QStringLiteral("history"),
        {QStringLiteral("--database"), path, QStringLiteral("--since"), QString::fromLatin1(age)});
    EXPECT_EQ(out.exitCode, 0) << age;
    return out.out;
  };
  const QByteArray twoDays = since("2d");
  EXPECT_EQ(twoDays.count('\n'), 1);
  EXPECT_TRUE(twoDays.endsWith("\tan hour\n")) << twoDays.constData();
  EXPECT_EQ(since("90m").count('\n'), 1);
  EXPECT_EQ(since("30m"), "");
  EXPECT_EQ(since("4d").count('\n'), 2);
  EXPECT_EQ(since("1w").count('\n'), 2);
  EXPECT_EQ(since("71h").count('\n'), 1);
  EXPECT_EQ(since("600s"), "");
}

TEST_F(HistoryCommand, BadUsageExitsTwo) {
  for (const QStringList& args :
       {QStringList{QStringLiteral("--since"), QStringLiteral("yesterday")},
        QStringList{QStringLiteral("--since"), QStringLiteral("3x")},
        QStringList{QStringLiteral("--since"), QStringLiteral("-3d")},
        QStringList{QStringLiteral("--since"), QStringLiteral("2026-13-01")},
        QStringList{QStringLiteral("--since"), QString()}}) {
    const ToolRun out = history(args);
    EXPECT_EQ(out.exitCode, 2) << args.join(u' ').toStdString();
    EXPECT_EQ(out.out, "");
    EXPECT_TRUE(out.err.startsWith("tintwell history: not a time: ")) << out.err.constData();
    EXPECT_TRUE(out.err.endsWith("Try 'tintwell history --help'.\n")) << out.err.constData();
  }
  const ToolRun both = history({QStringLiteral("--json"), QStringLiteral("--csv")});
  EXPECT_EQ(both.exitCode, 2);
  EXPECT_EQ(both.out, "");
  EXPECT_TRUE(both.err.startsWith("tintwell history: --json and --csv exclude each other\n"))
      << both.err.constData();
  const ToolRun unknown = history({QStringLiteral("--newest")});
  EXPECT_EQ(unknown.exitCode, 2);
  EXPECT_EQ(unknown.out, "");
  EXPECT_TRUE(unknown.err.startsWith("tintwell history: unexpected argument: --newest\n"))
      << unknown.err.constData();
  EXPECT_EQ(history({QStringLiteral("stray")}).exitCode, 2);
  const ToolRun noValue = history({QStringLiteral("--since")});
  EXPECT_EQ(noValue.exitCode, 2);
  EXPECT_TRUE(noValue.err.startsWith("tintwell history: --since needs a value\n"))
      << noValue.err.constData();
}

TEST(HistoryCommandFile, MissingDatabaseIsAnEmptyHistoryAndIsNotCreated) {
  QTemporaryDir dir;
  const QString path = dir.filePath(QStringLiteral("none.sqlite"));
  const ToolRun plain = run(QStringLiteral("history"), {QStringLiteral("--database"), path});
  EXPECT_EQ(plain.exitCode, 0);
  EXPECT_EQ(plain.out, "");
  EXPECT_EQ(plain.err, "");
  const ToolRun json = run(QStringLiteral("history"),
                           {QStringLiteral("--database"), path, QStringLiteral("--json")});
  EXPECT_EQ(json.exitCode, 0);
  EXPECT_EQ(json.out, "[]\n");
  EXPECT_FALSE(QFileInfo::exists(path));

  const QString deep = dir.filePath(QStringLiteral("no/such/folder/history.sqlite"));
  const ToolRun nested = run(QStringLiteral("history"), {QStringLiteral("--database"), deep});
  EXPECT_EQ(nested.exitCode, 0);
  EXPECT_EQ(nested.out, "");
  EXPECT_FALSE(QFileInfo::exists(dir.filePath(QStringLiteral("no"))));
  EXPECT_EQ(QDir(dir.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList());
}

TEST(HistoryCommandFile, CorruptDatabaseExitsOneAndIsLeftAlone) {
  QTemporaryDir dir;
  const QString path = dir.filePath(QStringLiteral("history.sqlite"));
  QByteArray garbage;
  for (int i = 0; i < 8192; ++i) garbage.append(static_cast<char>((i * 131 + 7) % 251));
  writeBytes(path, garbage);
  for (const char* command : {"history", "export"}) {
    SCOPED_TRACE(command);
    QStringList args{QStringLiteral("--database"), path};
    if (QByteArray(command) == "export")
      args << QStringLiteral("--format") << QStringLiteral("gpl");
    const ToolRun out = run(QString::fromLatin1(command), args);
    EXPECT_EQ(out.exitCode, 1);
    EXPECT_EQ(out.out, "");
    EXPECT_TRUE(out.err.startsWith("tintwell " + QByteArray(command) + ": History: "))
        << out.err.constData();
    EXPECT_EQ(readBytes(path), garbage);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
              QStringList{QStringLiteral("history.sqlite")});
  }
}

// --- parseSince --------------------------------------------------------------

TEST(ParseSince, AgesCountBackFromNow) {
  const QDateTime now(QDate(2026, 11, 25), QTime(12, 0), Qt::UTC);
  EXPECT_EQ(parseSince(QStringLiteral("45s"), now), now.addSecs(-45));
  EXPECT_EQ(parseSince(QStringLiteral("90m"), now), now.addSecs(-90 * 60));
  EXPECT_EQ(parseSince(QStringLiteral("12h"), now), now.addSecs(-12 * 3600));
  EXPECT_EQ(parseSince(QStringLiteral("7d"), now), now.addDays(-7));
  EXPECT_EQ(parseSince(QStringLiteral("2w"), now), now.addDays(-14));
  EXPECT_EQ(parseSince(QStringLiteral("0s"), now), now);
  EXPECT_EQ(parseSince(QStringLiteral(" 3h "), now), now.addSecs(-3 * 3600));
}

TEST(ParseSince, DateIsTheLocalStartOfThatDay) {
  const QDateTime now = QDateTime::currentDateTime();
  const auto day = parseSince(QStringLiteral("2026-11-25"), now);
  ASSERT_TRUE(day);
  EXPECT_EQ(*day, QDate(2026, 11, 25).startOfDay());
  EXPECT_EQ(day->timeSpec(), Qt::LocalTime);
}

TEST(ParseSince, DateAndTimeLocalUnlessItSaysOtherwise) {
  const QDateTime now = QDateTime::currentDateTime();
  EXPECT_EQ(parseSince(QStringLiteral("2026-11-25T14:30"), now),
            QDateTime(QDate(2026, 11, 25), QTime(14, 30)));
  EXPECT_EQ(parseSince(QStringLiteral("2026-11-25T14:30:15"), now),
            QDateTime(QDate(2026, 11, 25), QTime(14, 30, 15)));
  EXPECT_EQ(parseSince(QStringLiteral("2026-11-25T14:30:15Z"), now),
            QDateTime(QDate(2026, 11, 25), QTime(14, 30, 15), Qt::UTC));
  const auto offset = parseSince(QStringLiteral("2026-11-25T14:30:00+02:00"), now);
  ASSERT_TRUE(offset);
  EXPECT_EQ(offset->toMSecsSinceEpoch(),
            QDateTime(QDate(2026, 11, 25), QTime(12, 30), Qt::UTC).toMSecsSinceEpoch());
}

TEST(ParseSince, AnythingElseIsNothing) {
  const QDateTime now = QDateTime::currentDateTime();
  for (const char* text :
       {"", "   ", "yesterday", "7", "d", "7 d", "7D", "1.5h", "-3d", "+3d", "3dd", "2026-02-30",
        "2026-13-01", "2026-11-25T25:00", "25/11/2026", "1234567890s"}) {
    EXPECT_FALSE(parseSince(QString::fromLatin1(text), now)) << '"' << text << '"';
  }
}

// --- export ------------------------------------------------------------------

struct ScriptRun {
  int exitCode = -1;
  QJsonObject json;
  QString error;
};

ScriptRun runScript(const char* script, const QString& path) {
  QProcess python;
  python.start(QStringLiteral("python3"),
               {QStringLiteral(TW_PALETTE_SCRIPTS "/") + QString::fromLatin1(script), path});
  if (!python.waitForFinished(30000)) return {};
  ScriptRun result;
  result.exitCode = python.exitCode();
  result.error = QString::fromUtf8(python.readAllStandardError());
  result.json = QJsonDocument::fromJson(python.readAllStandardOutput()).object();
  return result;
}

class ExportCommand : public HistoryCommand {
 protected:
  // Exports into a file and to standard output; both must be the same bytes.
  QByteArray exportBoth(const QString& format, const QStringList& more = {}) {
    const QString file = dir_.filePath(QStringLiteral("out.") + format);
    QFile::remove(file);
    const QStringList args =
        QStringList{QStringLiteral("--database"), database_, QStringLiteral("--format"), format} +
        more;
    const ToolRun toFile = run(QStringLiteral("export"), args + QStringList{file});
    EXPECT_EQ(toFile.exitCode, 0) << toFile.err.constData();
    EXPECT_EQ(toFile.out, "");
    EXPECT_EQ(toFile.err, "");
    const QByteArray written = readBytes(file);
    const ToolRun toStdout = run(QStringLiteral("export"), args);
    EXPECT_EQ(toStdout.exitCode, 0) << toStdout.err.constData();
    EXPECT_EQ(toStdout.out, written);
    const ToolRun dash = run(QStringLiteral("export"), args + QStringList{QStringLiteral("-")});
    EXPECT_EQ(dash.exitCode, 0);
    EXPECT_EQ(dash.out, written);
    EXPECT_FALSE(QFileInfo::exists(dir_.filePath(QStringLiteral("-"))));
    return written;
  }

  ScriptRun exportAndRead(const QString& format, const char* script, const QStringList& more = {}) {
    const QByteArray bytes = exportBoth(format, more);
    const QString path = dir_.filePath(QStringLiteral("read.") + format);
    writeBytes(path, bytes);
    return runScript(script, path);
  }
};

QJsonArray swatch(const QString& name, int r, int g, int b) { return {name, r, g, b}; }

TEST_F(ExportCommand, GplNamesEachColourByItsNameOrHex) {
  const ScriptRun read = exportAndRead(QStringLiteral("gpl"), "read_gpl.py");
  ASSERT_EQ(read.exitCode, 0) << read.error.toStdString();
  EXPECT_EQ(read.json.value(QStringLiteral("name")).toString(), QStringLiteral("Tintwell"));
  const QJsonArray expected{swatch(QStringLiteral("Sky"), 0, 128, 255),
                            swatch(kInkAlias, 16, 24, 32),
                            swatch(QStringLiteral("#FF6347"), 255, 99, 71)};
  EXPECT_EQ(read.json.value(QStringLiteral("swatches")).toArray(), expected);
}

TEST_F(ExportCommand, AseReadsBackWithEveryColour) {
  const ScriptRun read = exportAndRead(QStringLiteral("ase"), "read_ase.py");
  ASSERT_EQ(read.exitCode, 0) << read.error.toStdString();
  const QJsonArray expected{swatch(QStringLiteral("Sky"), 0, 128, 255),
                            swatch(kInkAlias, 16, 24, 32),
                            swatch(QStringLiteral("#FF6347"), 255, 99, 71)};
  EXPECT_EQ(read.json.value(QStringLiteral("swatches")).toArray(), expected);
}

TEST_F(ExportCommand, CssPropertiesFromTheNames) {
  const ScriptRun read = exportAndRead(QStringLiteral("css"), "read_css.py");
  ASSERT_EQ(read.exitCode, 0) << read.error.toStdString();
  EXPECT_EQ(read.json.value(QStringLiteral("title")).toString(), QStringLiteral("Tintwell"));
  const QJsonArray expected{QJsonArray{"sky", "#0080ff"}, QJsonArray{"ink-deep-tint", "#101820"},
                            QJsonArray{"ff6347", "#ff6347"}};
  EXPECT_EQ(read.json.value(QStringLiteral("properties")).toArray(), expected);
}

TEST_F(ExportCommand, CsvReadsBackThroughTheCsvCommand) {
  const QJsonObject table = readThroughCsvCommand(exportBoth(QStringLiteral("csv")));
  const QJsonArray headers = table.value(QStringLiteral("headers")).toArray();
  const int name = static_cast<int>(headers.toVariantList().indexOf(QStringLiteral("name")));
  const int hex = static_cast<int>(headers.toVariantList().indexOf(QStringLiteral("hex")));
  ASSERT_GE(name, 0) << QJsonDocument(headers).toJson().constData();
  ASSERT_GE(hex, 0);
  const QJsonArray rows = table.value(QStringLiteral("rows")).toArray();
  ASSERT_EQ(rows.size(), 3);
  QString quotedAlias = kInkAlias;
  quotedAlias.replace(QStringLiteral("\""), QStringLiteral("\"\""));
  quotedAlias = u'"' + quotedAlias + u'"';
  EXPECT_EQ(rows.at(0).toArray().at(name).toString(), QStringLiteral("Sky"));
  EXPECT_EQ(rows.at(1).toArray().at(name).toString(), quotedAlias);
  EXPECT_EQ(rows.at(2).toArray().at(name).toString(), QStringLiteral("#FF6347"));
  EXPECT_EQ(rows.at(0).toArray().at(hex).toString().toUpper(), QStringLiteral("#0080FF"));
  EXPECT_EQ(rows.at(1).toArray().at(hex).toString().toUpper(), QStringLiteral("#101820"));
  EXPECT_EQ(rows.at(2).toArray().at(hex).toString().toUpper(), QStringLiteral("#FF6347"));
}

TEST_F(ExportCommand, StarredOnly) {
  const ScriptRun read =
      exportAndRead(QStringLiteral("gpl"), "read_gpl.py", {QStringLiteral("--starred")});
  ASSERT_EQ(read.exitCode, 0) << read.error.toStdString();
  EXPECT_EQ(read.json.value(QStringLiteral("swatches")).toArray(),
            QJsonArray{swatch(kInkAlias, 16, 24, 32)});
  const ScriptRun ase =
      exportAndRead(QStringLiteral("ase"), "read_ase.py", {QStringLiteral("--starred")});
  ASSERT_EQ(ase.exitCode, 0) << ase.error.toStdString();
  EXPECT_EQ(ase.json.value(QStringLiteral("swatches")).toArray().size(), 1);
}

TEST_F(ExportCommand, FormatMissingOrUnknownExitsTwo) {
  const QStringList database{QStringLiteral("--database"), database_};
  for (const QStringList& args :
       {QStringList{}, QStringList{QStringLiteral("--format"), QStringLiteral("png")},
        QStringList{QStringLiteral("--format"), QStringLiteral("x.gpl")},
        QStringList{QStringLiteral("--format")},
        QStringList{QStringLiteral("--format"), QStringLiteral("gpl"), QStringLiteral("--bogus")},
        QStringList{QStringLiteral("--format"), QStringLiteral("gpl"), QStringLiteral("a.gpl"),
                    QStringLiteral("b.gpl")}}) {
    const ToolRun out = run(QStringLiteral("export"), database + args);
    EXPECT_EQ(out.exitCode, 2) << args.join(u' ').toStdString();
    EXPECT_EQ(out.out, "");
    EXPECT_TRUE(out.err.startsWith("tintwell export: ")) << out.err.constData();
    EXPECT_TRUE(out.err.endsWith("Try 'tintwell export --help'.\n")) << out.err.constData();
  }
  EXPECT_TRUE(run(QStringLiteral("export"), database)
                  .err.startsWith("tintwell export: --format is required\n"));
  EXPECT_TRUE(run(QStringLiteral("export"),
                  database + QStringList{QStringLiteral("--format"), QStringLiteral("png")})
                  .err.startsWith("tintwell export: unknown format: png\n"));
  // Upper case names the same formats.
  EXPECT_EQ(run(QStringLiteral("export"),
                database + QStringList{QStringLiteral("--format"), QStringLiteral("GPL")})
                .exitCode,
            0);
}

TEST_F(ExportCommand, UnwritableFileExitsOne) {
  const QString file = dir_.filePath(QStringLiteral("missing/folder/out.gpl"));
  const ToolRun out =
      run(QStringLiteral("export"), {QStringLiteral("--database"), database_,
                                     QStringLiteral("--format"), QStringLiteral("gpl"), file});
  EXPECT_EQ(out.exitCode, 1);
  EXPECT_EQ(out.out, "");
  EXPECT_TRUE(out.err.startsWith("tintwell export: cannot write " + file.toUtf8() + ": "))
      << out.err.constData();
  EXPECT_FALSE(QFileInfo::exists(dir_.filePath(QStringLiteral("missing"))));
}

TEST(ExportCommandFile, MissingDatabaseExportsAnEmptyPalette) {
  QTemporaryDir dir;
  const QString path = dir.filePath(QStringLiteral("none.sqlite"));
  const QString file = dir.filePath(QStringLiteral("empty.gpl"));
  const ToolRun out =
      run(QStringLiteral("export"), {QStringLiteral("--database"), path, QStringLiteral("--format"),
                                     QStringLiteral("gpl"), file});
  EXPECT_EQ(out.exitCode, 0) << out.err.constData();
  EXPECT_FALSE(QFileInfo::exists(path));
  const ScriptRun read = runScript("read_gpl.py", file);
  ASSERT_EQ(read.exitCode, 0) << read.error.toStdString();
  EXPECT_EQ(read.json.value(QStringLiteral("swatches")).toArray(), QJsonArray());
}

}  // namespace
}  // namespace tw
