// Reading and rewriting Photoshop's PSUserConfig.txt (bridge/PhotoshopSettings.h)
// on any file content: the input is the file. Bytes that are not UTF-8 must be
// refused (the caller stops the process on them); text must be patched.
#include <QByteArray>
#include <QString>
#include <QStringDecoder>
#include <QStringList>
#include <cstdint>

#include "FuzzInput.h"
#include "bridge/PhotoshopSettings.h"

namespace tw {
namespace {

void runOne(const QByteArray& bytes) {
  const std::optional<QString> original = photoshopSettingsText(bytes);
  // Valid UTF-8, and only that, survives a lossy decode and re-encode
  // unchanged: anything else comes back with replacement characters.
  QStringDecoder lossy(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
  const QString lossyText = lossy.decode(bytes);
  TW_FUZZ_CHECK(original.has_value() == (lossyText.toUtf8() == bytes));
  if (!original) return;
  // The text is the file: written back, it gives the same bytes.
  TW_FUZZ_CHECK(original->toUtf8() == bytes);

  const QString line = QString::fromLatin1(kWarnRunningScriptsLine);
  const std::optional<QString> patched = patchedPhotoshopSettings(*original);
  // The line holds no line feed, so some line holds it exactly when the file does.
  TW_FUZZ_CHECK(patched.has_value() == !original->contains(line));
  if (!patched) return;
  // The user's non-blank lines, character for character and in order, then
  // the line, without a final line feed.
  QStringList expected = original->split(QLatin1Char('\n'), Qt::SkipEmptyParts);
  expected.append(line);
  TW_FUZZ_CHECK(patched->split(QLatin1Char('\n')) == expected);
  TW_FUZZ_CHECK(patched->endsWith(line));
  TW_FUZZ_CHECK(!patched->contains(QStringLiteral("\n\n")) &&
                !patched->startsWith(QLatin1Char('\n')));
  // What is written reads back as the same text, and patching it again
  // changes nothing more.
  TW_FUZZ_CHECK(photoshopSettingsText(patched->toUtf8()) == patched);
  TW_FUZZ_CHECK(!patchedPhotoshopSettings(*patched).has_value());
}

}  // namespace
}  // namespace tw

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tw::runOne(QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)));
  return 0;
}
