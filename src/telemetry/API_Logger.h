#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QtGlobal>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "telemetry/TerminationReply.h"
#include "telemetry/UsageRecords.h"
#include "telemetry/UsageTransport.h"

class QTimer;

namespace tw {

// The kinds of usage post; the printed form is the case name.
enum class API_Type { colorType, appType };
QString apiTypeName(API_Type type);

// The telemetry sender: counts colours into the session's records and posts
// them every 600 seconds and once at quit.
//
// Lives on the main thread: the timer fires there and the transport completes
// there. Colours are counted from the pen thread at the same time, and push
// counts grow from both, so the record references sit behind a lock, every
// record has its own lock, and the flags are atomic.
class API_Logger : public QObject {
  Q_OBJECT

 public:
  explicit API_Logger(QObject* parent = nullptr);
  ~API_Logger() override;

  // Starts a session: fresh records, the session's begin stamp, and the
  // repeating 600-second timer (scaled by TINTWELL_TIME_SCALE) on this
  // object's thread; the first tick comes a whole period later. The timer only
  // runs where an event loop can (after the application object exists). A
  // second call starts another timer and leaves the first one running (both
  // owned by the sender): the panel restarts telemetry at every appearance,
  // and each restart adds a tick per period.
  void startLogging();

  // Posts both records if any colour was counted: stamps and closes the colour
  // record, shares Commander's application record, and starts the two posts
  // side by side. Returns early, printing why, when offline.
  void sendLogs();
  // One POST of `body` to base address + `urlText`.
  void postUsage(const QString& urlText, const QByteArray& body, API_Type type);
  // Completion of one POST: 2xx renews the posted record, anything else gives up.
  void handleUsageResponse(const std::optional<QByteArray>& data,
                           const std::optional<UsageResponse>& response,
                           const std::optional<QString>& error, API_Type type);
  // End of one successful POST: answers a waiting quit once both are done.
  void usageSucceeded();
  // End of one failed POST: counts both as done and answers a waiting quit.
  void usageFailed();

  // The repeating send timer of the last startLogging; absent before the first.
  QTimer* apiSenderTimer() const { return apiSenderTimer_; }

  // The user's switch for usage reports, on unless turned off. Off, no send
  // timer runs (startLogging makes its timer without starting it, and the
  // running ones stop), sendLogs posts nothing and the quit does not wait for
  // a post. Counting goes on, but what was counted while off is dropped when
  // reports are turned on again, so it never leaves the machine. Main thread.
  void setSendingEnabled(bool enabled);
  bool isSendingEnabled() const { return sendingEnabled_; }
  // The send period, as scaled by TINTWELL_TIME_SCALE.
  static int sendPeriodMs();

  // What would be posted if the reports were sent now, without sending or
  // changing anything: both bodies as sendLogs would build them, and how many
  // colours they hold (none means sendLogs would post nothing). Absent before
  // startLogging.
  struct PendingReport {
    QByteArray colorBody;
    QByteArray applicationBody;
    qint64 colors = 0;
  };
  std::optional<PendingReport> pendingReport() const;

  // Where the posts travel; set before the first send.
  void setTransport(std::shared_ptr<UsageTransport> transport);
  // Where the quit answer goes; needed only once bAppShouldClose is set.
  void setTerminationReply(TerminationReply* reply);

  // Counts a colour as a screen colour when a screen pick was armed, else as a
  // pen colour. The very first colour after start is neither counted nor listed.
  void countColor(qint64 red, qint64 green, qint64 blue);
  // Turns ",#A,#B" into "[#A,#B]" (a list already closed stays as it is), and an
  // empty count into "[]".
  void closeColorLists();
  // Replaces the colour record with a fresh one that keeps vender, app and
  // version, and stamps its begin.
  void startNewColorRecord();

  std::shared_ptr<ColorRecord> colorRecord() const;
  void setColorRecord(std::shared_ptr<ColorRecord> record);
  std::shared_ptr<ApplicationRecord> applicationRecord() const;
  void setApplicationRecord(std::shared_ptr<ApplicationRecord> record);

  // The panel's Commander: source of the application record that is sent.
  std::atomic<ApplicationUsageCounters*> parentCommander{nullptr};

  std::atomic<bool> bFirstColor{true};
  std::atomic<bool> bAppShouldClose{false};
  std::atomic<bool> bPickScreenColor{false};
  std::atomic<bool> bColorApiDone{false};
  std::atomic<bool> bAppUsageApiDone{false};

 public Q_SLOTS:
  // The timer's action: marks the session full and sends.
  void logWithTimer();

 private:
  // The colour record; absent before startLogging, which makes counting fatal.
  std::shared_ptr<ColorRecord> requireColorRecord() const;
  ApplicationUsageCounters& requireCommander() const;
  // Queues the YES answer to the pending quit on this object's (the main) thread.
  void answerTerminationLater();
  // The records' colour lists grow with every colour and are dropped at each
  // renewal; the allocator would keep their pages. Gives freed pages back a
  // second after a post ends and after each start.
  void releaseFreedMemoryLater();

  mutable std::mutex recordsMutex_;
  std::shared_ptr<ColorRecord> colorRecord_;
  std::shared_ptr<ApplicationRecord> applicationRecord_;

  // Set up on the main thread before sends start; read there only.
  QTimer* apiSenderTimer_ = nullptr;
  // Every send timer made, for the usage-report switch.
  std::vector<QPointer<QTimer>> senderTimers_;
  std::atomic<bool> sendingEnabled_{true};
  std::shared_ptr<UsageTransport> transport_;
  std::atomic<TerminationReply*> terminationReply_{nullptr};
};

}  // namespace tw
