#include <benchmark/benchmark.h>

#include <QString>

#include "library/CSwiftV.h"

namespace {

// A colour library table of `rows` entries: name, code and three channels, with
// every fourth name quoted around a comma.
QString libraryTable(int rows) {
  QString text = QStringLiteral("name,abbr,r,g,b\r\n");
  text.reserve(rows * 40);
  for (int i = 0; i < rows; ++i) {
    if (i % 4 == 0) {
      text += QStringLiteral("\"Colour %1, warm\",C%1,%2,%3,%4\r\n")
                  .arg(i)
                  .arg(i % 256)
                  .arg((i * 7) % 256)
                  .arg((i * 13) % 256);
    } else {
      text += QStringLiteral("Colour %1,C%1,%2,%3,%4\r\n")
                  .arg(i)
                  .arg(i % 256)
                  .arg((i * 7) % 256)
                  .arg((i * 13) % 256);
    }
  }
  return text;
}

void BM_ReadTable(benchmark::State& state) {
  const QString text = libraryTable(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    const tw::CSwiftV table(text);
    benchmark::DoNotOptimize(table.keyedRows()->size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.SetBytesProcessed(state.iterations() * text.size() * 2);
}
BENCHMARK(BM_ReadTable)->Arg(10000)->Unit(benchmark::kMillisecond);

// An opening quote that is never closed joins the whole rest of the text into
// one line; this must stay linear, not quadratic.
void BM_ReadUnbalancedQuote(benchmark::State& state) {
  const QString text = QStringLiteral("\"") + libraryTable(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    const tw::CSwiftV table(text, QStringList{QStringLiteral("h")});
    benchmark::DoNotOptimize(table.rows().size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_ReadUnbalancedQuote)->Arg(10000)->Arg(40000)->Unit(benchmark::kMillisecond);

}  // namespace
