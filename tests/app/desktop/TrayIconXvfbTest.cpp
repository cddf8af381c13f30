// The tray icon as a desktop's tray sees it: the panel in this process on a
// private Xvfb with the xcb platform, the fake BlueZ on a private system bus
// with a connected pen, and a stand-in StatusNotifierWatcher on a private
// session bus. Qt then offers the icon as a StatusNotifierItem; the test
// reads its properties and its menu (com.canonical.dbusmenu) over the bus as
// a tray would.
#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDateTime>
#include <QMenu>
#include <QProcess>
#include <QSystemTrayIcon>
#include <memory>

#include "app/AppDelegate.h"
#include "app/Preferences.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/TrayIcon.h"
#include "app/desktop/ViewController_plus.h"
#include "bridge/AlertPresenter.h"
#include "bridge/HostDescription.h"
#include "bridge/RunningApplications.h"
#include "tests/app/desktop/PanelOnFakes.h"
#include "tests/color/ScreenPickTestSupport.h"
#include "tests/pen/FakeBluezProcess.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/QtWait.h"
#include "tests/support/TestMain.h"
#include "tests/support/XvfbServer.h"

namespace tw {
namespace {

using testing::FakeBluez;
using testing::waitFor;

const QString kA = QStringLiteral("AA:BB:CC:DD:EE:01");
const QString kItemInterface = QStringLiteral("org.kde.StatusNotifierItem");

// Made before the application and ended after it (static objects end after
// main's application): the watcher, then the buses, then the X server.
struct Environment {
  std::unique_ptr<testing::XvfbServer> server;
  std::unique_ptr<testing::PrivateBus> system;
  std::unique_ptr<testing::PrivateBus> session;
  std::unique_ptr<QProcess> watcher;
  bool watcherReady = false;
  ~Environment() {
    if (watcher) {
      watcher->closeWriteChannel();
      if (!watcher->waitForFinished(3000)) watcher->kill();
      watcher->waitForFinished(3000);
    }
  }
};

Environment& environment() {
  static Environment e;
  return e;
}

TW_BEFORE_APPLICATION([] {
  // The battery's first read shows 30 ms after connecting.
  qputenv("TINTWELL_TIME_SCALE", "0.01");
  Environment& e = environment();
  e.server = std::make_unique<testing::XvfbServer>();
  if (!e.server->isRunning()) return;
  e.system = std::make_unique<testing::PrivateBus>(testing::PrivateBus::Kind::System);
  e.session = std::make_unique<testing::PrivateBus>(testing::PrivateBus::Kind::Session);
  e.system->exportAddress();
  e.session->exportAddress();
  e.watcher = std::make_unique<QProcess>();
  e.watcher->setProcessEnvironment(e.session->environmentWithBus());
  e.watcher->setProcessChannelMode(QProcess::ForwardedErrorChannel);
  e.watcher->start(QStringLiteral(FAKE_WATCHER_PATH), {});
  e.watcher->waitForReadyRead(10000);
  e.watcherReady = e.watcher->readLine().trimmed() == "ready";
  qputenv("DISPLAY", e.server->display().toUtf8());
  qputenv("QT_QPA_PLATFORM", "xcb");
  // The generic desktop: its platform theme offers the bus's tray.
  qunsetenv("XDG_CURRENT_DESKTOP");
  qunsetenv("DESKTOP_SESSION");
  qunsetenv("KDE_FULL_SESSION");
  qunsetenv("GNOME_DESKTOP_SESSION_ID");
  qunsetenv("WAYLAND_DISPLAY");
  qunsetenv("XDG_SESSION_TYPE");
});

using testing::IdleTransport;

// One property of the item, asked the way a tray asks, while this process's
// loop keeps serving the item.
QVariant itemProperty(const QString& service, const QString& name) {
  QDBusMessage get = QDBusMessage::createMethodCall(
      service, QStringLiteral("/StatusNotifierItem"),
      QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
  get << kItemInterface << name;
  const QDBusMessage reply = QDBusConnection::sessionBus().call(get, QDBus::BlockWithGui, 5000);
  if (reply.type() != QDBusMessage::ReplyMessage) return {};
  return reply.arguments().value(0).value<QDBusVariant>().variant();
}

struct ToolTip {
  QString title;
  QString text;
};

// (sa(iiay)ss): icon name, pixmaps, title, text.
ToolTip readToolTip(const QVariant& value) {
  ToolTip tip;
  const auto argument = value.value<QDBusArgument>();
  argument.beginStructure();
  QString iconName;
  argument >> iconName;
  argument.beginArray();
  while (!argument.atEnd()) {
    int w = 0, h = 0;
    QByteArray bytes;
    argument.beginStructure();
    argument >> w >> h >> bytes;
    argument.endStructure();
  }
  argument.endArray();
  argument >> tip.title >> tip.text;
  argument.endStructure();
  return tip;
}

// a(iiay), ARGB32 in network order: the middle pixel of the largest image.
QColor iconCentre(const QVariant& value) {
  const auto argument = value.value<QDBusArgument>();
  int bestW = 0, bestH = 0;
  QByteArray best;
  argument.beginArray();
  while (!argument.atEnd()) {
    int w = 0, h = 0;
    QByteArray bytes;
    argument.beginStructure();
    argument >> w >> h >> bytes;
    argument.endStructure();
    if (w > bestW && bytes.size() == qsizetype(w) * h * 4) {
      bestW = w;
      bestH = h;
      best = bytes;
    }
  }
  argument.endArray();
  if (best.isEmpty()) return {};
  const qsizetype at = (qsizetype(bestH / 2) * bestW + bestW / 2) * 4;
  const auto byte = [&](qsizetype i) { return int(quint8(best.at(at + i))); };
  return QColor(byte(1), byte(2), byte(3), byte(0));
}

struct MenuEntry {
  int id = 0;
  QString label;  // "-" for a separator
};

// A dbusmenu layout (ia{sv}av): its children's ids and labels, in order.
void readLayout(const QDBusArgument& argument, QList<MenuEntry>& entries, bool top) {
  int id = 0;
  QVariantMap properties;
  argument.beginStructure();
  argument >> id >> properties;
  if (!top) {
    const bool separator =
        properties.value(QStringLiteral("type")).toString() == QLatin1String("separator");
    const bool visible = properties.value(QStringLiteral("visible"), true).toBool();
    if (visible)
      entries << MenuEntry{id, separator ? QStringLiteral("-")
                                         : properties.value(QStringLiteral("label")).toString()};
  }
  argument.beginArray();
  while (!argument.atEnd()) {
    QDBusVariant child;
    argument >> child;
    if (top) readLayout(child.variant().value<QDBusArgument>(), entries, false);
  }
  argument.endArray();
  argument.endStructure();
}

QList<MenuEntry> menuEntries(const QString& service, const QString& path) {
  QDBusMessage get = QDBusMessage::createMethodCall(
      service, path, QStringLiteral("com.canonical.dbusmenu"), QStringLiteral("GetLayout"));
  get << 0 << -1 << QStringList();
  const QDBusMessage reply = QDBusConnection::sessionBus().call(get, QDBus::BlockWithGui, 5000);
  QList<MenuEntry> entries;
  if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() < 2) return entries;
  readLayout(reply.arguments().value(1).value<QDBusArgument>(), entries, true);
  return entries;
}

class TrayIconXvfbTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Environment& e = environment();
    ASSERT_TRUE(e.server && e.server->isRunning());
    ASSERT_TRUE(e.watcherReady);
    ASSERT_TRUE(home_.isValid());
    home_.enter();
    fake_ = std::make_unique<FakeBluez>(e.system->address());
    ASSERT_TRUE(fake_->ready());
  }
  void TearDown() override {
    window_.reset();
    fake_.reset();
  }
  void start(bool trayShown) {
    Preferences preferences;
    preferences.setShowTrayIcon(trayShown);
    preferences.setNotificationsEnabled(false);
    preferences.save();
    fake_->addAdapter(QStringLiteral("hci0"));
    fake_->addDevice(
        kA, QVariantMap{{QStringLiteral("connected"), true}, {QStringLiteral("level"), 80}});
    panel_ = testing::showPanel(
        delegate_,
        testing::panelPartsOnFakes(pen::platformCentralFactory(), monitor_, pointer_, sampler_),
        window_);
  }
  // The item's bus name, from the watcher's "Registered" line.
  QString registeredItem() {
    QProcess& watcher = *environment().watcher;
    QString service;
    waitFor([&] {
      // Started before the application: its output is read by waiting.
      watcher.waitForReadyRead(20);
      while (watcher.canReadLine()) {
        const QStringList words = QString::fromUtf8(watcher.readLine()).trimmed().split(u' ');
        if (words.value(0) == QLatin1String("Registered"))
          service = words.value(1).startsWith(u'/') ? words.value(2) : words.value(1);
      }
      return !service.isEmpty();
    });
    return service;
  }

  testing::LogCapture log_;
  testing::BridgeSandbox home_;
  std::unique_ptr<FakeBluez> fake_;
  AppDelegate delegate_;
  std::shared_ptr<testing::FakeClickMonitor> monitor_ =
      std::make_shared<testing::FakeClickMonitor>();
  std::shared_ptr<testing::FakePointer> pointer_ = std::make_shared<testing::FakePointer>();
  std::shared_ptr<testing::FakeSampler> sampler_ = std::make_shared<testing::FakeSampler>();
  ViewController_plus* panel_ = nullptr;  // owned by the window
  std::unique_ptr<PanelWindow> window_;
};

TEST_F(TrayIconXvfbTest, TheItemRegistersAndShowsColourConnectionBatteryAndTheMenu) {
  start(true);
  ASSERT_TRUE(QSystemTrayIcon::isSystemTrayAvailable());
  const QString service = registeredItem();
  ASSERT_FALSE(service.isEmpty());

  // The pen connects, its battery is read, and it sends #FF8C1A.
  ASSERT_TRUE(waitFor([&] { return panel_->batteryLevel() == 80; }));
  ASSERT_TRUE(waitFor([&] { return fake_->sendColor(kA, QByteArray("\x01\xFF\x8C\x1A", 4)); }));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#FF8C1A"; }));

  ToolTip tip;
  EXPECT_TRUE(waitFor([&] {
    tip = readToolTip(itemProperty(service, QStringLiteral("ToolTip")));
    return tip.title == QLatin1String("Tintwell\nPen connected, battery 80 %");
  })) << tip.title.toStdString();
  QColor centre;
  EXPECT_TRUE(waitFor([&] {
    centre = iconCentre(itemProperty(service, QStringLiteral("IconPixmap")));
    return centre == QColor(0xFF, 0x8C, 0x1A);
  })) << centre.name(QColor::HexArgb).toStdString();

  // The pen goes: the tooltip says so and drops the battery.
  fake_->call(QStringLiteral("Disconnect"), {kA});
  EXPECT_TRUE(waitFor([&] {
    tip = readToolTip(itemProperty(service, QStringLiteral("ToolTip")));
    return tip.title == QLatin1String("Tintwell\nPen disconnected");
  })) << tip.title.toStdString();

  const QString menuPath =
      itemProperty(service, QStringLiteral("Menu")).value<QDBusObjectPath>().path();
  ASSERT_FALSE(menuPath.isEmpty());
  QStringList labels;
  QList<MenuEntry> entries;
  EXPECT_TRUE(waitFor([&] {
    entries = menuEntries(service, menuPath);
    labels.clear();
    for (const MenuEntry& entry : entries) labels << entry.label;
    return labels.size() == 6;
  })) << labels.join(u',').toStdString();
  EXPECT_EQ(labels, (QStringList{QStringLiteral("Pick from Screen"), QStringLiteral("History…"),
                                 QStringLiteral("Preferences…"), QStringLiteral("Reconnect"),
                                 QStringLiteral("-"), QStringLiteral("Quit")}));

  // Quit from the tray's menu starts the panel's own quit handshake (which
  // then waits for the sender: a colour was counted).
  ASSERT_FALSE(entries.isEmpty());
  ASSERT_FALSE(log_.text().contains(QStringLiteral("i am in applicationShouldTerminate ~")));
  QDBusMessage click = QDBusMessage::createMethodCall(
      service, menuPath, QStringLiteral("com.canonical.dbusmenu"), QStringLiteral("Event"));
  click << entries.last().id << QStringLiteral("clicked")
        << QVariant::fromValue(QDBusVariant(QVariant(0)))
        << uint(QDateTime::currentSecsSinceEpoch());
  QDBusConnection::sessionBus().call(click, QDBus::BlockWithGui, 5000);
  EXPECT_TRUE(log_.waitForLine(QStringLiteral("i am in applicationShouldTerminate ~")));
}

TEST_F(TrayIconXvfbTest, OffByDefaultAndFollowsThePreference) {
  start(false);
  EXPECT_EQ(window_->trayIcon().icon(), nullptr);
  Preferences on = panel_->logic().preferences();
  on.setShowTrayIcon(true);
  panel_->logic().applyPreferences(on);
  ASSERT_NE(window_->trayIcon().icon(), nullptr);
  EXPECT_TRUE(window_->trayIcon().isShown());
  EXPECT_FALSE(registeredItem().isEmpty());
  Preferences off = on;
  off.setShowTrayIcon(false);
  panel_->logic().applyPreferences(off);
  EXPECT_FALSE(window_->trayIcon().isShown());
}

}  // namespace
}  // namespace tw
