#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <vector>

#include "library/palette/Palette.h"

namespace tw::palette {

// Where one design application looks for the user's palettes, and the file
// Tintwell keeps there.
struct PaletteFolder {
  QString application;  // "GIMP", "Inkscape", "Krita"
  // The application's own settings or resource folder: it exists once the
  // application has run. Tintwell writes only when it does (see
  // syncPaletteFile()).
  QString profileDir;
  QString paletteDir;   // inside profileDir
  QString paletteFile;  // paletteDir + "/Tintwell.gpl"
};

// The folders for the user described by `environment` (HOME, XDG_CONFIG_HOME,
// XDG_DATA_HOME; GIMP2_DIRECTORY and INKSCAPE_PROFILE_DIR, which move those
// applications' folders):
//   GIMP 2.10  $XDG_CONFIG_HOME/GIMP/2.10/palettes/Tintwell.gpl
//   Inkscape   $XDG_CONFIG_HOME/inkscape/palettes/Tintwell.gpl
//   Krita      $XDG_DATA_HOME/krita/palettes/Tintwell.gpl
// An unset, empty or relative XDG variable means its default under HOME.
// Nothing when HOME is unset or relative.
std::vector<PaletteFolder> paletteFolders(
    const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());

// What syncPaletteFile() did, by file path.
struct SyncReport {
  QStringList written;
  QStringList skipped;  // the application has no profile yet
  QStringList failed;   // with the reason after ": "
};

// Writes `palette`, titled "Tintwell" whatever its name, as a GIMP palette
// into each folder of paletteFolders(), in
// one step (a temporary file renamed over the old one), so an application
// never reads half a file. A folder is written only when the application's
// profile folder already exists: creating part of a profile before its first
// start changes that start (see PaletteFolders.cpp).
SyncReport syncPaletteFile(const Palette& palette, const QProcessEnvironment& environment =
                                                       QProcessEnvironment::systemEnvironment());

}  // namespace tw::palette
