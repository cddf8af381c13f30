#include "library/history/HistoryEntry.h"

namespace tw::history {

QString sourceName(Source source) {
  switch (source) {
    case Source::Pen:
      return QStringLiteral("pen");
    case Source::Screen:
      return QStringLiteral("screen");
    case Source::Imported:
      return QStringLiteral("imported");
  }
  return QStringLiteral("pen");
}

std::optional<Source> sourceFromName(const QString& name) {
  if (name == QLatin1String("pen")) return Source::Pen;
  if (name == QLatin1String("screen")) return Source::Screen;
  if (name == QLatin1String("imported")) return Source::Imported;
  return std::nullopt;
}

QString hexOf(const Entry& entry) {
  return QStringLiteral("#%1%2%3")
      .arg(entry.red, 2, 16, QLatin1Char('0'))
      .arg(entry.green, 2, 16, QLatin1Char('0'))
      .arg(entry.blue, 2, 16, QLatin1Char('0'))
      .toUpper();
}

QString paletteName(const Entry& entry) {
  return entry.alias.isEmpty() ? hexOf(entry) : entry.alias;
}

}  // namespace tw::history
