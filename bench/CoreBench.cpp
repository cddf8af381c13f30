#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <limits>
#include <random>
#include <vector>

#include "color/ColorNotations.h"
#include "color/DeltaE.h"
#include "library/names/NameLibrary.h"
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

// A name library of 30,000 random sRGB colours (the same on every run).
const tw::names::NameLibrary& randomNames30000() {
  static const tw::names::NameLibrary library = [] {
    std::mt19937 rng(30000);
    std::uniform_int_distribution<int> channel(0, 255);
    QList<tw::ColorCodeLibrary> entries;
    for (int i = 0; i < 30000; ++i) {
      tw::ColorCodeLibrary e;
      e.name = QStringLiteral("c%1").arg(i);
      e.sR = channel(rng);
      e.sG = channel(rng);
      e.sB = channel(rng);
      entries.append(e);
    }
    return tw::names::NameLibrary(QStringLiteral("random"), entries);
  }();
  return library;
}

double threadCpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// Each query timed on its own, random colours; state.range(0) names are asked
// for. Counters, in microseconds per query: median_us and p99_us of the wall
// time (the manual time), cpu_median_us and cpu_p99_us of the thread's CPU
// time, which leaves out the time the thread waited for a core on a busy
// machine.
template <bool kFullScan>
void nearestNameQueries(benchmark::State& state) {
  const tw::names::NameLibrary& library = randomNames30000();
  const int n = static_cast<int>(state.range(0));
  std::mt19937 rng(20261125);
  std::uniform_int_distribution<int> channel(0, 255);
  std::vector<double> wall;
  std::vector<double> cpu;
  wall.reserve(static_cast<std::size_t>(state.max_iterations));
  cpu.reserve(static_cast<std::size_t>(state.max_iterations));
  for (auto _ : state) {
    const int r = channel(rng), g = channel(rng), b = channel(rng);
    const double cpuStart = threadCpuSeconds();
    const auto start = std::chrono::steady_clock::now();
    auto found = kFullScan ? library.nearestByFullScan(r, g, b, n) : library.nearest(r, g, b, n);
    benchmark::DoNotOptimize(found);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    cpu.push_back((threadCpuSeconds() - cpuStart) * 1e6);
    state.SetIterationTime(took.count());
    wall.push_back(took.count() * 1e6);
  }
  const auto at = [](std::vector<double>& v, double q) {
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, static_cast<std::size_t>(q * static_cast<double>(v.size())))];
  };
  state.counters["median_us"] = at(wall, 0.5);
  state.counters["p99_us"] = at(wall, 0.99);
  state.counters["cpu_median_us"] = at(cpu, 0.5);
  state.counters["cpu_p99_us"] = at(cpu, 0.99);
}

// NameLibrary::nearest on 30,000 entries: the pruned search.
void BM_NearestName30000(benchmark::State& state) { nearestNameQueries<false>(state); }
BENCHMARK(BM_NearestName30000)
    ->Arg(1)
    ->Arg(5)
    ->Iterations(20000)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

// The same answers by computing all 30,000 differences: the baseline.
void BM_NearestName30000FullScan(benchmark::State& state) { nearestNameQueries<true>(state); }
BENCHMARK(BM_NearestName30000FullScan)
    ->Arg(1)
    ->Iterations(1000)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

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
