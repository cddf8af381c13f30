#include "bridge/PhotoshopSettings.h"

#include <QList>

namespace tw {

std::optional<QByteArray> patchedPhotoshopSettings(const QByteArray& original) {
  const QByteArray line(kWarnRunningScriptsLine);
  QByteArray text;
  bool present = false;
  for (const QByteArray& piece : original.split('\n')) {
    if (piece.isEmpty()) continue;
    text += piece;
    text += '\n';
    if (piece.contains(line)) present = true;
  }
  if (present) return std::nullopt;
  text += line;
  return text;
}

}  // namespace tw
