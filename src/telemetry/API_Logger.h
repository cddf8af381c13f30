#pragma once

#include <QtGlobal>
#include <atomic>
#include <memory>
#include <mutex>

#include "telemetry/UsageRecords.h"

namespace tw {

// The telemetry sender: counts colours into the session's records and posts them.
// The colour and push counts are fed from the pen thread and the main thread,
// and the records are replaced from network completions, so the record
// references sit behind a lock and the flags are atomic.
class API_Logger {
 public:
  API_Logger() = default;
  API_Logger(const API_Logger&) = delete;
  API_Logger& operator=(const API_Logger&) = delete;

  // Starts a session: fresh records and the session's begin stamp.
  void startLogging();

  // Counts a colour as a screen colour when a screen pick was armed, else as a
  // pen colour. The very first colour after start is neither counted nor listed.
  void countColor(qint64 red, qint64 green, qint64 blue);
  // Turns ",#A,#B" into "[#A,#B]" (a list already closed stays as it is), and an
  // empty count into "[]".
  void closeColorLists();
  // Replaces the colour record with a fresh one that keeps vender, app and
  // version, and stamps its begin.
  void startNewColorRecord();

  std::shared_ptr<ColorRecord> colorRecord() const;
  void setColorRecord(std::shared_ptr<ColorRecord> record);
  std::shared_ptr<ApplicationRecord> applicationRecord() const;
  void setApplicationRecord(std::shared_ptr<ApplicationRecord> record);

  std::atomic<bool> bFirstColor{true};
  std::atomic<bool> bAppShouldClose{false};
  std::atomic<bool> bPickScreenColor{false};
  std::atomic<bool> bColorApiDone{false};
  std::atomic<bool> bAppUsageApiDone{false};

 private:
  // The colour record; absent before startLogging, which makes counting fatal.
  std::shared_ptr<ColorRecord> requireColorRecord() const;

  mutable std::mutex recordsMutex_;
  std::shared_ptr<ColorRecord> colorRecord_;
  std::shared_ptr<ApplicationRecord> applicationRecord_;
};

}  // namespace tw
