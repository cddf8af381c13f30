#include "bridge/PhotoshopSettings.h"

#include <QStringDecoder>
#include <QStringList>

namespace tw {

std::optional<QString> photoshopSettingsText(const QByteArray& bytes) {
  QStringDecoder decoder(QStringDecoder::Utf8,
                         QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
  QString text = decoder.decode(bytes);
  if (decoder.hasError()) return std::nullopt;
  return text;
}

std::optional<QString> patchedPhotoshopSettings(const QString& original) {
  const QString line = QString::fromLatin1(kWarnRunningScriptsLine);
  QString text;
  bool present = false;
  for (const QString& piece : original.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
    text += piece;
    text += QLatin1Char('\n');
    if (piece.contains(line)) present = true;
  }
  if (present) return std::nullopt;
  text += line;
  return text;
}

}  // namespace tw
