#pragma once

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <vector>

#include "app/ClosingHandler.h"
#include "app/PanelView.h"
#include "app/Preferences.h"
#include "app/ReconnectBackoff.h"
#include "bridge/AlertPresenter.h"
#include "bridge/Commander.h"
#include "bridge/DesignHost.h"
#include "bridge/HostDescription.h"
#include "color/ColorHelper.h"
#include "events/NotificationCenter.h"
#include "library/history/HistoryStore.h"
#include "library/names/NameLibrary.h"
#include "pen/CoreQuilla.h"
#include "telemetry/API_Logger.h"
#include "telemetry/TerminationReply.h"
#include "telemetry/UsageTransport.h"

namespace tw {

namespace pen {
class Mailbox;
}
class PaletteFollower;

// The platform pieces the panel's objects are built on; tests put in their own.
struct PanelParts {
  pen::CentralFactory central;
  std::shared_ptr<HostDescription> host;
  std::shared_ptr<AlertPresenter> alerts;
  std::shared_ptr<UsageTransport> transport;
  // The screen picker's state; made between the bridge and the sender. Empty
  // for a panel without a screen (the command-line listener).
  std::function<std::unique_ptr<ColorHelper>()> colorHelper;
  // The native design applications (GIMP, Inkscape, Krita) pushed to after
  // Photoshop and Illustrator; none when empty.
  std::function<std::vector<std::unique_ptr<DesignHost>>()> nativeHosts;
  // Opens the colour history with the given handlers (called on the store's
  // thread); no history when empty.
  std::function<std::shared_ptr<history::HistoryStore>(history::HistoryStore::FaultHandler,
                                                       history::HistoryStore::CommitHandler)>
      history;
};

// Opens the history in the application's data folder (PanelParts::history).
std::shared_ptr<history::HistoryStore> openDefaultHistory(
    history::HistoryStore::FaultHandler onFault, history::HistoryStore::CommitHandler onCommit);

// The main colour panel without its drawing: it owns the pen link, the bridge
// and the telemetry sender, receives every new colour, pushes and counts it,
// and tells its view what to show. The desktop window and `tintwell listen`
// both run this class, so their behaviour and their lines are the same.
//
// Lives on the main thread. New colours from the pen arrive on the pen thread;
// the check against the last colour and the push and count that follow are
// serialised with colours arriving on the main thread.
class PanelLogic : public QObject {
 public:
  // Creates the pen link, the bridge, the colour helper (when the parts have
  // one) and the sender, in that order.
  PanelLogic(PanelView& view, TerminationReply& application, PanelParts parts);
  ~PanelLogic() override;
  PanelLogic(const PanelLogic&) = delete;
  PanelLogic& operator=(const PanelLogic&) = delete;

  // Registers the four observers (new colour, connected, disconnected, app
  // closing), starts the pen link and fixes the script files. Call once.
  // Applies the preferences from the settings file first.
  void viewDidLoad();
  // Starts telemetry and stamps the colour record with the edition, the
  // version and the bridge.
  void prepareTelemetry();
  // Posts a colour as the pen does ("NewColor"): the start-up colour.
  void postNewColor(qint64 red, qint64 green, qint64 blue);
  // Sets the four notation texts directly.
  void showColorTexts(qint64 red, qint64 green, qint64 blue);
  // The appear sequence's work that does not need a window: telemetry, then
  // the start-up colour 250, 250, 250 posted and its texts shown.
  void appear();
  // Shows the link state and the start-up colour without posting anything,
  // for a first frame drawn before viewDidLoad() and appear().
  void showFirstFrame();
  // Prints "viewDidDisappear!" and stops the stored battery timer.
  void viewDidDisappear();
  // The telemetry side of arming a screen pick: the next colour counts as a
  // screen colour.
  void armScreenPickCount();
  // A pick that ended without a colour: the next colour counts as it comes.
  void disarmScreenPickCount();

  // Observers; each runs on the thread that posted.
  void newColorReceivedWithNotification(const Notification& notification);
  void connectedNotificationWithNotification(const Notification& notification);
  void disconnectedNotificationWithNotification(const Notification& notification);
  // Battery timer target.
  void checkBatteryLevel();

  // The user asked for the pen again: the link's connection procedure starts
  // over. False when the link refused (no powered adapter, or the pen is
  // connected or being connected). Main thread.
  bool reconnectPen();
  // The automatic reconnection's timer (single shot), while it waits.
  bool reconnectPending() const;

  // The battery image for a level: the tens band above it ("10" for 0 to 9 ...
  // "90" for 80 to 89), "100" for 90 to 100, and "50" outside 0 to 100.
  static QString batteryImageName(qint64 level);
  // The pen link's state in words, as the connection indicator's tooltip says it.
  static QString linkStateText(pen::CoreQuilla::LinkState state);
  // The text for the link's state now.
  QString connectionText() const;

  // The user's preferences in force: the host switches go to the bridge, the
  // usage-report switch to the sender. Saving them is the caller's. Main
  // thread.
  void applyPreferences(const Preferences& preferences);
  const Preferences& preferences() const { return preferences_; }

  pen::CoreQuilla& coreQuilla() { return *coreQuilla_; }
  Commander& commander() { return *commander_; }
  API_Logger& apiLogger() { return *apiLogger_; }
  // Null when the parts had no colour helper.
  ColorHelper* colorHelper() { return colorHelper_.get(); }
  // The colour history; null when the parts have none or it was never
  // switched on. Main thread.
  std::shared_ptr<history::HistoryStore> history() const;
  // Called on the main thread with each colour the history has committed,
  // while `context` lives.
  void onHistoryCommitted(QObject* context, std::function<void(const history::Entry&)> listener);
  // The last accepted colours, newest first (at most four), as the recent
  // buttons show them when their option is on.
  const std::vector<ColorStruct>& recentColors() const { return recentColors_; }
  // Sends a colour taken from the history into the design applications again,
  // off the main thread; the panel, the counts and the history are untouched.
  void pushAgain(const ColorStruct& color);
  // The history was edited (star, name, delete, import): the palette files
  // follow.
  void historyEdited();
  // The name library chosen in the library dialog (its row, kept in the
  // preferences), loaded on first use; null when that row has none. Main
  // thread.
  const names::NameLibrary* activeNameLibrary();
  // The nearest name in the active library; nothing without one.
  std::optional<names::NameMatch> nearestName(int red, int green, int blue);
  // "tomato · ΔE00 1.2": how a match reads on the panel and in the history.
  static QString nameText(const names::NameMatch& match);

  // Observer of "Notification_ColorLibraryChanged" (the library dialog, main
  // thread): the row becomes the active library and is saved.
  void colorLibraryChangedWithNotification(const Notification& notification);
  std::optional<ColorStruct> currentColorStruct() const;
  // The stored battery timer (the last one made), and how many of the timers
  // made so far still run: a second connection leaves the first one running.
  QTimer* batteryTimer() const { return batteryTimer_; }
  int activeBatteryTimers() const;

 private:
  void handleNewColor(const Notification& notification);
  void showColor(const ColorStruct& color);
  void showConnected();
  void showDisconnected();
  // Main thread: the view's connection text follows the link's state.
  void showLinkState();
  void startBatteryWatch();
  void updateBatteryImage();
  // Opens the history when the preferences want one and the parts can.
  void openHistory();
  // Main thread: a colour was accepted; the recent buttons follow it.
  void rememberAccepted(const ColorStruct& color);
  void showRecentColors();
  // The name field follows the shown colour while its option is on.
  void showColorName();

  PanelView& view_;
  // Owned for the panel's whole life, made in this order.
  std::unique_ptr<pen::CoreQuilla> coreQuilla_;
  std::unique_ptr<Commander> commander_;
  std::unique_ptr<ColorHelper> colorHelper_;
  std::unique_ptr<API_Logger> apiLogger_;
  ClosingHandler closing_;
  // Observers are never removed: they reach the panel through this gate. An
  // observer holds it shared while it runs; the destructor empties it under
  // the exclusive lock, so it waits for observers already running on other
  // threads (a pen colour arriving while the application quits).
  struct Gate {
    std::shared_mutex mutex;
    PanelLogic* panel = nullptr;  // guarded by mutex
  };
  std::shared_ptr<Gate> self_;
  // Runs work on the main thread through the mailbox while the panel lives.
  static void toMainThread(const std::shared_ptr<Gate>& gate,
                           std::function<void(PanelLogic&)> work);
  // Carries what observers on other threads hand to the main thread (colours,
  // connection changes) in posting order, through a lock ThreadSanitizer sees.
  pen::Mailbox* mainQueue_;

  mutable std::mutex colorMutex_;
  std::optional<ColorStruct> currentColorStruct_;  // guarded by colorMutex_
  // Notices from the design applications (Krita's plug-in) are shown with
  // these; null shows none.
  std::shared_ptr<AlertPresenter> alerts_;
  class HostEventsToPanel;

  // Declared for the library feature and never read.
  bool bCalcSimilarColor = true;

  std::function<std::shared_ptr<history::HistoryStore>(history::HistoryStore::FaultHandler,
                                                       history::HistoryStore::CommitHandler)>
      openHistoryStore_;
  // Written on the main thread, read where colours arrive: under colorMutex_.
  std::shared_ptr<history::HistoryStore> history_;
  bool historyEnabled_ = false;  // guarded by colorMutex_
  struct HistoryListener {
    QPointer<QObject> context;
    std::function<void(const history::Entry&)> call;
  };
  std::vector<HistoryListener> historyListeners_;     // main thread
  std::vector<ColorStruct> recentColors_;             // main thread
  std::unique_ptr<PaletteFollower> paletteFollower_;  // main thread
  // The active name library and the row it was loaded for; main thread.
  std::optional<names::NameLibrary> nameLibrary_;
  int nameLibraryRow_ = -1;
  // The colour the panel shows now; main thread.
  std::optional<ColorStruct> shownColor_;
  bool nameShown_ = false;

  // As last applied; the defaults until viewDidLoad.
  Preferences preferences_;

  // With pen/reconnect on: after a disconnection, tries again until the pen
  // is back, the waits from the back-off. Main thread.
  void scheduleReconnect();
  void automaticReconnect();
  QTimer* reconnectTimer_ = nullptr;
  ReconnectBackoff reconnectBackoff_;

  QPointer<QTimer> batteryTimer_;
  // Every battery timer made, for activeBatteryTimers().
  std::vector<QPointer<QTimer>> batteryTimers_;
};

}  // namespace tw
