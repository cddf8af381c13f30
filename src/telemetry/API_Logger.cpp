#include "telemetry/API_Logger.h"

#include "common/Fatal.h"
#include "common/Log.h"

namespace tw {

void API_Logger::startLogging() {
  auto color = std::make_shared<ColorRecord>();
  color->update([](ColorRecord::Fields& f) { f.session_begin = currentTimeText(); });
  std::lock_guard lock(recordsMutex_);
  colorRecord_ = std::move(color);
  applicationRecord_ = std::make_shared<ApplicationRecord>();
}

std::shared_ptr<ColorRecord> API_Logger::colorRecord() const {
  std::lock_guard lock(recordsMutex_);
  return colorRecord_;
}

void API_Logger::setColorRecord(std::shared_ptr<ColorRecord> record) {
  std::lock_guard lock(recordsMutex_);
  colorRecord_ = std::move(record);
}

std::shared_ptr<ApplicationRecord> API_Logger::applicationRecord() const {
  std::lock_guard lock(recordsMutex_);
  return applicationRecord_;
}

void API_Logger::setApplicationRecord(std::shared_ptr<ApplicationRecord> record) {
  std::lock_guard lock(recordsMutex_);
  applicationRecord_ = std::move(record);
}

std::shared_ptr<ColorRecord> API_Logger::requireColorRecord() const {
  auto record = colorRecord();
  if (!record) fatalStop("the colour usage record is missing");
  return record;
}

void API_Logger::countColor(qint64 red, qint64 green, qint64 blue) {
  // The start-up colour is only shown, never counted.
  if (bFirstColor.exchange(false)) return;
  const QString entry = colorListEntry(red, green, blue);
  const bool fromScreen = bPickScreenColor.exchange(false);
  const QString screenList = requireColorRecord()->update([&](ColorRecord::Fields& f) {
    if (fromScreen) {
      f.colors_screen += QLatin1Char(',') + entry;
      incrementCounter(f.counter_screen);
    } else {
      f.colors_device += QLatin1Char(',') + entry;
      incrementCounter(f.counter_device);
    }
    return f.colors_screen;
  });
  // The screen list is printed whichever list grew.
  logLine(screenList);
}

namespace {

void closeList(QString& list, qint64 counter) {
  if (list.startsWith(QLatin1Char(','))) list = QLatin1Char('[') + list.mid(1) + QLatin1Char(']');
  if (counter == 0) list = QStringLiteral("[]");
}

}  // namespace

void API_Logger::closeColorLists() {
  requireColorRecord()->update([](ColorRecord::Fields& f) {
    closeList(f.colors_screen, f.counter_screen);
    closeList(f.colors_device, f.counter_device);
  });
}

void API_Logger::startNewColorRecord() {
  const ColorRecord::Fields old = requireColorRecord()->read();
  auto fresh = std::make_shared<ColorRecord>();
  fresh->update([&](ColorRecord::Fields& f) {
    f.vender = old.vender;
    f.app = old.app;
    f.version = old.version;
  });
  setColorRecord(fresh);
  fresh->update([](ColorRecord::Fields& f) { f.session_begin = currentTimeText(); });
}

}  // namespace tw
