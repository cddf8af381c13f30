// The gpl palette reader; see palette_reader_fuzzer.h.
#include "palette_reader_fuzzer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tw::fuzzPaletteReader(data, size, tw::palette::Format::Gpl);
  return 0;
}
