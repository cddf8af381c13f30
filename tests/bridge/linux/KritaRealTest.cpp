// Tintwell's Krita host against the real Krita, under Xvfb, in a throwaway
// home with its own session bus and runtime folder. The cases share one Krita
// and run in the order written (one test process; see krita.cmake): the first
// start builds Krita's resource database, later ones take a few seconds.
// Every colour is checked twice: read back through the plug-in, and counted
// as exact pixels of the foreground swatch in a screenshot.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/shm.h>
#include <unistd.h>

#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLocalSocket>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>
#include <QThread>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <set>

#include "bridge/HostDispatcher.h"
#include "bridge/linux/KritaChannel.h"
#include "bridge/linux/KritaHost.h"
#include "bridge/linux/KritaPlugin.h"
#include "bridge/linux/ProcApplicationLister.h"
#include "tests/support/DesignAppSession.h"
#include "tests/support/LogCapture.h"
#include "tests/support/QtWait.h"
#include "tests/support/XvfbServer.h"

namespace tw {
namespace {

using namespace std::chrono_literals;

// The foreground swatch in Krita's toolbar is about 13 x 13 pixels; the
// gradient preview beside it starts with the colour too.
constexpr qsizetype kSwatchPixels = 100;
// A colour that is not on the screen may still turn up in a few pixels of the
// colour selector's ring.
constexpr qsizetype kStrayPixels = 20;
// Generous: while a document opens Krita's GUI thread can be busy for seconds.
constexpr auto kPushTimeout = 5000ms;

QString readText(const QString& path) {
  QFile file(path);
  return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// The processes of one process group, from /proc.
std::set<qint64> processGroup(qint64 group) {
  std::set<qint64> pids;
  for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
    bool numeric = false;
    const qint64 pid = entry.toLongLong(&numeric);
    if (!numeric) continue;
    // "pid (comm) state ppid pgrp ...": comm may hold blanks, so after ')'.
    const QString stat = readText(QStringLiteral("/proc/%1/stat").arg(pid));
    const QStringList fields = stat.mid(stat.lastIndexOf(QLatin1Char(')')) + 2).split(u' ');
    if (fields.size() > 2 && fields.at(2).toLongLong() == group) pids.insert(pid);
  }
  return pids;
}

// Krita's single-instance lock is a System V shared memory segment that a
// killed Krita leaves behind: remove the ones its processes made.
void removeSharedMemoryOf(const std::set<qint64>& pids) {
  const QStringList lines = readText(QStringLiteral("/proc/sysvipc/shm")).split(u'\n');
  for (const QString& line : lines.mid(1)) {
    // key shmid perms size cpid lpid nattch ...
    const QStringList f = line.simplified().split(u' ');
    if (f.size() < 7) continue;
    if (pids.count(f.at(4).toLongLong()) && f.at(6).toInt() == 0)
      ::shmctl(f.at(1).toInt(), IPC_RMID, nullptr);
  }
}

template <class Work>
auto onPlainThread(Work work) {
  auto future = std::async(std::launch::async, std::move(work));
  return future.get();
}

// Everything the cases share: the display, the throwaway session, Krita.
class KritaSession {
 public:
  KritaSession()
      : xvfb_({QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1280x800x24")}),
        app_(xvfb_.display()) {
    // The host under test finds its folders and socket as in a real session.
    app_.exportEnvironment();
  }
  ~KritaSession() { kill(); }

  bool isReady() const { return xvfb_.isRunning() && app_.isReady(); }
  QString socket() const { return app_.runtimeDir() + QStringLiteral("/tintwell-krita.socket"); }
  QString pykrita() const { return app_.dataDir() + QStringLiteral("/krita/pykrita"); }
  QString kritarc() const { return app_.configDir() + QStringLiteral("/kritarc"); }
  qint64 pid() const { return app_.pid(); }
  bool running() const { return app_.isRunning(); }

  void start() { app_.start(QStringLiteral("krita"), {QStringLiteral("--nosplash")}); }

  // SIGKILL to Krita's whole group, callable from any thread; the
  // processes are remembered for kill()'s clean-up.
  void killGroup() {
    const qint64 leader = app_.pid();
    if (leader <= 0) return;
    const std::set<qint64> group = processGroup(leader);
    {
      std::lock_guard lock(mutex_);
      killed_.insert(group.begin(), group.end());
    }
    ::kill(-pid_t(leader), SIGKILL);
  }

  void kill() {
    if (app_.pid() > 0) killGroup();
    app_.killAll();
    std::lock_guard lock(mutex_);
    removeSharedMemoryOf(killed_);
    killed_.clear();
  }

  QString tail() {
    return QStringLiteral("\n--- Krita's output ---\n") + app_.output().right(3000);
  }

  std::optional<QByteArray> ask(const QByteArray& request, std::chrono::milliseconds timeout) {
    const KritaExchange exchange = askKrita(socket(), {request}, timeout);
    if (exchange.status != KritaExchange::Status::Answered) return std::nullopt;
    return exchange.answers.at(0);
  }

  // Until the plug-in answers ping (Krita started and loaded it).
  bool waitForPing(std::chrono::milliseconds limit) {
    return testing::DesignAppSession::waitUntil(
               [&] { return !running() || ask("ping", 1000ms) == QByteArray("pong"); }, limit) &&
           running();
  }

  // A second krita hands a new image to the running one and exits.
  bool openDocument() {
    QProcess second;
    second.setProcessEnvironment(app_.environment());
    second.setProcessChannelMode(QProcess::MergedChannels);
    second.start(QStringLiteral("krita"),
                 {QStringLiteral("--nosplash"), QStringLiteral("--new-image"),
                  QStringLiteral("RGBA,U8,320,240")});
    return second.waitForFinished(30000) && second.exitStatus() == QProcess::NormalExit;
  }

  // Until the active view reports a colour (a document is open).
  bool waitForView(std::chrono::milliseconds limit) {
    return testing::DesignAppSession::waitUntil(
        [&] {
          const auto answer = ask("get", kPushTimeout);
          return answer && answer->startsWith('#');
        },
        limit);
  }

  // Krita running with the plug-in answering and a document open.
  ::testing::AssertionResult ready() {
    if (!running() || !ask("ping", 2000ms)) {
      kill();
      start();
      if (!waitForPing(90s))
        return ::testing::AssertionFailure() << "no pong from Krita" << tail().toStdString();
    }
    if (ask("get", kPushTimeout) == QByteArray("none")) {
      if (!openDocument()) return ::testing::AssertionFailure() << "second krita did not end";
    }
    if (!waitForView(30s))
      return ::testing::AssertionFailure() << "no view in Krita" << tail().toStdString();
    return ::testing::AssertionSuccess();
  }

  // Krita's visible top-level windows (xdotool's ids).
  QStringList windows() const {
    return QString::fromLatin1(
               app_.runTool(QStringLiteral("xdotool"),
                            {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                             QStringLiteral("--class"), QStringLiteral("krita")}))
        .split(u'\n', Qt::SkipEmptyParts);
  }

  // Ctrl+Q on Krita's main window, as a user quits it; whether Krita ended
  // by itself.
  bool quit() {
    // A Krita still setting up its window lets the first Ctrl+Q go by, and
    // may unmap and map its window again meanwhile, so the key is pressed
    // again while Krita runs, for up to 40 s in all.
    bool pressed = false;
    bool ended = false;
    const auto deadline = std::chrono::steady_clock::now() + 40s;
    while (!ended && std::chrono::steady_clock::now() < deadline) {
      if (!running()) {
        // Gone before any key was pressed is a crash, not a quit.
        ended = pressed;
        break;
      }
      const QStringList ids = windows();
      if (ids.isEmpty()) {
        // A pause that keeps the process's events flowing.
        testing::DesignAppSession::waitUntil([] { return false; }, 250ms);
        continue;
      }
      app_.runTool(QStringLiteral("xdotool"),
                   {QStringLiteral("windowfocus"), QStringLiteral("--sync"), ids.first()});
      app_.runTool(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("--window"),
                                               ids.first(), QStringLiteral("ctrl+q")});
      pressed = true;
      ended = testing::DesignAppSession::waitUntil([&] { return !running(); }, 5s);
    }
    kill();
    return ended;
  }

  // Exact pixels of `rgb` on the screen, taken again until there are at
  // least `least` (Krita repaints a moment after a change).
  qsizetype pixels(quint32 rgb, qsizetype least = 0) const {
    return app_.pixelsOnScreen(QRgb(rgb), least, 15s);
  }
  // The same until there are at most `most`.
  qsizetype fewPixels(quint32 rgb, qsizetype most) const {
    qsizetype count = -1;
    testing::DesignAppSession::waitUntil(
        [&] {
          count = pixels(rgb);
          return count >= 0 && count <= most;
        },
        15s);
    return count;
  }

 private:
  testing::XvfbServer xvfb_;
  testing::DesignAppSession app_;
  std::mutex mutex_;
  std::set<qint64> killed_;
};

KritaSession* session = nullptr;

quint32 rgbOf(const HostColor& c) { return quint32(c.red << 16 | c.green << 8 | c.blue); }

class KritaRealTest : public ::testing::Test {
 public:
  static void SetUpTestSuite() {
    if (testing::hasProgram(QStringLiteral("krita")) && testing::hasProgram(QStringLiteral("xwd")))
      session = new KritaSession;
  }

  static void TearDownTestSuite() {
    delete session;
    session = nullptr;
  }

 protected:
  void SetUp() override {
    if (!session)
      GTEST_SKIP() << "Krita or xwd is not installed (make design-apps-deps installs them)";
    ASSERT_TRUE(session->isReady());
    if (!KritaPluginInstaller().pythonModulesPresent())
      GTEST_SKIP() << "Krita's Python modules are missing: sudo apt install python3-pyqt5 "
                      "python3-sip";
  }

  // The plug-in's own words about itself while Krita runs.
  std::optional<QByteArray> version() { return session->ask("version", 5000ms); }
};

TEST_F(KritaRealTest, TheFirstPrepareInstallsThePluginAndSaysKritaMustRestart) {
  KritaHost host;
  EXPECT_EQ(host.socketPath(), session->socket());
  const std::optional<QString> notice = host.installWithNotice();
  ASSERT_TRUE(notice.has_value());
  EXPECT_TRUE(notice->contains(session->pykrita() + QStringLiteral("/tintwell_bridge.desktop")))
      << notice->toStdString();
  EXPECT_TRUE(notice->contains(QStringLiteral("Restart Krita"))) << notice->toStdString();
  EXPECT_FALSE(notice->contains(QStringLiteral("sudo apt install"))) << notice->toStdString();
  EXPECT_TRUE(readText(session->kritarc()).contains(QStringLiteral("enable_tintwell_bridge=true")));
  EXPECT_EQ(host.installWithNotice(), std::nullopt);
}

TEST_F(KritaRealTest, AColourSentBeforeAnyDocumentIsQueuedAndAppliedWhenOneOpens) {
  ASSERT_TRUE(KritaPluginInstaller().isCurrent());
  session->kill();
  QElapsedTimer clock;
  clock.start();
  session->start();
  ASSERT_TRUE(session->waitForPing(90s)) << session->tail().toStdString();
  std::cout << "[ INFO     ] plug-in answered " << clock.elapsed() << " ms after Krita's start"
            << std::endl;
  EXPECT_EQ(version(), "tintwell-krita " + QByteArray::number(krita_plugin::shippedVersion()));

  const HostColor color{0x1e, 0x90, 0xa7};
  KritaHost host;
  const PushOutcome outcome = onPlainThread([&] { return host.push(color, kPushTimeout); });
  EXPECT_EQ(outcome.status, PushStatus::Queued) << outcome.reason.toStdString();
  EXPECT_EQ(host.readBack(kPushTimeout), std::nullopt);
  EXPECT_LE(session->pixels(rgbOf(color)), kStrayPixels);

  ASSERT_TRUE(session->openDocument());
  ASSERT_TRUE(testing::waitFor([&] { return host.readBack(kPushTimeout) == color; }, 30000))
      << "read back: " << host.readBack(kPushTimeout).value_or(HostColor{}).hex().toStdString()
      << session->tail().toStdString();
  EXPECT_GE(session->pixels(rgbOf(color), kSwatchPixels), kSwatchPixels);
}

TEST_F(KritaRealTest, PushedColoursAreConfirmedReadBackAndShownInTheSwatch) {
  ASSERT_TRUE(session->ready());
  KritaHost host;
  std::optional<HostColor> previous = host.readBack(kPushTimeout);
  for (const HostColor color :
       {HostColor{0xc0, 0x30, 0x6a}, HostColor{0x7a, 0xb8, 0x12}, HostColor{0x12, 0x34, 0x56}}) {
    SCOPED_TRACE(color.hex().toStdString());
    EXPECT_LE(session->pixels(rgbOf(color)), kStrayPixels);
    QElapsedTimer clock;
    clock.start();
    const PushOutcome outcome = onPlainThread([&] { return host.push(color, kPushTimeout); });
    const qint64 took = clock.elapsed();
    EXPECT_EQ(outcome.status, PushStatus::Confirmed) << outcome.reason.toStdString();
    EXPECT_LT(took, 2000);
    EXPECT_EQ(host.readBack(kPushTimeout), color);
    const qsizetype shown = session->pixels(rgbOf(color), kSwatchPixels);
    EXPECT_GE(shown, kSwatchPixels);
    std::cout << "[ INFO     ] " << color.hex().toStdString() << ": " << shown
              << " pixels on the screen" << std::endl;
    if (previous) {
      EXPECT_LE(session->fewPixels(rgbOf(*previous), kStrayPixels), kStrayPixels)
          << "the swatch still shows " << previous->hex().toStdString();
    }
    previous = color;
  }
}

TEST_F(KritaRealTest, KritaIsFoundAmongTheRunningApplications) {
  ASSERT_TRUE(session->ready());
  const auto application = ProcApplicationLister::readProcess(session->pid());
  ASSERT_TRUE(application.has_value());
  EXPECT_EQ(application->localizedName, QStringLiteral("krita"));
  EXPECT_TRUE(KritaHost().isHostProcess(*application));
}

TEST_F(KritaRealTest, GarbageOnTheSocketLeavesKritaAnsweringAndTheGrammarHolds) {
  ASSERT_TRUE(session->ready());
  const QString socket = session->socket();
  auto ask = [&](const QList<QByteArray>& requests) { return askKrita(socket, requests, 5000ms); };

  KritaExchange exchange = ask({"hello", "set #12345", "set 123456", "SET #123456", "get ",
                                QByteArray("\x00\xff\xfe", 3), "", QByteArray(64, 'x')});
  ASSERT_EQ(exchange.status, KritaExchange::Status::Answered);
  for (const QByteArray& answer : exchange.answers)
    EXPECT_EQ(answer.toStdString(), "error unknown request");

  // A line over 64 bytes is answered once and the connection ends.
  exchange = ask({QByteArray(65, 'x'), "ping"});
  EXPECT_EQ(exchange.status, KritaExchange::Status::Closed);
  EXPECT_EQ(exchange.answers, QList<QByteArray>{"error line too long"});
  // So is a line that never ends, as soon as it is too long.
  {
    QLocalSocket endless;
    endless.connectToServer(socket);
    ASSERT_TRUE(endless.waitForConnected(2000));
    endless.write(QByteArray(5000, '\x01'));
    ASSERT_TRUE(endless.waitForBytesWritten(2000));
    QByteArray answer;
    QDeadlineTimer deadline(5000);
    while (endless.state() == QLocalSocket::ConnectedState && !deadline.hasExpired()) {
      endless.waitForReadyRead(int(deadline.remainingTime()));
      answer += endless.readAll();
    }
    answer += endless.readAll();
    EXPECT_EQ(answer.toStdString(), "error line too long\n");
    EXPECT_NE(endless.state(), QLocalSocket::ConnectedState);
  }

  // Half a request, then gone.
  {
    QLocalSocket half;
    half.connectToServer(socket);
    ASSERT_TRUE(half.waitForConnected(2000));
    half.write("set #12");
    half.waitForBytesWritten(2000);
    half.abort();
  }
  exchange = ask({"ping", "version", "set #0a0b0c", "get"});
  ASSERT_EQ(exchange.status, KritaExchange::Status::Answered) << session->tail().toStdString();
  EXPECT_EQ(exchange.answers,
            (QList<QByteArray>{
                "pong", "tintwell-krita " + QByteArray::number(krita_plugin::shippedVersion()),
                "ok", "#0a0b0c"}));
  // Upper-case digits are fine; the answer is lower case.
  exchange = ask({"set #A0B0C0", "get"});
  EXPECT_EQ(exchange.answers, (QList<QByteArray>{"ok", "#a0b0c0"}));
  EXPECT_TRUE(session->running());
}

TEST_F(KritaRealTest, KritaKilledDuringPushesCostsOneLinePerFailedPushAndARestartHeals) {
  ASSERT_TRUE(session->ready());
  testing::LogCapture log;
  auto events = std::make_shared<HostEvents>();
  std::vector<std::unique_ptr<DesignHost>> hosts;
  hosts.push_back(std::make_unique<KritaHost>());
  HostDispatcher dispatcher(std::move(hosts), events, 3000ms);
  const QString krita = QStringLiteral("krita");

  // A colour every 40 ms, as a pen held on a changing surface gives them;
  // Krita is killed in the middle.
  int sent = 0;
  auto offerFor = [&](int ms) {
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < ms) {
      ++sent;
      dispatcher.offerTo(krita, HostColor{sent % 256, 0x40, 0x80});
      QThread::msleep(40);
    }
  };
  offerFor(1000);
  ASSERT_TRUE(dispatcher.waitIdle(10s));
  const HostStats before = *dispatcher.stats(krita);
  EXPECT_GT(before.confirmed, 3u);
  EXPECT_EQ(before.failed, 0u) << log.text().toStdString();

  std::thread killer([&] {
    QThread::msleep(300);
    session->killGroup();
  });
  offerFor(1500);
  killer.join();
  ASSERT_TRUE(dispatcher.waitIdle(10s));
  session->kill();

  const HostStats after = *dispatcher.stats(krita);
  const quint64 failed = after.failed - before.failed;
  EXPECT_GE(failed, 1u);
  std::cout << "[ INFO     ] " << sent << " colours offered, " << after.pushed << " pushed, "
            << failed << " failed after the kill" << std::endl;
  // One line per kind of failure, not one per failed push, each naming
  // Krita and why.
  const QStringList lines = log.lines();
  const QStringList reasons = {
      QStringLiteral("Krita: plug-in not answering (restart Krita after the install)"),
      QStringLiteral("Krita: plug-in closed the connection")};
  EXPECT_GE(lines.size(), 1);
  EXPECT_LE(lines.size(), reasons.size()) << log.text().toStdString();
  EXPECT_EQ(lines.size(), QSet<QString>(lines.begin(), lines.end()).size())
      << log.text().toStdString();
  for (const QString& line : lines) EXPECT_TRUE(reasons.contains(line)) << line.toStdString();
  EXPECT_EQ(dispatcher.lastOutcome(krita)->status, PushStatus::NotRunning);

  // Restarted, and a document open again: the next push is confirmed, silently.
  log.clear();
  ASSERT_TRUE(session->ready());
  ASSERT_TRUE(dispatcher.offerTo(krita, HostColor{0x5d, 0x2e, 0x8c}));
  ASSERT_TRUE(dispatcher.waitIdle(10s));
  EXPECT_EQ(dispatcher.lastOutcome(krita)->status, PushStatus::Confirmed)
      << dispatcher.lastOutcome(krita)->reason.toStdString();
  EXPECT_TRUE(log.lines().isEmpty()) << log.text().toStdString();
  EXPECT_GE(session->pixels(0x5d2e8c, kSwatchPixels), kSwatchPixels);
}

TEST_F(KritaRealTest, QuittingKritaRemovesItsSocketAndKeepsThePluginSwitchedOn) {
  if (QStandardPaths::findExecutable(QStringLiteral("xdotool")).isEmpty())
    GTEST_SKIP() << "xdotool is not installed";
  ASSERT_TRUE(session->ready());
  ASSERT_TRUE(session->quit()) << session->tail().toStdString();

  EXPECT_FALSE(QFileInfo::exists(session->socket()));
  // Krita rewrote its settings on the way out and kept the switch.
  EXPECT_TRUE(
      readText(session->kritarc()).contains(QStringLiteral("\nenable_tintwell_bridge=true\n")));
  KritaHost host;
  EXPECT_EQ(host.push(HostColor{1, 2, 3}, kPushTimeout).status, PushStatus::NotRunning);
  EXPECT_TRUE(host.installWithNotice() == std::nullopt);
}

TEST_F(KritaRealTest, AStaleSocketLeftByAKilledKritaIsReplacedAtTheNextStart) {
  if (!session->running()) {
    session->start();
    ASSERT_TRUE(session->waitForPing(90s)) << session->tail().toStdString();
  }
  session->kill();
  // What the killed Krita left: the file, and nobody behind it.
  ASSERT_TRUE(QFileInfo::exists(session->socket()));
  KritaHost host;
  const PushOutcome outcome = host.push(HostColor{1, 2, 3}, kPushTimeout);
  EXPECT_EQ(outcome.status, PushStatus::NotRunning);
  EXPECT_EQ(outcome.reason.toStdString(),
            "plug-in not answering (restart Krita after the install)");

  session->start();
  ASSERT_TRUE(session->waitForPing(90s)) << session->tail().toStdString();
  EXPECT_EQ(session->ask("get", kPushTimeout), QByteArray("none"));
}

TEST_F(KritaRealTest, AnOlderPluginIsReplacedAndTheNewOneRunsAfterKritaRestarts) {
  session->kill();
  // An older Tintwell's plug-in: the same grammar, version 0.
  const QString module = session->pykrita() + QStringLiteral("/tintwell_bridge/__init__.py");
  QByteArray older = krita_plugin::module();
  const QByteArray line =
      "\nPLUGIN_VERSION = " + QByteArray::number(krita_plugin::shippedVersion()) + '\n';
  ASSERT_TRUE(older.contains(line));
  older.replace(line, "\nPLUGIN_VERSION = 0\n");
  {
    QFile file(module);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(older);
  }
  session->start();
  ASSERT_TRUE(session->waitForPing(90s)) << session->tail().toStdString();
  ASSERT_EQ(version(), QByteArray("tintwell-krita 0"));

  KritaHost host;
  const std::optional<QString> notice = host.installWithNotice();
  ASSERT_TRUE(notice.has_value());
  EXPECT_TRUE(notice->contains(
      QStringLiteral("from version 0 to version %1").arg(krita_plugin::shippedVersion())))
      << notice->toStdString();
  EXPECT_EQ(KritaPluginInstaller().installedVersion(), krita_plugin::shippedVersion());
  EXPECT_EQ(host.installWithNotice(), std::nullopt);
  // Krita keeps the module it loaded until it starts again.
  EXPECT_EQ(version(), QByteArray("tintwell-krita 0"));

  session->kill();
  session->start();
  ASSERT_TRUE(session->waitForPing(90s)) << session->tail().toStdString();
  EXPECT_EQ(version(), "tintwell-krita " + QByteArray::number(krita_plugin::shippedVersion()));
}

TEST_F(KritaRealTest, InstalledWhileKritaRunsThePluginAnswersAfterTheRestartTheNoticeAsksFor) {
  if (QStandardPaths::findExecutable(QStringLiteral("xdotool")).isEmpty())
    GTEST_SKIP() << "xdotool is not installed";
  session->kill();
  // A profile that has never had the plug-in.
  QDir(session->pykrita() + QStringLiteral("/tintwell_bridge")).removeRecursively();
  QFile::remove(session->pykrita() + QStringLiteral("/tintwell_bridge.desktop"));
  QString settings = readText(session->kritarc());
  ASSERT_TRUE(settings.contains(QStringLiteral("\nenable_tintwell_bridge=true\n")));
  settings.replace(QStringLiteral("\nenable_tintwell_bridge=true\n"), QStringLiteral("\n"));
  {
    QFile file(session->kritarc());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(settings.toUtf8());
  }
  session->start();
  ASSERT_TRUE(testing::waitFor([] { return !session->windows().isEmpty(); }, 90000))
      << session->tail().toStdString();
  EXPECT_EQ(session->ask("ping", 2000ms), std::nullopt);

  // Tintwell sees Krita running and installs while it runs.
  KritaHost host;
  const std::optional<QString> notice = host.installWithNotice();
  ASSERT_TRUE(notice.has_value());
  EXPECT_TRUE(notice->startsWith(QStringLiteral("Tintwell adds its plug-in")))
      << notice->toStdString();
  EXPECT_EQ(host.push(HostColor{1, 2, 3}, kPushTimeout).status, PushStatus::NotRunning);

  // Krita rewrites kritarc as it quits: the switch added meanwhile survives.
  ASSERT_TRUE(session->quit()) << session->tail().toStdString();
  EXPECT_TRUE(
      readText(session->kritarc()).contains(QStringLiteral("\nenable_tintwell_bridge=true\n")));
  session->start();
  ASSERT_TRUE(session->waitForPing(90s)) << session->tail().toStdString();
  ASSERT_TRUE(session->ready());
  EXPECT_EQ(host.push(HostColor{0x2b, 0x6c, 0x9e}, kPushTimeout).status, PushStatus::Confirmed);
}

}  // namespace
}  // namespace tw
