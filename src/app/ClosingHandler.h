#pragma once

#include <memory>

#include "events/NotificationCenter.h"
#include "telemetry/API_Logger.h"
#include "telemetry/TerminationReply.h"

namespace tw {

// What the panel does when the application is closing: answer the quit at once
// when offline or when nothing was counted, otherwise let the telemetry sender
// post and answer from its completions. Shared by the desktop panel and the
// command-line listener.
class ClosingHandler {
 public:
  ClosingHandler(API_Logger& logger, TerminationReply& application);
  ~ClosingHandler();
  ClosingHandler(const ClosingHandler&) = delete;
  ClosingHandler& operator=(const ClosingHandler&) = delete;

  // Observes "Notification_App_Closing" on the default centre. Observers are
  // never removed; once this handler is gone, its observer does nothing.
  void observe();

  // The three cases: "No Internet found!", "No log record found!" (both answer
  // YES at once) or "I will send the color log!" (the sender answers later).
  // A missing colour record stops the process. With usage reports switched
  // off, "Usage reports are off: nothing sent" and YES at once, before any of
  // them.
  void appIsClosingWithNotification(const Notification& notification);

 private:
  API_Logger& logger_;
  TerminationReply& application_;
  std::shared_ptr<ClosingHandler*> self_;
};

}  // namespace tw
