// The panel as a screen reader meets it: the panel in this process with its
// real platform parts on a private Xvfb, Qt's AT-SPI bridge on, a private
// session bus with at-spi2-core's bus launcher and registry on it, and a
// reader in Python (atspi_reader.py, gi.repository Atspi) that walks the
// accessibility tree and listens for name and description changes the way an
// assistive technology does.
#include <gtest/gtest.h>

#include <QApplication>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <memory>

#include "app/AppDelegate.h"
#include "app/desktop/DesktopApplication.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/ViewController_plus.h"
#include "color/ColorStruct.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/LineProcess.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/QtWait.h"
#include "tests/support/TestMain.h"
#include "tests/support/XvfbServer.h"

namespace tw {
namespace {

using testing::waitFor;

// The accessibility bus: at-spi-bus-launcher owns org.a11y.Bus on the
// private session bus, starts the accessibility bus's own daemon (its socket
// under a private XDG_RUNTIME_DIR, not the user's) and the registry with it.
class AccessibilityBus {
 public:
  explicit AccessibilityBus(const testing::PrivateBus& session) {
    if (!runtime_.isValid() || session.address().isEmpty()) return;
    QProcessEnvironment environment = session.environmentWithBus();
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime_.path());
    testing::endWithParent(launcher_);
    launcher_.setProcessEnvironment(environment);
    launcher_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    launcher_.start(QStringLiteral("/usr/libexec/at-spi-bus-launcher"),
                    {QStringLiteral("--launch-immediately")});
    if (!launcher_.waitForStarted(10000)) return;
    // Up once it answers for the bus it made.
    for (int i = 0; i < 100 && address_.isEmpty(); ++i) {
      QProcess ask;
      ask.setProcessEnvironment(environment);
      ask.start(QStringLiteral("dbus-send"),
                {QStringLiteral("--session"), QStringLiteral("--print-reply=literal"),
                 QStringLiteral("--dest=org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                 QStringLiteral("org.a11y.Bus.GetAddress")});
      ask.waitForFinished(5000);
      const QString reply = QString::fromUtf8(ask.readAllStandardOutput()).trimmed();
      if (ask.exitCode() == 0 && reply.startsWith(QStringLiteral("unix:"))) address_ = reply;
      if (address_.isEmpty()) QThread::msleep(100);
    }
  }
  ~AccessibilityBus() {
    launcher_.terminate();
    if (!launcher_.waitForFinished(5000)) {
      launcher_.kill();
      launcher_.waitForFinished(5000);
    }
  }
  AccessibilityBus(const AccessibilityBus&) = delete;
  AccessibilityBus& operator=(const AccessibilityBus&) = delete;

  const QString& address() const { return address_; }
  QString runtimeDir() const { return runtime_.path(); }

 private:
  QTemporaryDir runtime_;
  QProcess launcher_;
  QString address_;
};

// Made before the program's QApplication (Qt's bridge finds the bus as the
// application starts) and ended after it, in the reverse order of making.
struct Environment {
  std::unique_ptr<testing::BridgeSandbox> sandbox;
  std::unique_ptr<testing::XvfbServer> server;
  std::unique_ptr<testing::PrivateBus> session;
  std::unique_ptr<AccessibilityBus> accessibility;
};

Environment& environment() {
  static Environment e;
  return e;
}

TW_BEFORE_APPLICATION([] {
  Environment& e = environment();
  e.server = std::make_unique<testing::XvfbServer>(
      QStringList{QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1024x768x24")});
  if (!e.server->isRunning()) return;
  e.server->run(QStringLiteral("xsetroot"), {QStringLiteral("-solid"), QStringLiteral("#3C7FE0")});
  qputenv("DISPLAY", e.server->display().toUtf8());
  e.session = std::make_unique<testing::PrivateBus>(testing::PrivateBus::Kind::Session);
  e.accessibility = std::make_unique<AccessibilityBus>(*e.session);
  e.session->exportAddress();
  qputenv("XDG_RUNTIME_DIR", e.accessibility->runtimeDir().toUtf8());
  e.sandbox = std::make_unique<testing::BridgeSandbox>();
  e.sandbox->enter();
  qputenv("QT_QPA_PLATFORM", "xcb");
  qunsetenv("WAYLAND_DISPLAY");
  qunsetenv("XDG_SESSION_TYPE");
  qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent");
  qputenv("TINTWELL_TELEMETRY_URL", "https://127.0.0.1:9");
  // Qt's bridge on without a desktop asking for it (org.a11y.Status).
  qputenv("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
  qputenv("QT_ACCESSIBILITY", "1");
});

struct PanelOnScreen {
  AppDelegate delegate;
  ViewController_plus* panel = new ViewController_plus(delegate, desktopPanelParts());
  PanelWindow window{delegate, panel};
};

// One object of the tree as the reader saw it.
struct Node {
  QString role, name, description, text;
  bool focusable = false;
  bool showing = false;
};

class PanelAccessibilityXvfbTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const Environment& e = environment();
    server_ = e.server.get();
    ASSERT_TRUE(server_ && server_->isRunning());
    ASSERT_TRUE(e.accessibility && !e.accessibility->address().isEmpty())
        << "at-spi-bus-launcher gave no accessibility bus";
    QProcessEnvironment env = e.session->environmentWithBus(server_->environment());
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), e.accessibility->runtimeDir());
    reader_ = std::make_unique<testing::LineProcess>(
        QStringLiteral("/usr/bin/python3"),
        QStringList{QStringLiteral(ATSPI_READER), QGuiApplication::applicationDisplayName()}, env);
    ASSERT_TRUE(reader_->waitForLine(QStringLiteral("ready")))
        << reader_->transcript().toStdString();
  }
  void TearDown() override {
    if (reader_ && reader_->running()) {
      reader_->send(QStringLiteral("quit"));
      reader_->finish(5000);
    }
  }

  // Shows the panel and waits for its start-up colour, its window on the
  // screen and the panel in the reader's tree (the bridge has told the
  // registry about it, and heard of the reader's listener).
  void showAndSettle(PanelOnScreen& shown) {
    shown.panel->viewDidLoad();
    shown.window.show();
    ASSERT_TRUE(waitFor([&] { return shown.panel->hexInfo->text() == "#FAFAFA"; }));
    ASSERT_TRUE(
        waitFor([&] { return named(tree(), QStringLiteral("Hex value")) != nullptr; }, 15000))
        << reader_->transcript().toStdString();
    testing::settle();
  }

  // The application's tree as the reader reads it now.
  QList<Node> tree() {
    const qsizetype from = reader_->lines().size();
    reader_->send(QStringLiteral("tree"));
    qsizetype at = -1;
    waitFor(
        [&] {
          at = reader_->indexOfPrefix(QStringLiteral("tree "), from);
          return at >= 0 || reader_->indexOf(QStringLiteral("missing"), from) >= 0;
        },
        15000);
    QList<Node> nodes;
    if (at < 0) return nodes;
    const QJsonArray array =
        QJsonDocument::fromJson(reader_->lines().at(at).mid(5).toUtf8()).array();
    for (const QJsonValue& value : array) {
      const QJsonObject o = value.toObject();
      nodes.append({o[QStringLiteral("role")].toString(), o[QStringLiteral("name")].toString(),
                    o[QStringLiteral("description")].toString(),
                    o[QStringLiteral("text")].toString(), o[QStringLiteral("focusable")].toBool(),
                    o[QStringLiteral("showing")].toBool()});
    }
    return nodes;
  }
  static const Node* named(const QList<Node>& nodes, const QString& name) {
    for (const Node& node : nodes)
      if (node.name == name) return &node;
    return nullptr;
  }

  // How often the reader heard, after line `from`, that the object named
  // `name` changed its description, and read `description` from it then.
  qsizetype timesHeard(qsizetype from, const QString& name, const QString& description) {
    const QStringList lines = reader_->lines();
    qsizetype times = 0;
    for (qsizetype i = from; i < lines.size(); ++i) {
      if (!lines[i].startsWith(QStringLiteral("event "))) continue;
      const QJsonObject o = QJsonDocument::fromJson(lines[i].mid(6).toUtf8()).object();
      if (o[QStringLiteral("type")].toString() ==
              QStringLiteral("object:property-change:accessible-description") &&
          o[QStringLiteral("name")].toString() == name &&
          o[QStringLiteral("description")].toString() == description)
        ++times;
    }
    return times;
  }
  bool heardDescription(qsizetype from, const QString& name, const QString& description) {
    return timesHeard(from, name, description) > 0;
  }

  // What a notation field's description says for the text it shows.
  static QString describing(const QString& text) {
    return text + QStringLiteral(". Enter or Space copies it.");
  }

  void expectAnnounced(qsizetype from, ViewController_plus* panel) {
    const struct {
      const char* name;
      QLineEdit* field;
    } fields[] = {{"Hex value", panel->hexInfo},
                  {"RGB value", panel->rgbInfo},
                  {"CMYK value", panel->cmykInfo},
                  {"HSB value", panel->hsbInfo},
                  {"Lab value", panel->labInfo}};
    for (const auto& f : fields) {
      const QString name = QString::fromLatin1(f.name);
      const QString expected = describing(f.field->text());
      EXPECT_TRUE(waitFor([&] { return heardDescription(from, name, expected); }, 10000))
          << name.toStdString() << ": " << expected.toStdString() << "\n"
          << reader_->transcript().toStdString();
      // And read back from the tree, with the text itself.
      const QList<Node> nodes = tree();
      const Node* node = named(nodes, name);
      ASSERT_NE(node, nullptr) << name.toStdString();
      EXPECT_EQ(node->description, expected);
      EXPECT_EQ(node->text, f.field->text());
    }
  }

  testing::XvfbServer* server_ = nullptr;
  std::unique_ptr<testing::LineProcess> reader_;
};

TEST_F(PanelAccessibilityXvfbTest, ThePanelsControlsAreInTheTreeWithTheirNamesRolesAndFocus) {
  PanelOnScreen shown;
  ASSERT_NO_FATAL_FAILURE(showAndSettle(shown));
  const QList<Node> nodes = tree();
  const struct {
    const char* name;
    const char* role;
  } expected[] = {{"Colour panel", "filler"},
                  {"Pen connection", "push button"},
                  {"Colour swatch", "image"},
                  {"Hex value", "text"},
                  {"RGB value", "text"},
                  {"CMYK value", "text"},
                  {"HSB value", "text"},
                  {"Lab value", "text"},
                  {"Current colour", "push button"},
                  {"Pick from screen", "push button"},
                  {"Colour libraries", "push button"},
                  {"About Tintwell", "push button"}};
  for (const auto& e : expected) {
    const Node* node = named(nodes, QString::fromLatin1(e.name));
    ASSERT_NE(node, nullptr) << e.name << " is not in the tree";
    EXPECT_EQ(node->role, QString::fromLatin1(e.role)) << e.name;
    EXPECT_FALSE(node->description.isEmpty()) << e.name << " has no description";
    EXPECT_TRUE(node->showing) << e.name;
    if (QString::fromLatin1(e.role) != QStringLiteral("filler")) {
      EXPECT_TRUE(node->focusable) << e.name << " cannot take the focus";
    }
  }
  EXPECT_TRUE(named(nodes, QStringLiteral("Pick from screen"))
                  ->description.contains(QStringLiteral("Ctrl+D")));
  // The start-up colour's texts, as shown.
  EXPECT_EQ(named(nodes, QStringLiteral("Hex value"))->text, "#FAFAFA");
  EXPECT_EQ(named(nodes, QStringLiteral("Hex value"))->description, describing("#FAFAFA"));
  EXPECT_EQ(named(nodes, QStringLiteral("RGB value"))->text, "250  250  250");
}

TEST_F(PanelAccessibilityXvfbTest, APenColourIsAnnouncedOnTheHexAndNotationFields) {
  PanelOnScreen shown;
  ASSERT_NO_FATAL_FAILURE(showAndSettle(shown));
  ViewController_plus* panel = shown.panel;
  const qsizetype from = reader_->lines().size();
  // From another thread, as the pen link posts it.
  QThread* pen = QThread::create([] {
    NotificationCenter::defaultCenter().post(
        notification::newColor(), ColorStruct::fromChannels(0x12, 0x34, 0x56),
        UserInfo{{notification::quillaKey(), QStringLiteral("NewColor")}});
  });
  pen->start();
  pen->wait();
  delete pen;
  ASSERT_TRUE(waitFor([&] { return panel->hexInfo->text() == "#123456"; }));
  ASSERT_NO_FATAL_FAILURE(expectAnnounced(from, panel));
  // The same colour shown again (the same pixel picked twice) is said again,
  // though the words are the same. (The reader reads the words when an event
  // comes, so a late event of the start-up colour may read as this colour
  // too: what counts is the one more.)
  testing::spin(500);  // stragglers first
  const qsizetype before = timesHeard(from, QStringLiteral("Hex value"), describing("#123456"));
  panel->showColor(ColorStruct::fromChannels(0x12, 0x34, 0x56));
  EXPECT_TRUE(waitFor(
      [&] {
        return timesHeard(from, QStringLiteral("Hex value"), describing("#123456")) == before + 1;
      },
      10000))
      << reader_->transcript().toStdString();
}

TEST_F(PanelAccessibilityXvfbTest, AScreenPickIsAnnouncedOnTheHexAndNotationFields) {
  PanelOnScreen shown;
  ASSERT_NO_FATAL_FAILURE(showAndSettle(shown));
  ViewController_plus* panel = shown.panel;
  const qsizetype from = reader_->lines().size();
  panel->findScreenColor();
  // A real click on the root window, where the panel had stood.
  QProcess click;
  click.setProcessEnvironment(server_->environment());
  click.start(QStringLiteral("xdotool"),
              {QStringLiteral("mousemove"), QStringLiteral("60"), QStringLiteral("120"),
               QStringLiteral("click"), QStringLiteral("1")});
  ASSERT_TRUE(waitFor([&] { return panel->hexInfo->text() == "#3C7FE0"; }, 15000));
  ASSERT_NO_FATAL_FAILURE(expectAnnounced(from, panel));
  EXPECT_TRUE(heardDescription(from, QStringLiteral("Hex value"), describing("#3C7FE0")));
  EXPECT_TRUE(heardDescription(from, QStringLiteral("RGB value"), describing("60  127  224")));
  click.waitForFinished();
}

}  // namespace
}  // namespace tw
