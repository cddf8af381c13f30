#include "bridge/linux/KritaHost.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>
#include <QTemporaryDir>
#include <functional>
#include <future>
#include <thread>

#include "bridge/HostDispatcher.h"
#include "bridge/linux/KritaChannel.h"
#include "tests/bridge/BridgeTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/QtWait.h"

namespace tw {
namespace {

using namespace std::chrono_literals;
using bridge_testing::readBytes;
using bridge_testing::ScopedEnv;

// A stand-in for the plug-in on a real local socket: each request line gets
// what `answer` returns (written as it is; nothing when empty). It runs on the
// test's thread, so the host under test is driven from another one.
class FakePlugin {
 public:
  using Answer = std::function<QByteArray(const QByteArray& request, QLocalSocket& client)>;

  FakePlugin(const QString& path, Answer answer) : answer_(std::move(answer)) {
    QLocalServer::removeServer(path);
    server_.setSocketOptions(QLocalServer::UserAccessOption);
    listening_ = server_.listen(path);
    QObject::connect(&server_, &QLocalServer::newConnection, [this] {
      while (QLocalSocket* client = server_.nextPendingConnection()) {
        ++connections_;
        QObject::connect(client, &QLocalSocket::readyRead, client, [this, client] {
          while (client->canReadLine()) {
            QByteArray line = client->readLine();
            line.chop(1);
            requests_.push_back(line);
            const QByteArray reply = answer_(line, *client);
            if (!reply.isEmpty() && client->state() == QLocalSocket::ConnectedState)
              client->write(reply);
          }
        });
        QObject::connect(client, &QLocalSocket::disconnected, client, &QObject::deleteLater);
      }
    });
  }

  bool listening() const { return listening_; }
  const QList<QByteArray>& requests() const { return requests_; }
  int connections() const { return connections_; }

 private:
  QLocalServer server_;
  Answer answer_;
  bool listening_ = false;
  QList<QByteArray> requests_;
  int connections_ = 0;
};

// Runs `work` on a plain thread, as the dispatcher's worker does, while this
// thread serves the fake plug-in.
template <class Work>
auto offThread(Work work) {
  auto future = std::async(std::launch::async, std::move(work));
  testing::waitFor([&] { return future.wait_for(0s) == std::future_status::ready; }, 30000);
  return future.get();
}

// Answers like the plug-in with a view whose foreground is `shown`.
FakePlugin::Answer pluginShowing(QByteArray setAnswer, QByteArray shown) {
  return [setAnswer, shown](const QByteArray& request, QLocalSocket&) -> QByteArray {
    if (request.startsWith("set ")) return setAnswer + '\n';
    if (request == "get") return shown + '\n';
    return QByteArrayLiteral("error unknown request\n");
  };
}

class KritaHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(dir_.isValid());
    locations_.pykrita = dir_.filePath(QStringLiteral("data/krita/pykrita"));
    locations_.kritarc = dir_.filePath(QStringLiteral("config/kritarc"));
    locations_.pythonModules = dir_.filePath(QStringLiteral("dist-packages"));
  }
  QString socketPath() const { return dir_.filePath(QStringLiteral("tintwell-krita.socket")); }
  KritaHost host() const { return KritaHost(socketPath(), KritaPluginInstaller(locations_)); }
  PushOutcome pushOffThread(const HostColor& color, std::chrono::milliseconds timeout = 2000ms) {
    return offThread([this, color, timeout] {
      KritaHost h = host();
      return h.push(color, timeout);
    });
  }

  QTemporaryDir dir_;
  KritaLocations locations_;
};

const HostColor kColor{0x12, 0xab, 0x56};

TEST_F(KritaHostTest, NamesAndProcess) {
  const KritaHost h = host();
  EXPECT_EQ(h.key(), QStringLiteral("krita"));
  EXPECT_EQ(h.displayName(), QStringLiteral("Krita"));
  auto named = [](const char* name) {
    return RunningApplication{QString::fromLatin1(name), QStringLiteral("/usr/bin/") + name};
  };
  EXPECT_TRUE(h.isHostProcess(named("krita")));
  EXPECT_FALSE(h.isHostProcess(named("Krita")));
  EXPECT_FALSE(h.isHostProcess(named("kritarunner")));
  EXPECT_FALSE(h.isHostProcess(named("gimp")));
  EXPECT_FALSE(h.isHostProcess(RunningApplication{}));
}

TEST_F(KritaHostTest, TheSocketIsInTheRuntimeFolder) {
  ScopedEnv runtime("XDG_RUNTIME_DIR", "/run/user/4321");
  EXPECT_EQ(kritaSocketPath().toStdString(), "/run/user/4321/tintwell-krita.socket");
  EXPECT_EQ(KritaHost().socketPath().toStdString(), "/run/user/4321/tintwell-krita.socket");
}

TEST_F(KritaHostTest, NoSocketFileIsNotRunning) {
  QElapsedTimer clock;
  clock.start();
  const PushOutcome outcome = pushOffThread(kColor);
  EXPECT_EQ(outcome.status, PushStatus::NotRunning);
  EXPECT_EQ(outcome.reason.toStdString(),
            "plug-in not answering (restart Krita after the install)");
  EXPECT_LT(clock.elapsed(), 1000);
}

TEST_F(KritaHostTest, AStaleSocketFileNobodyListensOnIsNotRunning) {
  // What a killed Krita leaves: a socket file with no listener behind it.
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(fd, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const QByteArray path = QFile::encodeName(socketPath());
  ASSERT_LT(path.size(), static_cast<qsizetype>(sizeof(address.sun_path)));
  std::memcpy(address.sun_path, path.constData(), path.size());
  ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  ::close(fd);
  ASSERT_TRUE(QFileInfo(socketPath()).exists());

  const PushOutcome outcome = pushOffThread(kColor);
  EXPECT_EQ(outcome.status, PushStatus::NotRunning);
  EXPECT_EQ(outcome.reason.toStdString(),
            "plug-in not answering (restart Krita after the install)");
}

TEST_F(KritaHostTest, ASocketPathThroughAFileCannotBeReachedAndSaysWhy) {
  QFile file(dir_.filePath(QStringLiteral("plain")));
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  file.close();
  const KritaHost blocked(dir_.filePath(QStringLiteral("plain/tintwell-krita.socket")),
                          KritaPluginInstaller(locations_));
  const PushOutcome outcome = offThread([&blocked] {
    KritaHost h = blocked;
    return h.push(kColor, 1000ms);
  });
  EXPECT_EQ(outcome.status, PushStatus::Failed);
  EXPECT_EQ(outcome.reason.toStdString(), "cannot reach the plug-in: Not a directory");
}

TEST_F(KritaHostTest, ASocketPathLongerThanAnAddressHoldsCannotBeReached) {
  const KritaExchange exchange =
      askKrita(dir_.filePath(QString(200, QLatin1Char('s'))), {"get"}, 1000ms);
  EXPECT_EQ(exchange.status, KritaExchange::Status::CannotConnect);
  EXPECT_EQ(exchange.error.toStdString(), "the socket path is longer than a socket address holds");
}

// The plug-in's answers are short; 256 bytes before the line end is the most
// taken, whether the line ends in LF or CR LF.
TEST_F(KritaHostTest, AnAnswerLineOfAtMost256BytesIsTakenAndALongerOneIsTooLong) {
  for (const auto& [answer, status] :
       {std::pair{QByteArray(256, 'a') + "\n", KritaExchange::Status::Answered},
        std::pair{QByteArray(255, 'b') + "\r\n", KritaExchange::Status::Answered},
        std::pair{QByteArray(257, 'c') + "\n", KritaExchange::Status::TooLong},
        std::pair{QByteArray(256, 'd') + "\r\n", KritaExchange::Status::TooLong}}) {
    SCOPED_TRACE(answer.size());
    FakePlugin plugin(socketPath(),
                      [answer = answer](const QByteArray&, QLocalSocket&) { return answer; });
    ASSERT_TRUE(plugin.listening());
    const KritaExchange exchange =
        offThread([this] { return askKrita(socketPath(), {"get"}, 2000ms); });
    EXPECT_EQ(exchange.status, status);
    if (status == KritaExchange::Status::Answered) {
      ASSERT_EQ(exchange.answers.size(), 1);
      EXPECT_EQ(exchange.answers[0], answer.left(answer.indexOf('\r') >= 0 ? 255 : 256));
    }
  }
}

TEST_F(KritaHostTest, OkAndTheSameColourReadBackIsConfirmed) {
  FakePlugin plugin(socketPath(), pluginShowing("ok", "#12ab56"));
  ASSERT_TRUE(plugin.listening());
  const PushOutcome outcome = pushOffThread(kColor);
  EXPECT_EQ(outcome.status, PushStatus::Confirmed) << outcome.reason.toStdString();
  EXPECT_EQ(plugin.requests(), (QList<QByteArray>{"set #12ab56", "get"}));
  EXPECT_EQ(plugin.connections(), 1);
}

TEST_F(KritaHostTest, OkWithAnotherColourReadBackFailsNamingIt) {
  FakePlugin plugin(socketPath(), pluginShowing("ok", "#000000"));
  const PushOutcome outcome = pushOffThread(kColor);
  EXPECT_EQ(outcome.status, PushStatus::Failed);
  EXPECT_EQ(outcome.reason.toStdString(), "Krita reports #000000");
}

TEST_F(KritaHostTest, QueuedIsQueued) {
  FakePlugin plugin(socketPath(), pluginShowing("queued", "none"));
  const PushOutcome outcome = pushOffThread(kColor);
  EXPECT_EQ(outcome.status, PushStatus::Queued);
  EXPECT_EQ(outcome.reason.toStdString(), "no document open; the colour waits for one");
  EXPECT_TRUE(outcome.reached());
}

TEST_F(KritaHostTest, AServerThatNeverAnswersIsATimeOut) {
  FakePlugin plugin(socketPath(), [](const QByteArray&, QLocalSocket&) { return QByteArray(); });
  QElapsedTimer clock;
  clock.start();
  const PushOutcome outcome = pushOffThread(kColor, 400ms);
  const qint64 took = clock.elapsed();
  EXPECT_EQ(outcome.status, PushStatus::Failed);
  EXPECT_EQ(outcome.reason.toStdString(), "no answer within 400 ms");
  EXPECT_GE(took, 380);
  EXPECT_LT(took, 1500);
  EXPECT_EQ(plugin.requests(), (QList<QByteArray>{"set #12ab56", "get"}));
}

TEST_F(KritaHostTest, AnswerThenSilenceIsATimeOutToo) {
  FakePlugin plugin(socketPath(), [](const QByteArray& request, QLocalSocket&) {
    return request == "get" ? QByteArray() : QByteArrayLiteral("ok\n");
  });
  const PushOutcome outcome = pushOffThread(kColor, 300ms);
  EXPECT_EQ(outcome.status, PushStatus::Failed);
  EXPECT_EQ(outcome.reason.toStdString(), "no answer within 300 ms");
}

struct GarbageCase {
  const char* name;
  QByteArray answer;
};

void PrintTo(const GarbageCase& c, std::ostream* os) { *os << c.name; }

class KritaHostGarbageTest : public KritaHostTest,
                             public ::testing::WithParamInterface<GarbageCase> {};

TEST_P(KritaHostGarbageTest, IsAnUnexpectedAnswer) {
  const QByteArray answer = GetParam().answer;
  FakePlugin plugin(socketPath(), [answer](const QByteArray&, QLocalSocket&) { return answer; });
  const PushOutcome outcome = pushOffThread(kColor, 2000ms);
  EXPECT_EQ(outcome.status, PushStatus::Failed);
  EXPECT_EQ(outcome.reason.toStdString(), "unexpected answer");
}

INSTANTIATE_TEST_SUITE_P(
    Answers, KritaHostGarbageTest,
    ::testing::Values(GarbageCase{"Words", "hello\n"},
                      GarbageCase{"AnError", "error unknown request\n"},
                      GarbageCase{"OkInCapitals", "OK\n"},
                      GarbageCase{"Binary", QByteArray("\x00\xff\x01\n", 4)},
                      GarbageCase{"ALineWithoutEnd", QByteArray(4096, 'x')},
                      GarbageCase{"AVeryLongLine", QByteArray(300, 'y') + '\n'},
                      GarbageCase{"OkThenNotAColour", "ok\n"}),
    [](const ::testing::TestParamInfo<GarbageCase>& info) { return std::string(info.param.name); });

TEST_F(KritaHostTest, OkThenAColourWithoutHashIsUnexpected) {
  FakePlugin plugin(socketPath(), pluginShowing("ok", "12ab56"));
  EXPECT_EQ(pushOffThread(kColor).reason.toStdString(), "unexpected answer");
}

TEST_F(KritaHostTest, AServerThatClosesWithoutAnsweringFails) {
  FakePlugin plugin(socketPath(), [](const QByteArray&, QLocalSocket& client) {
    client.disconnectFromServer();
    return QByteArray();
  });
  QElapsedTimer clock;
  clock.start();
  const PushOutcome outcome = pushOffThread(kColor, 3000ms);
  EXPECT_EQ(outcome.status, PushStatus::Failed);
  EXPECT_EQ(outcome.reason.toStdString(), "plug-in closed the connection");
  EXPECT_LT(clock.elapsed(), 2000);
}

TEST_F(KritaHostTest, ReadBackIsTheGetAnswer) {
  FakePlugin plugin(socketPath(), pluginShowing("ok", "#0a0b0c"));
  const std::optional<HostColor> shown = offThread([this] { return host().readBack(1000ms); });
  ASSERT_TRUE(shown.has_value());
  EXPECT_EQ(*shown, (HostColor{10, 11, 12}));
  EXPECT_EQ(plugin.requests(), (QList<QByteArray>{"get"}));
}

TEST_F(KritaHostTest, ReadBackIsAbsentForNoneGarbageAndNoServer) {
  EXPECT_EQ(offThread([this] { return host().readBack(500ms); }), std::nullopt);
  for (const QByteArray& answer :
       {QByteArray("none\n"), QByteArray("#12345\n"), QByteArray("pong\n"), QByteArray()}) {
    SCOPED_TRACE(answer.toStdString());
    FakePlugin plugin(socketPath(), [answer](const QByteArray&, QLocalSocket&) { return answer; });
    EXPECT_EQ(offThread([this] { return host().readBack(300ms); }), std::nullopt);
  }
}

TEST_F(KritaHostTest, SeveralAnswersInOneWriteAreEachTaken) {
  FakePlugin plugin(socketPath(), [](const QByteArray& request, QLocalSocket&) {
    return request.startsWith("set") ? QByteArrayLiteral("ok\n#12ab56\n") : QByteArray();
  });
  EXPECT_EQ(pushOffThread(kColor).status, PushStatus::Confirmed);
}

TEST_F(KritaHostTest, AnswersFollowedAtOnceByACloseAreStillTaken) {
  FakePlugin plugin(socketPath(), [](const QByteArray& request, QLocalSocket& client) {
    if (!request.startsWith("set")) return QByteArray();
    client.write("ok\n#12ab56\n");
    client.flush();
    client.disconnectFromServer();
    return QByteArray();
  });
  EXPECT_EQ(pushOffThread(kColor).status, PushStatus::Confirmed);
}

TEST_F(KritaHostTest, PrepareInstallsAndGivesTheNoticeOnlyTheFirstTime) {
  KritaHost h = host();
  const QString notice = KritaPluginInstaller(locations_).notice();
  const std::optional<QString> first = h.installWithNotice();
  ASSERT_TRUE(first.has_value());
  EXPECT_EQ(first->toStdString(), notice.toStdString());
  EXPECT_EQ(readBytes(locations_.pykrita + QStringLiteral("/tintwell_bridge/__init__.py")),
            krita_plugin::module());
  EXPECT_EQ(h.installWithNotice(), std::nullopt);
  EXPECT_EQ(KritaHost(socketPath(), KritaPluginInstaller(locations_)).installWithNotice(),
            std::nullopt);
}

TEST_F(KritaHostTest, AFailedInstallIsInTheNotice) {
  bridge_testing::writeBytes(locations_.pykrita, "a file, not a folder");
  KritaHost h = host();
  const std::optional<QString> notice = h.installWithNotice();
  ASSERT_TRUE(notice.has_value());
  EXPECT_TRUE(
      notice->contains(QStringLiteral("\nThe plug-in could not be installed: cannot make "
                                      "the folder ")))
      << notice->toStdString();
}

TEST_F(KritaHostTest, TheDispatcherPrintsOneLinePerFailedPushAndCountsThem) {
  testing::LogCapture log;
  std::vector<std::unique_ptr<DesignHost>> hosts;
  hosts.push_back(std::make_unique<KritaHost>(host()));
  HostDispatcher dispatcher(std::move(hosts), nullptr, 500ms);
  ASSERT_TRUE(dispatcher.offerTo(QStringLiteral("krita"), kColor));
  ASSERT_TRUE(dispatcher.waitIdle(5s));
  EXPECT_EQ(
      log.count(QStringLiteral("Krita: plug-in not answering (restart Krita after the install)")),
      1)
      << log.text().toStdString();

  // Now the plug-in is there: the next push is confirmed and prints nothing.
  FakePlugin plugin(socketPath(), pluginShowing("ok", "#12ab56"));
  log.clear();
  ASSERT_TRUE(dispatcher.offerTo(QStringLiteral("krita"), kColor));
  ASSERT_TRUE(testing::waitFor([&] { return dispatcher.waitIdle(0ms); }, 5000));
  EXPECT_TRUE(log.lines().isEmpty()) << log.text().toStdString();
  const HostStats stats = *dispatcher.stats(QStringLiteral("krita"));
  EXPECT_EQ(stats.pushed, 2u);
  EXPECT_EQ(stats.confirmed, 1u);
  EXPECT_EQ(stats.failed, 1u);
  EXPECT_EQ(dispatcher.lastOutcome(QStringLiteral("krita"))->status, PushStatus::Confirmed);
}

}  // namespace
}  // namespace tw
