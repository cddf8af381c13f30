// What the panel does with what a design application's worker reports: a
// preparation notice is shown as an alert on the main thread and the host is
// prepared only once it was closed; a panel that goes while a notice waits
// releases the worker instead of hanging.
#include <gtest/gtest.h>

#include <QThread>
#include <atomic>
#include <mutex>

#include "app/PanelLogic.h"
#include "tests/pen/simulated/SimulatedCentral.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/IdleTransport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/QtWait.h"

namespace tw {
namespace {

using namespace std::chrono_literals;

// A host inside the test process: it stands for an application that needs
// preparing, to check the panel's side of the hand-over.
class NoticeHost : public DesignHost {
 public:
  explicit NoticeHost(std::shared_ptr<std::atomic<int>> prepared)
      : prepared_(std::move(prepared)) {}
  QString key() const override { return QStringLiteral("sketch"); }
  QString displayName() const override { return QStringLiteral("Sketch"); }
  bool isHostProcess(const RunningApplication& application) const override {
    return application.localizedName == QStringLiteral("sketch");
  }
  std::optional<QString> preparationNotice() override {
    return QStringLiteral("A plug-in will be installed.");
  }
  std::optional<QString> prepare() override {
    ++*prepared_;
    return std::nullopt;
  }
  PushOutcome push(const HostColor&, std::chrono::milliseconds) override {
    return {PushStatus::Confirmed, {}};
  }
  std::optional<HostColor> readBack(std::chrono::milliseconds) override { return std::nullopt; }

 private:
  std::shared_ptr<std::atomic<int>> prepared_;
};

// Shows an alert by recording it; while `holdOpen` it keeps the alert "open"
// by running the main thread's events, as a modal message box does.
class RecordingAlerts : public AlertPresenter {
 public:
  void showInformation(const QString& message, const QString& informative) override {
    {
      std::lock_guard lock(mutex);
      shown << message + QStringLiteral(": ") + informative;
      preparedWhenShown = prepared ? prepared->load() : -1;
    }
    while (holdOpen.load()) testing::spin(10);
  }
  std::mutex mutex;
  QStringList shown;
  int preparedWhenShown = -1;
  std::shared_ptr<std::atomic<int>> prepared;
  std::atomic<bool> holdOpen{false};
};

class NoAnswer : public TerminationReply {
 public:
  void replyToApplicationShouldTerminate(bool) override {}
};

using testing::IdleTransport;

class PanelNoticeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(home_.isValid());
    home_.enter();
    alerts_->prepared = prepared_;
  }
  std::unique_ptr<PanelLogic> makePanel() {
    PanelParts parts;
    parts.central = [](pen::CentralDelegate* d, QThread* q) {
      return std::make_unique<pen::SimulatedCentral>(d, q, pen::CentralManager::kPoweredOff);
    };
    parts.host = std::make_shared<WineHostDescription>(
        std::make_shared<FixedApplicationLister>(std::vector<RunningApplication>{
            {QStringLiteral("sketch"), QStringLiteral("/usr/bin/sketch")}}));
    parts.alerts = alerts_;
    parts.transport = std::make_shared<IdleTransport>();
    auto prepared = prepared_;
    parts.nativeHosts = [prepared] {
      std::vector<std::unique_ptr<DesignHost>> hosts;
      hosts.push_back(std::make_unique<NoticeHost>(prepared));
      return hosts;
    };
    auto panel = std::make_unique<PanelLogic>(view_, noAnswer_, std::move(parts));
    panel->viewDidLoad();
    return panel;
  }
  void pushTwoColours(PanelLogic& panel) {
    // The first is the start-up rule's; the second reaches the host.
    panel.commander().sendColorToApps(ColorStruct::fromChannels(1, 2, 3));
    panel.commander().sendColorToApps(ColorStruct::fromChannels(4, 5, 6));
  }

  testing::LogCapture log_;
  testing::BridgeSandbox home_;
  HeadlessPanelView view_;
  NoAnswer noAnswer_;
  std::shared_ptr<std::atomic<int>> prepared_ = std::make_shared<std::atomic<int>>(0);
  std::shared_ptr<RecordingAlerts> alerts_ = std::make_shared<RecordingAlerts>();
};

TEST_F(PanelNoticeTest, TheNoticeIsShownOnTheMainThreadAndTheHostPreparedAfterIt) {
  auto panel = makePanel();
  pushTwoColours(*panel);
  ASSERT_TRUE(testing::waitFor([&] { return prepared_->load() == 1; }, 10000));
  std::lock_guard lock(alerts_->mutex);
  EXPECT_EQ(alerts_->shown, QStringList{QStringLiteral("Sketch: A plug-in will be installed.")});
  EXPECT_EQ(alerts_->preparedWhenShown, 0);
}

TEST_F(PanelNoticeTest, APanelGoingWhileItsNoticeWaitsReleasesTheHostsWorker) {
  auto panel = makePanel();
  pushTwoColours(*panel);
  // The worker now waits for the notice, which the main thread has not shown:
  // destroying the panel must not wait for it forever.
  QThread::msleep(100);
  panel.reset();
  EXPECT_EQ(prepared_->load(), 0);
  std::lock_guard lock(alerts_->mutex);
  EXPECT_TRUE(alerts_->shown.isEmpty());
}

}  // namespace
}  // namespace tw
