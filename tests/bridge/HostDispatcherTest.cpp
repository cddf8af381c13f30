// Handing colours to the native design applications: who gets them, in what
// order, how a slow or failing host is handled and what it costs.

#include "bridge/HostDispatcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>

#include "tests/support/LogCapture.h"

namespace tw {
namespace {

using namespace std::chrono_literals;

// A host inside the test: records what it is given and answers what the test
// says. It stands for an application in the dispatcher's own tests only; the
// real applications have tests of their own.
class RecordingHost : public DesignHost {
 public:
  RecordingHost(QString key, QString processName)
      : key_(std::move(key)), process_(std::move(processName)) {}

  QString key() const override { return key_; }
  QString displayName() const override { return key_.toUpper(); }
  bool isHostProcess(const RunningApplication& application) const override {
    return application.localizedName == process_;
  }
  std::optional<QString> preparationNotice() override {
    std::lock_guard lock(state->mutex);
    ++state->asked;
    return state->notice;
  }
  std::optional<QString> prepare() override {
    std::lock_guard lock(state->mutex);
    ++state->prepared;
    // The notice must have been seen first.
    state->preparedAfterNotices = state->noticesSeen;
    return state->prepareFailure;
  }
  PushOutcome push(const HostColor& color, std::chrono::milliseconds) override {
    std::unique_lock lock(state->mutex);
    state->entered = true;
    state->changed.notify_all();
    state->changed.wait(lock, [&] { return !state->hold; });
    state->pushed.push_back(color);
    return state->answer;
  }
  std::optional<HostColor> readBack(std::chrono::milliseconds) override {
    std::lock_guard lock(state->mutex);
    if (state->pushed.empty()) return std::nullopt;
    return state->pushed.back();
  }

  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    bool hold = false;
    bool entered = false;
    int asked = 0;
    int prepared = 0;
    int noticesSeen = 0;
    int preparedAfterNotices = -1;
    std::optional<QString> notice;
    std::optional<QString> prepareFailure;
    PushOutcome answer{PushStatus::Confirmed, {}};
    std::vector<HostColor> pushed;

    std::vector<HostColor> seen() {
      std::lock_guard lock(mutex);
      return pushed;
    }
    void release() {
      std::lock_guard lock(mutex);
      hold = false;
      changed.notify_all();
    }
    bool waitEntered() {
      std::unique_lock lock(mutex);
      return changed.wait_for(lock, 10s, [&] { return entered; });
    }
  };
  std::shared_ptr<State> state = std::make_shared<State>();

 private:
  QString key_;
  QString process_;
};

struct Events : HostEvents {
  void pushed(const QString& key, const QString&, const HostColor& color,
              const PushOutcome& outcome) override {
    std::lock_guard lock(mutex);
    outcomes.emplace_back(key, color, outcome.status);
  }
  bool notice(const QString& key, const QString&, const QString& text) override {
    {
      std::lock_guard lock(mutex);
      notices.push_back(key + QStringLiteral(": ") + text);
    }
    if (seen) seen();
    return shown;
  }
  std::function<void()> seen;
  std::atomic<bool> shown{true};
  std::mutex mutex;
  std::vector<std::tuple<QString, HostColor, PushStatus>> outcomes;
  QStringList notices;
};

RunningApplication app(const QString& name) { return {name, QStringLiteral("/usr/bin/") + name}; }

struct Fixture {
  Fixture() {
    auto a = std::make_unique<RecordingHost>(QStringLiteral("alpha"), QStringLiteral("alpha-bin"));
    auto b = std::make_unique<RecordingHost>(QStringLiteral("beta"), QStringLiteral("beta-bin"));
    alpha = a->state;
    beta = b->state;
    std::vector<std::unique_ptr<DesignHost>> hosts;
    hosts.push_back(std::move(a));
    hosts.push_back(std::move(b));
    dispatcher = std::make_unique<HostDispatcher>(std::move(hosts), events, 100ms);
  }
  std::shared_ptr<RecordingHost::State> alpha;
  std::shared_ptr<RecordingHost::State> beta;
  std::shared_ptr<Events> events = std::make_shared<Events>();
  std::unique_ptr<HostDispatcher> dispatcher;
};

const HostColor kRed{255, 0, 0};
const HostColor kGreen{0, 255, 0};
const HostColor kBlue{0, 0, 255};

TEST(HostColorTest, HexIsLowerCaseWithAHash) {
  EXPECT_EQ(HostColor({18, 52, 86}).hex(), QStringLiteral("#123456"));
  EXPECT_EQ(HostColor({255, 10, 171}).hex(), QStringLiteral("#ff0aab"));
}

TEST(HostColorTest, FromHexTakesSixDigitsWithOrWithoutTheHash) {
  EXPECT_EQ(HostColor::fromHex(QStringLiteral("#ABcdef")), HostColor({171, 205, 239}));
  EXPECT_EQ(HostColor::fromHex(QStringLiteral("000001")), HostColor({0, 0, 1}));
  for (const char* bad : {"#12345", "#1234567", "12345g", "", "#", "+12345", " 123456"}) {
    EXPECT_FALSE(HostColor::fromHex(QString::fromLatin1(bad))) << bad;
  }
}

TEST(HostDispatcherTest, OnlyHostsSeenRunningAreOffered) {
  Fixture f;
  f.dispatcher->offer(kRed, {app(QStringLiteral("beta-bin")), app(QStringLiteral("other"))});
  ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  EXPECT_TRUE(f.alpha->seen().empty());
  EXPECT_EQ(f.beta->seen(), std::vector<HostColor>{kRed});
  EXPECT_EQ(f.dispatcher->stats(QStringLiteral("beta"))->confirmed, 1u);
  EXPECT_EQ(f.dispatcher->stats(QStringLiteral("alpha"))->offered, 0u);
}

TEST(HostDispatcherTest, ASwitchedOffHostReceivesNothing) {
  Fixture f;
  f.dispatcher->setEnabled(QStringLiteral("alpha"), false);
  f.dispatcher->offer(kRed, {app(QStringLiteral("alpha-bin")), app(QStringLiteral("beta-bin"))});
  ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  EXPECT_TRUE(f.alpha->seen().empty());
  EXPECT_EQ(f.beta->seen().size(), 1u);
  EXPECT_FALSE(f.dispatcher->isEnabled(QStringLiteral("alpha")));
  f.dispatcher->setEnabled(QStringLiteral("alpha"), true);
  f.dispatcher->offer(kGreen, {app(QStringLiteral("alpha-bin"))});
  ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  EXPECT_EQ(f.alpha->seen(), std::vector<HostColor>{kGreen});
}

TEST(HostDispatcherTest, ABusyHostGetsTheNewestColourAndNoQueue) {
  Fixture f;
  f.alpha->hold = true;
  const std::vector<RunningApplication> running{app(QStringLiteral("alpha-bin"))};
  f.dispatcher->offer(kRed, running);
  ASSERT_TRUE(f.alpha->waitEntered());
  f.dispatcher->offer(kGreen, running);
  f.dispatcher->offer(kBlue, running);
  f.alpha->release();
  ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  EXPECT_EQ(f.alpha->seen(), (std::vector<HostColor>{kRed, kBlue}));
  const HostStats stats = *f.dispatcher->stats(QStringLiteral("alpha"));
  EXPECT_EQ(stats.offered, 3u);
  EXPECT_EQ(stats.pushed, 2u);
}

TEST(HostDispatcherTest, AHungHostHoldsUpNeitherTheCallerNorTheOtherHosts) {
  Fixture f;
  f.alpha->hold = true;
  const std::vector<RunningApplication> running{app(QStringLiteral("alpha-bin")),
                                                app(QStringLiteral("beta-bin"))};
  f.dispatcher->offer(kRed, running);
  ASSERT_TRUE(f.alpha->waitEntered());
  // Beta has taken red: a colour still waiting in its mailbox would rightly be
  // replaced by the next one.
  for (int i = 0; i < 1000 && f.beta->seen().empty(); ++i) std::this_thread::sleep_for(5ms);
  // While alpha hangs, offering again returns and beta takes both colours.
  auto offered = std::async(std::launch::async, [&] { f.dispatcher->offer(kGreen, running); });
  ASSERT_EQ(offered.wait_for(10s), std::future_status::ready);
  for (int i = 0; i < 1000 && f.beta->seen().size() < 2; ++i) std::this_thread::sleep_for(5ms);
  EXPECT_EQ(f.beta->seen(), (std::vector<HostColor>{kRed, kGreen}));
  EXPECT_FALSE(f.dispatcher->waitIdle(50ms));
  f.alpha->release();
  EXPECT_TRUE(f.dispatcher->waitIdle(10s));
}

TEST(HostDispatcherTest, AFailedPushCostsOneLineNamingTheHostAndTheReason) {
  Fixture f;
  testing::LogCapture log;
  f.alpha->answer = {PushStatus::Failed, QStringLiteral("no answer within 100 ms")};
  f.dispatcher->offer(kRed, {app(QStringLiteral("alpha-bin"))});
  ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  EXPECT_EQ(log.lines(), QStringList{QStringLiteral("ALPHA: no answer within 100 ms")});
  EXPECT_EQ(f.dispatcher->stats(QStringLiteral("alpha"))->failed, 1u);
  // The next colour is pushed as usual.
  f.alpha->answer = {PushStatus::Confirmed, {}};
  f.dispatcher->offer(kGreen, {app(QStringLiteral("alpha-bin"))});
  ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  EXPECT_EQ(f.alpha->seen(), (std::vector<HostColor>{kRed, kGreen}));
  EXPECT_EQ(log.lines().size(), 1);
}

TEST(HostDispatcherTest, TheSameFailureAgainIsNotRepeatedUntilTheHostRecovers) {
  Fixture f;
  testing::LogCapture log;
  const std::vector<RunningApplication> running{app(QStringLiteral("alpha-bin"))};
  const auto pushOnce = [&](const HostColor& color) {
    f.dispatcher->offer(color, running);
    ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  };
  f.alpha->answer = {PushStatus::NotRunning, QStringLiteral("plug-in not answering")};
  for (int i = 0; i < 5; ++i) pushOnce(HostColor{i, 0, 0});
  EXPECT_EQ(log.lines(), QStringList{QStringLiteral("ALPHA: plug-in not answering")});
  f.alpha->answer = {PushStatus::Failed, QStringLiteral("no answer within 100 ms")};
  pushOnce(kGreen);
  f.alpha->answer = {PushStatus::Confirmed, {}};
  pushOnce(kBlue);
  f.alpha->answer = {PushStatus::NotRunning, QStringLiteral("plug-in not answering")};
  pushOnce(kRed);
  EXPECT_EQ(log.lines(), (QStringList{QStringLiteral("ALPHA: plug-in not answering"),
                                      QStringLiteral("ALPHA: no answer within 100 ms"),
                                      QStringLiteral("ALPHA: plug-in not answering")}));
  EXPECT_EQ(f.dispatcher->stats(QStringLiteral("alpha"))->failed, 7u);
}

TEST(HostDispatcherTest, NothingSelectedIsReportedButIsNotAFailureLine) {
  Fixture f;
  testing::LogCapture log;
  f.alpha->answer = {PushStatus::NothingSelected, QStringLiteral("nothing selected")};
  f.dispatcher->offer(kRed, {app(QStringLiteral("alpha-bin"))});
  ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  EXPECT_TRUE(log.lines().isEmpty());
  std::lock_guard lock(f.events->mutex);
  ASSERT_EQ(f.events->outcomes.size(), 1u);
  EXPECT_EQ(std::get<2>(f.events->outcomes[0]), PushStatus::NothingSelected);
}

TEST(HostDispatcherTest, AHostIsPreparedOnceAfterItsNoticeWasSeen) {
  Fixture f;
  f.alpha->notice = QStringLiteral("will install a plug-in");
  auto alpha = f.alpha;
  f.events->seen = [alpha] {
    std::lock_guard lock(alpha->mutex);
    ++alpha->noticesSeen;
  };
  for (const HostColor& color : {kRed, kGreen}) {
    f.dispatcher->offer(color, {app(QStringLiteral("alpha-bin"))});
    ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  }
  EXPECT_EQ(f.alpha->asked, 1);
  EXPECT_EQ(f.alpha->prepared, 1);
  EXPECT_EQ(f.alpha->preparedAfterNotices, 1);
  EXPECT_EQ(f.alpha->seen(), (std::vector<HostColor>{kRed, kGreen}));
  std::lock_guard lock(f.events->mutex);
  EXPECT_EQ(f.events->notices, QStringList{QStringLiteral("alpha: will install a plug-in")});
}

TEST(HostDispatcherTest, ANoticeThatCouldNotBeShownLeavesTheHostUnpreparedAndIsAskedAgain) {
  Fixture f;
  f.alpha->notice = QStringLiteral("will install a plug-in");
  f.events->shown = false;
  f.dispatcher->offer(kRed, {app(QStringLiteral("alpha-bin"))});
  ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  EXPECT_EQ(f.alpha->prepared, 0);
  f.events->shown = true;
  f.dispatcher->offer(kGreen, {app(QStringLiteral("alpha-bin"))});
  ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  EXPECT_EQ(f.alpha->asked, 2);
  EXPECT_EQ(f.alpha->prepared, 1);
}

TEST(HostDispatcherTest, NothingToAnnounceMeansNothingIsPrepared) {
  Fixture f;
  f.dispatcher->offer(kRed, {app(QStringLiteral("alpha-bin"))});
  ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  EXPECT_EQ(f.alpha->asked, 1);
  EXPECT_EQ(f.alpha->prepared, 0);
}

TEST(HostDispatcherTest, APreparationThatFailsCostsOneLineAndPushesGoOn) {
  Fixture f;
  testing::LogCapture log;
  f.alpha->notice = QStringLiteral("will install a plug-in");
  f.alpha->prepareFailure = QStringLiteral("the plug-in could not be installed: disk full");
  f.dispatcher->offer(kRed, {app(QStringLiteral("alpha-bin"))});
  ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  EXPECT_EQ(log.lines(),
            QStringList{QStringLiteral("ALPHA: the plug-in could not be installed: disk full")});
  EXPECT_EQ(f.alpha->seen(), std::vector<HostColor>{kRed});
}

TEST(HostDispatcherTest, OfferToReachesANamedHostWithoutAScan) {
  Fixture f;
  EXPECT_TRUE(f.dispatcher->offerTo(QStringLiteral("beta"), kBlue));
  EXPECT_FALSE(f.dispatcher->offerTo(QStringLiteral("gamma"), kBlue));
  ASSERT_TRUE(f.dispatcher->waitIdle(10s));
  EXPECT_EQ(f.beta->seen(), std::vector<HostColor>{kBlue});
  EXPECT_EQ(f.dispatcher->lastOutcome(QStringLiteral("beta"))->status, PushStatus::Confirmed);
  EXPECT_FALSE(f.dispatcher->lastOutcome(QStringLiteral("alpha")));
}

TEST(HostDispatcherTest, WithHostRunsBetweenPushesOnTheHostsThread) {
  Fixture f;
  f.dispatcher->offerTo(QStringLiteral("alpha"), kGreen);
  std::optional<HostColor> read;
  ASSERT_TRUE(f.dispatcher->withHost(QStringLiteral("alpha"),
                                     [&](DesignHost& host) { read = host.readBack(100ms); }));
  // The push offered first has run before the read.
  EXPECT_EQ(read, kGreen);
}

TEST(HostDispatcherTest, DestroyingItWhileAHostHangsWaitsForThatPushOnly) {
  auto f = std::make_unique<Fixture>();
  f->alpha->hold = true;
  f->dispatcher->offer(kRed, {app(QStringLiteral("alpha-bin"))});
  ASSERT_TRUE(f->alpha->waitEntered());
  f->dispatcher->offer(kGreen, {app(QStringLiteral("alpha-bin"))});
  auto state = f->alpha;
  std::thread releaser([state] {
    std::this_thread::sleep_for(50ms);
    state->release();
  });
  f.reset();
  releaser.join();
  // The waiting colour was dropped, not pushed on the way out.
  EXPECT_EQ(state->seen(), std::vector<HostColor>{kRed});
}

}  // namespace
}  // namespace tw
