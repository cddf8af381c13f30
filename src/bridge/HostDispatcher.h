#pragma once

#include <QString>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "bridge/DesignHost.h"

namespace tw {

// What the dispatcher tells the rest of the application. Called on the host's
// worker thread; implementations hand over to their own thread as needed.
class HostEvents {
 public:
  virtual ~HostEvents() = default;
  virtual void pushed(const QString& hostKey, const QString& hostName, const HostColor& color,
                      const PushOutcome& outcome) {
    (void)hostKey, (void)hostName, (void)color, (void)outcome;
  }
  // Shows a host's preparation notice and returns once the user has seen it
  // (an alert closed, a line printed): true, and the host is prepared then.
  // False when it could not be shown (the panel went first): the host is
  // left as it is and asked again before its next push.
  virtual bool notice(const QString& hostKey, const QString& hostName, const QString& text) {
    (void)hostKey, (void)hostName, (void)text;
    return true;
  }
};

// Counts kept per host for the preferences window and the history.
struct HostStats {
  quint64 offered = 0;    // colours handed to the host's worker
  quint64 pushed = 0;     // pushes made (a colour replaced while waiting is not pushed)
  quint64 confirmed = 0;  // Confirmed or Queued
  quint64 failed = 0;     // NotRunning or Failed
  friend bool operator==(const HostStats&, const HostStats&) = default;
};

// Pushes accepted colours into the native design applications without
// making the caller wait: each host has a worker thread and a one-colour
// mailbox. A colour offered while the host is still busy replaces the one
// waiting, so a slow or hung host gets the newest colour when it is free and
// never builds up a queue. A push that fails costs one line naming the host
// and the reason; the same failure again costs nothing until the host has
// taken a colour or fails differently.
class HostDispatcher {
 public:
  HostDispatcher(std::vector<std::unique_ptr<DesignHost>> hosts, std::shared_ptr<HostEvents> events,
                 std::chrono::milliseconds timeout);
  // Finishes the push in flight (bounded by the time-out), drops waiting ones.
  ~HostDispatcher();
  HostDispatcher(const HostDispatcher&) = delete;
  HostDispatcher& operator=(const HostDispatcher&) = delete;

  // Hands `color` to every enabled host whose process is among `running`.
  // Never blocks on a host. Callable from any thread.
  void offer(const HostColor& color, const std::vector<RunningApplication>& running);
  // Hands `color` to the host `key` whether or not its process was seen
  // (the command line's --to). False for an unknown key.
  bool offerTo(const QString& key, const HostColor& color);

  // Whether the host `key`'s process is among `running`, switched on or not.
  bool isHostRunning(const QString& key, const std::vector<RunningApplication>& running) const;

  void setEnabled(const QString& key, bool enabled);
  bool isEnabled(const QString& key) const;
  std::vector<QString> keys() const;
  std::optional<QString> displayName(const QString& key) const;
  std::optional<HostStats> stats(const QString& key) const;
  // The last outcome of the host `key`, absent before its first push.
  std::optional<PushOutcome> lastOutcome(const QString& key) const;

  // Waits until no host has a colour waiting or in flight; false on time-out.
  bool waitIdle(std::chrono::milliseconds timeout);
  // Runs `work` on the host's worker thread with the host, between pushes,
  // and waits for it (reading back in tests and the benchmark).
  // False for an unknown key.
  bool withHost(const QString& key, const std::function<void(DesignHost&)>& work);

  // The line printed when a push fails: "GIMP: no answer within 2000 ms".
  static QString failureLine(const QString& hostName, const PushOutcome& outcome);

 private:
  struct Worker;
  Worker* find(const QString& key) const;
  void run(Worker& worker);
  void enqueue(Worker& worker, const HostColor& color);

  std::shared_ptr<HostEvents> events_;
  const std::chrono::milliseconds timeout_;
  std::vector<std::unique_ptr<Worker>> workers_;
  // Guards every worker's mailbox, flags and counts; one lock for all keeps
  // waitIdle simple, and no host work runs under it.
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool stopping_ = false;
};

}  // namespace tw
