#include "bridge/linux/KritaRc.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

namespace tw {
namespace {

const QByteArray kKey = QByteArrayLiteral("enable_tintwell_bridge");

struct EditCase {
  const char* name;
  QByteArray before;
  // Empty: the text must be left as it is.
  QByteArray after;
};

void PrintTo(const EditCase& c, std::ostream* os) { *os << c.name; }

class KritarcEditTest : public ::testing::TestWithParam<EditCase> {};

TEST_P(KritarcEditTest, ChangesOnlyTheOneLine) {
  const EditCase& c = GetParam();
  const std::optional<QByteArray> edited = kritarcWithKeyTrue(c.before, kKey);
  if (c.after.isEmpty()) {
    EXPECT_FALSE(edited.has_value()) << edited.value_or("").toStdString();
  } else {
    ASSERT_TRUE(edited.has_value());
    EXPECT_EQ(edited->toStdString(), c.after.toStdString());
    // Applying it again finds nothing to do.
    EXPECT_FALSE(kritarcWithKeyTrue(*edited, kKey).has_value());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, KritarcEditTest,
    ::testing::Values(
        EditCase{"EmptyFile", "", "[python]\nenable_tintwell_bridge=true\n"},
        EditCase{"NoPythonGroup", "[General]\nfoo=1\n",
                 "[General]\nfoo=1\n\n[python]\nenable_tintwell_bridge=true\n"},
        EditCase{"NoPythonGroupNoFinalLineEnd", "[General]\nfoo=1",
                 "[General]\nfoo=1\n\n[python]\nenable_tintwell_bridge=true\n"},
        EditCase{"NoPythonGroupEndingInABlankLine", "[General]\nfoo=1\n\n",
                 "[General]\nfoo=1\n\n[python]\nenable_tintwell_bridge=true\n"},
        EditCase{"KeysBeforeAnyGroupOnly", "canvasState=OPENGL_SUCCESS\n",
                 "canvasState=OPENGL_SUCCESS\n\n[python]\nenable_tintwell_bridge=true\n"},
        EditCase{"GroupWithOtherKeys",
                 "[General]\na=1\n\n[python]\nenable_scripter=true\nenable_tenbrushes=false\n\n"
                 "[advancedColorSelector]\nshape=1\n",
                 "[General]\na=1\n\n[python]\nenable_scripter=true\nenable_tenbrushes=false\n"
                 "enable_tintwell_bridge=true\n\n[advancedColorSelector]\nshape=1\n"},
        EditCase{"EmptyGroupFollowedByACommentOfTheNext",
                 "[python]\n\n# colours\n[advancedColorSelector]\nshape=1\n",
                 "[python]\nenable_tintwell_bridge=true\n\n# colours\n[advancedColorSelector]\n"
                 "shape=1\n"},
        EditCase{"GroupLastInTheFileWithoutFinalLineEnd", "[python]\nenable_scripter=true",
                 "[python]\nenable_scripter=true\nenable_tintwell_bridge=true\n"},
        EditCase{"KeyPresentFalse",
                 "[python]\nenable_scripter=true\nenable_tintwell_bridge=false\nz=2\n",
                 "[python]\nenable_scripter=true\nenable_tintwell_bridge=true\nz=2\n"},
        EditCase{"KeyPresentFalseWithBlanksAroundTheEqualsSign",
                 "[python]\n  enable_tintwell_bridge = false\nz=2\n",
                 "[python]\nenable_tintwell_bridge=true\nz=2\n"},
        EditCase{"KeyPresentTrueIsLeftAlone", "[python]\nenable_tintwell_bridge=true\n", ""},
        EditCase{"KeyPresentTrueWithBlanksIsLeftAlone",
                 "[python]\nenable_tintwell_bridge = true \n", ""},
        EditCase{"KeyInAnotherGroupDoesNotCount",
                 "[General]\nenable_tintwell_bridge=false\n[python]\nx=1\n",
                 "[General]\nenable_tintwell_bridge=false\n[python]\nx=1\n"
                 "enable_tintwell_bridge=true\n"},
        EditCase{"KeyInANestedGroupDoesNotCount",
                 "[python][sub]\nenable_tintwell_bridge=false\n[python]\nx=1\n",
                 "[python][sub]\nenable_tintwell_bridge=false\n[python]\nx=1\n"
                 "enable_tintwell_bridge=true\n"},
        EditCase{"KeyFalseInASecondPythonGroupIsRewrittenThere",
                 "[python]\na=1\n[Other]\nb=2\n[python]\nenable_tintwell_bridge=false\n",
                 "[python]\na=1\n[Other]\nb=2\n[python]\nenable_tintwell_bridge=true\n"},
        EditCase{"NewKeyGoesIntoTheFirstPythonGroup",
                 "[python]\na=1\n[Other]\nb=2\n[python]\nc=3\n",
                 "[python]\na=1\nenable_tintwell_bridge=true\n[Other]\nb=2\n[python]\nc=3\n"},
        EditCase{"CarriageReturnLineEndsAreKept",
                 "[General]\r\na=1\r\n[python]\r\nenable_scripter=true\r\n",
                 "[General]\r\na=1\r\n[python]\r\nenable_scripter=true\r\n"
                 "enable_tintwell_bridge=true\r\n"},
        EditCase{"CarriageReturnFileWithoutTheGroup", "[General]\r\na=1\r\n",
                 "[General]\r\na=1\r\n\r\n[python]\r\nenable_tintwell_bridge=true\r\n"},
        EditCase{"SimilarKeysAreOtherKeys",
                 "[python]\nenable_tintwell_bridge2=false\n#enable_tintwell_bridge=false\n",
                 "[python]\nenable_tintwell_bridge2=false\nenable_tintwell_bridge=true\n"
                 "#enable_tintwell_bridge=false\n"}),
    [](const ::testing::TestParamInfo<EditCase>& info) { return std::string(info.param.name); });

TEST(KritarcEditTest, CommentsOtherGroupsAndOddBytesAreKeptByteForByte) {
  // A file the way KDE programs leave it, plus what a hand edit adds:
  // comments, localised and expanded keys, UTF-8, tabs, a line with no '='.
  const QByteArray head =
      "# written by hand\n"
      "[$Version]\n"
      "update_info=krita.upd:2\n"
      "\n"
      "[General]\n"
      "Name[de]=Farbe \xc3\xbc\n"
      "path[$e]=$HOME/pictures\n"
      "\tindented = yes\n"
      "not an entry\n"
      "\n"
      "[python]\n"
      "# the user's note on scripting\n"
      "enable_scripter=true\n";
  const QByteArray tail =
      "\n"
      "[MainWindow][Toolbar mainToolBar]\n"
      "ToolButtonStyle=NoText\n"
      "trailing=without line end";
  const std::optional<QByteArray> edited = kritarcWithKeyTrue(head + tail, kKey);
  ASSERT_TRUE(edited.has_value());
  EXPECT_EQ(edited->toStdString(),
            (head + QByteArrayLiteral("enable_tintwell_bridge=true\n") + tail).toStdString());
}

class KritarcFileTest : public ::testing::Test {
 protected:
  QByteArray read(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("<missing>");
  }
  void write(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(file.write(bytes), bytes.size());
  }
  QTemporaryDir dir_;
};

TEST_F(KritarcFileTest, NoFileMakesTheFolderAndTheFile) {
  const QString path = dir_.filePath(QStringLiteral("config/nested/kritarc"));
  EXPECT_EQ(setKritarcKeyTrue(path, kKey), std::nullopt);
  EXPECT_EQ(read(path).toStdString(), "[python]\nenable_tintwell_bridge=true\n");
}

TEST_F(KritarcFileTest, AnExistingFileGetsTheEdit) {
  const QString path = dir_.filePath(QStringLiteral("kritarc"));
  write(path, "[python]\nenable_tintwell_bridge=false\n[X]\ny=1\n");
  EXPECT_EQ(setKritarcKeyTrue(path, kKey), std::nullopt);
  EXPECT_EQ(read(path).toStdString(), "[python]\nenable_tintwell_bridge=true\n[X]\ny=1\n");
}

TEST_F(KritarcFileTest, AFileThatAlreadySaysTrueIsNotWrittenAgain) {
  const QString path = dir_.filePath(QStringLiteral("kritarc"));
  write(path, "[python]\nenable_tintwell_bridge=true\n");
  struct stat before {};
  ASSERT_EQ(::stat(QFile::encodeName(path).constData(), &before), 0);
  EXPECT_EQ(setKritarcKeyTrue(path, kKey), std::nullopt);
  struct stat after {};
  ASSERT_EQ(::stat(QFile::encodeName(path).constData(), &after), 0);
  // An atomic rewrite would be a new file.
  EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(KritarcFileTest, AFolderInTheFilesPlaceIsAReasonAndStaysAsItIs) {
  const QString path = dir_.filePath(QStringLiteral("kritarc"));
  ASSERT_TRUE(QDir().mkpath(path + QStringLiteral("/inside")));
  const std::optional<QString> failed = setKritarcKeyTrue(path, kKey);
  ASSERT_TRUE(failed.has_value());
  EXPECT_TRUE(failed->startsWith(QStringLiteral("cannot read ") + path)) << failed->toStdString();
  EXPECT_TRUE(QFileInfo(path + QStringLiteral("/inside")).isDir());
}

}  // namespace
}  // namespace tw
