#pragma once

// The writers and readers behind writePalette() and readPalette(), one per
// format, for callers and tests that know the format already.

#include <QByteArray>
#include <QString>

#include "library/palette/Palette.h"

namespace tw::palette {

QByteArray writeGpl(const Palette& palette);
ReadResult readGpl(const QByteArray& bytes);

QByteArray writeAse(const Palette& palette);
ReadResult readAse(const QByteArray& bytes);

QByteArray writeCss(const Palette& palette);
// The custom property name (without "--") each swatch gets, in order: ASCII
// letters and digits lower-cased, every other run of characters one '-',
// no '-' at either end; "color-N" (N from 1) when nothing is left; a name
// already taken gets "-2", "-3", ...
QStringList cssSlugs(const Palette& palette);

QByteArray writeCsv(const Palette& palette);
ReadResult readCsv(const QByteArray& bytes);

// A name as one line: line breaks (and other control characters) become
// blanks, so a file that keeps one swatch per line stays intact.
QString oneLine(const QString& name);

}  // namespace tw::palette
