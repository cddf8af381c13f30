#include "app/PanelLogic.h"

#include <QTimer>
#include <future>

#include "color/ColorNotations.h"
#include "common/Fatal.h"
#include "common/Log.h"
#include "common/TimeScale.h"
#include "common/Version.h"
#include "events/Notifications.h"
#include "pen/Mailbox.h"

namespace tw {

namespace {

// Runs `call` on the panel if it still exists, keeping it from going meanwhile.
template <typename Gate, typename Call>
NotificationCenter::Handler toPanel(const std::shared_ptr<Gate>& gate, Call call) {
  return [gate, call](const Notification& notification) {
    std::shared_lock lock(gate->mutex);
    if (gate->panel != nullptr) (gate->panel->*call)(notification);
  };
}

// How long one push into a native design application may take before it
// costs a line; long enough for a busy GIMP, short enough that a hung one
// is noticed while the user still remembers the colour.
constexpr std::chrono::milliseconds kHostTimeout{3000};

}  // namespace

// Hands what the design applications report to the panel on the main thread.
class PanelLogic::HostEventsToPanel : public HostEvents {
 public:
  explicit HostEventsToPanel(std::shared_ptr<Gate> gate) : gate_(std::move(gate)) {}

  void pushed(const QString&, const QString& hostName, const HostColor& color,
              const PushOutcome& outcome) override {
    if (outcome.status == PushStatus::Confirmed) return;
    const QString text = outcome.status == PushStatus::Queued
                             ? hostName + QStringLiteral(": ") + color.hex() +
                                   QStringLiteral(" is applied when a document is open")
                             : HostDispatcher::failureLine(hostName, outcome);
    toMainThread([text](PanelLogic& panel) { panel.view_.showHostMessage(text); });
  }

  // Waits on the host's worker until the user has closed the alert, so
  // the host does what the notice says only after it was read. If the panel
  // goes first, the alert is never shown and the wait ends with it.
  bool notice(const QString&, const QString& hostName, const QString& text) override {
    struct Seen {
      std::promise<bool> promise;
      bool shown = false;
      ~Seen() { promise.set_value(shown); }
    };
    auto seen = std::make_shared<Seen>();
    std::future<bool> done = seen->promise.get_future();
    toMainThread([hostName, text, seen = std::move(seen)](PanelLogic& panel) {
      if (panel.alerts_) panel.alerts_->showInformation(hostName, text);
      seen->shown = true;
    });
    return done.get();
  }

 private:
  // Through the panel's mailbox, the hand-over ThreadSanitizer can see.
  // Dropped with the panel if it goes before the main thread gets to it.
  template <typename Work>
  void toMainThread(Work work) {
    std::shared_lock lock(gate_->mutex);
    PanelLogic* panel = gate_->panel;
    if (panel) panel->mainQueue_->post([panel, work] { work(*panel); });
  }

  std::shared_ptr<Gate> gate_;
};

PanelLogic::PanelLogic(PanelView& view, TerminationReply& application, PanelParts parts)
    : view_(view),
      coreQuilla_(std::make_unique<pen::CoreQuilla>(std::move(parts.central))),
      commander_(std::make_unique<Commander>(std::move(parts.host), parts.alerts)),
      colorHelper_(parts.colorHelper ? parts.colorHelper() : nullptr),
      apiLogger_(std::make_unique<API_Logger>()),
      closing_(*apiLogger_, application),
      self_(std::make_shared<Gate>()),
      mainQueue_(new pen::Mailbox(this)) {
  self_->panel = this;
  apiLogger_->setTransport(std::move(parts.transport));
  apiLogger_->setTerminationReply(&application);
  alerts_ = std::move(parts.alerts);
  if (parts.nativeHosts) {
    commander_->setNativeHosts(std::make_shared<HostDispatcher>(
        parts.nativeHosts(), std::make_shared<HostEventsToPanel>(self_), kHostTimeout));
  }
  Q_UNUSED(bCalcSimilarColor);
}

PanelLogic::~PanelLogic() {
  {
    std::unique_lock lock(self_->mutex);
    self_->panel = nullptr;
  }
  // Work queued for the main thread is dropped now, not with the mailbox
  // after the members: a design application's worker waiting for its notice
  // to be seen is released before the bridge joins it.
  mainQueue_->discard();
}

void PanelLogic::viewDidLoad() {
  // Before anything can push or start telemetry.
  applyPreferences(Preferences::load());
  auto& center = NotificationCenter::defaultCenter();
  center.addObserver(notification::newColor(),
                     toPanel(self_, &PanelLogic::newColorReceivedWithNotification));
  center.addObserver(notification::connectedQuilla(),
                     toPanel(self_, &PanelLogic::connectedNotificationWithNotification));
  center.addObserver(notification::disconnected(),
                     toPanel(self_, &PanelLogic::disconnectedNotificationWithNotification));
  closing_.observe();
  coreQuilla_->setupCentralManager();
  commander_->initScriptFiles();
}

void PanelLogic::applyPreferences(const Preferences& preferences) {
  preferences_ = preferences;
  preferences_.applyHosts(*commander_);
  apiLogger_->setSendingEnabled(preferences_.telemetryEnabled());
}

void PanelLogic::prepareTelemetry() {
  apiLogger_->startLogging();
  const auto record = apiLogger_->colorRecord();
  if (!record) fatalStop("the colour usage record is missing after telemetry started");
  record->update([](ColorRecord::Fields& f) {
    f.vender = QStringLiteral("Vandu");
    f.app = QStringLiteral("TW+V");
    f.version = QString::fromLatin1(kVersion);
  });
  apiLogger_->parentCommander = commander_.get();
}

void PanelLogic::postNewColor(qint64 red, qint64 green, qint64 blue) {
  NotificationCenter::defaultCenter().post(
      notification::newColor(), ColorStruct::fromChannels(red, green, blue),
      UserInfo{{notification::quillaKey(), QStringLiteral("NewColor")}});
}

void PanelLogic::showColorTexts(qint64 red, qint64 green, qint64 blue) {
  view_.showColorTexts(*convertToAllColor(red, green, blue));
}

void PanelLogic::appear() {
  prepareTelemetry();
  postNewColor(250, 250, 250);
  showColorTexts(250, 250, 250);
}

void PanelLogic::viewDidDisappear() {
  logLine(std::string_view("viewDidDisappear!"));
  if (batteryTimer_) batteryTimer_->stop();
}

void PanelLogic::armScreenPickCount() { apiLogger_->bPickScreenColor = true; }

void PanelLogic::newColorReceivedWithNotification(const Notification& notification) {
  handleNewColor(notification);
}

void PanelLogic::handleNewColor(const Notification& notification) {
  const ColorStruct* incoming = std::any_cast<ColorStruct>(&notification.object);
  if (incoming == nullptr) fatalStop("a new-colour notification carried no ColorStruct");
  const ColorStruct color = *incoming;
  bool accepted = false;
  {
    std::lock_guard lock(colorMutex_);
    // A repeated colour is shown again but not stored, pushed or counted. A
    // screen pick is never a repeat of a pen or start-up colour: its platform
    // colour is in another colour space.
    if (!commander_->newColor().hasSameColor(color)) {
      currentColorStruct_ = color;
      // Accepted exactly when pushed: the bridge skips its first colour.
      accepted = !commander_->state().bFirstColor;
      commander_->sendColorToApps(color);
      apiLogger_->countColor(color.iR, color.iG, color.iB);
    }
  }
  mainQueue_->post([this, color, accepted] {
    showColor(color);
    if (accepted) view_.colorAccepted(color);
  });
  logLine(color.colorHex);
}

void PanelLogic::showColor(const ColorStruct& color) {
  view_.showColor(color);
  view_.showColorTexts(*convertToAllColor(color.iR, color.iG, color.iB));
}

void PanelLogic::connectedNotificationWithNotification(const Notification&) {
  mainQueue_->post([this] { showConnected(); });
}

void PanelLogic::disconnectedNotificationWithNotification(const Notification&) {
  mainQueue_->post([this] { showDisconnected(); });
}

void PanelLogic::showConnected() {
  view_.setConnectionImage(QStringLiteral("BT on"));
  startBatteryWatch();
  // The level shows soon after connecting rather than after the first period.
  QTimer::singleShot(scaledMs(3.0), this, [this] { updateBatteryImage(); });
}

void PanelLogic::startBatteryWatch() {
  view_.setBatteryShown(true);
  // A timer already stored is let go without being stopped, so two connections
  // without a disconnection leave two timers running.
  auto* timer = new QTimer(this);
  timer->setInterval(scaledMs(180.0));
  connect(timer, &QTimer::timeout, this, [this] { checkBatteryLevel(); });
  timer->start();
  batteryTimer_ = timer;
  batteryTimers_.emplace_back(timer);
}

void PanelLogic::showDisconnected() {
  view_.setConnectionImage(QStringLiteral("BT off"));
  if (batteryTimer_) batteryTimer_->stop();
  view_.setBatteryShown(false);
}

void PanelLogic::checkBatteryLevel() { updateBatteryImage(); }

void PanelLogic::updateBatteryImage() {
  view_.setBatteryImage(batteryImageName(coreQuilla_->getBatteryLevel()));
}

QString PanelLogic::batteryImageName(qint64 level) {
  if (level < 0 || level > 100) return QStringLiteral("50");
  if (level >= 90) return QStringLiteral("100");
  return QString::number((level / 10 + 1) * 10);
}

std::optional<ColorStruct> PanelLogic::currentColorStruct() const {
  std::lock_guard lock(colorMutex_);
  return currentColorStruct_;
}

int PanelLogic::activeBatteryTimers() const {
  int active = 0;
  for (const auto& timer : batteryTimers_) {
    if (timer && timer->isActive()) ++active;
  }
  return active;
}

}  // namespace tw
