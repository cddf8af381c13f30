#pragma once

namespace tw {

// The application's answer to a pending termination request ("later" was
// answered first). The application delegate implements it; the telemetry
// sender answers through it once its closing posts are done.
class TerminationReply {
 public:
  virtual ~TerminationReply() = default;
  // true ends the application; false keeps it running. May be called while
  // the termination question is still being asked (an early answer).
  virtual void replyToApplicationShouldTerminate(bool shouldTerminate) = 0;
};

}  // namespace tw
