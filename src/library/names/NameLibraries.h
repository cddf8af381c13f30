#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>
#include <optional>

#include "library/names/NameLibrary.h"

namespace tw::names {

// A library file read from disk, by its suffix in any case: a GIMP palette
// (.gpl) or a swatch exchange file (.ase) gives its named swatches in file
// order (unnamed ones are left out and counted in skippedRows), anything else
// is read as CSV. Or why the file could not be read (then `error` holds the
// system's or the palette reader's words).
CsvLoad loadLibraryFile(const QString& path);

// The title a user library gets: its file name without the last suffix.
QString titleOfFile(const QString& path);

// The name libraries the library picker offers, row by row:
//   0  the CSS named colours (cssLibrary())
//   1  the X11 colour names (x11Library())
//   2  the Tango palette (tangoLibrary())
//   3… the user's libraries: the *.csv, *.gpl and *.ase files (suffix in any
//      case) in folder(), by file name (ignoring case, then as is)
// The folder is read again on every call, so a file imported elsewhere shows
// up at the next look. A row outside 0..count()-1 has no library and no title.
class NameLibraries {
 public:
  static constexpr int kCssRow = 0;
  static constexpr int kX11Row = 1;
  static constexpr int kTangoRow = 2;
  static constexpr int kFirstUserRow = 3;

  // $XDG_DATA_HOME/Tintwell/libraries (~/.local/share/… without the variable).
  static QString defaultFolder();

  explicit NameLibraries(QString folder = defaultFolder());

  const QString& folder() const { return folder_; }
  // Paths of the user library files in row order.
  QStringList userFiles() const;
  // The row texts: the three built-in titles, then each user file's title.
  QStringList titles() const;
  int count() const;

  // The library of `row`: nothing for a row out of range, or for a user file
  // that is gone, cannot be read or has no usable header row (then `error`,
  // when given, says why). A readable file whose rows are all left out gives an
  // empty library.
  std::optional<NameLibrary> library(int row, QString* error = nullptr) const;

  // Copies the file at `path` into folder() (made when missing), under its own
  // file name, replacing an earlier import of that name. Only a .csv, .gpl or
  // .ase file (any case) that reads as a library with at least one colour is
  // taken. Gives the copy's path, or nothing and why in `error`.
  std::optional<QString> importFile(const QString& path, QString* error = nullptr) const;

 private:
  QString folder_;
};

}  // namespace tw::names
