// GIMP 2.10 from Debian's package, run without a window (-i) in a throwaway
// profile, loads the palette Tintwell keeps in its palette folder: every
// colour and name comes back through GIMP's own procedures.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>

#include "library/palette/PaletteFolders.h"
#include "tests/support/DesignAppSession.h"

namespace tw::palette {
namespace {

using testing::DesignAppSession;

// Runs GIMP once with `batch` (Script-Fu) and then quits it; its output on
// failure.
QString runGimp(const DesignAppSession& session, const QString& batch) {
  QProcess gimp;
  gimp.setProcessEnvironment(session.environment());
  gimp.setProcessChannelMode(QProcess::MergedChannels);
  gimp.start(QStringLiteral("gimp"), {QStringLiteral("-i"), QStringLiteral("-b"), batch,
                                      QStringLiteral("-b"), QStringLiteral("(gimp-quit 0)")});
  if (!gimp.waitForFinished(60000)) {
    gimp.kill();
    gimp.waitForFinished(5000);
    return QStringLiteral("GIMP did not finish within a minute:\n") +
           QString::fromLocal8Bit(gimp.readAll());
  }
  if (gimp.exitStatus() != QProcess::NormalExit || gimp.exitCode() != 0) {
    return QStringLiteral("GIMP exited with %1:\n").arg(gimp.exitCode()) +
           QString::fromLocal8Bit(gimp.readAll());
  }
  return {};
}

TEST(GimpPaletteLoad, GimpListsEveryColourAndNameOfTheTintwellPalette) {
  if (!testing::hasProgram(QStringLiteral("gimp"))) {
    GTEST_SKIP() << "GIMP is not installed (make design-apps-deps installs it)";
  }
  DesignAppSession session{QString()};
  ASSERT_TRUE(session.isReady());
  const QProcessEnvironment env = session.environment();
  const Palette palette{QStringLiteral("History"),
                        {{QStringLiteral("Rosé Dust"), 210, 150, 160},
                         {QStringLiteral("Black \"ink\", matte"), 0, 0, 0},
                         {QStringLiteral("White"), 255, 255, 255},
                         {QStringLiteral("日本の赤"), 188, 0, 45},
                         {QStringLiteral("two  blanks"), 1, 254, 128}}};

  // Before GIMP's first start there is no profile, and none is made.
  const QString gimpDir = session.configDir() + QStringLiteral("/GIMP/2.10");
  EXPECT_TRUE(syncPaletteFile(palette, env).written.isEmpty());
  ASSERT_FALSE(QDir(gimpDir).exists());

  // The first start sets the profile up; then the file goes in.
  const QString first = runGimp(session, QStringLiteral("(gimp-palettes-refresh)"));
  ASSERT_TRUE(first.isEmpty()) << first.toStdString();
  ASSERT_TRUE(QFile::exists(gimpDir + QStringLiteral("/menurc"))) << "GIMP made no full profile";
  const SyncReport report = syncPaletteFile(palette, env);
  ASSERT_TRUE(report.written.contains(gimpDir + QStringLiteral("/palettes/Tintwell.gpl")))
      << report.written.join(u' ').toStdString() << report.failed.join(u' ').toStdString();

  const QString out = session.home() + QStringLiteral("/palette-read.txt");
  const QString script = QStringLiteral(
                             "(let* ((p \"Tintwell\")"
                             "       (port (open-output-file \"%1\")))"
                             "  (display (cadr (gimp-palettes-get-list \"^Tintwell$\")) port)"
                             "  (newline port)"
                             "  (let loop ((i 0))"
                             "    (if (< i (car (gimp-palette-get-info p)))"
                             "      (begin"
                             "        (display (car (gimp-palette-entry-get-color p i)) port)"
                             "        (display \"|\" port)"
                             "        (display (car (gimp-palette-entry-get-name p i)) port)"
                             "        (newline port)"
                             "        (loop (+ i 1)))))"
                             "  (close-output-port port))")
                             .arg(out);
  const QString second = runGimp(session, script);
  ASSERT_TRUE(second.isEmpty()) << second.toStdString();
  QFile file(out);
  ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << "the script wrote nothing";
  QString expected = QStringLiteral("(Tintwell)\n");
  for (const Swatch& s : palette.swatches) {
    expected += QStringLiteral("(%1 %2 %3)|%4\n").arg(s.red).arg(s.green).arg(s.blue).arg(s.name);
  }
  EXPECT_EQ(file.readAll().toStdString(), expected.toStdString());
}

}  // namespace
}  // namespace tw::palette
