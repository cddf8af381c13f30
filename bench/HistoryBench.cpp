// The colour history store: one colour from append() to its commit handler
// (synchronous=FULL, so one sync of the log each), and reading 100,000 rows.
//   build/bench/history_bench [--benchmark_filter=...]
// The files are made in a temporary folder of the current file system's
// temporary location (TMPDIR).
#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "library/history/HistoryStore.h"

namespace {

using tw::history::Entry;
using tw::history::HistoryStore;

Entry colour(int n) {
  Entry entry;
  entry.timeMs = 1'700'000'000'000 + n;
  entry.red = n % 256;
  entry.green = (n / 256) % 256;
  entry.blue = (n * 7) % 256;
  if (n % 10 == 0) entry.alias = QStringLiteral("Colour %1").arg(n);
  entry.starred = n % 50 == 0;
  return entry;
}

double percentile(std::vector<double> samples, double fraction) {
  if (samples.empty()) return 0;
  std::sort(samples.begin(), samples.end());
  const auto index = static_cast<std::size_t>(fraction * static_cast<double>(samples.size() - 1));
  return samples[index];
}

void BM_HistoryAppendCommit(benchmark::State& state) {
  QTemporaryDir dir;
  HistoryStore::Options options;
  options.path = dir.filePath(QStringLiteral("history.sqlite"));
  std::mutex mutex;
  std::condition_variable committed;
  qint64 lastId = 0;
  HistoryStore store(options, {}, [&](const Entry& entry) {
    {
      std::lock_guard lock(mutex);
      lastId = entry.id;
    }
    committed.notify_all();
  });
  store.flush();
  std::vector<double> microseconds;
  int n = 0;
  for (auto _ : state) {
    qint64 before = 0;
    {
      std::lock_guard lock(mutex);
      before = lastId;
    }
    const auto start = std::chrono::steady_clock::now();
    store.append(colour(n++));
    std::unique_lock lock(mutex);
    committed.wait(lock, [&] { return lastId != before; });
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(elapsed.count());
    microseconds.push_back(elapsed.count() * 1e6);
  }
  state.counters["median_us"] = percentile(microseconds, 0.5);
  state.counters["p99_us"] = percentile(microseconds, 0.99);
}
BENCHMARK(BM_HistoryAppendCommit)->UseManualTime()->Iterations(1000)->Unit(benchmark::kMicrosecond);

void BM_HistoryEntries100k(benchmark::State& state) {
  QTemporaryDir dir;
  HistoryStore::Options options;
  options.path = dir.filePath(QStringLiteral("history.sqlite"));
  HistoryStore store(options);
  std::vector<Entry> rows;
  rows.reserve(100'000);
  for (int i = 0; i < 100'000; ++i) rows.push_back(colour(i));
  if (store.importEntries(rows) != 100'000) {
    state.SkipWithError("the 100,000 rows could not be written");
    return;
  }
  for (auto _ : state) {
    const std::vector<Entry> entries = store.entries();
    benchmark::DoNotOptimize(entries.data());
    if (entries.size() != 100'000) state.SkipWithError("not every row was read");
  }
  state.SetItemsProcessed(state.iterations() * 100'000);
}
BENCHMARK(BM_HistoryEntries100k)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

}  // namespace

// The SQL driver is a plug-in, which Qt loads only with an application object.
int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
