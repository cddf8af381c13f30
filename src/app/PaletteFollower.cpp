#include "app/PaletteFollower.h"

#include <chrono>

#include "library/palette/PaletteFolders.h"

namespace tw {

namespace {

constexpr auto kQuietPeriod = std::chrono::seconds(1);

}  // namespace

PaletteFollower::PaletteFollower(std::shared_ptr<history::HistoryStore> store, Writer write)
    : store_(std::move(store)), write_(std::move(write)) {
  if (!write_) write_ = [](const palette::Palette& p) { palette::syncPaletteFile(p); };
  thread_ = std::thread([this] { run(); });
}

PaletteFollower::~PaletteFollower() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void PaletteFollower::schedule() {
  {
    std::lock_guard lock(mutex_);
    pending_ = true;
  }
  wake_.notify_all();
}

palette::Palette PaletteFollower::paletteOf(const std::vector<history::Entry>& entries) {
  std::size_t starred = 0;
  for (const history::Entry& entry : entries) starred += entry.starred ? 1 : 0;
  // Room left for the newest colours without a star.
  std::size_t others = starred >= kMostColours ? 0 : kMostColours - starred;
  std::size_t starsLeft = kMostColours - others;
  palette::Palette result;
  result.name = QStringLiteral("Tintwell");
  for (const history::Entry& entry : entries) {
    if (entry.starred ? starsLeft == 0 : others == 0) continue;
    --(entry.starred ? starsLeft : others);
    result.swatches.push_back({history::paletteName(entry), entry.red, entry.green, entry.blue});
  }
  return result;
}

void PaletteFollower::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [this] { return pending_ || stopping_; });
    if (!pending_) return;
    // Colours coming fast are written together.
    if (!stopping_) wake_.wait_for(lock, kQuietPeriod, [this] { return stopping_; });
    pending_ = false;
    lock.unlock();
    write_(paletteOf(store_->entries()));
    lock.lock();
  }
}

}  // namespace tw
