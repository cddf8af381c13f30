#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>
#include <cstring>

#include "library/palette/Palette.h"
#include "library/palette/PaletteFormats.h"
#include "tests/support/RunTool.h"

namespace tw::palette {
namespace {

// Unicode, blanks inside, commas, quotes, both channel ends, an empty name.
Palette sample() {
  return {QStringLiteral("Spring \"mix\", 2"),
          {{QStringLiteral("Rosé Dust"), 210, 150, 160},
           {QStringLiteral("Black \"ink\", matte"), 0, 0, 0},
           {QStringLiteral("White"), 255, 255, 255},
           {QStringLiteral("日本の赤"), 188, 0, 45},
           {QStringLiteral("two  blanks inside"), 1, 254, 128},
           {QString(), 12, 34, 56}}};
}

Palette withoutName(Palette palette) {
  palette.name.clear();
  return palette;
}

ReadResult roundTrip(const Palette& palette, Format format) {
  return readPalette(writePalette(palette, format), format);
}

// --- names and suffixes ---------------------------------------------------

TEST(PaletteFormat, FromNameTakesSuffixesFileNamesAndAnyCase) {
  EXPECT_EQ(formatFromName(QStringLiteral("gpl")), Format::Gpl);
  EXPECT_EQ(formatFromName(QStringLiteral(".ASE")), Format::Ase);
  EXPECT_EQ(formatFromName(QStringLiteral("Css")), Format::Css);
  EXPECT_EQ(formatFromName(QStringLiteral("/home/u/My colours.csv")), Format::Csv);
  EXPECT_EQ(formatFromName(QStringLiteral("history.v2.Gpl")), Format::Gpl);
  EXPECT_EQ(formatFromName(QStringLiteral("txt")), std::nullopt);
  EXPECT_EQ(formatFromName(QStringLiteral("notes.gpl.txt")), std::nullopt);
  EXPECT_EQ(formatFromName(QStringLiteral("xgpl")), std::nullopt);
  EXPECT_EQ(formatFromName(QStringLiteral("/tmp/gpl")), std::nullopt);
  EXPECT_EQ(formatFromName(QString()), std::nullopt);
  for (const Format f : {Format::Gpl, Format::Ase, Format::Css, Format::Csv})
    EXPECT_EQ(formatFromName(suffixOf(f)), f);
  EXPECT_EQ(suffixOf(Format::Gpl), QStringLiteral("gpl"));
  EXPECT_EQ(suffixOf(Format::Ase), QStringLiteral("ase"));
  EXPECT_EQ(suffixOf(Format::Css), QStringLiteral("css"));
  EXPECT_EQ(suffixOf(Format::Csv), QStringLiteral("csv"));
}

// --- round trips -----------------------------------------------------------

TEST(PaletteRoundTrip, GplKeepsNameAndEverySwatch) {
  const ReadResult read = roundTrip(sample(), Format::Gpl);
  ASSERT_TRUE(read.palette) << read.error.toStdString();
  EXPECT_EQ(*read.palette, sample());
}

TEST(PaletteRoundTrip, AseKeepsEverySwatch) {
  // The file holds one list without a group, so no palette name.
  const ReadResult read = roundTrip(sample(), Format::Ase);
  ASSERT_TRUE(read.palette) << read.error.toStdString();
  EXPECT_EQ(*read.palette, withoutName(sample()));
}

TEST(PaletteRoundTrip, CsvKeepsEverySwatch) {
  Palette palette = withoutName(sample());
  palette.swatches.push_back({QStringLiteral("line\nbreak, \"and\" \"\" more"), 9, 8, 7});
  palette.swatches.push_back({QStringLiteral("\"quoted\""), 1, 2, 3});
  palette.swatches.push_back({QStringLiteral("   "), 4, 5, 6});
  palette.swatches.push_back({QStringLiteral(" lead and trail "), 7, 8, 9});
  const ReadResult read = roundTrip(palette, Format::Csv);
  ASSERT_TRUE(read.palette) << read.error.toStdString();
  EXPECT_EQ(*read.palette, palette);
}

TEST(PaletteRoundTrip, EmptyPalettesStayEmpty) {
  for (const Format f : {Format::Gpl, Format::Ase, Format::Csv}) {
    const Palette empty{f == Format::Gpl ? QStringLiteral("Nothing yet") : QString(), {}};
    const ReadResult read = roundTrip(empty, f);
    ASSERT_TRUE(read.palette) << suffixOf(f).toStdString() << ": " << read.error.toStdString();
    EXPECT_EQ(*read.palette, empty) << suffixOf(f).toStdString();
  }
}

TEST(PaletteRoundTrip, EveryChannelValueSurvivesAse) {
  Palette palette;
  for (int v = 0; v < 256; ++v) palette.swatches.push_back({QString::number(v), v, 255 - v, v / 2});
  const ReadResult read = roundTrip(palette, Format::Ase);
  ASSERT_TRUE(read.palette) << read.error.toStdString();
  EXPECT_EQ(*read.palette, palette);
}

TEST(PaletteRoundTrip, GplNamesLoseControlCharactersAndSurroundingBlanks) {
  const Palette palette{QStringLiteral("a\nb"), {{QStringLiteral("  x\ty\r\nz  "), 1, 2, 3}}};
  const QByteArray gpl = writePalette(palette, Format::Gpl);
  EXPECT_EQ(gpl, QByteArray("GIMP Palette\nName: a b\nColumns: 0\n#\n  1   2   3\t  x y  z  \n"));
  const ReadResult read = readPalette(gpl, Format::Gpl);
  ASSERT_TRUE(read.palette);
  EXPECT_EQ(read.palette->name, QStringLiteral("a b"));
  EXPECT_EQ(read.palette->swatches.at(0).name, QStringLiteral("x y  z"));
}

TEST(PaletteRoundTrip, ChannelsOutOfRangeAreClampedWhenWritten) {
  const Palette palette{QStringLiteral("p"), {{QStringLiteral("odd"), -5, 300, 128}}};
  for (const Format f : {Format::Gpl, Format::Ase, Format::Csv}) {
    const ReadResult read = roundTrip(palette, f);
    ASSERT_TRUE(read.palette) << suffixOf(f).toStdString() << ": " << read.error.toStdString();
    EXPECT_EQ(read.palette->swatches.at(0), (Swatch{QStringLiteral("odd"), 0, 255, 128}))
        << suffixOf(f).toStdString();
  }
  EXPECT_TRUE(writePalette(palette, Format::Css).contains("--odd: #00ff80;"));
}

// --- GPL reading ---------------------------------------------------------

TEST(GplRead, ToleratesCrlfCommentsBlankLinesAndMissingHeaders) {
  const QByteArray text =
      "\xEF\xBB\xBFGIMP Palette\r\n"
      "# a comment\r\n"
      "\r\n"
      "   10    20 30      Deep   Sea  \r\n"
      "255\t0\t0\r\n"
      "  # indented comment\n"
      "0 0 255 Blue # not a comment\n";
  const ReadResult read = readPalette(text, Format::Gpl);
  ASSERT_TRUE(read.palette) << read.error.toStdString();
  EXPECT_EQ(read.palette->name, QString());
  const std::vector<Swatch> expected = {{QStringLiteral("Deep   Sea"), 10, 20, 30},
                                        {QString(), 255, 0, 0},
                                        {QStringLiteral("Blue # not a comment"), 0, 0, 255}};
  EXPECT_EQ(read.palette->swatches, expected);
}

TEST(GplRead, NameAndColumnsAreTakenWherever) {
  const ReadResult read =
      readPalette("GIMP Palette\nColumns: 16\n1 2 3 a\nName:   Late  name \n", Format::Gpl);
  ASSERT_TRUE(read.palette) << read.error.toStdString();
  EXPECT_EQ(read.palette->name, QStringLiteral("Late  name"));
  EXPECT_EQ(read.palette->swatches.size(), 1u);
}

TEST(GplRead, RefusesAMissingMagicLine) {
  for (const QByteArray& text : {QByteArray(), QByteArray("\n\n"), QByteArray("Name: x\n1 2 3 a\n"),
                                 QByteArray("GIMP Palettes\n"), QByteArray("gimp palette\n"),
                                 QByteArray("# GIMP Palette\n")}) {
    const ReadResult read = readPalette(text, Format::Gpl);
    EXPECT_FALSE(read.palette) << text.toStdString();
    EXPECT_TRUE(read.error.contains(QStringLiteral("GIMP Palette"))) << read.error.toStdString();
  }
}

TEST(GplRead, RefusesBadSwatchLinesWithTheirLineNumber) {
  const struct {
    const char* line;
    const char* why;
  } cases[] = {
      {"256 0 0 over", "\"256\""},         {"-1 0 0 negative", "\"-1\""},
      {"a b c letters", "\"a\""},          {"12 34", "fewer than three"},
      {"1.5 2 3 fraction", "\"1.5\""},     {"0x10 0 0 hex", "\"0x10\""},
      {"0000001 0 0 long", "\"0000001\""}, {"99999999999999999999 0 0", "\"9999999999999999\""},
      {"10 20 30name", "\"30name\""},
  };
  for (const auto& c : cases) {
    const QByteArray text = QByteArray("GIMP Palette\nName: x\n1 2 3 fine\n") + c.line + "\n";
    const ReadResult read = readPalette(text, Format::Gpl);
    EXPECT_FALSE(read.palette) << c.line;
    EXPECT_TRUE(read.error.startsWith(QStringLiteral("line 4: "))) << read.error.toStdString();
    EXPECT_TRUE(read.error.contains(QString::fromUtf8(c.why))) << read.error.toStdString();
  }
}

// --- ASE reading -----------------------------------------------------------

void put16(QByteArray& out, quint16 v) {
  char b[2];
  qToBigEndian(v, b);
  out.append(b, 2);
}
void put32(QByteArray& out, quint32 v) {
  char b[4];
  qToBigEndian(v, b);
  out.append(b, 4);
}
void putFloat(QByteArray& out, float f) {
  quint32 bits;
  std::memcpy(&bits, &f, 4);
  put32(out, bits);
}
QByteArray aseHeader(quint32 count) {
  QByteArray out = "ASEF";
  put16(out, 1);
  put16(out, 0);
  put32(out, count);
  return out;
}
QByteArray nameBody(const QString& name) {
  QByteArray body;
  put16(body, quint16(name.size() + 1));
  for (const QChar c : name) put16(body, c.unicode());
  put16(body, 0);
  return body;
}
QByteArray block(quint16 type, const QByteArray& body) {
  QByteArray out;
  put16(out, type);
  put32(out, quint32(body.size()));
  return out + body;
}
QByteArray colourBlock(const QString& name, const char* model,
                       std::initializer_list<float> values) {
  QByteArray body = nameBody(name);
  body.append(model, 4);
  for (const float v : values) putFloat(body, v);
  put16(body, 2);
  return block(0x0001, body);
}

TEST(AseRead, WritesTheLayoutByteForByte) {
  const QByteArray ase =
      writePalette({QStringLiteral("x"), {{QStringLiteral("Ab"), 255, 0, 51}}}, Format::Ase);
  const QByteArray expected =
      aseHeader(1) + colourBlock(QStringLiteral("Ab"), "RGB ", {1.0f, 0.0f, 0.2f});
  EXPECT_EQ(ase.toHex(' '), expected.toHex(' '));
  EXPECT_EQ(ase.size(), 12 + 6 + 2 + 6 + 4 + 12 + 2);
}

TEST(AseRead, FlattensGroupsAndNamesThePaletteAfterTheFirst) {
  const QByteArray ase = aseHeader(6) + block(0xC001, nameBody(QStringLiteral("Brand"))) +
                         colourBlock(QStringLiteral("Red"), "RGB ", {1.0f, 0.0f, 0.0f}) +
                         block(0xC002, {}) + block(0xC001, nameBody(QStringLiteral("Other"))) +
                         colourBlock(QStringLiteral("Grey"), "RGB ", {0.5f, 0.5f, 0.5f}) +
                         block(0xC002, {});
  const ReadResult read = readPalette(ase, Format::Ase);
  ASSERT_TRUE(read.palette) << read.error.toStdString();
  EXPECT_EQ(read.palette->name, QStringLiteral("Brand"));
  const std::vector<Swatch> expected = {{QStringLiteral("Red"), 255, 0, 0},
                                        {QStringLiteral("Grey"), 128, 128, 128}};
  EXPECT_EQ(read.palette->swatches, expected);
}

TEST(AseRead, ConvertsGrayAndCmykNaivelyAndSkipsLabAndUnknownModels) {
  const QByteArray ase = aseHeader(5) +
                         colourBlock(QStringLiteral("Lab"), "LAB ", {0.5f, 10.0f, -20.0f}) +
                         colourBlock(QStringLiteral("Gray"), "Gray", {0.2f}) +
                         colourBlock(QStringLiteral("Cmyk"), "CMYK", {0.0f, 1.0f, 0.5f, 0.2f}) +
                         colourBlock(QStringLiteral("Odd"), "XYZ ", {0.1f, 0.2f, 0.3f}) +
                         colourBlock(QStringLiteral("Over"), "RGB ", {1.5f, -0.5f, 0.999f});
  const ReadResult read = readPalette(ase, Format::Ase);
  ASSERT_TRUE(read.palette) << read.error.toStdString();
  const std::vector<Swatch> expected = {{QStringLiteral("Gray"), 51, 51, 51},
                                        // (1 - C)(1 - K): 0.8, 0, 0.4
                                        {QStringLiteral("Cmyk"), 204, 0, 102},
                                        // clamped
                                        {QStringLiteral("Over"), 255, 0, 255}};
  EXPECT_EQ(read.palette->swatches, expected);
}

TEST(AseRead, EveryTruncationIsAnErrorNotACrash) {
  const QByteArray ase = writePalette(sample(), Format::Ase);
  for (qsizetype size = 0; size < ase.size(); ++size) {
    const ReadResult read = readPalette(ase.left(size), Format::Ase);
    EXPECT_FALSE(read.palette) << "size " << size;
    EXPECT_FALSE(read.error.isEmpty()) << "size " << size;
  }
}

TEST(AseRead, LengthsBeyondTheFileAreErrors) {
  // A block length past the end.
  QByteArray ase = aseHeader(1);
  put16(ase, 0x0001);
  put32(ase, 0xFFFFFFF0u);
  ase.append(40, '\0');
  ReadResult read = readPalette(ase, Format::Ase);
  EXPECT_FALSE(read.palette);
  EXPECT_TRUE(read.error.contains(QStringLiteral("past the end"))) << read.error.toStdString();

  // A name length past the block (the block itself fits in the file).
  QByteArray body;
  put16(body, 0xFFFF);
  body.append("\0A\0\0RGB ", 8);
  ase = aseHeader(1) + block(0x0001, body) + QByteArray(200, '\0');
  read = readPalette(ase, Format::Ase);
  EXPECT_FALSE(read.palette);
  EXPECT_TRUE(read.error.contains(QStringLiteral("block 1"))) << read.error.toStdString();

  // Values missing after the model.
  body = nameBody(QStringLiteral("x")) + "RGB ";
  putFloat(body, 0.5f);
  read = readPalette(aseHeader(1) + block(0x0001, body), Format::Ase);
  EXPECT_FALSE(read.palette);
}

TEST(AseRead, AHugeBlockCountIsRefusedAtOnce) {
  const QByteArray ase =
      aseHeader(0xFFFFFFFFu) + colourBlock(QStringLiteral("a"), "RGB ", {0, 0, 0});
  const ReadResult read = readPalette(ase, Format::Ase);
  EXPECT_FALSE(read.palette);
  EXPECT_TRUE(read.error.contains(QStringLiteral("4294967295"))) << read.error.toStdString();
}

TEST(AseRead, RefusesOtherMagicOrVersionAndNotANumber) {
  EXPECT_FALSE(readPalette("ASEX\0\1\0\0\0\0\0\0", Format::Ase).palette);
  QByteArray v2 = "ASEF";
  put16(v2, 2);
  put16(v2, 0);
  put32(v2, 0);
  EXPECT_FALSE(readPalette(v2, Format::Ase).palette);
  const ReadResult nan = readPalette(
      aseHeader(1) + colourBlock(QStringLiteral("n"), "RGB ", {NAN, 0, 0}), Format::Ase);
  EXPECT_FALSE(nan.palette);
  EXPECT_TRUE(readPalette(aseHeader(0), Format::Ase).palette);
}

// --- CSS -------------------------------------------------------------------

TEST(CssWrite, SlugsAreLowerCaseDashedUniqueAndNeverEmpty) {
  const Palette palette{QStringLiteral("p"),
                        {{QStringLiteral("Sky Blue"), 0, 0, 0},
                         {QStringLiteral("sky-blue"), 0, 0, 0},
                         {QStringLiteral("  SKY__BLUE!! "), 0, 0, 0},
                         {QString(), 0, 0, 0},
                         {QStringLiteral("日本"), 0, 0, 0},
                         {QStringLiteral("Rosé 2"), 0, 0, 0},
                         {QStringLiteral("sky-blue-2"), 0, 0, 0},
                         {QStringLiteral("color-4"), 0, 0, 0}}};
  EXPECT_EQ(cssSlugs(palette), QStringList({"sky-blue", "sky-blue-2", "sky-blue-3", "color-4",
                                            "color-5", "ros-2", "sky-blue-2-2", "color-4-2"}));
}

TEST(CssWrite, TheWholeFile) {
  const Palette palette{
      QStringLiteral("Mine */ trick"),
      {{QStringLiteral("Red"), 255, 0, 0}, {QStringLiteral("Teal"), 0, 128, 171}}};
  EXPECT_EQ(
      writePalette(palette, Format::Css),
      QByteArray("/* Mine * / trick */\n:root {\n  --red: #ff0000;\n  --teal: #0080ab;\n}\n"));
  EXPECT_FALSE(readPalette(writePalette(palette, Format::Css), Format::Css).palette);
}

// --- CSV -------------------------------------------------------------------

TEST(CsvRead, AcceptsNameAndHexOrChannelsInAnyCaseAndOrder) {
  ReadResult read = readPalette("Hex , NAME\n#0a0B0c,first\nFFFFFF,\n", Format::Csv);
  ASSERT_TRUE(read.palette) << read.error.toStdString();
  EXPECT_EQ(read.palette->swatches, (std::vector<Swatch>{{QStringLiteral("first"), 10, 11, 12},
                                                         {QString(), 255, 255, 255}}));

  read = readPalette("Blue,Green,Red,Name\r\n3, 2 ,1,\"a, b\"\r\n\r\n255,0,0,c\r\n", Format::Csv);
  ASSERT_TRUE(read.palette) << read.error.toStdString();
  EXPECT_EQ(read.palette->swatches, (std::vector<Swatch>{{QStringLiteral("a, b"), 1, 2, 3},
                                                         {QStringLiteral("c"), 0, 0, 255}}));
}

TEST(CsvRead, ARowWithoutAValidColourFailsWithItsLineNumber) {
  // Line 2's quoted name spans two lines and line 4 is blank: the bad row is
  // on line 5.
  const ReadResult read =
      readPalette("name,red,green,blue\n\"two\nlines\",1,2,3\n\nbad,1,2,256\n", Format::Csv);
  EXPECT_FALSE(read.palette);
  EXPECT_EQ(read.error, QStringLiteral("line 5: no valid colour"));
  for (const QByteArray& row : {QByteArray("x,#12345"), QByteArray("x,12345g"), QByteArray("x,"),
                                QByteArray("x,#1234567")}) {
    const ReadResult bad = readPalette("name,hex\n" + row + "\n", Format::Csv);
    EXPECT_EQ(bad.error, QStringLiteral("line 2: no valid colour")) << row.toStdString();
  }
}

TEST(CsvRead, RefusesTablesWithoutColourColumnsOrLines) {
  EXPECT_EQ(readPalette("", Format::Csv).error, QStringLiteral("no header line"));
  EXPECT_EQ(readPalette(" \n\t\n", Format::Csv).error, QStringLiteral("no header line"));
  const ReadResult read = readPalette("\nname,red,green\nx,1,2\n", Format::Csv);
  EXPECT_FALSE(read.palette);
  EXPECT_TRUE(read.error.startsWith(QStringLiteral("line 2: no hex column")))
      << read.error.toStdString();
}

TEST(CsvRead, CarriageReturnsBeforeLineFeedsAreNoHeaderLine) {
  // The table reader drops "\r" before "\n" before it looks for lines.
  EXPECT_EQ(readPalette("   \r\r\n\n\t\t\t", Format::Csv).error, QStringLiteral("no header line"));
  EXPECT_EQ(readPalette("\r\n", Format::Csv).error, QStringLiteral("no header line"));
}

TEST(CsvRead, ANameReadWithCarriageReturnsBeforeALineFeedReadsBackTheSame) {
  // "\r\r\r\n" in the file: the reader's own passes leave "\r\n", which a
  // second write and read would not keep; every "\r" before "\n" goes.
  const ReadResult first = readPalette("name,hex\n\"a\r\r\r\nb\rc\",#010203\n", Format::Csv);
  ASSERT_TRUE(first.palette) << first.error.toStdString();
  ASSERT_EQ(first.palette->swatches.size(), 1u);
  EXPECT_EQ(first.palette->swatches[0].name, QStringLiteral("a\nb\rc"));
  const ReadResult second = readPalette(writePalette(*first.palette, Format::Csv), Format::Csv);
  ASSERT_TRUE(second.palette) << second.error.toStdString();
  EXPECT_EQ(second.palette->swatches, first.palette->swatches);
}

// --- exporters read by independent readers --------------------------------

struct ScriptRun {
  int exitCode = -1;
  QJsonObject json;
  QString error;
};

ScriptRun runScript(const char* script, const QByteArray& file) {
  QTemporaryDir dir;
  const QString path = dir.filePath(QStringLiteral("palette"));
  QFile out(path);
  EXPECT_TRUE(out.open(QIODevice::WriteOnly));
  out.write(file);
  out.close();
  QProcess python;
  python.start(QStringLiteral("python3"),
               {QStringLiteral(TW_PALETTE_SCRIPTS "/") + QString::fromLatin1(script), path});
  if (!python.waitForFinished(30000)) return {};
  ScriptRun run;
  run.exitCode = python.exitCode();
  run.error = QString::fromUtf8(python.readAllStandardError());
  run.json = QJsonDocument::fromJson(python.readAllStandardOutput()).object();
  return run;
}

QJsonArray swatchArray(const Palette& palette) {
  QJsonArray out;
  for (const Swatch& s : palette.swatches) out.append(QJsonArray{s.name, s.red, s.green, s.blue});
  return out;
}

TEST(IndependentReader, GplExportParsesStrictly) {
  const ScriptRun run = runScript("read_gpl.py", writePalette(sample(), Format::Gpl));
  ASSERT_EQ(run.exitCode, 0) << run.error.toStdString();
  EXPECT_EQ(run.json.value(QStringLiteral("name")).toString(), sample().name);
  EXPECT_EQ(run.json.value(QStringLiteral("swatches")).toArray(), swatchArray(sample()));
}

TEST(IndependentReader, AseExportParsesStrictly) {
  const ScriptRun run = runScript("read_ase.py", writePalette(sample(), Format::Ase));
  ASSERT_EQ(run.exitCode, 0) << run.error.toStdString();
  EXPECT_EQ(run.json.value(QStringLiteral("swatches")).toArray(), swatchArray(sample()));
}

TEST(IndependentReader, EmptyExportsParse) {
  const Palette empty{QStringLiteral("none"), {}};
  for (const char* script : {"read_gpl.py", "read_ase.py", "read_css.py"}) {
    const Format f = *formatFromName(QString::fromLatin1(script).mid(5, 3));
    const ScriptRun run = runScript(script, writePalette(empty, f));
    EXPECT_EQ(run.exitCode, 0) << script << ": " << run.error.toStdString();
  }
}

TEST(IndependentReader, CssExportParsesStrictly) {
  const ScriptRun run = runScript("read_css.py", writePalette(sample(), Format::Css));
  ASSERT_EQ(run.exitCode, 0) << run.error.toStdString();
  EXPECT_EQ(run.json.value(QStringLiteral("title")).toString(), sample().name);
  const QJsonArray expected = {QJsonArray{"ros-dust", "#d296a0"},
                               QJsonArray{"black-ink-matte", "#000000"},
                               QJsonArray{"white", "#ffffff"},
                               QJsonArray{"color-4", "#bc002d"},
                               QJsonArray{"two-blanks-inside", "#01fe80"},
                               QJsonArray{"color-6", "#0c2238"}};
  EXPECT_EQ(run.json.value(QStringLiteral("properties")).toArray(), expected);
}

TEST(IndependentReader, TheReadersRefuseBrokenFiles) {
  // The scripts must be able to fail, or the tests above prove nothing.
  QByteArray gpl = writePalette(sample(), Format::Gpl);
  EXPECT_EQ(runScript("read_gpl.py", gpl.replace("\t", " ")).exitCode, 1);
  QByteArray ase = writePalette(sample(), Format::Ase);
  EXPECT_EQ(runScript("read_ase.py", ase.left(ase.size() - 1)).exitCode, 1);
  EXPECT_EQ(runScript("read_ase.py", ase + QByteArray(1, '\0')).exitCode, 1);
  QByteArray css = writePalette(sample(), Format::Css);
  EXPECT_EQ(runScript("read_css.py", css.replace("#ffffff", "#fff")).exitCode, 1);
}

TEST(IndependentReader, CsvExportReadsBackThroughTheCsvCommand) {
  const Palette palette{QStringLiteral("ignored"),
                        {{QStringLiteral("Red, \"warm\""), 255, 0, 0},
                         {QStringLiteral("Black"), 0, 0, 0},
                         {QStringLiteral("two\nlines"), 0, 128, 255}}};
  QTemporaryDir dir;
  const QString path = dir.filePath(QStringLiteral("palette.csv"));
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  file.write(writePalette(palette, Format::Csv));
  file.close();
  const testing::ToolRun run = testing::runTool({QStringLiteral("csv"), path});
  ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
  const QJsonObject json = QJsonDocument::fromJson(run.out).object();
  EXPECT_EQ(json.value(QStringLiteral("headers")).toArray(),
            (QJsonArray{"name", "hex", "red", "green", "blue", "cmyk", "hsb", "lab"}));
  const QJsonArray expected = {
      QJsonArray{"\"Red, \"\"warm\"\"\"", "#FF0000", "255", "0", "0", "0  100  100  0",
                 "0  100  100", "53.2  80.1  67.2 "},
      QJsonArray{"Black", "#000000", "0", "0", "0", "0  0  0  1", "0  0  0", "0.0  0.0  0.0 "},
      QJsonArray{"\"two\nlines\"", "#0080FF", "0", "128", "255", "100  50  0  0", "210  100  100",
                 "54.7  18.8  -70.9 "}};
  EXPECT_EQ(json.value(QStringLiteral("rows")).toArray(), expected) << run.out.toStdString();
  EXPECT_EQ(json.value(QStringLiteral("keyedRows")).toArray().size(), 3);
}

}  // namespace
}  // namespace tw::palette
