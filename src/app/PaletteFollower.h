#pragma once

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "library/history/HistoryStore.h"
#include "library/palette/Palette.h"

namespace tw {

// Keeps the "Tintwell" palette file in the user palette folders of GIMP,
// Inkscape and Krita following the history, while its option is on. The
// files are written on a thread of their own, at most once a second however
// fast colours come, so neither the pen nor the panel waits for them.
class PaletteFollower {
 public:
  // How many colours the palette holds: a swatch panel with the whole of a
  // long history in it would be of no use.
  static constexpr std::size_t kMostColours = 500;

  // `write` is the writer (syncPaletteFile by default; tests count calls).
  using Writer = std::function<void(const palette::Palette&)>;
  explicit PaletteFollower(std::shared_ptr<history::HistoryStore> store, Writer write = {});
  // Writes once more if a change is pending, then stops.
  ~PaletteFollower();
  PaletteFollower(const PaletteFollower&) = delete;
  PaletteFollower& operator=(const PaletteFollower&) = delete;

  // The history changed: the files follow within a second. Any thread.
  void schedule();

  // The palette for a history (newest first): every starred colour, then the
  // newest others, kMostColours in all, in history order; each named by its
  // own name or its hex.
  static palette::Palette paletteOf(const std::vector<history::Entry>& entries);

 private:
  void run();

  std::shared_ptr<history::HistoryStore> store_;
  Writer write_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool pending_ = false;   // guarded by mutex_
  bool stopping_ = false;  // guarded by mutex_
  std::thread thread_;
};

}  // namespace tw
