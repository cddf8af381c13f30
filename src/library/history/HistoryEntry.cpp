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

}  // namespace tw::history
