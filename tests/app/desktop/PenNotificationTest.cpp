// The desktop notifications about the pen, end to end: the panel with the
// real BlueZ backend against the fake BlueZ on a private system bus, and a
// stand-in notification service on a private session bus that records every
// Notify call. Which notifications arrive, and how often, is read from it.
#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QUuid>
#include <memory>

#include "app/AppDelegate.h"
#include "app/Preferences.h"
#include "app/desktop/DesktopNotifier.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/ViewController_plus.h"
#include "bridge/AlertPresenter.h"
#include "bridge/HostDescription.h"
#include "bridge/RunningApplications.h"
#include "tests/app/desktop/PanelOnFakes.h"
#include "tests/color/ScreenPickTestSupport.h"
#include "tests/pen/FakeBluezProcess.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/QtWait.h"
#include "tests/support/TestMain.h"

namespace tw {
namespace {

using testing::FakeBluez;
using testing::spin;
using testing::waitFor;

const QString kA = QStringLiteral("AA:BB:CC:DD:EE:01");

struct Buses {
  std::unique_ptr<testing::PrivateBus> system;
  std::unique_ptr<testing::PrivateBus> session;
};

Buses& buses() {
  static Buses b;
  return b;
}

// The battery is read every 0.9 s here; the link's 2.5 s delay is 12.5 ms.
TW_BEFORE_APPLICATION([] {
  qputenv("TINTWELL_TIME_SCALE", "0.005");
  Buses& b = buses();
  b.system = std::make_unique<testing::PrivateBus>(testing::PrivateBus::Kind::System);
  b.session = std::make_unique<testing::PrivateBus>(testing::PrivateBus::Kind::Session);
  b.system->exportAddress();
  b.session->exportAddress();
});

// org.freedesktop.Notifications as a desktop offers it, recording each Notify
// call's summary and body ("summary|body").
class NotificationService : public QDBusVirtualObject {
 public:
  explicit NotificationService(const QString& address)
      : name_(QStringLiteral("notifications-") + QUuid::createUuid().toString(QUuid::Id128)),
        bus_(QDBusConnection::connectToBus(address, name_)) {
    ok_ = bus_.isConnected() &&
          bus_.registerVirtualObject(QStringLiteral("/org/freedesktop/Notifications"), this) &&
          bus_.registerService(QStringLiteral("org.freedesktop.Notifications"));
  }
  ~NotificationService() override {
    bus_.unregisterService(QStringLiteral("org.freedesktop.Notifications"));
    bus_.unregisterObject(QStringLiteral("/org/freedesktop/Notifications"));
    QDBusConnection::disconnectFromBus(name_);
  }
  bool ok() const { return ok_; }
  QStringList received() const { return received_; }
  QList<QVariantList> calls() const { return calls_; }

  QString introspect(const QString&) const override { return {}; }
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
    if (message.interface() != QLatin1String("org.freedesktop.Notifications")) return false;
    QDBusMessage reply;
    if (message.member() == QLatin1String("Notify")) {
      const QVariantList args = message.arguments();
      calls_ << args;
      received_ << args.value(3).toString() + u'|' + args.value(4).toString();
      reply = message.createReply(QVariantList{uint(calls_.size())});
    } else if (message.member() == QLatin1String("GetCapabilities")) {
      reply = message.createReply(QVariantList{QStringList{QStringLiteral("body")}});
    } else if (message.member() == QLatin1String("GetServerInformation")) {
      reply = message.createReply(QVariantList{QStringLiteral("stand-in"), QStringLiteral("tests"),
                                               QStringLiteral("1"), QStringLiteral("1.2")});
    } else {
      return false;
    }
    connection.send(reply);
    return true;
  }

 private:
  QString name_;
  QDBusConnection bus_;
  bool ok_ = false;
  QStringList received_;
  QList<QVariantList> calls_;
};

using testing::IdleTransport;

const QString kLow20 = QStringLiteral("Pen battery low|The pen's battery is at %1 %.");
const QString kLow10 =
    QStringLiteral("Pen battery very low|The pen's battery is at %1 %. Charge it soon.");
const QString kGone = QStringLiteral("Pen disconnected|The Quilla pen is no longer connected.");

class PenNotificationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(buses().system->address().isEmpty());
    ASSERT_FALSE(buses().session->address().isEmpty());
    ASSERT_TRUE(home_.isValid());
    home_.enter();
    ASSERT_TRUE(service_.ok());
    fake_ = std::make_unique<FakeBluez>(buses().system->address());
    ASSERT_TRUE(fake_->ready());
  }
  void TearDown() override {
    window_.reset();
    fake_.reset();
  }

  // A pen the system has connected, at this level, and the panel that takes it.
  void start(int level, bool notificationsOn = true) {
    Preferences preferences;
    preferences.setNotificationsEnabled(notificationsOn);
    preferences.save();
    fake_->addAdapter(QStringLiteral("hci0"));
    fake_->addDevice(
        kA, QVariantMap{{QStringLiteral("connected"), true}, {QStringLiteral("level"), level}});
    panel_ = testing::showPanel(
        delegate_,
        testing::panelPartsOnFakes(pen::platformCentralFactory(), monitor_, pointer_, sampler_),
        window_);
    ASSERT_TRUE(waitFor([&] { return panel_->batteryLevel() == level; }));
  }
  // Sets the pen's level and waits until the panel has shown it (a read is
  // reported one period after it was made).
  void setLevel(int level) {
    fake_->call(QStringLiteral("SetBattery"), {kA, uint(level)});
    ASSERT_TRUE(waitFor([&] { return panel_->batteryLevel() == level; }, 10000));
  }
  void disconnect() {
    fake_->call(QStringLiteral("Disconnect"), {kA});
    ASSERT_TRUE(waitFor([&] { return !panel_->batteryLevel().has_value(); }));
  }
  // Lets calls already sent reach the service.
  QStringList received() {
    spin(300);
    return service_.received();
  }

  testing::LogCapture log_;
  testing::BridgeSandbox home_;
  NotificationService service_{buses().session->address()};
  std::unique_ptr<FakeBluez> fake_;
  AppDelegate delegate_;
  std::shared_ptr<testing::FakeClickMonitor> monitor_ =
      std::make_shared<testing::FakeClickMonitor>();
  std::shared_ptr<testing::FakePointer> pointer_ = std::make_shared<testing::FakePointer>();
  std::shared_ptr<testing::FakeSampler> sampler_ = std::make_shared<testing::FakeSampler>();
  ViewController_plus* panel_ = nullptr;  // owned by the window
  std::unique_ptr<PanelWindow> window_;
};

TEST_F(PenNotificationTest, TwentyAndTenPercentOnceEachThenTheDisconnection) {
  start(50);
  EXPECT_TRUE(received().isEmpty());
  setLevel(21);
  EXPECT_TRUE(received().isEmpty());
  setLevel(20);
  ASSERT_TRUE(waitFor([&] { return service_.received().size() == 1; }));
  setLevel(15);
  setLevel(11);
  setLevel(10);
  ASSERT_TRUE(waitFor([&] { return service_.received().size() == 2; }));
  setLevel(9);
  setLevel(5);
  disconnect();
  ASSERT_TRUE(waitFor([&] { return service_.received().size() == 3; }));
  EXPECT_EQ(received(), (QStringList{kLow20.arg(20), kLow10.arg(10), kGone}));
  EXPECT_EQ(panel_->notifier().sent(), 3);

  // The call as the desktop's service reads it.
  const QVariantList first = service_.calls().value(0);
  ASSERT_EQ(first.size(), 8);
  EXPECT_EQ(first.value(0).toString(), QStringLiteral("Tintwell"));
  EXPECT_EQ(first.value(1).toUInt(), 0u);
  EXPECT_EQ(first.value(7).toInt(), -1);
}

TEST_F(PenNotificationTest, ANewConnectionMayTellTheLowBatteryAgain) {
  start(15);
  ASSERT_TRUE(waitFor([&] { return service_.received().size() == 1; }));
  disconnect();
  ASSERT_TRUE(waitFor([&] { return service_.received().size() == 2; }));
  panel_->logic().reconnectPen();
  ASSERT_TRUE(waitFor([&] { return panel_->batteryLevel() == 15; }));
  ASSERT_TRUE(waitFor([&] { return service_.received().size() == 3; }));
  setLevel(14);
  EXPECT_EQ(received(), (QStringList{kLow20.arg(15), kGone, kLow20.arg(15)}));
}

TEST_F(PenNotificationTest, ALevelThatSkipsTwentyGivesTheTenPercentOneOnly) {
  start(40);
  setLevel(8);
  ASSERT_TRUE(waitFor([&] { return service_.received().size() == 1; }));
  setLevel(19);
  setLevel(7);
  EXPECT_EQ(received(), QStringList{kLow10.arg(8)});
}

TEST_F(PenNotificationTest, NoneWithTheOptionOff) {
  start(50, false);
  setLevel(20);
  setLevel(10);
  disconnect();
  // Well past a battery period: nothing was on its way.
  spin(1500);
  EXPECT_TRUE(service_.received().isEmpty()) << service_.received().join(", ").toStdString();
  EXPECT_EQ(panel_->notifier().sent(), 0);
}

}  // namespace
}  // namespace tw
