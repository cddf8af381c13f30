#include "telemetry/HelperUsageTransport.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include "telemetry/network/NetworkUsageTransport.h"
#include "tests/support/ChildProcesses.h"
#include "tests/telemetry/TelemetryTestServer.h"

namespace tw {
namespace {

struct Outcome {
  bool done = false;
  std::optional<QByteArray> data;
  std::optional<UsageResponse> response;
  std::optional<QString> error;
};

// Whether this process has the TLS library mapped (the transport made here
// loads it at its first post; the helper keeps it out).
bool tlsLibraryLoadedHere() {
  QFile maps(QStringLiteral("/proc/self/maps"));
  if (!maps.open(QIODevice::ReadOnly)) return false;
  return maps.readAll().contains("libcrypto.so");
}

// Each case runs in a process of its own (CTest), with the real helper
// program, against the real local HTTPS server trusted through
// TINTWELL_TELEMETRY_CA.
class HelperUsageTransportTest : public ::testing::Test {
 protected:
  HelperUsageTransportTest() {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    qputenv("TINTWELL_TELEMETRY_CA", certificates.caPath().toLocal8Bit());
  }

  UsageRequest request() const {
    UsageRequest r;
    r.url = QUrl(server.baseUrl() + QStringLiteral("/api/color_usage"));
    r.method = "POST";
    r.headers = {{"Content-Type", "application/json"}, {"Accept", "application/json"}};
    r.body = R"({"colors_device":["#FAFAFA"]})";
    r.timeoutMs = 20000;
    return r;
  }

  static Outcome post(UsageTransport& transport, const UsageRequest& request) {
    Outcome outcome;
    transport.post(request,
                   [&](std::optional<QByteArray> data, std::optional<UsageResponse> response,
                       std::optional<QString> error) {
                     outcome = {true, std::move(data), std::move(response), std::move(error)};
                   });
    EXPECT_FALSE(outcome.done) << "completed inside post()";
    EXPECT_TRUE(testing::pumpUntil([&] { return outcome.done; }, 20000));
    return outcome;
  }

  static HelperUsageTransport withHelper(const QString& helper) {
    return HelperUsageTransport(helper, makeNetworkUsageTransport);
  }

  int argc = 1;
  char name[24] = "helper_transport_test";
  char* argv[2] = {name, nullptr};
  QCoreApplication app{argc, argv};
  testing::TestCertificates certificates;
  testing::TelemetryTestServer server{certificates};
};

TEST_F(HelperUsageTransportTest,
       TheVariableNamesTheHelperElseOnlyTheProgramsOwnFoldersAreSearched) {
  qunsetenv("TINTWELL_POST_HELPER");
  // This test program's folder has no helper beside it or in ../libexec.
  EXPECT_EQ(HelperUsageTransport::findHelper(), QString());
  qputenv("TINTWELL_POST_HELPER", TW_POST_HELPER);
  EXPECT_EQ(HelperUsageTransport::findHelper(), QStringLiteral(TW_POST_HELPER));
}

TEST_F(HelperUsageTransportTest, ThePostGoesThroughTheHelperAndLeavesNoTlsLibraryHere) {
  ASSERT_FALSE(tlsLibraryLoadedHere());
  HelperUsageTransport transport(QStringLiteral(TW_POST_HELPER), [] {
    ADD_FAILURE() << "the post was made in this process";
    return makeNetworkUsageTransport();
  });
  server.command(QStringLiteral("set * 201"));
  const Outcome outcome = post(transport, request());
  ASSERT_TRUE(outcome.done);
  EXPECT_FALSE(outcome.error) << outcome.error.value_or(QString()).toStdString();
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.response->statusCode, 201);
  EXPECT_EQ(outcome.data, QByteArray(R"({"ok":true})"));
  EXPECT_FALSE(tlsLibraryLoadedHere());
}

// What the server receives and what the completion reports are the same
// whether the post is made by the helper or here.
TEST_F(HelperUsageTransportTest, TheHelperSendsAndReportsExactlyWhatAPostMadeHereDoes) {
  for (const QString& answer : {QStringLiteral("201"), QStringLiteral("500"), QStringLiteral("404"),
                                QStringLiteral("drop"), QStringLiteral("cut")}) {
    SCOPED_TRACE(answer.toStdString());
    server.command(QStringLiteral("set * ") + answer);
    const int before = static_cast<int>(server.requests().size());
    HelperUsageTransport helped = withHelper(QStringLiteral(TW_POST_HELPER));
    const Outcome viaHelper = post(helped, request());
    NetworkUsageTransport here;
    const Outcome madeHere = post(here, request());
    ASSERT_TRUE(server.waitForRequests(before + 2));
    const QList<testing::ServerEvent> requests = server.requests();
    const testing::ServerEvent& a = requests.at(before);
    const testing::ServerEvent& b = requests.at(before + 1);
    EXPECT_EQ(a.method, b.method);
    EXPECT_EQ(a.path, b.path);
    EXPECT_EQ(a.headers, b.headers);
    EXPECT_EQ(a.body, b.body);

    EXPECT_EQ(viaHelper.data, madeHere.data);
    EXPECT_EQ(viaHelper.error, madeHere.error);
    ASSERT_EQ(viaHelper.response.has_value(), madeHere.response.has_value());
    if (viaHelper.response) {
      EXPECT_EQ(viaHelper.response->statusCode, madeHere.response->statusCode);
      EXPECT_EQ(viaHelper.response->isHttp, madeHere.response->isHttp);
      // The description names the header fields, the server's Date among them.
      EXPECT_EQ(viaHelper.response->description.section(QStringLiteral("Headers"), 0, 0),
                madeHere.response->description.section(QStringLiteral("Headers"), 0, 0));
    }
  }
}

TEST_F(HelperUsageTransportTest, WithoutAHelperThePostIsMadeHere) {
  ASSERT_FALSE(tlsLibraryLoadedHere());
  QTemporaryDir empty;
  for (const QString& helper : {QString(), empty.filePath(QStringLiteral("tintwell-post"))}) {
    HelperUsageTransport transport = withHelper(helper);
    server.command(QStringLiteral("set * 201"));
    const Outcome outcome = post(transport, request());
    ASSERT_TRUE(outcome.response);
    EXPECT_EQ(outcome.response->statusCode, 201);
    EXPECT_EQ(outcome.data, QByteArray(R"({"ok":true})"));
    // A second post goes straight here as well.
    EXPECT_EQ(post(transport, request()).data, QByteArray(R"({"ok":true})"));
  }
  EXPECT_TRUE(tlsLibraryLoadedHere());
}

// The application carries no HTTPS code: without the helper its posts fail,
// each saying why, and nothing reaches the server.
TEST_F(HelperUsageTransportTest, WithoutTheHelperTheApplicationsPostsFailSayingWhy) {
  qunsetenv("TINTWELL_POST_HELPER");
  const std::shared_ptr<UsageTransport> transport = makeUsageTransport();
  server.command(QStringLiteral("set * 201"));
  const int before = static_cast<int>(server.requests().size());
  for (int i = 0; i < 2; ++i) {
    const Outcome outcome = post(*transport, request());
    ASSERT_TRUE(outcome.done);
    EXPECT_EQ(outcome.error, missingPostHelperError());
    EXPECT_FALSE(outcome.data);
    EXPECT_FALSE(outcome.response);
  }
  EXPECT_EQ(static_cast<int>(server.requests().size()), before);
  EXPECT_FALSE(tlsLibraryLoadedHere());
  EXPECT_EQ(missingPostHelperError().toStdString(),
            "The post helper tintwell-post is not installed (looked beside the program and in "
            "its ../libexec/tintwell; TINTWELL_POST_HELPER names another)");
}

TEST_F(HelperUsageTransportTest, AHelperThatEndsWithoutAnAnswerIsATransportError) {
  HelperUsageTransport transport = withHelper(QStringLiteral("/bin/false"));
  const Outcome outcome = post(transport, request());
  ASSERT_TRUE(outcome.done);
  EXPECT_EQ(outcome.error,
            QStringLiteral("The post helper ended without an answer (exit status 1)"));
  EXPECT_FALSE(outcome.data);
  EXPECT_FALSE(outcome.response);
}

TEST_F(HelperUsageTransportTest, AnUnreadableCaFileStopsTheApplicationAsAPostMadeHereWould) {
  qputenv("TINTWELL_TELEMETRY_CA", "/nonexistent/ca.pem");
  EXPECT_DEATH(
      {
        HelperUsageTransport transport = withHelper(QStringLiteral(TW_POST_HELPER));
        post(transport, request());
      },
      "^tintwell: fatal: the telemetry CA file cannot be read\n$");
}

// Qt's own messages (qWarning and the like) while this lives.
class QtMessages {
 public:
  QtMessages() : previous_(qInstallMessageHandler(&QtMessages::keep)) { current_ = this; }
  ~QtMessages() {
    qInstallMessageHandler(previous_);
    current_ = nullptr;
  }
  QtMessages(const QtMessages&) = delete;
  QtMessages& operator=(const QtMessages&) = delete;
  QStringList texts;

 private:
  static void keep(QtMsgType, const QMessageLogContext&, const QString& text) {
    if (current_ != nullptr) current_->texts.append(text);
  }
  static inline QtMessages* current_ = nullptr;
  QtMessageHandler previous_;
};

TEST_F(HelperUsageTransportTest, ATransportEndedWhileItsHelperRunsNeverCompletesAndLeavesNoHelper) {
  server.command(QStringLiteral("set * hang"));
  bool done = false;
  qint64 pid = 0;
  QtMessages messages;
  {
    HelperUsageTransport transport = withHelper(QStringLiteral(TW_POST_HELPER));
    transport.post(request(), [&](auto, auto, auto) { done = true; });
    ASSERT_TRUE(server.waitForRequests(1));
    const QList<qint64> helpers = testing::childProcesses(getpid(), "tintwell-post");
    ASSERT_EQ(helpers.size(), 1);
    pid = helpers.front();
  }
  // Ended quietly: no "QProcess: Destroyed while process ... is still running".
  EXPECT_TRUE(messages.texts.isEmpty()) << messages.texts.join(u'\n').toStdString();
  testing::pumpUntil([] { return false; }, 300);
  EXPECT_FALSE(done);
  EXPECT_FALSE(QFile::exists(QStringLiteral("/proc/%1/cmdline").arg(pid)));
  EXPECT_TRUE(testing::childProcesses(getpid(), "tintwell-post").isEmpty());
}

}  // namespace
}  // namespace tw
