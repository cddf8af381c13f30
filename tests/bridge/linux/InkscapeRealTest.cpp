// Inkscape from Debian's package, under Xvfb in a throwaway session: the
// selection takes the pushed colour as its fill, read back from a drawing
// Inkscape exports and counted on screen; an empty selection is reported,
// and the user's clipboard is never touched.

#include <gtest/gtest.h>

#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QVariantMap>
#include <future>

#include "bridge/Commander.h"
#include "bridge/HostDispatcher.h"
#include "bridge/linux/InkscapeHost.h"
#include "tests/support/DesignAppSession.h"
#include "tests/support/XvfbServer.h"

namespace tw {
namespace {

using namespace std::chrono_literals;
using testing::DesignAppSession;

// One large square, so the colour is easy to count on screen.
const QByteArray kDrawing =
    "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"400\" height=\"400\">"
    "<rect id=\"square\" x=\"0\" y=\"0\" width=\"400\" height=\"400\" style=\"fill:#808080\"/>"
    "</svg>";

class InkscapeRealTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!testing::hasProgram(QStringLiteral("inkscape"))) return;
    xvfb = new testing::XvfbServer(
        {QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1280x1024x24")});
    session = new DesignAppSession(xvfb->display());
    if (!xvfb->isRunning() || !session->isReady()) return;
    // A fresh profile opens a welcome screen instead of the drawing.
    QDir().mkpath(session->configDir() + QStringLiteral("/inkscape"));
    writeFile(session->configDir() + QStringLiteral("/inkscape/preferences.xml"),
              "<inkscape version=\"1\"><group id=\"options\">"
              "<group id=\"boot\" enabled=\"0\"/></group></inkscape>");
    drawing = session->home() + QStringLiteral("/square.svg");
    writeFile(drawing, kDrawing);
    session->start(QStringLiteral("inkscape"), {drawing});
    host = new InkscapeHost(session->bus());
    ready = DesignAppSession::waitUntil(
        [] {
          return windowAction(1, QStringLiteral("select-all")).type() == QDBusMessage::ReplyMessage;
        },
        120s);
  }
  static void TearDownTestSuite() {
    delete host;
    delete session;
    delete xvfb;
    host = nullptr;
    session = nullptr;
    xvfb = nullptr;
  }
  void SetUp() override {
    if (!testing::hasProgram(QStringLiteral("inkscape")) ||
        !testing::hasProgram(QStringLiteral("xwd"))) {
      GTEST_SKIP() << "Inkscape or xwd is not installed (make design-apps-deps installs them)";
    }
    ASSERT_TRUE(ready) << "Inkscape showed no drawing window within two minutes:\n"
                       << session->output().toStdString();
  }

  static void writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
  }
  static QDBusMessage activate(const QString& path, const QString& name,
                               const QVariantList& parameters = {}) {
    return session->activateAction(QStringLiteral("org.inkscape.Inkscape"), path, name, parameters);
  }
  static QDBusMessage windowAction(int window, const QString& name) {
    return activate(QStringLiteral("/org/inkscape/Inkscape/window/%1").arg(window), name);
  }
  // The square's fill in a drawing Inkscape exports now: the test's own
  // reading, by the square's id.
  static QString squareFill() {
    const QString path = session->home() + QStringLiteral("/readback.svg");
    QFile::remove(path);
    activate(QStringLiteral("/org/inkscape/Inkscape"), QStringLiteral("export-filename"), {path});
    activate(QStringLiteral("/org/inkscape/Inkscape"), QStringLiteral("export-plain-svg"), {true});
    activate(QStringLiteral("/org/inkscape/Inkscape"), QStringLiteral("export-do"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return {};
    const QString svg = QString::fromUtf8(file.readAll());
    const QRegularExpression square(QStringLiteral("<rect[^>]*id=\"square\"[^>]*>"));
    const QString element = square.match(svg).captured(0);
    return QRegularExpression(QStringLiteral("fill:(#[0-9a-f]{6})")).match(element).captured(1);
  }
  static qsizetype pixelsOnScreen(const HostColor& color, qsizetype atLeast) {
    return session->pixelsOnScreen(qRgb(color.red, color.green, color.blue), atLeast);
  }
  static QByteArray clipboard() {
    return session->runTool(
        QStringLiteral("xclip"),
        {QStringLiteral("-o"), QStringLiteral("-selection"), QStringLiteral("clipboard")}, 5000);
  }

  static inline testing::XvfbServer* xvfb = nullptr;
  static inline DesignAppSession* session = nullptr;
  static inline InkscapeHost* host = nullptr;
  static inline QString drawing;
  static inline bool ready = false;
};

// The square fills a good part of the canvas at any zoom Inkscape opens with.
constexpr qsizetype kSquarePixels = 5000;

TEST_F(InkscapeRealTest, TheSelectionTakesEachPushedColourReadBackAndShown) {
  windowAction(1, QStringLiteral("select-all"));
  for (const HostColor color :
       {HostColor{26, 43, 60}, HostColor{200, 50, 100}, HostColor{60, 180, 160}}) {
    EXPECT_LT(pixelsOnScreen(color, 0), kSquarePixels);
    const PushOutcome outcome = host->push(color, 5s);
    EXPECT_EQ(outcome.status, PushStatus::Confirmed) << outcome.reason.toStdString();
    EXPECT_EQ(squareFill(), color.hex());
    EXPECT_GE(pixelsOnScreen(color, kSquarePixels), kSquarePixels) << color.hex().toStdString();
  }
}

TEST_F(InkscapeRealTest, WithNothingSelectedThePushSaysSoAndChangesNothing) {
  windowAction(1, QStringLiteral("select-all"));
  ASSERT_EQ(host->push(HostColor{10, 20, 30}, 5s).status, PushStatus::Confirmed);
  windowAction(1, QStringLiteral("select-none"));
  const PushOutcome outcome = host->push(HostColor{40, 50, 60}, 5s);
  EXPECT_EQ(outcome.status, PushStatus::NothingSelected);
  EXPECT_EQ(outcome.reason,
            QStringLiteral("nothing selected: select a shape in Inkscape to give it the colour"));
  EXPECT_EQ(squareFill(), QStringLiteral("#0a141e"));
}

TEST_F(InkscapeRealTest, PushesLeaveTheUsersClipboardAsItWas) {
  QProcess copy;
  copy.setProcessEnvironment(session->environment());
  copy.start(QStringLiteral("xclip"), {QStringLiteral("-selection"), QStringLiteral("clipboard")});
  ASSERT_TRUE(copy.waitForStarted());
  copy.write("the user's own text");
  copy.closeWriteChannel();
  ASSERT_TRUE(copy.waitForFinished(5000));
  ASSERT_EQ(clipboard(), QByteArray("the user's own text"));
  windowAction(1, QStringLiteral("select-all"));
  for (int i = 0; i < 5; ++i) host->push(HostColor{i, 100, 200}, 5s);
  EXPECT_EQ(clipboard(), QByteArray("the user's own text"));
}

TEST_F(InkscapeRealTest, ColoursThePanelAcceptsReachTheSelectionThroughTheBridge) {
  std::vector<std::unique_ptr<DesignHost>> hosts;
  hosts.push_back(std::make_unique<InkscapeHost>(session->bus()));
  auto dispatcher = std::make_shared<HostDispatcher>(std::move(hosts), nullptr, 5000ms);
  Commander commander(std::make_shared<WineHostDescription>(
      std::make_shared<FixedApplicationLister>(std::vector<RunningApplication>{
          {QStringLiteral("inkscape"), QStringLiteral("/usr/bin/inkscape")}})));
  commander.setNativeHosts(dispatcher);
  windowAction(1, QStringLiteral("select-all"));
  commander.sendColorToApps(ColorStruct::fromChannels(250, 250, 250));  // start-up: not pushed
  commander.sendColorToApps(ColorStruct::fromChannels(1, 99, 201));
  ASSERT_TRUE(dispatcher->waitIdle(10s));
  EXPECT_EQ(squareFill(), QStringLiteral("#0163c9"));
  EXPECT_EQ(dispatcher->stats(QStringLiteral("inkscape"))->pushed, 1u);
}

TEST_F(InkscapeRealTest, WithTwoWindowsTheActiveOnesSelectionIsColoured) {
  ASSERT_EQ(windowAction(1, QStringLiteral("window-new")).type(), QDBusMessage::ReplyMessage);
  ASSERT_TRUE(DesignAppSession::waitUntil(
      [] {
        return windowAction(2, QStringLiteral("select-all")).type() == QDBusMessage::ReplyMessage;
      },
      30s));
  const PushOutcome outcome = host->push(HostColor{222, 111, 0}, 5s);
  EXPECT_EQ(outcome.status, PushStatus::Confirmed) << outcome.reason.toStdString();
  EXPECT_EQ(squareFill(), QStringLiteral("#de6f00"));
}

TEST_F(InkscapeRealTest, AHungInkscapeCostsOneFailureAndTheNextColourArrives) {
  windowAction(1, QStringLiteral("select-all"));
  session->freeze();
  const PushOutcome hung = host->push(HostColor{1, 2, 3}, 700ms);
  session->thaw();
  EXPECT_EQ(hung.status, PushStatus::Failed);
  EXPECT_EQ(hung.reason, QStringLiteral("no answer within 700 ms"));
  DesignAppSession::waitUntil(
      [] {
        return host->push(HostColor{4, 5, 6}, 5s).status == PushStatus::Confirmed;
      },
      20s);
  EXPECT_EQ(squareFill(), QStringLiteral("#040506"));
}

// Last: it ends Inkscape.
TEST_F(InkscapeRealTest, ZInkscapeQuittingDuringAPushIsAFailureAndThenNotRunning) {
  auto inFlight = std::async(std::launch::async, [] {
    InkscapeHost own(session->bus());
    return own.push(HostColor{7, 8, 9}, 5s);
  });
  session->killAll();
  const PushOutcome during = inFlight.get();
  EXPECT_NE(during.status, PushStatus::Queued);
  EXPECT_EQ(host->push(HostColor{7, 8, 9}, 5s).status, PushStatus::NotRunning);
}

}  // namespace
}  // namespace tw
