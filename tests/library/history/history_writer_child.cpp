// A process of its own writing the colour history, for the tests that kill it
// or run it as another user.
//
//   history_writer_child write PATH RATE
//     Appends a colour RATE times a second until killed; the commit handler
//     prints "committed <id> <rrggbb>" for each, flushed at once.
//   history_writer_child probe PATH
//     Appends two colours and flushes, then prints "fault <kind>" for each
//     fault reported, "pending <n>" and "count <n>"; then waits for a line on
//     standard input, appends a third colour, flushes and prints "pending <n>"
//     and "count <n>" again.
#include <QCoreApplication>
#include <QDateTime>
#include <QTextStream>
#include <QThread>
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>

#include "library/history/HistoryStore.h"

using tw::history::Entry;
using tw::history::Fault;
using tw::history::HistoryStore;

namespace {

const char* faultName(Fault fault) {
  switch (fault) {
    case Fault::Locked:
      return "locked";
    case Fault::ReadOnly:
      return "readonly";
    case Fault::Full:
      return "full";
    case Fault::Corrupt:
      return "corrupt";
    case Fault::Unavailable:
      return "unavailable";
  }
  return "?";
}

Entry colour(int n) {
  Entry entry;
  entry.timeMs = QDateTime::currentMSecsSinceEpoch();
  entry.red = n % 256;
  entry.green = (n * 7 + 3) % 256;
  entry.blue = (n * 13 + 5) % 256;
  return entry;
}

int write(const QString& path, int rate) {
  HistoryStore::Options options;
  options.path = path;
  HistoryStore store(
      options, [](Fault fault, const QString&) { std::printf("fault %s\n", faultName(fault)); },
      [](const Entry& committed) {
        std::printf("committed %lld %02x%02x%02x\n", static_cast<long long>(committed.id),
                    committed.red, committed.green, committed.blue);
        std::fflush(stdout);
      });
  const int intervalMs = 1000 / std::max(1, rate);
  for (int n = 0;; ++n) {
    store.append(colour(n));
    QThread::msleep(static_cast<unsigned long>(intervalMs));
  }
}

int probe(const QString& path) {
  HistoryStore::Options options;
  options.path = path;
  options.busyTimeoutMs = 200;
  HistoryStore store(options, [](Fault fault, const QString&) {
    std::printf("fault %s\n", faultName(fault));
    std::fflush(stdout);
  });
  auto status = [&store] {
    store.flush(10000);
    std::printf("pending %lld\ncount %lld\n", static_cast<long long>(store.pendingCount()),
                static_cast<long long>(store.count()));
    std::fflush(stdout);
  };
  store.append(colour(1));
  store.append(colour(2));
  status();
  std::string line;
  if (!std::getline(std::cin, line)) return 1;
  store.append(colour(3));
  status();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  const QStringList args = QCoreApplication::arguments();
  if (args.size() == 4 && args[1] == QLatin1String("write")) return write(args[2], args[3].toInt());
  if (args.size() == 3 && args[1] == QLatin1String("probe")) return probe(args[2]);
  std::fprintf(stderr, "usage: history_writer_child write PATH RATE | probe PATH\n");
  return 2;
}
