// The rewrite of Photoshop's PSUserConfig.txt (bridge/PhotoshopSettings.h) on
// any file content: the input is the file.
#include <QByteArray>
#include <QList>
#include <cstdint>

#include "FuzzInput.h"
#include "bridge/PhotoshopSettings.h"

namespace tw {
namespace {

QList<QByteArray> nonEmptyLines(const QByteArray& text) {
  QList<QByteArray> lines = text.split('\n');
  lines.removeIf([](const QByteArray& line) { return line.isEmpty(); });
  return lines;
}

void runOne(const QByteArray& original) {
  const QByteArray line(kWarnRunningScriptsLine);
  const std::optional<QByteArray> patched = patchedPhotoshopSettings(original);
  // The line holds no line feed, so some line holds it exactly when the file does.
  TW_FUZZ_CHECK(patched.has_value() == !original.contains(line));
  if (!patched) return;
  // The user's non-blank lines, byte for byte and in order, then the line,
  // without a final line feed.
  QList<QByteArray> expected = nonEmptyLines(original);
  expected.append(line);
  TW_FUZZ_CHECK(patched->split('\n') == expected);
  TW_FUZZ_CHECK(patched->endsWith(line));
  TW_FUZZ_CHECK(!patched->contains("\n\n") && !patched->startsWith('\n'));
  // Patching twice changes nothing more.
  TW_FUZZ_CHECK(!patchedPhotoshopSettings(*patched).has_value());
}

}  // namespace
}  // namespace tw

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tw::runOne(QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)));
  return 0;
}
