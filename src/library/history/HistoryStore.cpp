#include "library/history/HistoryStore.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QVariant>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include <sqlite3.h>

namespace tw::history {

namespace {

// PRAGMA user_version of the layout below; 0 is a file not yet set up.
constexpr int kSchemaVersion = 1;

std::atomic<quint64> connectionNumber{0};

// SQLite's primary result codes, as the QSQLITE driver reports them in
// nativeErrorCode() (extended codes carry the primary one in the low byte).
constexpr int kSqlitePerm = 3;
constexpr int kSqliteBusy = 5;
constexpr int kSqliteLocked = 6;
constexpr int kSqliteReadOnly = 8;
constexpr int kSqliteIoErr = 10;
constexpr int kSqliteCorrupt = 11;
constexpr int kSqliteFull = 13;
constexpr int kSqliteCantOpen = 14;
constexpr int kSqliteAuth = 23;
constexpr int kSqliteNotADb = 26;

int primaryCode(const QSqlError& error) {
  bool ok = false;
  const int code = error.nativeErrorCode().toInt(&ok);
  return ok ? (code & 0xff) : -1;
}

QString oneLine(QString text) {
  text.replace(QLatin1Char('\r'), QLatin1Char(' '));
  text.replace(QLatin1Char('\n'), QLatin1Char(' '));
  return text.simplified();
}

struct Failure {
  Fault fault;
  QString detail;
};

// Newest first, by time, then id, from rows in the table's (id) order.
// Colours mostly arrive in time order, so the reversed table order is usually
// sorted already.
void sortNewestFirst(std::vector<Entry>& entries) {
  std::reverse(entries.begin(), entries.end());
  const auto newerFirst = [](const Entry& a, const Entry& b) {
    return a.timeMs != b.timeMs ? a.timeMs > b.timeMs : a.id > b.id;
  };
  if (!std::is_sorted(entries.begin(), entries.end(), newerFirst))
    std::sort(entries.begin(), entries.end(), newerFirst);
}

}  // namespace

class HistoryStore::Worker {
 public:
  Worker(Options options, FaultHandler onFault, CommitHandler onCommit)
      : options_(std::move(options)),
        onFault_(std::move(onFault)),
        onCommit_(std::move(onCommit)),
        connection_(QStringLiteral("tintwell-history-%1").arg(++connectionNumber)) {
    thread_ = std::thread([this] { run(); });
  }

  ~Worker() {
    {
      std::lock_guard lock(mutex_);
      stop_ = true;
    }
    wake_.notify_all();
    thread_.join();
  }

  const QString& path() const { return options_.path; }

  void append(const Entry& entry) {
    {
      std::lock_guard lock(mutex_);
      Entry queued = entry;
      queued.id = 0;
      pending_.push_back({std::move(queued), ++appended_});
      retry_ = true;
    }
    wake_.notify_all();
  }

  bool flush(int timeoutMs) {
    std::unique_lock lock(mutex_);
    const quint64 target = appended_;
    if (committed_ >= target) return true;
    const quint64 passesBefore = passesStarted_;
    retry_ = true;
    wake_.notify_all();
    return done_.wait_for(lock, std::chrono::milliseconds(std::max(0, timeoutMs)),
                          [&] { return committed_ >= target || passesDone_ > passesBefore; });
  }

  QString setAsidePath() const {
    std::lock_guard lock(mutex_);
    return setAside_;
  }

  qint64 pendingCount() const {
    std::lock_guard lock(mutex_);
    return static_cast<qint64>(pending_.size());
  }

  // Runs `work` on the store's thread, which owns the connection, and returns
  // its result. Called on that thread (from a handler), it runs at once.
  template <typename Work>
  auto call(Work work) -> decltype(work()) {
    if (std::this_thread::get_id() == thread_.get_id()) return work();
    std::packaged_task<decltype(work())()> task(std::move(work));
    auto result = task.get_future();
    {
      std::lock_guard lock(mutex_);
      tasks_.emplace_back([&task] { task(); });
    }
    wake_.notify_all();
    return result.get();
  }

  // The operations below run on the store's thread only.
  std::vector<Entry> readEntries(qint64 sinceMs);
  std::vector<Entry> readLatest(int count);
  std::optional<Entry> readEntry(qint64 id);
  qint64 readCount();
  bool updateRow(const QString& sql, const QVariant& value, qint64 id);
  bool removeRows(const std::vector<qint64>& ids);
  qint64 insertRows(const std::vector<Entry>& entries);
  qint64 readPageCacheBytes();
  // SQLite's own handle under Qt's connection; null while none is open.
  sqlite3* rawConnection() const;

 private:
  struct Pending {
    Entry entry;
    quint64 sequence = 0;
  };

  void run();
  bool writePending();
  bool ensureOpen();
  std::optional<Failure> openConnection();
  std::optional<Failure> setUp();
  void closeConnection();
  Failure classify(const QSqlError& error) const;
  Failure classify(int sqliteCode, const QString& text) const;
  // The whole history straight from SQLite, without a QVariant per value;
  // nullopt when the driver's handle is not SQLite's.
  std::optional<std::vector<Entry>> readAllDirectly();
  bool fileIsWritable() const;
  // Reports a failed statement; a corrupt file is set aside and a new one
  // opened. Whether the connection is open afterwards.
  bool fail(const Failure& failure);
  bool setAsideCorruptFile(const QString& detail);
  void report(Fault fault, const QString& message);
  void succeeded();
  Entry rowToEntry(const QSqlQuery& query) const;

  const Options options_;
  const FaultHandler onFault_;
  const CommitHandler onCommit_;
  const QString connection_;

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable done_;
  std::deque<Pending> pending_;
  std::deque<std::function<void()>> tasks_;
  quint64 appended_ = 0;
  quint64 committed_ = 0;
  quint64 passesStarted_ = 0;
  quint64 passesDone_ = 0;
  bool retry_ = false;
  bool blocked_ = false;
  bool stop_ = false;
  QString setAside_;

  // The store's thread alone touches these.
  std::optional<QSqlDatabase> db_;
  std::optional<QSqlQuery> insert_;
  std::set<Fault> reported_;

  std::thread thread_;
};

void HistoryStore::Worker::run() {
  // Opening at once finds a damaged file before the first colour arrives.
  ensureOpen();
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [&] {
      return stop_ || !tasks_.empty() || (!pending_.empty() && (!blocked_ || retry_));
    });
    if (!tasks_.empty()) {
      auto task = std::move(tasks_.front());
      tasks_.pop_front();
      lock.unlock();
      task();
      lock.lock();
      continue;
    }
    if (!pending_.empty() && (!blocked_ || retry_ || stop_)) {
      retry_ = false;
      ++passesStarted_;
      const bool stopping = stop_;
      lock.unlock();
      const bool ok = writePending();
      lock.lock();
      blocked_ = !ok;
      ++passesDone_;
      done_.notify_all();
      // On the way out there is one attempt, bounded by the busy time-out; a
      // pass that failed while the store was being destroyed was that attempt.
      if (stopping || (stop_ && !ok)) break;
      continue;
    }
    if (stop_) break;
  }
  lock.unlock();
  closeConnection();
}

// One pass over the waiting colours, oldest first, each in its own implicit
// transaction; stops at the first failure, leaving that colour and those after
// it waiting.
bool HistoryStore::Worker::writePending() {
  if (options_.readOnly) {
    report(Fault::ReadOnly,
           faultLine(Fault::ReadOnly, options_.path + QStringLiteral(": opened for reading only")));
    return false;
  }
  bool setAsideThisPass = false;
  for (;;) {
    if (!ensureOpen()) return false;
    Pending next;
    {
      std::lock_guard lock(mutex_);
      if (pending_.empty()) return true;
      next = pending_.front();
    }
    QSqlQuery& insert = *insert_;
    insert.bindValue(0, next.entry.timeMs);
    insert.bindValue(1, sourceName(next.entry.source));
    insert.bindValue(2, next.entry.red);
    insert.bindValue(3, next.entry.green);
    insert.bindValue(4, next.entry.blue);
    insert.bindValue(5, next.entry.alias.isNull() ? QString(QLatin1String("")) : next.entry.alias);
    insert.bindValue(6, next.entry.starred ? 1 : 0);
    if (!insert.exec()) {
      const Failure failure = classify(insert.lastError());
      insert.finish();
      // A file found damaged here is set aside and the colour tried once more
      // in the new one.
      if (failure.fault == Fault::Corrupt && !setAsideThisPass) {
        setAsideThisPass = true;
        if (fail(failure)) continue;
        return false;
      }
      fail(failure);
      return false;
    }
    next.entry.id = insert.lastInsertId().toLongLong();
    insert.finish();
    {
      std::lock_guard lock(mutex_);
      pending_.pop_front();
    }
    succeeded();
    if (onCommit_) onCommit_(next.entry);
    {
      std::lock_guard lock(mutex_);
      committed_ = next.sequence;
    }
    done_.notify_all();
  }
}

bool HistoryStore::Worker::ensureOpen() {
  if (db_) return true;
  if (options_.readOnly && !QFileInfo::exists(options_.path)) return false;
  const std::optional<Failure> failure = openConnection();
  if (!failure) return true;
  return fail(*failure);
}

std::optional<Failure> HistoryStore::Worker::openConnection() {
  const QFileInfo file(options_.path);
  if (!options_.readOnly && !QDir().mkpath(file.absolutePath())) {
    return Failure{Fault::Unavailable,
                   file.absolutePath() + QStringLiteral(": the folder cannot be made")};
  }
  {
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection_);
    if (!db.isValid()) {
      db = QSqlDatabase();
      QSqlDatabase::removeDatabase(connection_);
      return Failure{Fault::Unavailable, QStringLiteral("the SQLite driver of Qt is missing")};
    }
    db.setDatabaseName(options_.path);
    QString connectOptions =
        QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(std::max(0, options_.busyTimeoutMs));
    if (options_.readOnly) connectOptions += QStringLiteral(";QSQLITE_OPEN_READONLY");
    db.setConnectOptions(connectOptions);
    if (!db.open()) {
      const Failure failure = classify(db.lastError());
      db = QSqlDatabase();
      QSqlDatabase::removeDatabase(connection_);
      return failure;
    }
    db_ = db;
  }
  if (std::optional<Failure> failure = setUp()) {
    closeConnection();
    return failure;
  }
  return std::nullopt;
}

std::optional<Failure> HistoryStore::Worker::setUp() {
  QSqlQuery query(*db_);
  query.setForwardOnly(true);
  auto run = [&](const QString& sql) { return query.exec(sql); };

  // Checked before anything is written, so a damaged file is set aside as it
  // was found.
  if (!run(QStringLiteral("PRAGMA quick_check"))) return classify(query.lastError());
  if (!query.next()) return classify(query.lastError());
  const QString check = query.value(0).toString();
  if (check != QLatin1String("ok")) {
    return Failure{Fault::Corrupt, options_.path + QStringLiteral(": ") + oneLine(check)};
  }
  query.finish();

  if (!run(QStringLiteral("PRAGMA user_version")) || !query.next())
    return classify(query.lastError());
  const int version = query.value(0).toInt();
  query.finish();

  if (options_.readOnly) {
    if (version == 0) {
      // A database without our table: read as an empty history.
      if (!run(QStringLiteral("SELECT 1 FROM sqlite_master WHERE name = 'colors'")))
        return classify(query.lastError());
      if (!query.next()) {
        return Failure{Fault::Unavailable,
                       options_.path + QStringLiteral(": not a Tintwell history")};
      }
      query.finish();
    }
    return std::nullopt;
  }

  // WAL: a commit appends to the log, and readers in other processes (the
  // command line) neither block the writer nor see half a colour.
  // synchronous=FULL syncs the log at every commit, so a colour whose commit
  // handler ran survives a kill and also a power cut or a system crash; NORMAL
  // would survive a kill only. One colour at a time from a hand-held pen
  // leaves the sync's cost unnoticed.
  if (!run(QStringLiteral("PRAGMA journal_mode=WAL"))) return classify(query.lastError());
  query.finish();
  if (!run(QStringLiteral("PRAGMA synchronous=FULL"))) return classify(query.lastError());
  query.finish();
  if (!run(QStringLiteral("PRAGMA cache_size = -%1").arg(kPageCacheKiB)))
    return classify(query.lastError());

  if (version == 0) {
    if (!db_->transaction()) return classify(db_->lastError());
    const bool created =
        run(QStringLiteral("CREATE TABLE IF NOT EXISTS colors("
                           "id INTEGER PRIMARY KEY, "
                           "time_ms INTEGER NOT NULL, "
                           "source TEXT NOT NULL, "
                           "red INTEGER NOT NULL, "
                           "green INTEGER NOT NULL, "
                           "blue INTEGER NOT NULL, "
                           "alias TEXT NOT NULL DEFAULT '', "
                           "starred INTEGER NOT NULL DEFAULT 0)")) &&
        run(QStringLiteral("CREATE INDEX IF NOT EXISTS colors_time ON colors(time_ms)")) &&
        run(QStringLiteral("PRAGMA user_version = %1").arg(kSchemaVersion));
    if (!created) {
      const Failure failure = classify(query.lastError());
      query.finish();
      db_->rollback();
      return failure;
    }
    query.finish();
    if (!db_->commit()) {
      const Failure failure = classify(db_->lastError());
      db_->rollback();
      return failure;
    }
  }

  if (options_.maxPageCount > 0) {
    if (!run(QStringLiteral("PRAGMA max_page_count = %1").arg(options_.maxPageCount)))
      return classify(query.lastError());
    query.finish();
  }

  insert_.emplace(*db_);
  if (!insert_->prepare(
          QStringLiteral("INSERT INTO colors(time_ms, source, red, green, blue, alias, starred) "
                         "VALUES (?, ?, ?, ?, ?, ?, ?)"))) {
    const Failure failure = classify(insert_->lastError());
    insert_.reset();
    return failure;
  }
  return std::nullopt;
}

void HistoryStore::Worker::closeConnection() {
  insert_.reset();
  if (db_) {
    db_->close();
    db_.reset();
  }
  QSqlDatabase::removeDatabase(connection_);
}

bool HistoryStore::Worker::fileIsWritable() const {
  const QFileInfo file(options_.path);
  if (file.exists() && !file.isWritable()) return false;
  const QFileInfo folder(file.absolutePath());
  return !folder.exists() || folder.isWritable();
}

Failure HistoryStore::Worker::classify(const QSqlError& error) const {
  return classify(primaryCode(error),
                  error.databaseText().isEmpty() ? error.text() : error.databaseText());
}

Failure HistoryStore::Worker::classify(int code, const QString& text) const {
  const QString detail = options_.path + QStringLiteral(": ") + oneLine(text);
  switch (code & 0xff) {
    case kSqliteBusy:
    case kSqliteLocked:
      return {Fault::Locked, detail};
    case kSqliteReadOnly:
      return {Fault::ReadOnly, detail};
    case kSqliteFull:
      return {Fault::Full, detail};
    case kSqliteCorrupt:
    case kSqliteNotADb:
      return {Fault::Corrupt, detail};
    case kSqlitePerm:
    case kSqliteIoErr:
    case kSqliteCantOpen:
    case kSqliteAuth:
      if (!fileIsWritable()) return {Fault::ReadOnly, detail};
      return {Fault::Unavailable, detail};
    default:
      return {Fault::Unavailable, detail};
  }
}

bool HistoryStore::Worker::fail(const Failure& failure) {
  if (failure.fault == Fault::Corrupt) {
    if (options_.readOnly) {
      closeConnection();
      report(Fault::Corrupt,
             QStringLiteral("History: the database is damaged (%1): it is left as it is and read "
                            "as an empty history")
                 .arg(failure.detail));
      return false;
    }
    return setAsideCorruptFile(failure.detail);
  }
  // A file that could not be written is opened afresh next time: a
  // connection opened read-only stays so after the permissions change.
  if (failure.fault == Fault::ReadOnly || failure.fault == Fault::Unavailable) closeConnection();
  report(failure.fault, faultLine(failure.fault, failure.detail));
  return db_.has_value();
}

bool HistoryStore::Worker::setAsideCorruptFile(const QString& detail) {
  closeConnection();
  const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
  QString aside = options_.path + QStringLiteral(".corrupt-") + stamp;
  for (int n = 2; QFileInfo::exists(aside) || QFileInfo::exists(aside + QStringLiteral("-wal"));
       ++n) {
    aside = options_.path + QStringLiteral(".corrupt-") + stamp + QStringLiteral("-%1").arg(n);
  }
  if (!QFile::rename(options_.path, aside)) {
    report(Fault::Corrupt,
           faultLine(Fault::Corrupt, detail + QStringLiteral("; it cannot be moved aside")));
    return false;
  }
  // Its log and index belong to it; left here they would be read into the new
  // file.
  for (const QString& suffix : {QStringLiteral("-wal"), QStringLiteral("-shm")}) {
    if (QFileInfo::exists(options_.path + suffix)) {
      if (!QFile::rename(options_.path + suffix, aside + suffix))
        QFile::remove(options_.path + suffix);
    }
  }
  {
    std::lock_guard lock(mutex_);
    setAside_ = aside;
  }
  report(Fault::Corrupt,
         faultLine(Fault::Corrupt, detail + QStringLiteral("; set aside as ") + aside));
  const std::optional<Failure> failure = openConnection();
  if (!failure) return true;
  // The new file failing as well is not set aside again.
  if (failure->fault != Fault::Corrupt) return fail(*failure);
  report(Fault::Unavailable, faultLine(Fault::Unavailable, failure->detail));
  return false;
}

void HistoryStore::Worker::report(Fault fault, const QString& message) {
  if (!reported_.insert(fault).second) return;
  if (onFault_) onFault_(fault, message);
}

void HistoryStore::Worker::succeeded() { reported_.clear(); }

Entry HistoryStore::Worker::rowToEntry(const QSqlQuery& query) const {
  Entry entry;
  entry.id = query.value(0).toLongLong();
  entry.timeMs = query.value(1).toLongLong();
  entry.source = sourceFromName(query.value(2).toString()).value_or(Source::Imported);
  entry.red = query.value(3).toInt();
  entry.green = query.value(4).toInt();
  entry.blue = query.value(5).toInt();
  entry.alias = query.value(6).toString();
  entry.starred = query.value(7).toInt() != 0;
  return entry;
}

namespace {
const QString kColumns =
    QStringLiteral("SELECT id, time_ms, source, red, green, blue, alias, starred FROM colors ");
}

std::vector<Entry> HistoryStore::Worker::readEntries(qint64 sinceMs) {
  std::vector<Entry> entries;
  if (!ensureOpen()) return entries;
  // The whole history is read in the table's own order and sorted here: going
  // through the time index would look up every row in the table a second
  // time, which doubles the cost at 100,000 rows. A later start uses the
  // index and reads only its rows.
  const bool whole = sinceMs <= 0;
  if (whole) {
    if (std::optional<std::vector<Entry>> all = readAllDirectly()) {
      // Newest first: those before sinceMs (only ever before 1970) are last.
      std::vector<Entry>& rows = *all;
      while (!rows.empty() && rows.back().timeMs < sinceMs) rows.pop_back();
      return std::move(rows);
    }
  }
  QSqlQuery query(*db_);
  query.setForwardOnly(true);
  if (query.exec(
          whole ? QStringLiteral("SELECT count(*) FROM colors")
                : QStringLiteral("SELECT count(*) FROM colors WHERE time_ms >= %1").arg(sinceMs)) &&
      query.next()) {
    entries.reserve(static_cast<std::size_t>(query.value(0).toLongLong()));
  }
  query.finish();
  query.prepare(whole ? kColumns
                      : kColumns +
                            QStringLiteral("WHERE time_ms >= ? ORDER BY time_ms DESC, id DESC"));
  if (!whole) query.bindValue(0, sinceMs);
  if (!query.exec()) {
    fail(classify(query.lastError()));
    return {};
  }
  while (query.next()) {
    Entry entry = rowToEntry(query);
    if (entry.timeMs >= sinceMs) entries.push_back(std::move(entry));
  }
  if (query.lastError().isValid()) {
    fail(classify(query.lastError()));
    return {};
  }
  if (whole) sortNewestFirst(entries);
  return entries;
}

std::vector<Entry> HistoryStore::Worker::readLatest(int count) {
  std::vector<Entry> entries;
  if (count <= 0 || !ensureOpen()) return entries;
  QSqlQuery query(*db_);
  query.setForwardOnly(true);
  query.prepare(kColumns + QStringLiteral("ORDER BY time_ms DESC, id DESC LIMIT ?"));
  query.bindValue(0, count);
  if (!query.exec()) {
    fail(classify(query.lastError()));
    return {};
  }
  while (query.next()) entries.push_back(rowToEntry(query));
  return entries;
}

sqlite3* HistoryStore::Worker::rawConnection() const {
  if (!db_) return nullptr;
  const QVariant handle = db_->driver()->handle();
  if (!handle.isValid() || qstrcmp(handle.typeName(), "sqlite3*") != 0) return nullptr;
  return *static_cast<sqlite3* const*>(handle.constData());
}

qint64 HistoryStore::Worker::readPageCacheBytes() {
  sqlite3* const connection = rawConnection();
  if (connection == nullptr) return 0;
  int used = 0;
  int highWater = 0;
  if (sqlite3_db_status(connection, SQLITE_DBSTATUS_CACHE_USED, &used, &highWater, 0) != SQLITE_OK)
    return 0;
  return used;
}

std::optional<std::vector<Entry>> HistoryStore::Worker::readAllDirectly() {
  sqlite3* const connection = rawConnection();
  if (connection == nullptr) return std::nullopt;

  std::vector<Entry> entries;
  sqlite3_stmt* statement = nullptr;
  auto failed = [&](int code) {
    const Failure failure = classify(code, QString::fromUtf8(sqlite3_errmsg(connection)));
    sqlite3_finalize(statement);
    fail(failure);
    return std::vector<Entry>{};
  };
  int code = sqlite3_prepare_v2(connection, "SELECT count(*) FROM colors", -1, &statement, nullptr);
  if (code != SQLITE_OK) return failed(code);
  if (sqlite3_step(statement) == SQLITE_ROW)
    entries.reserve(static_cast<std::size_t>(sqlite3_column_int64(statement, 0)));
  sqlite3_finalize(statement);
  statement = nullptr;

  code = sqlite3_prepare_v2(
      connection, "SELECT id, time_ms, source, red, green, blue, alias, starred FROM colors", -1,
      &statement, nullptr);
  if (code != SQLITE_OK) return failed(code);
  while ((code = sqlite3_step(statement)) == SQLITE_ROW) {
    Entry& entry = entries.emplace_back();
    entry.id = sqlite3_column_int64(statement, 0);
    entry.timeMs = sqlite3_column_int64(statement, 1);
    const auto* source = reinterpret_cast<const char*>(sqlite3_column_text(statement, 2));
    const int sourceBytes = sqlite3_column_bytes(statement, 2);
    entry.source =
        sourceFromName(QString::fromUtf8(source, sourceBytes)).value_or(Source::Imported);
    entry.red = sqlite3_column_int(statement, 3);
    entry.green = sqlite3_column_int(statement, 4);
    entry.blue = sqlite3_column_int(statement, 5);
    const auto* alias = reinterpret_cast<const char*>(sqlite3_column_text(statement, 6));
    const int aliasBytes = sqlite3_column_bytes(statement, 6);
    if (aliasBytes > 0) entry.alias = QString::fromUtf8(alias, aliasBytes);
    entry.starred = sqlite3_column_int(statement, 7) != 0;
  }
  if (code != SQLITE_DONE) return failed(code);
  sqlite3_finalize(statement);
  sortNewestFirst(entries);
  return entries;
}

std::optional<Entry> HistoryStore::Worker::readEntry(qint64 id) {
  if (!ensureOpen()) return std::nullopt;
  QSqlQuery query(*db_);
  query.setForwardOnly(true);
  query.prepare(kColumns + QStringLiteral("WHERE id = ?"));
  query.bindValue(0, id);
  if (!query.exec()) {
    fail(classify(query.lastError()));
    return std::nullopt;
  }
  if (!query.next()) return std::nullopt;
  return rowToEntry(query);
}

qint64 HistoryStore::Worker::readCount() {
  if (!ensureOpen()) return 0;
  QSqlQuery query(*db_);
  query.setForwardOnly(true);
  if (!query.exec(QStringLiteral("SELECT count(*) FROM colors")) || !query.next()) {
    if (query.lastError().isValid()) fail(classify(query.lastError()));
    return 0;
  }
  return query.value(0).toLongLong();
}

bool HistoryStore::Worker::updateRow(const QString& sql, const QVariant& value, qint64 id) {
  if (options_.readOnly || !ensureOpen()) return false;
  QSqlQuery query(*db_);
  query.prepare(sql);
  query.bindValue(0, value);
  query.bindValue(1, id);
  if (!query.exec()) {
    fail(classify(query.lastError()));
    return false;
  }
  succeeded();
  return query.numRowsAffected() > 0;
}

bool HistoryStore::Worker::removeRows(const std::vector<qint64>& ids) {
  if (options_.readOnly || !ensureOpen()) return false;
  if (ids.empty()) return true;
  if (!db_->transaction()) {
    fail(classify(db_->lastError()));
    return false;
  }
  bool all = true;
  {
    QSqlQuery query(*db_);
    query.prepare(QStringLiteral("DELETE FROM colors WHERE id = ?"));
    for (const qint64 id : ids) {
      query.bindValue(0, id);
      if (!query.exec()) {
        const Failure failure = classify(query.lastError());
        query.finish();
        db_->rollback();
        fail(failure);
        return false;
      }
      if (query.numRowsAffected() <= 0) all = false;
    }
  }
  if (!db_->commit()) {
    const Failure failure = classify(db_->lastError());
    db_->rollback();
    fail(failure);
    return false;
  }
  succeeded();
  return all;
}

qint64 HistoryStore::Worker::insertRows(const std::vector<Entry>& entries) {
  if (options_.readOnly || !ensureOpen()) return 0;
  if (entries.empty()) return 0;
  if (!db_->transaction()) {
    fail(classify(db_->lastError()));
    return 0;
  }
  {
    QSqlQuery query(*db_);
    query.prepare(
        QStringLiteral("INSERT INTO colors(time_ms, source, red, green, blue, alias, starred) "
                       "VALUES (?, ?, ?, ?, ?, ?, ?)"));
    for (const Entry& entry : entries) {
      query.bindValue(0, entry.timeMs);
      query.bindValue(1, sourceName(entry.source));
      query.bindValue(2, entry.red);
      query.bindValue(3, entry.green);
      query.bindValue(4, entry.blue);
      query.bindValue(5, entry.alias.isNull() ? QString(QLatin1String("")) : entry.alias);
      query.bindValue(6, entry.starred ? 1 : 0);
      if (!query.exec()) {
        const Failure failure = classify(query.lastError());
        query.finish();
        db_->rollback();
        fail(failure);
        return 0;
      }
    }
  }
  if (!db_->commit()) {
    const Failure failure = classify(db_->lastError());
    db_->rollback();
    fail(failure);
    return 0;
  }
  succeeded();
  return static_cast<qint64>(entries.size());
}

HistoryStore::HistoryStore(Options options, FaultHandler onFault, CommitHandler onCommit)
    : worker_(
          std::make_unique<Worker>(std::move(options), std::move(onFault), std::move(onCommit))) {}

HistoryStore::~HistoryStore() = default;

void HistoryStore::append(const Entry& entry) { worker_->append(entry); }

bool HistoryStore::flush(int timeoutMs) { return worker_->flush(timeoutMs); }

std::vector<Entry> HistoryStore::entries(qint64 sinceMs) const {
  Worker* worker = worker_.get();
  return worker->call([worker, sinceMs] { return worker->readEntries(sinceMs); });
}

std::vector<Entry> HistoryStore::latest(int count) const {
  Worker* worker = worker_.get();
  return worker->call([worker, count] { return worker->readLatest(count); });
}

std::optional<Entry> HistoryStore::entry(qint64 id) const {
  Worker* worker = worker_.get();
  return worker->call([worker, id] { return worker->readEntry(id); });
}

qint64 HistoryStore::count() const {
  Worker* worker = worker_.get();
  return worker->call([worker] { return worker->readCount(); });
}

bool HistoryStore::setStarred(qint64 id, bool starred) {
  Worker* worker = worker_.get();
  return worker->call([worker, id, starred] {
    return worker->updateRow(QStringLiteral("UPDATE colors SET starred = ? WHERE id = ?"),
                             starred ? 1 : 0, id);
  });
}

bool HistoryStore::setAlias(qint64 id, const QString& alias) {
  Worker* worker = worker_.get();
  return worker->call([worker, id, alias] {
    return worker->updateRow(QStringLiteral("UPDATE colors SET alias = ? WHERE id = ?"),
                             alias.isNull() ? QString(QLatin1String("")) : alias, id);
  });
}

bool HistoryStore::remove(const std::vector<qint64>& ids) {
  Worker* worker = worker_.get();
  return worker->call([worker, &ids] { return worker->removeRows(ids); });
}

qint64 HistoryStore::importEntries(const std::vector<Entry>& entries) {
  Worker* worker = worker_.get();
  return worker->call([worker, &entries] { return worker->insertRows(entries); });
}

const QString& HistoryStore::path() const { return worker_->path(); }

QString HistoryStore::setAsidePath() const { return worker_->setAsidePath(); }

qint64 HistoryStore::pendingCount() const { return worker_->pendingCount(); }

qint64 HistoryStore::pageCacheBytes() const {
  Worker* worker = worker_.get();
  return worker->call([worker] { return worker->readPageCacheBytes(); });
}

QString defaultHistoryPath() {
  return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
         QStringLiteral("/Tintwell/history.sqlite");
}

QString faultLine(Fault fault, const QString& detail) {
  QString happened;
  QString action;
  switch (fault) {
    case Fault::Locked:
      happened = QStringLiteral("the database is locked by another program");
      action = QStringLiteral("colours are kept and written when it is free");
      break;
    case Fault::ReadOnly:
      happened = QStringLiteral("the database cannot be written");
      action = QStringLiteral("colours are kept and written once it can be");
      break;
    case Fault::Full:
      happened = QStringLiteral("the disk is full");
      action = QStringLiteral("colours are kept and written once there is room");
      break;
    case Fault::Corrupt:
      happened = QStringLiteral("the database is damaged");
      action = QStringLiteral("it is set aside and a new, empty history started");
      break;
    case Fault::Unavailable:
      happened = QStringLiteral("the database cannot be opened");
      action = QStringLiteral("colours are kept and written once it can be");
      break;
  }
  const QString shown = oneLine(detail);
  if (shown.isEmpty()) return QStringLiteral("History: %1: %2").arg(happened, action);
  return QStringLiteral("History: %1 (%2): %3").arg(happened, shown, action);
}

}  // namespace tw::history
