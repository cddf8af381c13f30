#pragma once

#include <QString>
#include <QtGlobal>

namespace tw {

// One entry of a colour code library. Nothing builds entries yet: the table
// columns and the matching rule that would fill `delta` are still open.
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
  // Meant for a colour difference; never computed.
  qint64 delta = 0;
};

}  // namespace tw
