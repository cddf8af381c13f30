#include "app/PanelLogic.h"

#include <QDateTime>
#include <QTimer>
#include <cstdio>
#include <future>
#include <limits>
#include <thread>

#include "app/PaletteFollower.h"
#include "color/ColorNotations.h"
#include "common/Fatal.h"
#include "common/Log.h"
#include "common/TimeScale.h"
#include "common/Version.h"
#include "events/Notifications.h"
#include "library/names/NameLibraries.h"
#include "pen/Mailbox.h"

namespace tw {

namespace {

// Each channel of the start-up colour (#FAFAFA).
constexpr qint64 kStartUpChannel = 250;

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

// How many colours the recent buttons hold.
constexpr std::size_t kRecentColors = 4;

// Set while the main thread posts the start-up colour, which the history
// leaves out; a pen colour arriving meanwhile on its own thread sees false.
thread_local bool postingStartUpColor = false;

history::Source sourceOf(const Notification& notification) {
  const bool screen =
      notification.userInfo &&
      notification.userInfo->value(notification::quillaKey()) == QLatin1String("NewScreenColor");
  return screen ? history::Source::Screen : history::Source::Pen;
}

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
  template <typename Work>
  void toMainThread(Work work) {
    PanelLogic::toMainThread(gate_, std::move(work));
  }

  std::shared_ptr<Gate> gate_;
};

std::shared_ptr<history::HistoryStore> openDefaultHistory(
    history::HistoryStore::FaultHandler onFault, history::HistoryStore::CommitHandler onCommit) {
  history::HistoryStore::Options options;
  options.path = history::defaultHistoryPath();
  return std::make_shared<history::HistoryStore>(options, std::move(onFault), std::move(onCommit));
}

// Through the panel's mailbox, the hand-over ThreadSanitizer can see. Dropped
// with the panel if it goes before the main thread gets to it.
void PanelLogic::toMainThread(const std::shared_ptr<Gate>& gate,
                              std::function<void(PanelLogic&)> work) {
  std::shared_lock lock(gate->mutex);
  PanelLogic* panel = gate->panel;
  if (panel) panel->mainQueue_->post([panel, work = std::move(work)] { work(*panel); });
}

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
  openHistoryStore_ = std::move(parts.history);
  Q_UNUSED(bCalcSimilarColor);
  // The state is read again on the main thread, so a burst of changes shows
  // the last one whatever order the hand-overs run in.
  reconnectTimer_ = new QTimer(this);
  reconnectTimer_->setSingleShot(true);
  connect(reconnectTimer_, &QTimer::timeout, this, [this] { automaticReconnect(); });
  coreQuilla_->setLinkStateListener(
      [gate = self_] { toMainThread(gate, [](PanelLogic& panel) { panel.showLinkState(); }); });
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
  center.addObserver(notification::colorLibraryChanged(),
                     toPanel(self_, &PanelLogic::colorLibraryChangedWithNotification));
  closing_.observe();
  showLinkState();
  coreQuilla_->setupCentralManager();
  commander_->initScriptFiles();
}

void PanelLogic::applyPreferences(const Preferences& preferences) {
  const bool recentWasShown = preferences_.showRecentColors();
  preferences_ = preferences;
  preferences_.applyHosts(*commander_);
  apiLogger_->setSendingEnabled(preferences_.telemetryEnabled());
  if (preferences_.historyEnabled()) openHistory();
  {
    std::lock_guard lock(colorMutex_);
    historyEnabled_ = preferences_.historyEnabled() && history_ != nullptr;
  }
  if (preferences_.showRecentColors() || recentWasShown) showRecentColors();
  const auto store = history();
  if (preferences_.paletteFilesEnabled() && store) {
    if (!paletteFollower_) paletteFollower_ = std::make_unique<PaletteFollower>(store);
    paletteFollower_->schedule();
  } else {
    paletteFollower_.reset();
  }
  if (nameLibraryRow_ != preferences_.nameLibrary()) nameLibrary_.reset();
  showColorName();
  if (!preferences_.reconnectAutomatically()) {
    reconnectTimer_->stop();
  } else if (!reconnectTimer_->isActive() &&
             coreQuilla_->linkState() == pen::CoreQuilla::LinkState::Disconnected) {
    scheduleReconnect();
  }
  view_.preferencesApplied();
}

void PanelLogic::historyEdited() {
  if (paletteFollower_) paletteFollower_->schedule();
}

const names::NameLibrary* PanelLogic::activeNameLibrary() {
  const int row = preferences_.nameLibrary();
  if (!nameLibrary_ || nameLibraryRow_ != row) {
    nameLibrary_ = names::NameLibraries().library(row);
    nameLibraryRow_ = row;
  }
  return nameLibrary_ ? &*nameLibrary_ : nullptr;
}

std::optional<names::NameMatch> PanelLogic::nearestName(int red, int green, int blue) {
  const names::NameLibrary* library = activeNameLibrary();
  if (!library) return std::nullopt;
  const std::vector<names::NameMatch> matches = library->nearest(red, green, blue, 1);
  if (matches.empty()) return std::nullopt;
  return matches.front();
}

QString PanelLogic::nameText(const names::NameMatch& match) {
  return QStringLiteral("%1 · ΔE00 %2").arg(match.entry.name).arg(match.deltaE, 0, 'f', 1);
}

void PanelLogic::showColorName() {
  if (!preferences_.showColorNames() || !shownColor_) {
    if (nameShown_) view_.showColorName(QString());
    nameShown_ = false;
    return;
  }
  const auto match =
      nearestName(static_cast<int>(shownColor_->iR), static_cast<int>(shownColor_->iG),
                  static_cast<int>(shownColor_->iB));
  view_.showColorName(match ? nameText(*match) : QString());
  nameShown_ = true;
}

void PanelLogic::colorLibraryChangedWithNotification(const Notification& notification) {
  const qint64* row = std::any_cast<qint64>(&notification.object);
  if (row == nullptr || *row < 0 || *row > std::numeric_limits<int>::max()) return;
  // Kept even with the names option off; it shows only once names do.
  Preferences changed = preferences_;
  changed.setNameLibrary(static_cast<int>(*row));
  changed.save();
  applyPreferences(changed);
}

void PanelLogic::openHistory() {
  {
    std::lock_guard lock(colorMutex_);
    if (history_ || !openHistoryStore_) return;
  }
  // Both handlers run on the store's thread.
  auto onFault = [gate = self_](history::Fault, const QString& line) {
    std::fprintf(stderr, "%s\n", line.toUtf8().constData());
    std::fflush(stderr);
    toMainThread(gate, [line](PanelLogic& panel) { panel.view_.showHistoryMessage(line); });
  };
  auto onCommit = [gate = self_](const history::Entry& entry) {
    toMainThread(gate, [entry](PanelLogic& panel) {
      if (panel.paletteFollower_) panel.paletteFollower_->schedule();
      auto& listeners = panel.historyListeners_;
      std::erase_if(listeners, [](const HistoryListener& l) { return l.context.isNull(); });
      // A copy: a listener may add another.
      const auto current = listeners;
      for (const HistoryListener& listener : current)
        if (listener.context) listener.call(entry);
    });
  };
  std::shared_ptr<history::HistoryStore> store =
      openHistoryStore_(std::move(onFault), std::move(onCommit));
  std::lock_guard lock(colorMutex_);
  history_ = std::move(store);
}

std::shared_ptr<history::HistoryStore> PanelLogic::history() const {
  std::lock_guard lock(colorMutex_);
  return history_;
}

void PanelLogic::onHistoryCommitted(QObject* context,
                                    std::function<void(const history::Entry&)> listener) {
  historyListeners_.push_back({context, std::move(listener)});
}

void PanelLogic::rememberAccepted(const ColorStruct& color) {
  recentColors_.insert(recentColors_.begin(), color);
  if (recentColors_.size() > kRecentColors) recentColors_.resize(kRecentColors);
  if (preferences_.showRecentColors()) showRecentColors();
}

void PanelLogic::showRecentColors() {
  // At start, or when the option comes on, the buttons begin with the
  // history's newest colours rather than empty.
  if (preferences_.showRecentColors() && recentColors_.empty()) {
    if (const auto store = history()) {
      for (const history::Entry& entry : store->latest(static_cast<int>(kRecentColors)))
        recentColors_.push_back(ColorStruct::fromChannels(entry.red, entry.green, entry.blue));
    }
  }
  view_.showRecentColors(preferences_.showRecentColors() ? recentColors_
                                                         : std::vector<ColorStruct>{});
}

void PanelLogic::pushAgain(const ColorStruct& color) {
  // The script launcher waits for its shell; never on the main thread.
  std::thread([commander = commander_.get(), gate = self_, color] {
    std::shared_lock lock(gate->mutex);
    if (gate->panel) commander->pushAgain(color);
  }).detach();
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
  postingStartUpColor = true;
  postNewColor(kStartUpChannel, kStartUpChannel, kStartUpChannel);
  postingStartUpColor = false;
  showColorTexts(kStartUpChannel, kStartUpChannel, kStartUpChannel);
}

void PanelLogic::showFirstFrame() {
  showLinkState();
  // As appear() will show it, so the frame does not change when it does.
  view_.showColor(ColorStruct::fromChannels(kStartUpChannel, kStartUpChannel, kStartUpChannel));
  showColorTexts(kStartUpChannel, kStartUpChannel, kStartUpChannel);
}

void PanelLogic::viewDidDisappear() {
  logLine(std::string_view("viewDidDisappear!"));
  if (batteryTimer_) batteryTimer_->stop();
}

void PanelLogic::armScreenPickCount() { apiLogger_->bPickScreenColor = true; }

void PanelLogic::disarmScreenPickCount() { apiLogger_->bPickScreenColor = false; }

void PanelLogic::newColorReceivedWithNotification(const Notification& notification) {
  handleNewColor(notification);
}

void PanelLogic::handleNewColor(const Notification& notification) {
  const ColorStruct* incoming = std::any_cast<ColorStruct>(&notification.object);
  if (incoming == nullptr) fatalStop("a new-colour notification carried no ColorStruct");
  const ColorStruct color = *incoming;
  const bool startUp = postingStartUpColor;
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
      // Queued for the store's own thread: nothing here waits for the disk.
      if (accepted && historyEnabled_ && !startUp) {
        history_->append(history::Entry{0, QDateTime::currentMSecsSinceEpoch(),
                                        sourceOf(notification), static_cast<int>(color.iR),
                                        static_cast<int>(color.iG), static_cast<int>(color.iB),
                                        QString(), false});
      }
    }
  }
  mainQueue_->post([this, color, accepted, startUp] {
    showColor(color);
    if (accepted) {
      view_.colorAccepted(color);
      if (!startUp) rememberAccepted(color);
    }
  });
  logLine(color.colorHex);
}

void PanelLogic::showColor(const ColorStruct& color) {
  view_.showColor(color);
  view_.showColorTexts(*convertToAllColor(color.iR, color.iG, color.iB));
  shownColor_ = color;
  if (preferences_.showColorNames()) showColorName();
}

void PanelLogic::connectedNotificationWithNotification(const Notification&) {
  mainQueue_->post([this] { showConnected(); });
}

void PanelLogic::disconnectedNotificationWithNotification(const Notification&) {
  mainQueue_->post([this] { showDisconnected(); });
}

void PanelLogic::showConnected() {
  reconnectTimer_->stop();
  reconnectBackoff_.reset();
  view_.setConnectionImage(QStringLiteral("BT on"));
  startBatteryWatch();
  // The level shows soon after connecting rather than after the first period.
  QTimer::singleShot(scaledMs(3.0), this, [this] { updateBatteryImage(); });
  view_.penLinkChanged(true);
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
  view_.penLinkChanged(false);
  if (preferences_.reconnectAutomatically()) {
    reconnectBackoff_.reset();
    scheduleReconnect();
  }
}

bool PanelLogic::reconnectPen() { return coreQuilla_->reconnect(); }

bool PanelLogic::reconnectPending() const { return reconnectTimer_->isActive(); }

void PanelLogic::scheduleReconnect() { reconnectTimer_->start(scaledMs(reconnectBackoff_.next())); }

void PanelLogic::automaticReconnect() {
  if (!preferences_.reconnectAutomatically()) return;
  if (coreQuilla_->linkState() == pen::CoreQuilla::LinkState::Connected) return;
  coreQuilla_->reconnect();
  // Until the connection is reported (which stops it), or the option goes off.
  scheduleReconnect();
}

void PanelLogic::checkBatteryLevel() { updateBatteryImage(); }

QString PanelLogic::linkStateText(pen::CoreQuilla::LinkState state) {
  using State = pen::CoreQuilla::LinkState;
  switch (state) {
    case State::Starting:
      return QStringLiteral("Waiting for Bluetooth");
    case State::Off:
      return QStringLiteral("Bluetooth off");
    case State::NoAdapter:
      return QStringLiteral("No Bluetooth adapter");
    case State::NotAllowed:
      return QStringLiteral("Bluetooth not allowed");
    case State::Searching:
      return QStringLiteral("Searching for the pen");
    case State::Connecting:
      return QStringLiteral("Connecting to the pen");
    case State::Connected:
      return QStringLiteral("Pen connected");
    case State::Disconnected:
      return QStringLiteral("Pen disconnected");
  }
  return QStringLiteral("Waiting for Bluetooth");
}

QString PanelLogic::connectionText() const { return linkStateText(coreQuilla_->linkState()); }

void PanelLogic::showLinkState() { view_.showConnectionState(connectionText()); }

void PanelLogic::updateBatteryImage() {
  view_.setBatteryImage(batteryImageName(coreQuilla_->getBatteryLevel()));
  if (const std::optional<qint64> level = coreQuilla_->lastReadBatteryLevel())
    view_.showBatteryLevel(*level);
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
