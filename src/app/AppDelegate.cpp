#include "app/AppDelegate.h"

#include <QCoreApplication>
#include <QThread>
#include <utility>

#include "common/Log.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"

namespace tw {

AppDelegate::AppDelegate(QObject* parent) : QObject(parent) {}

void AppDelegate::applicationDidFinishLaunching() {
  // All start-up work is the panel's.
}

void AppDelegate::deferLaunch(std::function<void()> launch) { launch_ = std::move(launch); }

void AppDelegate::finishLaunching() {
  if (!launch_) return;
  // Taken out first: what it runs may ask for the launch again.
  const std::function<void()> launch = std::exchange(launch_, nullptr);
  launch();
  applicationDidFinishLaunching();
}

bool AppDelegate::applicationShouldTerminateAfterLastWindowClosed() const { return true; }

AppDelegate::TerminateReply AppDelegate::applicationShouldTerminate() {
  logLine(std::string_view("i am in applicationShouldTerminate ~"));
  logLine(std::string_view("sending data"));
  NotificationCenter::defaultCenter().post(notification::appClosing());
  return TerminateLater;
}

void AppDelegate::applicationWillTerminate() { logLine(std::string_view("Final bye bye ~")); }

void AppDelegate::terminate() {
  if (state_ != State::Running) return;
  // The closing handshake needs the listeners the launch sets up.
  finishLaunching();
  state_ = State::Asking;
  earlyAnswer_ = -1;
  const TerminateReply reply = applicationShouldTerminate();
  state_ = State::Waiting;
  switch (reply) {
    case TerminateNow:
      endApplication();
      return;
    case TerminateCancel:
      state_ = State::Running;
      return;
    case TerminateLater:
      if (earlyAnswer_ >= 0) replyToApplicationShouldTerminate(earlyAnswer_ == 1);
      return;
  }
}

void AppDelegate::replyToApplicationShouldTerminate(bool shouldTerminate) {
  if (QThread::currentThread() != thread()) {
    // The wake-up is posted under the lock: the main thread takes the lock
    // before it can act on the answer (and perhaps end and destroy this), so
    // that ordering is one ThreadSanitizer sees too.
    std::lock_guard lock(foreignMutex_);
    if (foreignAnswers_.empty())
      QMetaObject::invokeMethod(this, "takeForeignAnswers", Qt::QueuedConnection);
    foreignAnswers_.push_back(shouldTerminate);
    return;
  }
  switch (state_) {
    case State::Running:
    case State::Ending:
      return;  // nothing is waiting for an answer
    case State::Asking:
      earlyAnswer_ = shouldTerminate ? 1 : 0;
      return;
    case State::Waiting:
      if (shouldTerminate)
        endApplication();
      else
        state_ = State::Running;
      return;
  }
}

void AppDelegate::takeForeignAnswers() {
  std::vector<bool> answers;
  {
    std::lock_guard lock(foreignMutex_);
    answers.swap(foreignAnswers_);
  }
  for (const bool answer : answers) replyToApplicationShouldTerminate(answer);
}

void AppDelegate::endApplication() {
  state_ = State::Ending;
  applicationWillTerminate();
  Q_EMIT terminated();
  // Queued, so that it also ends a loop that has not started yet.
  QMetaObject::invokeMethod(
      QCoreApplication::instance(), [] { QCoreApplication::exit(0); }, Qt::QueuedConnection);
}

}  // namespace tw
