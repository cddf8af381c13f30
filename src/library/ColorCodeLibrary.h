#pragma once

#include <QString>
#include <QtGlobal>

namespace tw {

// One entry of a colour code library; the colour name libraries
// (library/names/) are lists of them.
class ColorCodeLibrary {
 public:
  // The colour's name in the library.
  QString name;
  // Its short code.
  QString abbr;
  // Channels, 0 to 255.
  qint64 sR = 0;
  qint64 sG = 0;
  qint64 sB = 0;
  // The CIEDE2000 difference to a query colour in hundredths, rounded, on the
  // copies NameLibrary::nearest gives; 0 elsewhere.
  qint64 delta = 0;
};

}  // namespace tw
