#pragma once

#include <QObject>
#include <functional>
#include <mutex>
#include <vector>

#include "telemetry/TerminationReply.h"

namespace tw {

// The application's answers to its life-cycle questions, and the deferred
// termination the platform loop itself lacks: every way of quitting (the Quit
// action, closing the last window, SIGINT/SIGTERM) calls terminate(), which
// asks applicationShouldTerminate(); a "later" answer keeps the loop running
// until replyToApplicationShouldTerminate() arrives.
//
// Lives on the main thread; an answer from another thread is moved there.
class AppDelegate : public QObject, public TerminationReply {
  Q_OBJECT

 public:
  enum TerminateReply { TerminateCancel = 0, TerminateNow = 1, TerminateLater = 2 };

  explicit AppDelegate(QObject* parent = nullptr);

  void applicationDidFinishLaunching();
  // Start-up work that waits for the first frame: finishLaunching() runs it
  // once, then applicationDidFinishLaunching(). A quit request, or anything
  // else that cannot wait, runs it first.
  void deferLaunch(std::function<void()> launch);
  void finishLaunching();
  bool isLaunchPending() const { return static_cast<bool>(launch_); }
  bool applicationShouldTerminateAfterLastWindowClosed() const;
  // Prints the two lines and announces "Notification_App_Closing" (delivered
  // synchronously), then answers "later".
  TerminateReply applicationShouldTerminate();
  // Prints "Final bye bye ~".
  void applicationWillTerminate();

  // A quit request. While one waits for its answer, further requests are
  // ignored (a second Ctrl-C does not post the closing notice twice).
  void terminate();
  // The answer to a waiting quit: true ends the event loop (exit code 0),
  // false keeps running. Without a waiting quit it is ignored. An answer given
  // inside applicationShouldTerminate() takes effect once that returns.
  void replyToApplicationShouldTerminate(bool shouldTerminate) override;

  bool isTerminationPending() const { return state_ != State::Running; }

 Q_SIGNALS:
  // Emitted once the application has decided to end, after "Final bye bye ~".
  void terminated();

 private Q_SLOTS:
  // Applies the answers that other threads left in foreignAnswers_.
  void takeForeignAnswers();

 private:
  enum class State { Running, Asking, Waiting, Ending };
  void endApplication();

  std::function<void()> launch_;
  State state_ = State::Running;
  // An answer that came while the question was still being asked.
  int earlyAnswer_ = -1;
  // Answers from other threads wait here for the main thread: the lock makes
  // the hand-over one ThreadSanitizer can see, the queued call only wakes it.
  std::mutex foreignMutex_;
  std::vector<bool> foreignAnswers_;  // guarded by foreignMutex_
};

}  // namespace tw
