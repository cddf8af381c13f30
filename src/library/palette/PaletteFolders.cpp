#include "library/palette/PaletteFolders.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

#include "library/palette/PaletteFormats.h"

namespace tw::palette {

namespace {

const QString kFileName = QStringLiteral("Tintwell.gpl");

// An XDG base folder: the variable when it holds an absolute path (the base
// directory rules ignore relative ones), the default under HOME otherwise.
QString xdgDir(const QProcessEnvironment& environment, const QString& variable, const QString& home,
               const QString& fallback) {
  const QString value = environment.value(variable);
  if (!value.isEmpty() && QDir::isAbsolutePath(value)) return QDir::cleanPath(value);
  return QDir::cleanPath(home + u'/' + fallback);
}

PaletteFolder folder(const QString& application, const QString& profileDir) {
  const QString paletteDir = profileDir + QStringLiteral("/palettes");
  return {application, profileDir, paletteDir, paletteDir + u'/' + kFileName};
}

}  // namespace

std::vector<PaletteFolder> paletteFolders(const QProcessEnvironment& environment) {
  const QString home = environment.value(QStringLiteral("HOME"));
  if (home.isEmpty() || !QDir::isAbsolutePath(home)) return {};
  const QString config =
      xdgDir(environment, QStringLiteral("XDG_CONFIG_HOME"), home, QStringLiteral(".config"));
  const QString data =
      xdgDir(environment, QStringLiteral("XDG_DATA_HOME"), home, QStringLiteral(".local/share"));

  // GIMP's ${gimp_dir}: GIMP2_DIRECTORY, relative to HOME unless absolute
  // (its gimprc says so), else the per-version folder under the config base.
  // Its palette-path starts with ${gimp_dir}/palettes.
  QString gimp = environment.value(QStringLiteral("GIMP2_DIRECTORY"));
  if (gimp.isEmpty()) {
    gimp = config + QStringLiteral("/GIMP/2.10");
  } else if (!QDir::isAbsolutePath(gimp)) {
    gimp = home + u'/' + gimp;
  }
  // Inkscape's profile: INKSCAPE_PROFILE_DIR when set, else inkscape/ under
  // the config base.
  QString inkscape = environment.value(QStringLiteral("INKSCAPE_PROFILE_DIR"));
  if (inkscape.isEmpty() || !QDir::isAbsolutePath(inkscape)) {
    inkscape = config + QStringLiteral("/inkscape");
  }
  // Krita keeps its resources (palettes among them) in its application data
  // folder; a resource folder moved in its settings is not followed.
  const QString krita = data + QStringLiteral("/krita");

  return {folder(QStringLiteral("GIMP"), QDir::cleanPath(gimp)),
          folder(QStringLiteral("Inkscape"), QDir::cleanPath(inkscape)),
          folder(QStringLiteral("Krita"), krita)};
}

// Why only existing profiles: GIMP treats a missing profile folder as its
// first start and sets the profile up then.
//  - GIMP 2.10 runs its user installation (and the migration of an older
//    version's settings) only when ${gimp_dir} does not exist. A profile made
//    of nothing but palettes/Tintwell.gpl makes it skip both: it was seen to
//    start without its copied settings and data folders and to warn about the
//    missing ones.
//  - Inkscape 1.2 was seen to fill in a profile holding only palettes/ on its
//    first start; it gets the same rule all the same, as later versions may
//    not, and a user who never started it has no use for the file yet.
//  - Krita builds its resource folder and database on its first start; how
//    it takes a folder that holds only palettes/ was not tried, so it gets
//    the same rule.
// Whether the program is installed is not asked: installed but never started
// still has no profile to write into, and a profile left by an uninstalled
// application takes the file harmlessly. The palettes folder itself is made
// when the profile exists without it.
SyncReport syncPaletteFile(const Palette& palette, const QProcessEnvironment& environment) {
  SyncReport report;
  // The applications list the palette by the name inside the file.
  Palette titled = palette;
  titled.name = QStringLiteral("Tintwell");
  const QByteArray bytes = writeGpl(titled);
  for (const PaletteFolder& target : paletteFolders(environment)) {
    if (!QFileInfo(target.profileDir).isDir()) {
      report.skipped.append(target.paletteFile);
      continue;
    }
    if (!QDir().mkpath(target.paletteDir)) {
      report.failed.append(target.paletteFile + QStringLiteral(": cannot create the folder"));
      continue;
    }
    QSaveFile file(target.paletteFile);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
      report.failed.append(target.paletteFile + QStringLiteral(": ") + file.errorString());
      continue;
    }
    report.written.append(target.paletteFile);
  }
  return report;
}

}  // namespace tw::palette
