// The CSV colour name loader (library/names/NameLibrary.h) on any bytes: it
// never crashes or stops, every kept entry is a named colour in range, kept
// and left-out rows add up to the table's rows, and nearest() on the result
// answers what a full scan does.
//
// Input: byte 0 picks the header row (one of a few common ones, or none so the
// text brings its own), bytes 1 to 3 are a query colour, byte 4 the number of
// names asked for; the rest is the text after the header row.
#include <QStringDecoder>
#include <cstdint>

#include "FuzzInput.h"
#include "library/CSwiftV.h"
#include "library/names/NameLibrary.h"

namespace tw::names {
namespace {

using testing::FuzzInput;

void runOne(FuzzInput& in) {
  static const char* const headers[] = {
      "name,hex\n",
      "Name,Red,Green,Blue\n",
      "\"name\",\"hex\",\"code\"\n",
      "hex,abbr,name\n",
      "name,hex,red,green,blue\n",
      "NAME , HEX\r\n",
      "name,red,green\n",
      "",
  };
  const std::uint8_t pick = in.byte();
  const int red = in.byte(), green = in.byte(), blue = in.byte();
  const int n = in.byte() % 8;
  QByteArray bytes(headers[pick % std::size(headers)]);
  bytes.append(in.rest());

  const CsvLoad load = loadCsvLibrary(bytes, QStringLiteral("fuzz"));
  TW_FUZZ_CHECK(load.library.title() == QStringLiteral("fuzz"));
  if (!load.error.isEmpty()) {
    TW_FUZZ_CHECK(load.library.isEmpty());
    TW_FUZZ_CHECK(load.skippedRows == 0);
    return;
  }
  // The same table as the loader saw it.
  QString text = QStringDecoder(QStringDecoder::Utf8)(bytes);
  text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
  TW_FUZZ_CHECK(CSwiftV::hasHeaderLine(text));
  const CSwiftV table(text);
  TW_FUZZ_CHECK(load.library.size() + load.skippedRows == table.rows().size());

  for (const ColorCodeLibrary& e : load.library.entries()) {
    TW_FUZZ_CHECK(!e.name.isEmpty());
    TW_FUZZ_CHECK(e.sR >= 0 && e.sR <= 255 && e.sG >= 0 && e.sG <= 255 && e.sB >= 0 && e.sB <= 255);
    TW_FUZZ_CHECK(e.delta == 0);
  }

  const auto fast = load.library.nearest(red, green, blue, n);
  const auto full = load.library.nearestByFullScan(red, green, blue, n);
  TW_FUZZ_CHECK(fast.size() == full.size());
  TW_FUZZ_CHECK(fast.size() ==
                static_cast<std::size_t>(n < 1 ? 0 : std::min<qsizetype>(n, load.library.size())));
  for (std::size_t i = 0; i < fast.size(); ++i) {
    TW_FUZZ_CHECK(fast[i].entry.name == full[i].entry.name);
    TW_FUZZ_CHECK(fast[i].deltaE == full[i].deltaE);
    TW_FUZZ_CHECK(i == 0 || fast[i - 1].deltaE <= fast[i].deltaE);
  }
}

}  // namespace
}  // namespace tw::names

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tw::testing::FuzzInput in(data, size);
  tw::names::runOne(in);
  return 0;
}
