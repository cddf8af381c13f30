#pragma once

#include <QString>
#include <QtGlobal>
#include <optional>

namespace tw::history {

// Where an accepted colour came from.
enum class Source { Pen, Screen, Imported };

// "pen", "screen", "imported": as stored and as printed.
QString sourceName(Source source);
std::optional<Source> sourceFromName(const QString& name);

// One colour of the history, as stored.
struct Entry {
  // Row id, assigned when committed; 0 before.
  qint64 id = 0;
  // When the colour was accepted, milliseconds since the epoch, UTC.
  qint64 timeMs = 0;
  Source source = Source::Pen;
  int red = 0;
  int green = 0;
  int blue = 0;
  // The user's own name for it; empty for none.
  QString alias;
  bool starred = false;

  friend bool operator==(const Entry&, const Entry&) = default;
};

// "#RRGGBB", upper case.
QString hexOf(const Entry& entry);
// What a colour is called in a palette file: the user's name for it, or its
// hex.
QString paletteName(const Entry& entry);

}  // namespace tw::history
