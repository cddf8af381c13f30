// The panel's logic with every thread busy at once: pen colours stream in on
// the "Orlo.Tintwell" thread (with the pen dropping off and Bluetooth switched
// off and on between streams), while the main thread takes screen picks, runs
// the battery timers and receives the telemetry posts' completions from a real
// local HTTPS server that fails every third request. Its first purpose is the
// ThreadSanitizer run; in every build it also checks that nothing is lost or
// repeated on the way to the display and the bridge.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QSettings>
#include <QThread>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <set>

#include "app/PanelLogic.h"
#include "bridge/RunningApplications.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"
#include "pen/BluetoothUuid.h"
#include "telemetry/Reachability.h"
#include "telemetry/network/NetworkUsageTransport.h"
#include "tests/color/ScreenPickTestSupport.h"
#include "tests/pen/simulated/SimulatedCentral.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/QtWait.h"
#include "tests/telemetry/SenderTestSupport.h"
#include "tests/telemetry/TelemetryTestServer.h"

#include "tests/support/LogCapture.h"
#include "tests/support/TestMain.h"

namespace tw {
namespace {

using pen::SimulatedCentral;
using testing::waitFor;

const QString kPhotoshop =
    QStringLiteral(R"(C:\Program Files\Adobe\Adobe Photoshop 2021\Photoshop.exe)");
const QUuid kPen = QUuid::fromString(QStringLiteral("00000000-0000-0000-0000-AABBCCDDEE07"));

constexpr int kStreams = 4;  // pen connections, each ended by a power cycle
constexpr int kColoursPerStream = 150;
constexpr int kFirstScreenColour = 0xF00000;  // above every pen colour, below 0xFAFAFA

class RecordingView : public PanelView {
 public:
  void showColor(const ColorStruct& color) override {
    std::lock_guard lock(mutex_);
    shown_.push_back(static_cast<int>((color.iR << 16) | (color.iG << 8) | color.iB));
  }
  void showColorTexts(const AllColor&) override {}
  void setConnectionImage(const QString& name) override {
    add(QStringLiteral("connection ") + name);
  }
  void setBatteryShown(bool) override {}
  void setBatteryImage(const QString& name) override { add(QStringLiteral("battery ") + name); }

  std::vector<int> shown() const {
    std::lock_guard lock(mutex_);
    return shown_;
  }
  int count(const QString& prefix) const {
    std::lock_guard lock(mutex_);
    int n = 0;
    for (const QString& call : calls_) n += call.startsWith(prefix);
    return n;
  }

 private:
  void add(const QString& call) {
    std::lock_guard lock(mutex_);
    calls_ << call;
  }
  mutable std::mutex mutex_;
  std::vector<int> shown_;
  QStringList calls_;
};

class RecordingReply : public TerminationReply {
 public:
  void replyToApplicationShouldTerminate(bool yes) override {
    if (yes) answeredYes = true;
  }
  std::atomic<bool> answeredYes{false};
};

// Battery every 180 ms and 3 ms after a connection, the connection
// fallback after 2.5 ms, a telemetry tick every 600 ms with 60 ms time-outs.
TW_BEFORE_APPLICATION([] { qputenv("TINTWELL_TIME_SCALE", "0.001"); });

TEST(PanelUnderLoad, PenStreamsScreenPicksBatteryTimersAndPostsAtOnceLoseAndRepeatNothing) {
  // Online on every machine, so the posts are made; the server below shares
  // the namespace. Before the first threads start.
  const QString why = testing::enterOnlineNetworkNamespace();
  if (!why.isEmpty()) GTEST_SKIP() << why.toStdString();
  testing::BridgeSandbox home;
  ASSERT_TRUE(home.isValid());
  home.enter();
  testing::TestCertificates certificates;
  testing::TelemetryTestServer server(certificates);
  server.command(QStringLiteral("fail-every 3"));
  qputenv("TINTWELL_TELEMETRY_URL", server.baseUrl().toUtf8());
  qputenv("TINTWELL_TELEMETRY_CA", certificates.caPath().toUtf8());
  ASSERT_TRUE(Reachability::isConnectedToNetwork());

  // The pen is already connected to the system: the fallback's strategy 3
  // takes it at the first power-on, the saved identifier at every later one.
  std::atomic<SimulatedCentral*> radio{nullptr};
  pen::PeripheralPtr pen;
  auto monitor = std::make_shared<testing::FakeClickMonitor>();
  auto pointer = std::make_shared<testing::FakePointer>();
  auto sampler = std::make_shared<testing::FakeSampler>();
  PanelParts parts;
  parts.central = [&](pen::CentralDelegate* d, QThread* q) {
    auto central = std::make_unique<SimulatedCentral>(
        d, q, pen::CentralManager::kPoweredOn, [&](SimulatedCentral& c) {
          SimulatedCentral::PeripheralConfig config;
          config.identifier = kPen;
          config.name = QStringLiteral("QUILLA-Pen 07");
          config.systemConnected = true;
          config.advertisedServices = {pen::penServiceUUID()};
          config.services = {{pen::penServiceUUID(), {pen::penColorCharUUID()}},
                             {pen::batteryServiceUUID(), {pen::batteryLevelCharUUID()}}};
          pen = c.addPeripheral(config);
          c.setRemoteValue(pen, pen::batteryLevelCharUUID(), QByteArray(1, char(87)));
        });
    radio = central.get();
    return central;
  };
  parts.host = std::make_shared<WineHostDescription>(std::make_shared<FixedApplicationLister>(
      std::vector<RunningApplication>{{QStringLiteral("Photoshop.exe"), kPhotoshop}}));
  parts.alerts = std::make_shared<SilentAlertPresenter>();
  parts.transport = makeNetworkUsageTransport();
  parts.colorHelper = [&] {
    return std::make_unique<ColorHelper>(ScreenBackend{monitor, pointer, sampler});
  };
  RecordingView view;
  RecordingReply reply;
  auto panel = std::make_unique<PanelLogic>(view, reply, std::move(parts));
  testing::LogCapture captured;
  panel->viewDidLoad();
  panel->colorHelper()->installMonitor();
  panel->appear();
  ASSERT_TRUE(radio.load() != nullptr);
  const auto notifyOnCalls = [&] {
    return static_cast<int>(radio.load()->calls().count(QStringLiteral("setNotifyValue on 1F16")));
  };

  // The radio: a stream of distinct colours per connection, 1 ms apart; then
  // the pen drops and Bluetooth is switched off and on, which connects the
  // saved pen again. Each stream starts once notifications are on.
  std::atomic<bool> radioFailed{false};
  std::atomic<bool> radioDone{false};
  QThread* radioThread = QThread::create([&] {
    int next = 1;
    for (int stream = 0; stream < kStreams; ++stream) {
      QDeadlineTimer deadline(30000);
      while (notifyOnCalls() < stream + 1) {
        if (deadline.hasExpired()) {
          radioFailed = true;
          radioDone = true;
          return;
        }
        QThread::msleep(1);
      }
      radio.load()->setRemoteValue(pen, pen::batteryLevelCharUUID(),
                                   QByteArray(1, char(20 + 20 * stream)));
      for (int i = 0; i < kColoursPerStream; ++i, ++next) {
        const char packet[] = {char(stream), char(next >> 16), char(next >> 8), char(next)};
        radio.load()->notify(pen, pen::penColorCharUUID(), QByteArray(packet, 4));
        QThread::usleep(1000);
      }
      if (stream + 1 < kStreams) {
        radio.load()->disconnect(pen);
        radio.load()->setState(pen::CentralManager::kPoweredOff);
        radio.load()->setState(pen::CentralManager::kPoweredOn);
      }
    }
    radioDone = true;
  });
  radioThread->start();

  // Meanwhile the main thread picks from the screen every 15 ms; its event
  // loop runs the battery timers and the posts' completions in between.
  int picks = 0;
  while (!radioDone) {
    pointer->location = QPointF(10 + picks % 500, 20 + picks % 300);
    sampler->color = QColor::fromRgb(kFirstScreenColour + picks);
    panel->armScreenPickCount();
    panel->colorHelper()->bPickScreenColor = true;
    monitor->click();
    ++picks;
    testing::spin(15);
  }
  radioThread->wait();
  delete radioThread;
  ASSERT_FALSE(radioFailed) << "the pen's notifications were not switched on again";

  const int penColours = kStreams * kColoursPerStream;
  ASSERT_TRUE(waitFor(
      [&] {
        const auto shown = view.shown();
        return std::count_if(shown.begin(), shown.end(),
                             [](int c) { return c >= 1 && c <= penColours; }) >= penColours;
      },
      60000));

  // Every pen colour was shown exactly once and in the order the pen sent it;
  // every screen pick was shown once.
  std::vector<int> pens;
  std::multiset<int> screens;
  for (int c : view.shown()) {
    if (c >= 1 && c <= penColours) pens.push_back(c);
    if (c >= kFirstScreenColour && c < kFirstScreenColour + picks) screens.insert(c);
  }
  ASSERT_EQ(static_cast<int>(pens.size()), penColours);
  for (int i = 0; i < penColours; ++i) ASSERT_EQ(pens[i], i + 1) << "at position " << i;
  ASSERT_EQ(static_cast<int>(screens.size()), picks);
  for (int k = 0; k < picks; ++k) EXPECT_EQ(screens.count(kFirstScreenColour + k), 1u);

  // Every colour but the start-up one differs from the one before it, so each
  // was pushed into Photoshop once.
  ASSERT_TRUE(waitFor([&] { return home.launches().size() >= penColours + picks; }, 60000));
  EXPECT_EQ(home.launches().size(), penColours + picks);

  // The connection display followed the pen, and each connection showed the
  // battery soon after.
  EXPECT_EQ(view.count(QStringLiteral("connection BT on")), kStreams);
  EXPECT_EQ(view.count(QStringLiteral("connection BT off")), kStreams - 1);
  EXPECT_GE(view.count(QStringLiteral("battery ")), kStreams);

  // Quitting waits for the closing posts.
  NotificationCenter::defaultCenter().post(notification::appClosing());
  ASSERT_TRUE(waitFor([&] { return reply.answeredYes.load(); }, 60000));
  const std::string output = captured.text().toStdString();

  // The bodies: each count matches its list, and no colour went through twice.
  const auto posts = server.requests(QStringLiteral("/api/color_usage"));
  ASSERT_FALSE(posts.isEmpty());
  int ticks = 0;
  std::map<QString, int> delivered;
  for (const auto& post : posts) {
    const QJsonObject body = testing::bodyObject(post);
    ticks += body.value("session_full").toBool();
    for (const char* kind : {"device", "screen"}) {
      QString list = body.value(QStringLiteral("colors_") + QLatin1String(kind)).toString();
      list.remove(u'[').remove(u']');
      const QStringList entries = list.split(u',', Qt::SkipEmptyParts);
      EXPECT_EQ(entries.size(),
                body.value(QStringLiteral("counter_") + QLatin1String(kind)).toInteger());
      if (post.answeredOk())
        for (const QString& entry : entries) ++delivered[entry];
    }
  }
  EXPECT_GE(ticks, 1);
  if (output.find("\nerror ") == std::string::npos) {
    for (const auto& [colour, times] : delivered)
      EXPECT_EQ(times, 1) << colour.toStdString() << " was posted successfully twice";
  }
  panel.reset();
}

}  // namespace
}  // namespace tw
