#include "library/names/NameLibraries.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <algorithm>
#include <utility>

#include "library/palette/Palette.h"

namespace tw::names {

namespace {

void setError(QString* error, const QString& text) {
  if (error) *error = text;
}

bool isCsvName(const QString& fileName) {
  return fileName.endsWith(QStringLiteral(".csv"), Qt::CaseInsensitive);
}

// The palette format a library file is read as, by its suffix: GIMP palettes
// and swatch exchange files; anything else is read as CSV.
std::optional<palette::Format> paletteFormatOf(const QString& fileName) {
  if (fileName.endsWith(QStringLiteral(".gpl"), Qt::CaseInsensitive)) return palette::Format::Gpl;
  if (fileName.endsWith(QStringLiteral(".ase"), Qt::CaseInsensitive)) return palette::Format::Ase;
  return std::nullopt;
}

bool isLibraryName(const QString& fileName) {
  return isCsvName(fileName) || paletteFormatOf(fileName).has_value();
}

// A library from a file's bytes: a palette's swatches in file order, titled
// with the file's title (as its row is), or the CSV reader's answer. A swatch
// without a name names nothing, so it is left out and counted like a CSV row
// without one.
CsvLoad loadLibraryBytes(const QByteArray& bytes, const QString& path) {
  const auto format = paletteFormatOf(QFileInfo(path).fileName());
  if (!format) return loadCsvLibrary(bytes, titleOfFile(path));
  palette::ReadResult read = palette::readPalette(bytes, *format);
  CsvLoad load;
  if (!read.palette) {
    load.error = read.error;
    return load;
  }
  palette::Palette named;
  named.name = titleOfFile(path);
  for (palette::Swatch& swatch : read.palette->swatches) {
    if (swatch.name.trimmed().isEmpty())
      ++load.skippedRows;
    else
      named.swatches.push_back(std::move(swatch));
  }
  load.library = NameLibrary::fromPalette(named);
  return load;
}

}  // namespace

CsvLoad loadLibraryFile(const QString& path) {
  QFile file(path);
  // A folder opens, and then reads nothing: say so instead of "no header row".
  if (QFileInfo(path).isDir()) {
    CsvLoad load;
    load.error = QStringLiteral("is a directory");
    return load;
  }
  if (!file.open(QIODevice::ReadOnly)) {
    CsvLoad load;
    load.error = file.errorString();
    return load;
  }
  return loadLibraryBytes(file.readAll(), path);
}

QString titleOfFile(const QString& path) { return QFileInfo(path).completeBaseName(); }

QString NameLibraries::defaultFolder() {
  return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
         QStringLiteral("/Tintwell/libraries");
}

NameLibraries::NameLibraries(QString folder) : folder_(std::move(folder)) {}

QStringList NameLibraries::userFiles() const {
  const QDir dir(folder_);
  QStringList names;
  for (const QString& name : dir.entryList(QDir::Files | QDir::Readable | QDir::Hidden)) {
    if (isLibraryName(name)) names.append(name);
  }
  std::sort(names.begin(), names.end(), [](const QString& x, const QString& y) {
    const int folded = x.compare(y, Qt::CaseInsensitive);
    return folded != 0 ? folded < 0 : x < y;
  });
  QStringList paths;
  for (const QString& name : names) paths.append(dir.filePath(name));
  return paths;
}

QStringList NameLibraries::titles() const {
  QStringList rows{cssLibrary().title(), x11Library().title(), tangoLibrary().title()};
  for (const QString& path : userFiles()) rows.append(titleOfFile(path));
  return rows;
}

int NameLibraries::count() const { return kFirstUserRow + static_cast<int>(userFiles().size()); }

std::optional<NameLibrary> NameLibraries::library(int row, QString* error) const {
  if (row == kCssRow) return cssLibrary();
  if (row == kX11Row) return x11Library();
  if (row == kTangoRow) return tangoLibrary();
  const QStringList files = userFiles();
  if (row < kFirstUserRow || row - kFirstUserRow >= files.size()) {
    setError(error, QStringLiteral("no library in row %1").arg(row));
    return std::nullopt;
  }
  CsvLoad load = loadLibraryFile(files[row - kFirstUserRow]);
  if (!load.error.isEmpty()) {
    setError(error, load.error);
    return std::nullopt;
  }
  return std::move(load.library);
}

std::optional<QString> NameLibraries::importFile(const QString& path, QString* error) const {
  const QString fileName = QFileInfo(path).fileName();
  if (!isLibraryName(fileName)) {
    setError(error, QStringLiteral("not a .csv, .gpl or .ase file"));
    return std::nullopt;
  }
  QFile source(path);
  if (QFileInfo(path).isDir() || !source.open(QIODevice::ReadOnly)) {
    setError(error,
             QFileInfo(path).isDir() ? QStringLiteral("is a directory") : source.errorString());
    return std::nullopt;
  }
  const QByteArray bytes = source.readAll();
  const CsvLoad load = loadLibraryBytes(bytes, path);
  if (!load.error.isEmpty() || load.library.isEmpty()) {
    setError(error, load.error.isEmpty() ? QStringLiteral("no colour in it") : load.error);
    return std::nullopt;
  }
  if (!QDir().mkpath(folder_)) {
    setError(error, QStringLiteral("cannot make the folder %1").arg(folder_));
    return std::nullopt;
  }
  // Written whole or not at all: a failed import leaves an earlier one intact.
  const QString target = QDir(folder_).filePath(fileName);
  QSaveFile copy(target);
  if (!copy.open(QIODevice::WriteOnly) || copy.write(bytes) != bytes.size() || !copy.commit()) {
    setError(error, copy.errorString());
    return std::nullopt;
  }
  return target;
}

}  // namespace tw::names
