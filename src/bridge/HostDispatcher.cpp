#include "bridge/HostDispatcher.h"

#include <cctype>
#include <deque>

#include "common/Log.h"

namespace tw {

QString HostColor::hex() const {
  return QStringLiteral("#%1%2%3")
      .arg(red, 2, 16, QLatin1Char('0'))
      .arg(green, 2, 16, QLatin1Char('0'))
      .arg(blue, 2, 16, QLatin1Char('0'));
}

std::optional<HostColor> HostColor::fromHex(const QString& text) {
  const QString digits = text.startsWith(QLatin1Char('#')) ? text.mid(1) : text;
  if (digits.size() != 6) return std::nullopt;
  for (const QChar c : digits) {
    if (!std::isxdigit(static_cast<unsigned char>(c.toLatin1()))) return std::nullopt;
  }
  bool ok = false;
  const uint value = digits.toUInt(&ok, 16);
  if (!ok) return std::nullopt;
  return HostColor{static_cast<int>((value >> 16) & 0xFF), static_cast<int>((value >> 8) & 0xFF),
                   static_cast<int>(value & 0xFF)};
}

struct HostDispatcher::Worker {
  std::unique_ptr<DesignHost> host;
  QString key;
  QString name;
  // Guarded by the dispatcher's mutex.
  std::optional<HostColor> waiting;
  std::deque<std::function<void()>> tasks;
  bool busy = false;
  bool enabled = true;
  bool prepared = false;
  HostStats stats;
  std::optional<PushOutcome> last;
  std::thread thread;
};

HostDispatcher::HostDispatcher(std::vector<std::unique_ptr<DesignHost>> hosts,
                               std::shared_ptr<HostEvents> events,
                               std::chrono::milliseconds timeout)
    : events_(events ? std::move(events) : std::make_shared<HostEvents>()), timeout_(timeout) {
  for (auto& host : hosts) {
    auto worker = std::make_unique<Worker>();
    // Read once here: the host is used only on its worker thread from now on.
    worker->key = host->key();
    worker->name = host->displayName();
    worker->host = std::move(host);
    workers_.push_back(std::move(worker));
  }
  for (auto& worker : workers_) {
    Worker* w = worker.get();
    w->thread = std::thread([this, w] { run(*w); });
  }
}

HostDispatcher::~HostDispatcher() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  for (auto& worker : workers_) worker->thread.join();
}

HostDispatcher::Worker* HostDispatcher::find(const QString& key) const {
  for (const auto& worker : workers_) {
    if (worker->key == key) return worker.get();
  }
  return nullptr;
}

void HostDispatcher::enqueue(Worker& worker, const HostColor& color) {
  // Called with the lock held.
  worker.waiting = color;
  ++worker.stats.offered;
}

void HostDispatcher::offer(const HostColor& color, const std::vector<RunningApplication>& running) {
  bool any = false;
  {
    std::lock_guard lock(mutex_);
    for (auto& worker : workers_) {
      if (!worker->enabled) continue;
      bool seen = false;
      for (const RunningApplication& application : running) {
        if (worker->host->isHostProcess(application)) {
          seen = true;
          break;
        }
      }
      if (!seen) continue;
      enqueue(*worker, color);
      any = true;
    }
  }
  if (any) changed_.notify_all();
}

bool HostDispatcher::offerTo(const QString& key, const HostColor& color) {
  Worker* worker = find(key);
  if (!worker) return false;
  {
    std::lock_guard lock(mutex_);
    enqueue(*worker, color);
  }
  changed_.notify_all();
  return true;
}

bool HostDispatcher::isHostRunning(const QString& key,
                                   const std::vector<RunningApplication>& running) const {
  Worker* worker = find(key);
  if (!worker) return false;
  // isHostProcess only reads names: safe beside the worker's pushes.
  for (const RunningApplication& application : running) {
    if (worker->host->isHostProcess(application)) return true;
  }
  return false;
}

void HostDispatcher::setEnabled(const QString& key, bool enabled) {
  if (Worker* worker = find(key)) {
    std::lock_guard lock(mutex_);
    worker->enabled = enabled;
    if (!enabled) worker->waiting.reset();
  }
  changed_.notify_all();
}

bool HostDispatcher::isEnabled(const QString& key) const {
  Worker* worker = find(key);
  if (!worker) return false;
  std::lock_guard lock(mutex_);
  return worker->enabled;
}

std::vector<QString> HostDispatcher::keys() const {
  std::vector<QString> keys;
  for (const auto& worker : workers_) keys.push_back(worker->key);
  return keys;
}

std::optional<QString> HostDispatcher::displayName(const QString& key) const {
  if (Worker* worker = find(key)) return worker->name;
  return std::nullopt;
}

std::optional<HostStats> HostDispatcher::stats(const QString& key) const {
  Worker* worker = find(key);
  if (!worker) return std::nullopt;
  std::lock_guard lock(mutex_);
  return worker->stats;
}

std::optional<PushOutcome> HostDispatcher::lastOutcome(const QString& key) const {
  Worker* worker = find(key);
  if (!worker) return std::nullopt;
  std::lock_guard lock(mutex_);
  return worker->last;
}

bool HostDispatcher::waitIdle(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [this] {
    for (const auto& worker : workers_) {
      if (worker->busy || worker->waiting || !worker->tasks.empty()) return false;
    }
    return true;
  });
}

bool HostDispatcher::withHost(const QString& key, const std::function<void(DesignHost&)>& work) {
  Worker* worker = find(key);
  if (!worker) return false;
  bool done = false;
  {
    std::lock_guard lock(mutex_);
    worker->tasks.push_back([&] {
      work(*worker->host);
      std::lock_guard inner(mutex_);
      done = true;
    });
  }
  changed_.notify_all();
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return done; });
  return true;
}

QString HostDispatcher::failureLine(const QString& hostName, const PushOutcome& outcome) {
  return hostName + QStringLiteral(": ") + outcome.reason;
}

void HostDispatcher::run(Worker& worker) {
  // The failure last reported, used on this thread only.
  std::optional<PushOutcome> lastFailure;
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [&] { return stopping_ || worker.waiting || !worker.tasks.empty(); });
    if (stopping_) return;
    // A waiting colour goes first, so a task sees every colour offered
    // before it already pushed.
    if (!worker.waiting) {
      std::function<void()> task = std::move(worker.tasks.front());
      worker.tasks.pop_front();
      worker.busy = true;
      lock.unlock();
      task();
      lock.lock();
      worker.busy = false;
      changed_.notify_all();
      continue;
    }
    const HostColor color = *worker.waiting;
    worker.waiting.reset();
    worker.busy = true;
    const bool prepare = !worker.prepared;
    worker.prepared = true;
    lock.unlock();

    if (prepare) {
      if (const std::optional<QString> notice = worker.host->preparationNotice()) {
        if (events_->notice(worker.key, worker.name, *notice)) {
          if (const std::optional<QString> failed = worker.host->prepare()) {
            logLine(worker.name + QStringLiteral(": ") + *failed);
          }
        } else {
          std::lock_guard relock(mutex_);
          worker.prepared = false;
        }
      }
    }
    const PushOutcome outcome = worker.host->push(color, timeout_);
    // One line per failure, not per push: a host that quit while the pen
    // sends at 50 Hz says so once, and again only when something changes.
    if (!outcome.reached() && !(lastFailure && *lastFailure == outcome)) {
      logLine(failureLine(worker.name, outcome));
    }
    lastFailure = outcome.reached() ? std::nullopt : std::optional<PushOutcome>(outcome);
    events_->pushed(worker.key, worker.name, color, outcome);

    lock.lock();
    ++worker.stats.pushed;
    if (outcome.status == PushStatus::Confirmed || outcome.status == PushStatus::Queued) {
      ++worker.stats.confirmed;
    } else if (!outcome.reached()) {
      ++worker.stats.failed;
    }
    worker.last = outcome;
    worker.busy = false;
    changed_.notify_all();
  }
}

}  // namespace tw
