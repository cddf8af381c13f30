// The panel and a real Inkscape (Debian's package, under Xvfb in a throwaway
// session): a pen colour reaches the selection, and with nothing selected
// the panel says so instead of failing silently.
#include <gtest/gtest.h>

#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QVariantMap>
#include <mutex>

#include "app/PanelLogic.h"
#include "bridge/linux/InkscapeHost.h"
#include "events/Notifications.h"
#include "tests/pen/simulated/SimulatedCentral.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/DesignAppSession.h"
#include "tests/support/IdleTransport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/QtWait.h"
#include "tests/support/XvfbServer.h"

namespace tw {
namespace {

using namespace std::chrono_literals;
using testing::DesignAppSession;

class MessageView : public HeadlessPanelView {
 public:
  void showHostMessage(const QString& text) override {
    std::lock_guard lock(mutex_);
    messages_ << text;
  }
  QStringList messages() const {
    std::lock_guard lock(mutex_);
    return messages_;
  }

 private:
  mutable std::mutex mutex_;
  QStringList messages_;
};

class NoAnswer : public TerminationReply {
 public:
  void replyToApplicationShouldTerminate(bool) override {}
};

using testing::IdleTransport;

class PanelInkscapeTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!testing::hasProgram(QStringLiteral("inkscape"))) return;
    xvfb = new testing::XvfbServer(
        {QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1024x768x24")});
    session = new DesignAppSession(xvfb->display());
    QDir().mkpath(session->configDir() + QStringLiteral("/inkscape"));
    write(session->configDir() + QStringLiteral("/inkscape/preferences.xml"),
          "<inkscape version=\"1\"><group id=\"options\"><group id=\"boot\" "
          "enabled=\"0\"/></group></inkscape>");
    const QString drawing = session->home() + QStringLiteral("/one.svg");
    write(drawing,
          "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"100\" height=\"100\">"
          "<rect width=\"100\" height=\"100\" style=\"fill:#808080\"/></svg>");
    session->start(QStringLiteral("inkscape"), {drawing});
    ready = DesignAppSession::waitUntil(
        [] {
          return windowAction(QStringLiteral("select-none")).type() == QDBusMessage::ReplyMessage;
        },
        120s);
  }
  static void TearDownTestSuite() {
    delete session;
    delete xvfb;
    session = nullptr;
    xvfb = nullptr;
  }
  static void write(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    if (file.open(QIODevice::WriteOnly)) file.write(bytes);
  }
  static QDBusMessage windowAction(const QString& name) {
    return session->activateAction(QStringLiteral("org.inkscape.Inkscape"),
                                   QStringLiteral("/org/inkscape/Inkscape/window/1"), name);
  }

  void SetUp() override {
    if (!testing::hasProgram(QStringLiteral("inkscape"))) {
      GTEST_SKIP() << "Inkscape is not installed (make design-apps-deps installs it)";
    }
    ASSERT_TRUE(ready) << session->output().toStdString();
    ASSERT_TRUE(home_.isValid());
    home_.enter();
    PanelParts parts;
    parts.central = [](pen::CentralDelegate* d, QThread* q) {
      return std::make_unique<pen::SimulatedCentral>(d, q, pen::CentralManager::kPoweredOff);
    };
    parts.host = std::make_shared<WineHostDescription>(
        std::make_shared<FixedApplicationLister>(std::vector<RunningApplication>{
            {QStringLiteral("inkscape"), QStringLiteral("/usr/bin/inkscape")}}));
    parts.alerts = std::make_shared<SilentAlertPresenter>();
    parts.transport = std::make_shared<IdleTransport>();
    const QDBusConnection bus = session->bus();
    parts.nativeHosts = [bus] {
      std::vector<std::unique_ptr<DesignHost>> hosts;
      hosts.push_back(std::make_unique<InkscapeHost>(bus));
      return hosts;
    };
    panel_ = std::make_unique<PanelLogic>(view_, noAnswer_, std::move(parts));
    panel_->viewDidLoad();
    panel_->appear();
  }
  void postPenColour(int r, int g, int b) {
    NotificationCenter::defaultCenter().post(
        notification::newColor(), ColorStruct::fromChannels(r, g, b),
        UserInfo{{notification::quillaKey(), QStringLiteral("NewColor")}});
  }
  HostStats stats() const {
    return *panel_->commander().nativeHosts()->stats(QStringLiteral("inkscape"));
  }

  static inline testing::XvfbServer* xvfb = nullptr;
  static inline DesignAppSession* session = nullptr;
  static inline bool ready = false;

  testing::LogCapture log_;
  testing::BridgeSandbox home_;
  MessageView view_;
  NoAnswer noAnswer_;
  std::unique_ptr<PanelLogic> panel_;
};

TEST_F(PanelInkscapeTest, WithNothingSelectedThePanelSaysSo) {
  windowAction(QStringLiteral("select-none"));
  postPenColour(12, 34, 56);
  ASSERT_TRUE(testing::waitFor([&] { return !view_.messages().isEmpty(); }, 10000));
  EXPECT_EQ(view_.messages(),
            QStringList{QStringLiteral(
                "Inkscape: nothing selected: select a shape in Inkscape to give it the colour")});
  // Said on the panel, not as a failure line.
  EXPECT_FALSE(log_.text().contains(QStringLiteral("Inkscape:")));
}

TEST_F(PanelInkscapeTest, ASelectedShapeTakesThePenColourWithNothingToSay) {
  windowAction(QStringLiteral("select-all"));
  postPenColour(65, 66, 67);
  ASSERT_TRUE(testing::waitFor([&] { return stats().pushed == 1; }, 10000));
  EXPECT_EQ(stats().confirmed, 1u);
  testing::spin(200);
  EXPECT_TRUE(view_.messages().isEmpty());
}

}  // namespace
}  // namespace tw
