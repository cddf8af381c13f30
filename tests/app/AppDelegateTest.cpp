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
#include "tests/support/LogCapture.h"
#include "tests/support/NetworkNamespace.h"

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

// The closing observer with the real delegate and sender, in a network
// namespace of the test's own: online (a default route) unless told otherwise,
// so the same path runs on every machine.
class ClosingHandlerTest : public AppDelegateTest {
 protected:
  explicit ClosingHandlerTest(testing::OwnNetwork::Kind kind = testing::OwnNetwork::kOnline)
      : network(kind) {
    logger.parentCommander = &commander;
    logger.setTerminationReply(&delegate);
  }
  void SetUp() override {
    if (!network.failure().isEmpty()) GTEST_SKIP() << network.why();
  }
  // What a quit printed.
  std::string quitOutput() {
    testing::LogCapture log;
    delegate.terminate();
    return log.text().toStdString();
  }
  testing::OwnNetwork network;
  Commander commander;
  API_Logger logger;
};

TEST_F(ClosingHandlerTest, NothingCountedAnswersYesWhileStillAskingWithNoRecordFound) {
  logger.startLogging();
  logger.countColor(250, 250, 250);  // the start-up colour is not counted
  ClosingHandler closing(logger, delegate);
  closing.observe();
  const std::string out = quitOutput();
  // Answered inside the question: the application is already ending.
  EXPECT_EQ(terminations, 1);
  EXPECT_FALSE(logger.bAppShouldClose);
  EXPECT_NE(out.find("\nNo log record found!\n"), std::string::npos) << out;
  EXPECT_EQ(out.find("No Internet found!"), std::string::npos) << out;
  ASSERT_TRUE(runLoop());
}

class OfflineClosingHandlerTest : public ClosingHandlerTest {
 protected:
  OfflineClosingHandlerTest() : ClosingHandlerTest(testing::OwnNetwork::kOffline) {}
};

TEST_F(OfflineClosingHandlerTest, ColoursCountedButNoRouteAnswersYesAtOnceWithNoInternetFound) {
  logger.startLogging();
  logger.countColor(250, 250, 250);
  logger.countColor(1, 2, 3);
  ClosingHandler closing(logger, delegate);
  closing.observe();
  const std::string out = quitOutput();
  EXPECT_EQ(terminations, 1);
  EXPECT_FALSE(logger.bAppShouldClose);
  EXPECT_NE(out.find("\nNo Internet found!\n"), std::string::npos) << out;
  EXPECT_EQ(out.find("No log record found!"), std::string::npos) << out;
  EXPECT_EQ(out.find("I will send the color log!"), std::string::npos) << out;
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
  ClosingHandler closing(logger, delegate);
  EXPECT_DEATH(closing.appIsClosingWithNotification({}), "colour usage record");
}

}  // namespace
}  // namespace tw
