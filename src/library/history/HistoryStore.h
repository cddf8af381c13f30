#pragma once

#include <QString>
#include <QtGlobal>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "library/history/HistoryEntry.h"

namespace tw::history {

// What can go wrong with the database file. Each is reported once, then not
// again until a commit has succeeded.
enum class Fault {
  Locked,       // another process holds the file past the busy time-out
  ReadOnly,     // the file or its folder cannot be written
  Full,         // the disk (or the page limit) has no room
  Corrupt,      // not a database, or damaged: set aside, a new one started
  Unavailable,  // anything else: the folder cannot be made, the driver is missing
};

// Every accepted colour in an SQLite file (Qt SQL, the QSQLITE driver).
//
// Colours are committed one by one, in order, on the store's own thread, so
// neither the pen thread nor the main thread ever waits for the disk; a crash
// or a kill loses no colour whose commit handler has run. A fault never stops
// the application: colours not yet written wait in memory and go in with the
// next colour after the fault clears (locked, read-only and full files are left
// where they are); a corrupt file is renamed beside itself to
// "<name>.corrupt-YYYYMMDD-HHMMSS" and a new, empty database takes its place.
class HistoryStore {
 public:
  struct Options {
    // The database file; its folder is made when missing.
    QString path;
    // How long a commit waits for another process's lock before the file is
    // reported locked.
    int busyTimeoutMs = 2000;
    // When above 0, the file may not grow beyond this many pages: a stand-in
    // for a full disk.
    qint64 maxPageCount = 0;
    // Never writes, never creates, never sets a corrupt file aside (the
    // command line's readers).
    bool readOnly = false;
  };
  // Both run on the store's thread and must not call back into the store.
  using FaultHandler = std::function<void(Fault fault, const QString& message)>;
  using CommitHandler = std::function<void(const Entry& committed)>;

  explicit HistoryStore(Options options, FaultHandler onFault = {}, CommitHandler onCommit = {});
  // Commits what is queued (waiting at most the busy time-out), then stops.
  ~HistoryStore();
  HistoryStore(const HistoryStore&) = delete;
  HistoryStore& operator=(const HistoryStore&) = delete;

  // Queues one colour and returns at once; `id` is ignored.
  void append(const Entry& entry);
  // Waits until every colour queued before the call is committed or failed;
  // false when the time ran out.
  bool flush(int timeoutMs = 5000);

  // The committed colours, newest first (by time, then id), those accepted at
  // or after sinceMs. Safe from any thread.
  std::vector<Entry> entries(qint64 sinceMs = 0) const;
  // The newest `count` committed colours, newest first (by the time index:
  // cheap however long the history).
  std::vector<Entry> latest(int count) const;
  std::optional<Entry> entry(qint64 id) const;
  qint64 count() const;
  // Edits of committed rows; false when the row is not there or the write
  // failed (the fault is reported as for a colour).
  bool setStarred(qint64 id, bool starred);
  bool setAlias(qint64 id, const QString& alias);
  bool remove(const std::vector<qint64>& ids);
  // Adds colours read from a palette file as they are (time and source kept),
  // in one transaction; the number added.
  qint64 importEntries(const std::vector<Entry>& entries);

  const QString& path() const;
  // Where a corrupt file was put, empty while none was.
  QString setAsidePath() const;
  // Colours queued or waiting out a fault, not yet committed.
  qint64 pendingCount() const;

  // SQLite's page cache for the store's connection, at most this much. Its
  // default (2 MB) fills at about 50 bytes a committed colour and stays full,
  // so under a stream of pen colours the application's memory would grow for
  // its first quarter hour; appends touch only the newest pages, and a read of
  // the whole history goes through the system's file cache whatever the size.
  static constexpr int kPageCacheKiB = 256;
  // Bytes SQLite's page cache holds for the store now; 0 while it is closed.
  qint64 pageCacheBytes() const;

 private:
  class Worker;
  std::unique_ptr<Worker> worker_;
};

// $XDG_DATA_HOME/Tintwell/history.sqlite: the application's data folder.
QString defaultHistoryPath();

// The one line a fault is reported with, on standard error and on the panel:
// "History: <what happened>: <what Tintwell does about it>".
QString faultLine(Fault fault, const QString& detail);

}  // namespace tw::history
