// The deferred termination and the closing observer, in process.

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QTimer>
#include <thread>

#include "app/AppDelegate.h"
#include "app/ClosingHandler.h"
#include "bridge/Commander.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"
#include "telemetry/Reachability.h"

namespace tw {
namespace {

class AppDelegateTest : public ::testing::Test {
 protected:
  AppDelegateTest() {
    NotificationCenter::defaultCenter().addObserver(notification::appClosing(),
                                                    [this](const Notification& n) {
                                                      ++closingPosts;
                                                      EXPECT_FALSE(n.object.has_value());
                                                      EXPECT_FALSE(n.userInfo.has_value());
                                                      if (onClosing) onClosing();
                                                    });
    QObject::connect(&delegate, &AppDelegate::terminated, [this] { ++terminations; });
  }
  // Runs the loop; false when it did not end within `timeoutMs`.
  bool runLoop(int timeoutMs = 10000) {
    bool timedOut = false;
    QTimer::singleShot(timeoutMs, [&] {
      timedOut = true;
      QCoreApplication::exit(1);
    });
    loopResult = QCoreApplication::exec();
    return !timedOut;
  }

  int argc = 1;
  char name[16] = "app_test";
  char* argv[2] = {name, nullptr};
  QCoreApplication app{argc, argv};
  AppDelegate delegate;
  std::function<void()> onClosing;
  int closingPosts = 0;
  int terminations = 0;
  int loopResult = -1;
};

TEST_F(AppDelegateTest, AnswersLaterAndPostsTheClosingNotice) {
  EXPECT_EQ(delegate.applicationShouldTerminate(), AppDelegate::TerminateLater);
  EXPECT_EQ(closingPosts, 1);
}

TEST_F(AppDelegateTest, ClosingTheLastWindowQuits) {
  EXPECT_TRUE(delegate.applicationShouldTerminateAfterLastWindowClosed());
}

TEST_F(AppDelegateTest, LaterAnswerYesEndsTheLoop) {
  QTimer::singleShot(0, [&] { delegate.terminate(); });
  QTimer::singleShot(100, [&] {
    EXPECT_TRUE(delegate.isTerminationPending());
    EXPECT_EQ(terminations, 0);
    delegate.replyToApplicationShouldTerminate(true);
  });
  ASSERT_TRUE(runLoop());
  EXPECT_EQ(loopResult, 0);
  EXPECT_EQ(terminations, 1);
  EXPECT_EQ(closingPosts, 1);
}

TEST_F(AppDelegateTest, AnswerGivenInsideTheQuestionEndsTheLoop) {
  onClosing = [&] { delegate.replyToApplicationShouldTerminate(true); };
  QTimer::singleShot(0, [&] { delegate.terminate(); });
  ASSERT_TRUE(runLoop());
  EXPECT_EQ(loopResult, 0);
  EXPECT_EQ(terminations, 1);
}

TEST_F(AppDelegateTest, EarlyAnswerBeforeTheLoopStartsEndsItOnceRunning) {
  onClosing = [&] { delegate.replyToApplicationShouldTerminate(true); };
  delegate.terminate();
  EXPECT_EQ(terminations, 1);
  ASSERT_TRUE(runLoop());
  EXPECT_EQ(loopResult, 0);
}

TEST_F(AppDelegateTest, AnswerNoKeepsRunningAndAllowsAnotherQuit) {
  QTimer::singleShot(0, [&] {
    delegate.terminate();
    delegate.replyToApplicationShouldTerminate(false);
    EXPECT_FALSE(delegate.isTerminationPending());
    delegate.terminate();
    delegate.replyToApplicationShouldTerminate(true);
  });
  ASSERT_TRUE(runLoop());
  EXPECT_EQ(closingPosts, 2);
  EXPECT_EQ(terminations, 1);
}

TEST_F(AppDelegateTest, AnswerWithoutAWaitingQuitIsIgnored) {
  delegate.replyToApplicationShouldTerminate(true);
  EXPECT_EQ(terminations, 0);
  EXPECT_FALSE(delegate.isTerminationPending());
}

TEST_F(AppDelegateTest, ASecondQuitWhileWaitingDoesNotAskAgain) {
  delegate.terminate();
  delegate.terminate();
  EXPECT_EQ(closingPosts, 1);
}

TEST_F(AppDelegateTest, AnswerFromAnotherThreadIsMovedToTheMainThread) {
  QTimer::singleShot(0, [&] {
    delegate.terminate();
    std::thread([&] { delegate.replyToApplicationShouldTerminate(true); }).detach();
  });
  ASSERT_TRUE(runLoop());
  EXPECT_EQ(terminations, 1);
}

// The closing observer with the real delegate and sender.
class ClosingHandlerTest : public AppDelegateTest {
 protected:
  ClosingHandlerTest() {
    logger.parentCommander = &commander;
    logger.setTerminationReply(&delegate);
  }
  Commander commander;
  API_Logger logger;
};

TEST_F(ClosingHandlerTest, NothingCountedAnswersYesWhileStillAsking) {
  logger.startLogging();
  logger.countColor(250, 250, 250);  // the start-up colour is not counted
  ClosingHandler closing(logger, delegate);
  closing.observe();
  delegate.terminate();
  // Answered inside the question: the application is already ending.
  EXPECT_EQ(terminations, 1);
  EXPECT_FALSE(logger.bAppShouldClose);
  ASSERT_TRUE(runLoop());
}

TEST_F(ClosingHandlerTest, AGoneHandlerNoLongerObserves) {
  logger.startLogging();
  {
    ClosingHandler closing(logger, delegate);
    closing.observe();
  }
  delegate.terminate();
  EXPECT_EQ(closingPosts, 1);
  EXPECT_EQ(terminations, 0);
  EXPECT_TRUE(delegate.isTerminationPending());
}

TEST_F(ClosingHandlerTest, MissingColourRecordAtQuitStopsTheProcess) {
  if (!Reachability::isConnectedToNetwork())
    GTEST_SKIP() << "offline: the record is never looked at";
  ClosingHandler closing(logger, delegate);
  EXPECT_DEATH(closing.appIsClosingWithNotification({}), "colour usage record");
}

}  // namespace
}  // namespace tw
