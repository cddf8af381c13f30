#include <benchmark/benchmark.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "color/ColorNotations.h"
#include "color/DeltaE.h"
#include "telemetry/UsageRecords.h"

namespace {

// Numbers of every notation for one colour, walking the cube so that no result
// is cached.
void BM_ComputeNotations(benchmark::State& state) {
  unsigned v = 0;
  for (auto _ : state) {
    v = (v + 40503u) & 0xFFFFFFu;
    benchmark::DoNotOptimize(tw::computeNotations(v >> 16, (v >> 8) & 255, v & 255));
  }
}
BENCHMARK(BM_ComputeNotations);

// Numbers plus the TAB-separated line that `tintwell convert` prints.
void BM_NotationLine(benchmark::State& state) {
  unsigned v = 0;
  char buffer[tw::kNotationLineMax];
  for (auto _ : state) {
    v = (v + 40503u) & 0xFFFFFFu;
    benchmark::DoNotOptimize(
        tw::formatNotationLine(tw::computeNotations(v >> 16, (v >> 8) & 255, v & 255), buffer));
  }
}
BENCHMARK(BM_NotationLine);

// What the panel does per colour: a shared AllColor with five QString texts.
void BM_ConvertToAllColor(benchmark::State& state) {
  unsigned v = 0;
  for (auto _ : state) {
    v = (v + 40503u) & 0xFFFFFFu;
    benchmark::DoNotOptimize(tw::convertToAllColor(v >> 16, (v >> 8) & 255, v & 255));
  }
}
BENCHMARK(BM_ConvertToAllColor);

// Lab of colours spread over the cube by the same stride walk as above.
std::vector<tw::LabColor> labWalk(std::size_t count) {
  std::vector<tw::LabColor> colours;
  colours.reserve(count);
  unsigned v = 0;
  for (std::size_t i = 0; i < count; ++i) {
    v = (v + 40503u) & 0xFFFFFFu;
    colours.push_back(tw::labOfSRGB8(static_cast<std::uint8_t>(v >> 16),
                                     static_cast<std::uint8_t>(v >> 8),
                                     static_cast<std::uint8_t>(v)));
  }
  return colours;
}

// One CIEDE2000 difference between two precomputed Lab colours.
void BM_DeltaE2000(benchmark::State& state) {
  const std::vector<tw::LabColor> colours = labWalk(4096);
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(tw::deltaE2000(colours[i], colours[(i + 1) & 4095]));
    i = (i + 1) & 4095;
  }
}
BENCHMARK(BM_DeltaE2000);

// The nearest of 30,000 precomputed Lab entries to one colour, by a linear scan.
void BM_NearestOf30000(benchmark::State& state) {
  const std::vector<tw::LabColor> table = labWalk(30000);
  const std::vector<tw::LabColor> queries = labWalk(30064);
  std::size_t q = 30000;
  for (auto _ : state) {
    const tw::LabColor& colour = queries[q];
    double best = std::numeric_limits<double>::infinity();
    std::size_t bestIndex = 0;
    for (std::size_t i = 0; i < table.size(); ++i) {
      const double d = tw::deltaE2000(colour, table[i]);
      if (d < best) {
        best = d;
        bestIndex = i;
      }
    }
    benchmark::DoNotOptimize(bestIndex);
    q = q + 1 < queries.size() ? q + 1 : 30000;
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(table.size()));
}
BENCHMARK(BM_NearestOf30000)->Unit(benchmark::kMillisecond);

void fillRecord(tw::ColorRecord& record, int colours) {
  record.update([&](tw::ColorRecord::Fields& f) {
    f.session_begin = "2021/03/04 09:05:00";
    f.session_end = "2021/03/04 09:15:00";
    f.vender = "Vandu";
    f.app = "TW+V";
    f.version = "1.0.0";
    f.counter_device = colours;
    f.colors_screen = "[]";
    QString list = "[";
    for (int i = 0; i < colours; ++i) list += (i ? ",#" : "#") + tw::colorListEntry(i, i, i).mid(1);
    f.colors_device = list + "]";
  });
}

// Encoding a colour record whose device list holds state.range(0) colours.
void BM_EncodeColorRecord(benchmark::State& state) {
  tw::ColorRecord record;
  fillRecord(record, static_cast<int>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(record.toJson());
}
BENCHMARK(BM_EncodeColorRecord)->Arg(0)->Arg(10)->Arg(1000);

void BM_EncodeApplicationRecord(benchmark::State& state) {
  tw::ApplicationRecord record;
  record.update([](tw::ApplicationRecord::Fields& f) {
    f.session_begin = "2021/03/04 09:05:00";
    f.PS = 12;
    f.AI = 3;
  });
  for (auto _ : state) benchmark::DoNotOptimize(record.toJson());
}
BENCHMARK(BM_EncodeApplicationRecord);

}  // namespace
