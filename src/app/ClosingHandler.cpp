#include "app/ClosingHandler.h"

#include "common/Fatal.h"
#include "common/Log.h"
#include "events/Notifications.h"
#include "telemetry/Reachability.h"

namespace tw {

ClosingHandler::ClosingHandler(API_Logger& logger, TerminationReply& application)
    : logger_(logger), application_(application), self_(std::make_shared<ClosingHandler*>(this)) {}

ClosingHandler::~ClosingHandler() { *self_ = nullptr; }

void ClosingHandler::observe() {
  // Delivered on the main thread, where this handler is made and destroyed.
  std::weak_ptr<ClosingHandler*> self = self_;
  NotificationCenter::defaultCenter().addObserver(
      notification::appClosing(), [self](const Notification& notification) {
        if (const auto alive = self.lock(); alive && *alive)
          (*alive)->appIsClosingWithNotification(notification);
      });
}

void ClosingHandler::appIsClosingWithNotification(const Notification&) {
  // With usage reports off there is no final post to wait for.
  if (!logger_.isSendingEnabled()) {
    logLine(std::string_view("Usage reports are off: nothing sent"));
    application_.replyToApplicationShouldTerminate(true);
    return;
  }
  if (!Reachability::isConnectedToNetwork()) {
    logLine(std::string_view("No Internet found!"));
    application_.replyToApplicationShouldTerminate(true);
    return;
  }
  const std::shared_ptr<ColorRecord> record = logger_.colorRecord();
  if (!record) fatalStop("the colour usage record is missing at quit");
  const ColorRecord::Fields counted = record->read();
  if (counted.counter_device == 0 && counted.counter_screen == 0) {
    logLine(std::string_view("No log record found!"));
    application_.replyToApplicationShouldTerminate(true);
    return;
  }
  logLine(std::string_view("I will send the color log!"));
  logger_.bAppShouldClose = true;
  logger_.sendLogs();
}

}  // namespace tw
