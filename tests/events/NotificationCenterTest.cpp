#include <gtest/gtest.h>

#include <QThread>
#include <atomic>
#include <thread>
#include <vector>

#include "color/ColorStruct.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"

namespace tw {
namespace {

namespace n = notification;

TEST(Notifications, NamesAreTheSixFixedTexts) {
  EXPECT_EQ(n::newColor(), QLatin1String("Notification_New_Color"));
  EXPECT_EQ(n::connectedQuilla(), QLatin1String("Notification_Connected_Quilla"));
  EXPECT_EQ(n::disconnected(), QLatin1String("Notification_Disconnected"));
  EXPECT_EQ(n::appClosing(), QLatin1String("Notification_App_Closing"));
  EXPECT_EQ(n::mouseDown(), QLatin1String("Notification_Mouse_Down"));
  EXPECT_EQ(n::colorLibraryChanged(), QLatin1String("Notification_ColorLibraryChanged"));
  // Made once: every call hands out the same object.
  EXPECT_EQ(&n::newColor(), &n::newColor());
}

TEST(NotificationCenter, ColorLibraryChangedPostHasNoVisibleEffect) {
  NotificationCenter center;
  int calls = 0;
  for (const QString* name : {&n::newColor(), &n::connectedQuilla(), &n::disconnected(),
                              &n::appClosing(), &n::mouseDown()}) {
    center.addObserver(*name, [&](const Notification&) { ++calls; });
  }
  center.post(n::colorLibraryChanged(), qint64{3}, UserInfo{{"Library", "Changed"}});
  EXPECT_EQ(calls, 0);
}

TEST(NotificationCenter, ScreenAndPenColoursReachTheSameObserverWithTheirOwnSource) {
  NotificationCenter center;
  std::vector<std::pair<QString, ColorStruct>> seen;
  center.addObserver(n::newColor(), [&](const Notification& note) {
    seen.emplace_back(note.userInfo->value(n::quillaKey()),
                      std::any_cast<ColorStruct>(note.object));
  });
  const ColorStruct colour = ColorStruct::fromChannels(1, 2, 3);
  center.post(n::newColor(), colour, UserInfo{{n::quillaKey(), "NewScreenColor"}});
  center.post(n::newColor(), colour, UserInfo{{n::quillaKey(), "NewColor"}});
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].first, QLatin1String("NewScreenColor"));
  EXPECT_EQ(seen[1].first, QLatin1String("NewColor"));
  EXPECT_EQ(seen[0].second, seen[1].second);
}

TEST(NotificationCenter, AnObserverAddedTwiceRunsTwice) {
  NotificationCenter center;
  int calls = 0;
  auto handler = [&](const Notification&) { ++calls; };
  center.addObserver(n::disconnected(), handler);
  center.addObserver(n::disconnected(), handler);
  center.post(n::disconnected());
  EXPECT_EQ(calls, 2);
}

TEST(NotificationCenter, DeliveryIsSynchronousOnThePostingThread) {
  NotificationCenter center;
  std::thread::id observedOn;
  center.addObserver(n::connectedQuilla(),
                     [&](const Notification&) { observedOn = std::this_thread::get_id(); });
  std::thread::id postedOn;
  std::thread poster([&] {
    postedOn = std::this_thread::get_id();
    center.post(n::connectedQuilla(), {}, UserInfo{{n::quillaKey(), "Device Connected"}});
    // Synchronous: the observer has run before post() returned.
    EXPECT_EQ(observedOn, postedOn);
  });
  poster.join();
}

TEST(NotificationCenter, ObserversRunInTheOrderAdded) {
  NotificationCenter center;
  std::vector<int> order;
  for (int i = 0; i < 4; ++i)
    center.addObserver(n::appClosing(), [&, i](auto&) { order.push_back(i); });
  center.post(n::appClosing());
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3}));
}

TEST(NotificationCenter, PostWithoutObjectOrUserInfoCarriesNeither) {
  NotificationCenter center;
  bool checked = false;
  center.addObserver(n::appClosing(), [&](const Notification& note) {
    EXPECT_EQ(note.name, n::appClosing());
    EXPECT_FALSE(note.object.has_value());
    EXPECT_FALSE(note.userInfo.has_value());
    checked = true;
  });
  center.post(n::appClosing());
  EXPECT_TRUE(checked);
}

TEST(NotificationCenter, AnObserverMayPostAndAddObserversWhileDelivering) {
  NotificationCenter center;
  int inner = 0;
  center.addObserver(n::mouseDown(), [&](const Notification&) {
    center.addObserver(n::mouseDown(), [&](const Notification&) { ++inner; });
    center.post(n::disconnected());
  });
  int disconnected = 0;
  center.addObserver(n::disconnected(), [&](const Notification&) { ++disconnected; });
  center.post(n::mouseDown());
  EXPECT_EQ(disconnected, 1);
  EXPECT_EQ(inner, 0);  // added during delivery: runs from the next post on
  center.post(n::mouseDown());
  EXPECT_EQ(inner, 1);
}

TEST(NotificationCenter, PostsFromManyThreadsAtOnceAreAllDelivered) {
  NotificationCenter center;
  std::atomic<int> calls{0};
  center.addObserver(n::newColor(), [&](const Notification&) { calls.fetch_add(1); });
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 1000; ++i) {
        center.post(n::newColor(), ColorStruct::fromChannels(t, i & 255, 0),
                    UserInfo{{n::quillaKey(), "NewColor"}});
        if (i % 250 == 0) center.addObserver(n::mouseDown(), [](const Notification&) {});
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(calls.load(), 4000);
}

TEST(NotificationCenter, DefaultCenterIsOneObject) {
  EXPECT_EQ(&NotificationCenter::defaultCenter(), &NotificationCenter::defaultCenter());
}

}  // namespace
}  // namespace tw
