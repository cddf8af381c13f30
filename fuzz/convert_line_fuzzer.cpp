// One input line of `tintwell convert` (parseChannelLine), compared with a
// plain reading of the rule: three runs of decimal digits, each at most 255,
// separated by blanks or tabs, blanks around them, one final carriage return
// allowed, nothing else. The input is the line.
#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "FuzzInput.h"
#include "color/ColorNotations.h"
#include "tools/ConvertCommand.h"

namespace tw {
namespace {

std::optional<std::array<int, 3>> byTheRule(std::string_view line) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  std::array<int, 3> values{};
  int count = 0;
  std::size_t i = 0;
  while (i < line.size()) {
    if (line[i] == ' ' || line[i] == '\t') {
      ++i;
      continue;
    }
    if (line[i] < '0' || line[i] > '9') return std::nullopt;
    long value = 0;
    while (i < line.size() && line[i] >= '0' && line[i] <= '9') {
      value = std::min(value * 10 + (line[i] - '0'), 1000L);
      ++i;
    }
    if (count == 3 || value > 255) return std::nullopt;
    values[count++] = static_cast<int>(value);
  }
  if (count != 3) return std::nullopt;
  return values;
}

void runOne(std::string_view line) {
  const std::optional<std::array<int, 3>> channels = parseChannelLine(line);
  TW_FUZZ_CHECK(channels == byTheRule(line));
  if (!channels) return;
  // An accepted line, written back plainly, reads as the same channels.
  const auto [r, g, b] = *channels;
  const std::string plain = std::to_string(r) + " " + std::to_string(g) + "\t" + std::to_string(b);
  TW_FUZZ_CHECK(parseChannelLine(plain) == channels);
  char out[kNotationLineMax];
  const std::size_t n = formatNotationLine(computeNotations(r, g, b), out);
  char hex[8];
  std::snprintf(hex, sizeof hex, "%02X%02X%02X\t", r, g, b);
  TW_FUZZ_CHECK(n > 7 && n < kNotationLineMax && out[n - 1] == '\n');
  TW_FUZZ_CHECK(std::string_view(out, 7) == hex);
}

}  // namespace
}  // namespace tw

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tw::runOne(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
