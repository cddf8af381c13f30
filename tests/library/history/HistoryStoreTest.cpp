#include "library/history/HistoryStore.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <atomic>
#include <csignal>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "tests/support/LineProcess.h"
#include "tests/support/QtWait.h"

namespace tw::history {
namespace {

using testing::LineProcess;

// What the store's handlers saw, from its thread.
class Recorder {
 public:
  HistoryStore::FaultHandler faults() {
    return [this](Fault fault, const QString& message) {
      std::lock_guard lock(mutex_);
      faults_.push_back(fault);
      messages_.push_back(message);
    };
  }
  HistoryStore::CommitHandler commits() {
    return [this](const Entry& entry) {
      std::lock_guard lock(mutex_);
      commits_.push_back(entry);
    };
  }
  std::vector<Fault> faultList() {
    std::lock_guard lock(mutex_);
    return faults_;
  }
  QStringList messages() {
    std::lock_guard lock(mutex_);
    return messages_;
  }
  std::vector<Entry> commitList() {
    std::lock_guard lock(mutex_);
    return commits_;
  }
  bool waitForFaults(std::size_t n, int ms = 10000) {
    return testing::waitFor([&] { return faultList().size() >= n; }, ms);
  }

 private:
  std::mutex mutex_;
  std::vector<Fault> faults_;
  QStringList messages_;
  std::vector<Entry> commits_;
};

Entry colour(qint64 timeMs, int red, int green, int blue, Source source = Source::Pen,
             const QString& alias = {}, bool starred = false) {
  Entry entry;
  entry.timeMs = timeMs;
  entry.source = source;
  entry.red = red;
  entry.green = green;
  entry.blue = blue;
  entry.alias = alias;
  entry.starred = starred;
  return entry;
}

HistoryStore::Options at(const QString& path) {
  HistoryStore::Options options;
  options.path = path;
  return options;
}

QByteArray readAll(const QString& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return {};
  return file.readAll();
}

bool sameColour(const Entry& a, const Entry& b) {
  Entry x = a;
  x.id = b.id;
  return x == b;
}

class HistoryStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(dir_.isValid());
    path_ = dir_.filePath(QStringLiteral("data/Tintwell/history.sqlite"));
  }
  QTemporaryDir dir_;
  QString path_;
};

TEST_F(HistoryStoreTest, ColoursSurviveReopeningNewestFirstWithEveryField) {
  const std::vector<Entry> appended = {
      colour(1000, 255, 0, 0, Source::Pen),
      colour(2000, 0, 255, 0, Source::Screen, QStringLiteral("Grün – “Wiese” 🌿"), true),
      colour(3000, 0, 0, 255, Source::Imported, QStringLiteral("Bleu"), false),
      colour(3000, 12, 34, 56, Source::Pen, {}, true),
  };
  {
    HistoryStore store(at(path_));
    for (const Entry& entry : appended) store.append(entry);
  }
  ASSERT_TRUE(QFileInfo::exists(path_)) << "the folder and file are made";
  HistoryStore store(at(path_));
  const std::vector<Entry> read = store.entries();
  ASSERT_EQ(read.size(), appended.size());
  // Newest first; the two of the same time by id, the later one first.
  EXPECT_TRUE(sameColour(appended[3], read[0]));
  EXPECT_TRUE(sameColour(appended[2], read[1]));
  EXPECT_TRUE(sameColour(appended[1], read[2]));
  EXPECT_TRUE(sameColour(appended[0], read[3]));
  EXPECT_GT(read[0].id, read[1].id);
  EXPECT_GT(read[1].id, read[2].id);
  EXPECT_GT(read[2].id, read[3].id);
  EXPECT_GT(read[3].id, 0);
  EXPECT_EQ(store.count(), 4);
  EXPECT_EQ(read[2].alias, QStringLiteral("Grün – “Wiese” 🌿"));

  const std::vector<Entry> recent = store.entries(2000);
  ASSERT_EQ(recent.size(), 3u);
  EXPECT_EQ(recent.back().timeMs, 2000);
  EXPECT_TRUE(store.entries(3001).empty());
}

TEST_F(HistoryStoreTest, LatestGivesTheNewestColoursNewestFirst) {
  HistoryStore store(at(path_));
  EXPECT_TRUE(store.latest(4).empty());
  store.append(colour(30, 7, 8, 9));
  store.append(colour(10, 1, 2, 3));
  store.append(colour(20, 4, 5, 6));
  store.append(colour(20, 0, 0, 1));  // same time: the later row first
  ASSERT_TRUE(store.flush());
  const std::vector<Entry> latest = store.latest(3);
  ASSERT_EQ(latest.size(), 3u);
  EXPECT_EQ(latest[0].red, 7);
  EXPECT_EQ(latest[1].blue, 1);
  EXPECT_EQ(latest[2].red, 4);
  EXPECT_EQ(store.latest(10).size(), 4u);
  EXPECT_TRUE(store.latest(0).empty());
  std::vector<Entry> all = store.entries();
  all.resize(3);
  EXPECT_EQ(latest, all);
}

// A long history does not make the store's memory grow with it: SQLite keeps
// at most its bounded page cache, however many colours were written or read.
TEST_F(HistoryStoreTest, PageCacheStaysWithinItsBoundAsTheHistoryGrows) {
  HistoryStore store(at(path_));
  std::vector<Entry> many;
  for (int i = 0; i < 40000; ++i) many.push_back(colour(i, i % 256, (i / 256) % 256, 7));
  ASSERT_EQ(store.importEntries(many), 40000);
  for (int i = 0; i < 20; ++i) store.append(colour(50000 + i, 1, 2, i));
  ASSERT_TRUE(store.flush());
  ASSERT_EQ(store.entries().size(), 40020u);
  // Well past the bound on disk, so an unbounded cache would show.
  ASSERT_GT(QFileInfo(path_).size() + QFileInfo(path_ + QStringLiteral("-wal")).size(),
            4 * 1024 * HistoryStore::kPageCacheKiB);
  const qint64 used = store.pageCacheBytes();
  EXPECT_GT(used, 0);
  // The bound counts page contents; each page carries a little bookkeeping too.
  EXPECT_LE(used, HistoryStore::kPageCacheKiB * 1024 * 5 / 4);
}

TEST_F(HistoryStoreTest, EditsChangeOnlyTheRowsNamed) {
  HistoryStore store(at(path_));
  store.append(colour(10, 1, 2, 3));
  store.append(colour(20, 4, 5, 6));
  store.append(colour(30, 7, 8, 9));
  ASSERT_TRUE(store.flush());
  const std::vector<Entry> before = store.entries();
  ASSERT_EQ(before.size(), 3u);
  const qint64 newest = before[0].id;
  const qint64 middle = before[1].id;
  const qint64 oldest = before[2].id;

  EXPECT_TRUE(store.setStarred(middle, true));
  EXPECT_TRUE(store.setAlias(middle, QStringLiteral("Ziegelrot ❤")));
  std::optional<Entry> edited = store.entry(middle);
  ASSERT_TRUE(edited);
  EXPECT_TRUE(edited->starred);
  EXPECT_EQ(edited->alias, QStringLiteral("Ziegelrot ❤"));
  EXPECT_EQ(edited->red, 4);
  EXPECT_FALSE(store.entry(newest)->starred);
  EXPECT_TRUE(store.setStarred(middle, false));
  EXPECT_FALSE(store.entry(middle)->starred);

  EXPECT_FALSE(store.setStarred(999999, true)) << "no such row";
  EXPECT_FALSE(store.setAlias(999999, QStringLiteral("x")));
  EXPECT_FALSE(store.entry(999999));

  EXPECT_TRUE(store.remove({newest, oldest}));
  EXPECT_EQ(store.count(), 1);
  EXPECT_FALSE(store.entry(newest));
  EXPECT_FALSE(store.remove({newest})) << "already gone";

  const std::vector<Entry> imported = {
      colour(5, 10, 20, 30, Source::Imported, QStringLiteral("Sand")),
      colour(50, 40, 50, 60, Source::Screen, {}, true),
  };
  EXPECT_EQ(store.importEntries(imported), 2);
  const std::vector<Entry> after = store.entries();
  ASSERT_EQ(after.size(), 3u);
  EXPECT_TRUE(sameColour(imported[1], after[0])) << "time and source kept";
  EXPECT_EQ(after[1].id, middle);
  EXPECT_TRUE(sameColour(imported[0], after[2]));
  EXPECT_EQ(store.count(), 3);
  EXPECT_EQ(store.pendingCount(), 0);
}

TEST_F(HistoryStoreTest, CommitHandlerSeesEachColourOnceInOrderWithItsId) {
  Recorder recorder;
  std::vector<Entry> appended;
  {
    HistoryStore store(at(path_), recorder.faults(), recorder.commits());
    for (int i = 0; i < 40; ++i) {
      appended.push_back(colour(100 + i, i, 255 - i, i * 3, i % 2 ? Source::Pen : Source::Screen));
      store.append(appended.back());
    }
    ASSERT_TRUE(store.flush());
    EXPECT_EQ(store.pendingCount(), 0);
    const std::vector<Entry> commits = recorder.commitList();
    ASSERT_EQ(commits.size(), appended.size());
    for (std::size_t i = 0; i < commits.size(); ++i) {
      EXPECT_TRUE(sameColour(appended[i], commits[i])) << i;
      if (i > 0) {
        EXPECT_GT(commits[i].id, commits[i - 1].id);
      }
      EXPECT_EQ(store.entry(commits[i].id), commits[i]);
    }
  }
  EXPECT_EQ(recorder.commitList().size(), appended.size());
  EXPECT_TRUE(recorder.faultList().empty());
}

TEST_F(HistoryStoreTest, DestroyingTheStoreCommitsWhatIsQueued) {
  Recorder recorder;
  {
    HistoryStore store(at(path_), recorder.faults(), recorder.commits());
    for (int i = 0; i < 200; ++i) store.append(colour(i, i % 256, 0, 0));
  }
  EXPECT_EQ(recorder.commitList().size(), 200u);
  HistoryStore store(at(path_));
  EXPECT_EQ(store.count(), 200);
}

// Appending, reading and editing from different threads at once (the pen
// thread, the main thread and the window); ThreadSanitizer builds check the
// hand-overs.
TEST_F(HistoryStoreTest, ThreadsAppendReadAndEditAtOnce) {
  Recorder recorder;
  HistoryStore store(at(path_), recorder.faults(), recorder.commits());
  std::atomic<bool> appending{true};
  std::thread pen([&] {
    for (int i = 0; i < 300; ++i) store.append(colour(i, i % 256, 1, 2, Source::Pen));
    store.flush(20000);
    appending = false;
  });
  std::thread window([&] {
    qint64 lastCount = 0;
    do {
      const qint64 count = store.count();
      EXPECT_GE(count, lastCount) << "colours only come in";
      lastCount = count;
      const std::vector<Entry> shown = store.entries();
      if (!shown.empty()) {
        EXPECT_TRUE(store.setStarred(shown.front().id, true));
      }
    } while (appending);
  });
  std::thread screen([&] {
    for (int i = 0; i < 100; ++i) store.append(colour(1000 + i, 0, 0, i, Source::Screen));
  });
  pen.join();
  window.join();
  screen.join();
  ASSERT_TRUE(store.flush(20000));
  EXPECT_EQ(store.count(), 400);
  EXPECT_EQ(recorder.commitList().size(), 400u);
  EXPECT_TRUE(recorder.faultList().empty());
}

TEST_F(HistoryStoreTest, ReadOnlyStoreReadsAMissingFileAsEmptyAndCreatesNothing) {
  HistoryStore::Options options = at(path_);
  options.readOnly = true;
  {
    HistoryStore store(options);
    EXPECT_TRUE(store.entries().empty());
    EXPECT_EQ(store.count(), 0);
  }
  EXPECT_FALSE(QFileInfo::exists(path_));
  EXPECT_FALSE(QFileInfo::exists(QFileInfo(path_).absolutePath()));
  {
    HistoryStore writer(at(path_));
    writer.append(colour(1, 9, 9, 9));
  }
  HistoryStore store(options);
  ASSERT_EQ(store.count(), 1);
  EXPECT_EQ(store.entries()[0].red, 9);
}

// A colour printed as committed by a process killed right after is in the file.
TEST_F(HistoryStoreTest, KilledWriterLosesNoColourItReportedCommitted) {
  std::map<qint64, QString> printed;
  const QRegularExpression committed(QStringLiteral("^committed (\\d+) ([0-9a-f]{6})$"));
  for (int round = 0; round < 3; ++round) {
    LineProcess child(QStringLiteral(HISTORY_WRITER_CHILD),
                      {QStringLiteral("write"), path_, QStringLiteral("50")});
    ASSERT_TRUE(child.started());
    ASSERT_TRUE(child.waitForLineStartingWith(QStringLiteral("committed "), 10000))
        << child.transcript().toStdString();
    testing::spin(2000);
    ASSERT_TRUE(child.running()) << child.transcript().toStdString();
    child.signal(SIGKILL);
    ASSERT_TRUE(child.finish());
    int thisRound = 0;
    for (const QString& line : child.lines()) {
      const QRegularExpressionMatch match = committed.match(line);
      ASSERT_TRUE(match.hasMatch()) << line.toStdString();
      printed[match.captured(1).toLongLong()] = match.captured(2);
      ++thisRound;
    }
    EXPECT_GT(thisRound, 20) << "about 50 a second for two seconds";
  }
  HistoryStore store(at(path_));
  EXPECT_GE(store.count(), static_cast<qint64>(printed.size()));
  for (const auto& [id, hex] : printed) {
    const std::optional<Entry> entry = store.entry(id);
    ASSERT_TRUE(entry) << "lost: " << id;
    EXPECT_EQ(QStringLiteral("%1%2%3")
                  .arg(entry->red, 2, 16, QLatin1Char('0'))
                  .arg(entry->green, 2, 16, QLatin1Char('0'))
                  .arg(entry->blue, 2, 16, QLatin1Char('0')),
              hex)
        << id;
  }
}

TEST_F(HistoryStoreTest, LockedFileIsReportedOnceAndColoursGoInWhenItIsFree) {
  Recorder recorder;
  HistoryStore::Options options = at(path_);
  options.busyTimeoutMs = 1000;
  HistoryStore store(options, recorder.faults(), recorder.commits());
  ASSERT_EQ(store.count(), 0) << "the file is set up";

  LineProcess holder(QStringLiteral("sqlite3"), {path_});
  ASSERT_TRUE(holder.started()) << "the sqlite3 program (Debian package sqlite3)";
  holder.send(QStringLiteral("BEGIN EXCLUSIVE;"));
  holder.send(QStringLiteral("SELECT 'held';"));
  ASSERT_TRUE(holder.waitForLine(QStringLiteral("held"))) << holder.transcript().toStdString();

  const Entry first = colour(1, 1, 1, 1);
  const Entry second = colour(2, 2, 2, 2);
  const Entry third = colour(3, 3, 3, 3);
  QElapsedTimer timer;
  timer.start();
  store.append(first);
  const qint64 firstAppendMs = timer.elapsed();
  // The store's thread now waits out the busy time-out; appending must not.
  QThread::msleep(100);
  timer.restart();
  store.append(second);
  const qint64 secondAppendMs = timer.elapsed();
  EXPECT_LT(firstAppendMs, 300);
  EXPECT_LT(secondAppendMs, 300) << "append waited for the locked commit";
  ASSERT_TRUE(store.flush(20000));
  EXPECT_EQ(recorder.faultList(), std::vector<Fault>{Fault::Locked});
  EXPECT_EQ(store.pendingCount(), 2);
  EXPECT_TRUE(recorder.commitList().empty());
  ASSERT_EQ(recorder.messages().size(), 1);
  EXPECT_TRUE(recorder.messages()[0].startsWith(
      QStringLiteral("History: the database is locked by another program")))
      << recorder.messages()[0].toStdString();
  EXPECT_FALSE(recorder.messages()[0].contains(QLatin1Char('\n')));

  // Still locked: tried again, not reported again.
  ASSERT_TRUE(store.flush(20000));
  EXPECT_EQ(recorder.faultList().size(), 1u);
  EXPECT_EQ(store.pendingCount(), 2);

  holder.send(QStringLiteral("COMMIT;"));
  holder.closeInput();
  ASSERT_TRUE(holder.finish());

  store.append(third);
  ASSERT_TRUE(store.flush(20000));
  EXPECT_EQ(store.pendingCount(), 0);
  const std::vector<Entry> commits = recorder.commitList();
  ASSERT_EQ(commits.size(), 3u);
  EXPECT_TRUE(sameColour(first, commits[0]));
  EXPECT_TRUE(sameColour(second, commits[1]));
  EXPECT_TRUE(sameColour(third, commits[2]));
  EXPECT_LT(commits[0].id, commits[1].id);
  EXPECT_LT(commits[1].id, commits[2].id);
  EXPECT_EQ(recorder.faultList().size(), 1u);
  EXPECT_EQ(store.count(), 3);
}

TEST_F(HistoryStoreTest, DestroyingTheStoreWhileTheFileIsLockedWaitsOnlyTheBusyTimeOut) {
  Recorder recorder;
  HistoryStore::Options options = at(path_);
  options.busyTimeoutMs = 500;
  auto store = std::make_unique<HistoryStore>(options, recorder.faults(), recorder.commits());
  ASSERT_EQ(store->count(), 0);
  LineProcess holder(QStringLiteral("sqlite3"), {path_});
  holder.send(QStringLiteral("BEGIN EXCLUSIVE;"));
  holder.send(QStringLiteral("SELECT 'held';"));
  ASSERT_TRUE(holder.waitForLine(QStringLiteral("held"))) << holder.transcript().toStdString();
  store->append(colour(1, 1, 1, 1));
  store->append(colour(2, 2, 2, 2));
  QElapsedTimer timer;
  timer.start();
  store.reset();
  // One attempt of 500 ms, maybe behind the one under way; far less than a
  // wait per colour or an endless one.
  EXPECT_LT(timer.elapsed(), 3000);
  EXPECT_TRUE(recorder.commitList().empty());
  EXPECT_EQ(recorder.faultList(), std::vector<Fault>{Fault::Locked});
  holder.send(QStringLiteral("ROLLBACK;"));
  holder.closeInput();
  EXPECT_TRUE(holder.finish());
}

// Root writes whatever the permissions say, so as root the writer runs as
// nobody; otherwise as the test's own user.
TEST_F(HistoryStoreTest, ReadOnlyFileIsReportedOnceAndColoursWaitUntilItIsWritable) {
  const QString folder = dir_.filePath(QStringLiteral("ro"));
  const QString path = folder + QStringLiteral("/history.sqlite");
  {
    HistoryStore store(at(path));
    store.append(colour(1, 5, 5, 5));
  }
  ASSERT_EQ(::chmod(QFile::encodeName(dir_.path()).constData(), 0755), 0);
  ASSERT_EQ(::chmod(QFile::encodeName(path).constData(), 0444), 0);
  ASSERT_EQ(::chmod(QFile::encodeName(folder).constData(), 0555), 0);

  const bool root = ::geteuid() == 0;
  QProcess child;
  child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
  child.setChildProcessModifier([root] {
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (root && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(99);
  });
  child.start(QStringLiteral(HISTORY_WRITER_CHILD), {QStringLiteral("probe"), path});
  ASSERT_TRUE(child.waitForStarted());
  QByteArray out;
  auto readUntil = [&](const QByteArray& text) {
    QElapsedTimer timer;
    timer.start();
    while (!out.contains(text) && timer.elapsed() < 30000) {
      child.waitForReadyRead(100);
      out += child.readAllStandardOutput();
      if (child.state() == QProcess::NotRunning) break;
    }
    out += child.readAllStandardOutput();
    return out.contains(text);
  };
  ASSERT_TRUE(readUntil("count ")) << out.toStdString();
  EXPECT_EQ(out.count("fault "), 1) << out.toStdString();
  EXPECT_EQ(out.count("fault readonly\n"), 1) << out.toStdString();
  EXPECT_TRUE(out.contains("pending 2\n")) << out.toStdString();

  ASSERT_EQ(::chmod(QFile::encodeName(folder).constData(), 0777), 0);
  ASSERT_EQ(::chmod(QFile::encodeName(path).constData(), 0666), 0);
  const QByteArray firstPart = out;
  child.write("again\n");
  child.closeWriteChannel();
  ASSERT_TRUE(child.waitForFinished(30000)) << out.toStdString();
  out += child.readAllStandardOutput();
  EXPECT_EQ(child.exitStatus(), QProcess::NormalExit);
  EXPECT_EQ(child.exitCode(), 0) << out.toStdString();
  const QByteArray secondPart = out.mid(firstPart.size());
  EXPECT_TRUE(secondPart.contains("pending 0\n")) << out.toStdString();
  EXPECT_EQ(out.count("fault "), 1) << out.toStdString();

  HistoryStore store(at(path));
  EXPECT_EQ(store.count(), 4) << "the first colour and the child's three";
}

TEST_F(HistoryStoreTest, FullFileIsReportedOnceAndEarlierColoursStayIntact) {
  Recorder recorder;
  HistoryStore::Options options = at(path_);
  // A new file has three pages: the schema, the table and its index.
  options.maxPageCount = 6;
  HistoryStore store(options, recorder.faults(), recorder.commits());
  const QString longAlias = QString(1500, QChar(0x00e9));
  for (int i = 0; i < 30; ++i) store.append(colour(i, i, i, i, Source::Pen, longAlias));
  ASSERT_TRUE(store.flush(20000));
  EXPECT_EQ(recorder.faultList(), std::vector<Fault>{Fault::Full});
  ASSERT_EQ(recorder.messages().size(), 1);
  EXPECT_TRUE(recorder.messages()[0].startsWith(QStringLiteral("History: the disk is full")))
      << recorder.messages()[0].toStdString();
  const std::vector<Entry> commits = recorder.commitList();
  ASSERT_GT(commits.size(), 0u);
  ASSERT_LT(commits.size(), 30u);
  EXPECT_EQ(store.pendingCount(), 30 - static_cast<qint64>(commits.size()));

  // Still running: reads work, a new colour waits too, nothing reported anew.
  EXPECT_EQ(store.count(), static_cast<qint64>(commits.size()));
  store.append(colour(99, 1, 2, 3));
  ASSERT_TRUE(store.flush(20000));
  EXPECT_EQ(recorder.faultList().size(), 1u);
  EXPECT_EQ(store.pendingCount(), 31 - static_cast<qint64>(commits.size()));
  for (const Entry& committed : commits) {
    const std::optional<Entry> read = store.entry(committed.id);
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, committed);
  }
}

// A real full disk: a small tmpfs, when this process may mount one.
TEST_F(HistoryStoreTest, FullDiskIsReportedOnceAndEarlierColoursStayIntact) {
  const QString mountPoint = dir_.filePath(QStringLiteral("small"));
  ASSERT_TRUE(QDir().mkpath(mountPoint));
  if (::geteuid() != 0) GTEST_SKIP() << "mounting a small tmpfs needs root";
  QProcess mount;
  mount.start(QStringLiteral("mount"),
              {QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"),
               QStringLiteral("size=256k"), QStringLiteral("tmpfs"), mountPoint});
  if (!mount.waitForFinished(10000) || mount.exitStatus() != QProcess::NormalExit ||
      mount.exitCode() != 0) {
    GTEST_SKIP() << "mounting a tmpfs is not permitted here: "
                 << mount.readAllStandardError().trimmed().toStdString();
  }
  struct Unmount {
    QString point;
    ~Unmount() { QProcess::execute(QStringLiteral("umount"), {point}); }
  } unmount{mountPoint};

  Recorder recorder;
  const QString path = mountPoint + QStringLiteral("/history.sqlite");
  {
    HistoryStore store(at(path), recorder.faults(), recorder.commits());
    const QString longAlias = QString(2000, QLatin1Char('x'));
    int appended = 0;
    while (recorder.faultList().empty() && appended < 2000) {
      for (int i = 0; i < 10; ++i, ++appended)
        store.append(colour(appended, 1, 2, 3, Source::Pen, longAlias));
      store.flush(20000);
    }
    EXPECT_EQ(recorder.faultList(), std::vector<Fault>{Fault::Full})
        << recorder.messages().join(QLatin1Char('\n')).toStdString();
    EXPECT_GT(store.pendingCount(), 0);
    store.append(colour(0, 0, 0, 0));
    store.flush(20000);
    EXPECT_EQ(recorder.faultList().size(), 1u);
    const std::vector<Entry> commits = recorder.commitList();
    ASSERT_FALSE(commits.empty());
    for (const Entry& committed : commits) EXPECT_EQ(store.entry(committed.id), committed);
  }
}

TEST_F(HistoryStoreTest, GarbageFileIsSetAsideAndANewHistoryStarted) {
  ASSERT_TRUE(QDir().mkpath(QFileInfo(path_).absolutePath()));
  QByteArray garbage;
  for (int i = 0; i < 9000; ++i) garbage.append(static_cast<char>((i * 131 + 7) % 251));
  {
    QFile file(path_);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(garbage);
  }
  Recorder recorder;
  HistoryStore store(at(path_), recorder.faults(), recorder.commits());
  EXPECT_EQ(store.count(), 0);
  EXPECT_EQ(recorder.faultList(), std::vector<Fault>{Fault::Corrupt});
  const QString aside = store.setAsidePath();
  EXPECT_TRUE(aside.startsWith(path_ + QStringLiteral(".corrupt-"))) << aside.toStdString();
  EXPECT_TRUE(
      QRegularExpression(QStringLiteral("\\.corrupt-\\d{8}-\\d{6}$")).match(aside).hasMatch())
      << aside.toStdString();
  EXPECT_EQ(readAll(aside), garbage) << "set aside as it was";
  ASSERT_EQ(recorder.messages().size(), 1);
  EXPECT_TRUE(
      recorder.messages()[0].startsWith(QStringLiteral("History: the database is damaged")));
  EXPECT_TRUE(recorder.messages()[0].contains(aside));

  store.append(colour(7, 7, 7, 7));
  ASSERT_TRUE(store.flush());
  EXPECT_EQ(store.count(), 1);
  EXPECT_EQ(recorder.commitList().size(), 1u);
  EXPECT_EQ(recorder.faultList().size(), 1u);
}

TEST_F(HistoryStoreTest, DamagedPagesAreFoundAtOpenAndTheFileSetAside) {
  {
    HistoryStore store(at(path_));
    std::vector<Entry> many;
    for (int i = 0; i < 3000; ++i)
      many.push_back(
          colour(i, i % 256, 0, 0, Source::Imported, QStringLiteral("colour %1").arg(i)));
    ASSERT_EQ(store.importEntries(many), 3000);
  }
  ASSERT_FALSE(QFileInfo::exists(path_ + QStringLiteral("-wal"))) << "checkpointed at close";
  QByteArray bytes = readAll(path_);
  ASSERT_GT(bytes.size(), 4096 * 20);
  // Page 1 (the header and schema) intact; pages in the middle overwritten.
  const int middle = (bytes.size() / 4096 / 2) * 4096;
  for (int i = middle - 4 * 4096; i < middle + 4 * 4096; ++i)
    bytes[i] = static_cast<char>((i * 37 + 11) % 256);
  {
    QFile file(path_);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
  }

  Recorder recorder;
  HistoryStore store(at(path_), recorder.faults(), recorder.commits());
  store.append(colour(1, 2, 3, 4));
  ASSERT_TRUE(store.flush());
  EXPECT_EQ(recorder.faultList(), std::vector<Fault>{Fault::Corrupt});
  const QString aside = store.setAsidePath();
  ASSERT_FALSE(aside.isEmpty());
  EXPECT_EQ(readAll(aside), bytes);
  EXPECT_EQ(store.count(), 1);
  ASSERT_EQ(recorder.commitList().size(), 1u);
  EXPECT_EQ(store.entries()[0].blue, 4);
}

TEST(HistoryFaultLine, IsOneLineSayingWhatHappenedAndWhatIsDone) {
  const QString line = faultLine(Fault::Full, QStringLiteral("/x/history.sqlite:\ndisk full"));
  EXPECT_EQ(line, QStringLiteral("History: the disk is full (/x/history.sqlite: disk full): "
                                 "colours are kept and written once there is room"));
  for (Fault fault :
       {Fault::Locked, Fault::ReadOnly, Fault::Full, Fault::Corrupt, Fault::Unavailable}) {
    const QString text = faultLine(fault, {});
    EXPECT_TRUE(text.startsWith(QStringLiteral("History: "))) << text.toStdString();
    EXPECT_EQ(text.count(QStringLiteral(": ")), 2) << text.toStdString();
  }
}

TEST(HistorySource, NamesRoundTrip) {
  for (Source source : {Source::Pen, Source::Screen, Source::Imported})
    EXPECT_EQ(sourceFromName(sourceName(source)), source);
  EXPECT_EQ(sourceName(Source::Screen), QStringLiteral("screen"));
  EXPECT_FALSE(sourceFromName(QStringLiteral("Pen")));
}

TEST(HistoryPath, IsTheApplicationsDataFolder) {
  EXPECT_TRUE(defaultHistoryPath().endsWith(QStringLiteral("/Tintwell/history.sqlite")));
}

}  // namespace
}  // namespace tw::history
