#include "pen/Mailbox.h"

#include <gtest/gtest.h>

#include <QThread>
#include <atomic>
#include <future>

#include "tests/pen/PenTestSupport.h"

namespace tw::pen {
namespace {

TEST(MailboxTest, WorkRunsOnTheOwningThreadInPostingOrder) {
  testing::usePenTestEnvironment();
  QThread thread;
  thread.setObjectName(QStringLiteral("worker"));
  // Moved before the start, which publishes the mailbox to the thread.
  Mailbox mailbox;
  mailbox.moveToThread(&thread);
  // Qt's wait for the thread's end is invisible to ThreadSanitizer; the
  // thread's last word is not, so the mailbox may be freed after it.
  std::promise<void> ended;
  QObject::connect(&thread, &QThread::finished, [&ended] { ended.set_value(); });
  thread.start();
  std::mutex mutex;
  std::vector<int> order;
  QStringList threads;
  std::atomic<int> done{0};
  for (int i = 0; i < 100; ++i)
    mailbox.post([&, i] {
      std::lock_guard lock(mutex);
      order.push_back(i);
      threads.append(QThread::currentThread()->objectName());
      ++done;
    });
  ASSERT_TRUE(testing::waitFor([&] { return done == 100; }));
  thread.quit();
  thread.wait();
  ended.get_future().wait();
  std::vector<int> expected(100);
  for (int i = 0; i < 100; ++i) expected[size_t(i)] = i;
  EXPECT_EQ(order, expected);
  EXPECT_EQ(threads.count(QStringLiteral("worker")), 100);
}

TEST(MailboxTest, PostFromTheOwningThreadRunsLaterNotInside) {
  testing::usePenTestEnvironment();
  Mailbox mailbox;
  bool ran = false;
  mailbox.post([&] { ran = true; });
  EXPECT_FALSE(ran);
  ASSERT_TRUE(testing::waitFor([&] { return ran; }));
}

}  // namespace
}  // namespace tw::pen
