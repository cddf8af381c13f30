// The colour history as the panel keeps it and the history window shows it,
// on the offscreen platform, with a real SQLite file in a sandboxed data
// folder: what is stored (and what is not), what survives a new panel, the
// window's search, star, rename, delete, difference, drag, re-push, export
// and import, the recent-colour buttons, a damaged database, the colour
// names on the panel and in the history, and the palette file kept in a
// design application's palette folder.
#include "app/desktop/HistoryWindow.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QMimeData>
#include <QSettings>
#include <QTest>
#include <mutex>

#include "app/AppDelegate.h"
#include "app/PaletteFollower.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/PreferencesDialog.h"
#include "app/desktop/ViewController_plus.h"
#include "bridge/HostDispatcher.h"
#include "bridge/RunningApplications.h"
#include "events/Notifications.h"
#include "library/dialog/VCPantonePicker.h"
#include "library/names/NameLibraries.h"
#include "library/palette/PaletteFolders.h"
#include "tests/color/ScreenPickTestSupport.h"
#include "tests/pen/simulated/SimulatedCentral.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/IdleTransport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/QtWait.h"
#include "tests/support/TestMain.h"

namespace tw {
namespace {

using testing::waitFor;

using testing::IdleTransport;

// Takes every colour and keeps it.
class RecordingHost : public DesignHost {
 public:
  QString key() const override { return QStringLiteral("gimp"); }
  QString displayName() const override { return QStringLiteral("GIMP"); }
  bool isHostProcess(const RunningApplication& application) const override {
    return application.localizedName == QLatin1String("gimp");
  }
  PushOutcome push(const HostColor& color, std::chrono::milliseconds) override {
    std::lock_guard lock(mutex);
    pushes.push_back(color);
    return {PushStatus::Confirmed, {}};
  }
  std::optional<HostColor> readBack(std::chrono::milliseconds) override { return {}; }
  std::vector<HostColor> received() {
    std::lock_guard lock(mutex);
    return pushes;
  }
  std::mutex mutex;
  std::vector<HostColor> pushes;
};

class HistoryWindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(home_.isValid());
    home_.enter();
  }
  void TearDown() override { stop(); }

  QString databasePath() const {
    return home_.filePath(QStringLiteral("data/Tintwell/history.sqlite"));
  }
  QString settingsPath() const {
    return home_.filePath(QStringLiteral("config/Orlo/Tintwell.conf"));
  }
  void writeSettings(const QByteArray& text) {
    QDir().mkpath(home_.filePath(QStringLiteral("config/Orlo")));
    QFile file(settingsPath());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
  }

  void start() {
    PanelParts parts;
    parts.central = [](pen::CentralDelegate* d, QThread* q) {
      return std::make_unique<pen::SimulatedCentral>(d, q, pen::CentralManager::kPoweredOff);
    };
    parts.host = std::make_shared<WineHostDescription>(
        std::make_shared<FixedApplicationLister>(std::vector<RunningApplication>{
            {QStringLiteral("gimp"), QStringLiteral("/usr/bin/gimp")}}));
    parts.alerts = std::make_shared<SilentAlertPresenter>();
    parts.transport = std::make_shared<IdleTransport>();
    parts.colorHelper = [this] {
      return std::make_unique<ColorHelper>(ScreenBackend{monitor_, pointer_, sampler_});
    };
    parts.nativeHosts = [this] {
      std::vector<std::unique_ptr<DesignHost>> hosts;
      auto host = std::make_unique<RecordingHost>();
      gimp_ = host.get();
      hosts.push_back(std::move(host));
      return hosts;
    };
    parts.history = openDefaultHistory;
    panel_ = new ViewController_plus(delegate_, std::move(parts));
    window_ = std::make_unique<PanelWindow>(delegate_, panel_);
    panel_->viewDidLoad();
    window_->show();
    ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#FAFAFA"; }));
  }
  void stop() {
    window_.reset();
    panel_ = nullptr;
    gimp_ = nullptr;
  }

  void postPenColour(int r, int g, int b) {
    NotificationCenter::defaultCenter().post(
        notification::newColor(), ColorStruct::fromChannels(r, g, b),
        UserInfo{{notification::quillaKey(), QStringLiteral("NewColor")}});
  }
  void postScreenColour(int r, int g, int b) {
    NotificationCenter::defaultCenter().post(
        notification::newColor(), ColorStruct::fromChannels(r, g, b),
        UserInfo{{notification::quillaKey(), QStringLiteral("NewScreenColor")}});
  }
  std::shared_ptr<history::HistoryStore> store() const { return panel_->logic().history(); }
  // Every colour in the file, newest first, read by a store of its own.
  std::vector<history::Entry> onDisk() const {
    history::HistoryStore::Options options;
    options.path = databasePath();
    options.readOnly = true;
    history::HistoryStore reader(options);
    return reader.entries();
  }
  static QString hexes(const std::vector<history::Entry>& entries) {
    QStringList list;
    for (const auto& e : entries)
      list << QStringLiteral("%1%2%3")
                  .arg(e.red, 2, 16, QLatin1Char('0'))
                  .arg(e.green, 2, 16, QLatin1Char('0'))
                  .arg(e.blue, 2, 16, QLatin1Char('0'))
                  .toUpper();
    return list.join(u' ');
  }
  HistoryWindow* openWithKeys() {
    window_->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowActive(window_.get()));
    QTest::keyClick(window_.get(), Qt::Key_H, Qt::ControlModifier);
    EXPECT_TRUE(waitFor([&] { return panel_->historyWindow() != nullptr; }));
    return panel_->historyWindow();
  }
  QStringList shownHexes(HistoryWindow* window) const {
    QStringList list;
    for (int row = 0; row < window->model().rowCount(); ++row)
      list << window->model().index(row, HistoryModel::Colour).data().toString();
    return list;
  }

  testing::LogCapture log_;
  testing::BridgeSandbox home_;
  AppDelegate delegate_;
  std::shared_ptr<testing::FakeClickMonitor> monitor_ =
      std::make_shared<testing::FakeClickMonitor>();
  std::shared_ptr<testing::FakePointer> pointer_ = std::make_shared<testing::FakePointer>();
  std::shared_ptr<testing::FakeSampler> sampler_ = std::make_shared<testing::FakeSampler>();
  RecordingHost* gimp_ = nullptr;         // owned by the dispatcher
  ViewController_plus* panel_ = nullptr;  // owned by the window
  std::unique_ptr<PanelWindow> window_;
};

TEST_F(HistoryWindowTest, AcceptedColoursAreStoredWithTheirSourceButNotTheStartUpColourOrARepeat) {
  start();
  postPenColour(18, 52, 86);
  postPenColour(18, 52, 86);  // a repeat: shown, not stored
  postScreenColour(200, 10, 20);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#C80A14"; }));
  ASSERT_TRUE(store()->flush());
  const std::vector<history::Entry> entries = onDisk();
  EXPECT_EQ(hexes(entries), "C80A14 123456");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].source, history::Source::Screen);
  EXPECT_EQ(entries[1].source, history::Source::Pen);
  EXPECT_GE(entries[0].timeMs, entries[1].timeMs);
  // The panel's lines are as they always were.
  EXPECT_TRUE(log_.inOrder({"FAFAFA", "123456", "123456", "C80A14"}));
}

TEST_F(HistoryWindowTest, TheHistorySurvivesANewPanel) {
  start();
  postPenColour(1, 2, 3);
  postPenColour(4, 5, 6);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#040506"; }));
  stop();
  start();
  HistoryWindow* window = openWithKeys();
  ASSERT_NE(window, nullptr);
  EXPECT_EQ(shownHexes(window), (QStringList{"#040506", "#010203"}));
}

TEST_F(HistoryWindowTest, WithTheHistorySwitchedOffNothingIsStored) {
  writeSettings("[history]\nenabled=false\n");
  start();
  postPenColour(1, 2, 3);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#010203"; }));
  QTest::qWait(100);
  EXPECT_EQ(store(), nullptr);
  EXPECT_FALSE(QFile::exists(databasePath()));
}

TEST_F(HistoryWindowTest, CtrlHOpensOneWindowThatFollowsNewColoursNewestFirst) {
  start();
  postPenColour(1, 2, 3);
  HistoryWindow* window = openWithKeys();
  ASSERT_NE(window, nullptr);
  EXPECT_TRUE(window->isVisible());
  ASSERT_TRUE(waitFor([&] { return window->model().rowCount() == 1; }));
  postPenColour(10, 20, 30);
  ASSERT_TRUE(waitFor([&] { return window->model().rowCount() == 2; }));
  EXPECT_EQ(shownHexes(window), (QStringList{"#0A141E", "#010203"}));
  const QModelIndex first = window->model().index(0, HistoryModel::Rgb);
  EXPECT_EQ(first.data().toString(), "10  20  30");
  EXPECT_EQ(window->model().index(0, HistoryModel::Source).data().toString(), "pen");
  QTest::keyClick(window_.get(), Qt::Key_H, Qt::ControlModifier);
  EXPECT_EQ(panel_->historyWindow(), window);
}

TEST_F(HistoryWindowTest, SearchFindsByHexWithOrWithoutHashAndByTheUsersOwnName) {
  start();
  postPenColour(0xAB, 0xCD, 0xEF);
  postPenColour(0xAB, 0x00, 0x00);
  postPenColour(0x12, 0x34, 0x56);
  HistoryWindow* window = openWithKeys();
  ASSERT_TRUE(waitFor([&] { return window->model().rowCount() == 3; }));
  window->searchField()->setText("#ab");
  EXPECT_EQ(shownHexes(window), (QStringList{"#AB0000", "#ABCDEF"}));
  window->searchField()->setText("abcd");
  EXPECT_EQ(shownHexes(window), (QStringList{"#ABCDEF"}));
  window->searchField()->setText("");
  EXPECT_EQ(window->model().rowCount(), 3);
  // Rename the last one by editing its name.
  const QModelIndex name = window->model().index(0, HistoryModel::Name);
  ASSERT_TRUE(window->model().setData(name, QStringLiteral("Sea at dusk")));
  window->searchField()->setText("DUSK");
  EXPECT_EQ(shownHexes(window), (QStringList{"#123456"}));
  EXPECT_EQ(onDisk().front().alias, "Sea at dusk");
}

TEST_F(HistoryWindowTest, StarAndDeleteReachTheDatabase) {
  start();
  postPenColour(1, 1, 1);
  postPenColour(2, 2, 2);
  postPenColour(3, 3, 3);
  HistoryWindow* window = openWithKeys();
  ASSERT_TRUE(waitFor([&] { return window->model().rowCount() == 3; }));
  window->table()->selectRow(1);
  window->toggleStarOnSelection();
  EXPECT_EQ(window->model().index(1, HistoryModel::Star).data().toString(), "★");
  std::vector<history::Entry> disk = onDisk();
  ASSERT_EQ(disk.size(), 3u);
  EXPECT_TRUE(disk[1].starred);
  EXPECT_FALSE(disk[0].starred);

  window->table()->clearSelection();
  window->table()->selectRow(0);
  // The window's Delete key.
  QAction* remove = nullptr;
  for (QAction* action : window->actions())
    if (action->shortcut() == QKeySequence(QKeySequence::Delete)) remove = action;
  ASSERT_NE(remove, nullptr);
  remove->trigger();
  EXPECT_EQ(shownHexes(window), (QStringList{"#020202", "#010101"}));
  EXPECT_EQ(hexes(onDisk()), "020202 010101");
}

TEST_F(HistoryWindowTest, TwoSelectedColoursShowTheirCiede2000Difference) {
  start();
  postPenColour(0xA1, 0xB2, 0xC3);
  postScreenColour(0xA0, 0xB4, 0xC0);
  HistoryWindow* window = openWithKeys();
  ASSERT_TRUE(waitFor([&] { return window->model().rowCount() == 2; }));
  window->table()->selectAll();
  const std::vector<history::Entry> selected = window->selectedEntries();
  ASSERT_EQ(selected.size(), 2u);
  const double expected = deltaE2000(labOfSRGB8(0xA0, 0xB4, 0xC0), labOfSRGB8(0xA1, 0xB2, 0xC3));
  EXPECT_EQ(window->statusLine()->text(),
            QStringLiteral("ΔE00 %1 between #A0B4C0 (screen) and #A1B2C3 (pen)")
                .arg(expected, 0, 'f', 2));
  EXPECT_GT(expected, 0.5);
  EXPECT_LT(expected, 5.0);
}

TEST_F(HistoryWindowTest, AClickOnASwatchSendsTheColourAgainAndLeavesThePanelAsItWas) {
  start();
  postPenColour(1, 2, 3);
  postPenColour(4, 5, 6);
  // A busy host gets the newest colour only, so the first may be skipped.
  ASSERT_TRUE(waitFor([&] {
    return !gimp_->received().empty() && gimp_->received().back() == HostColor{4, 5, 6};
  }));
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#040506"; }));
  const std::size_t before = gimp_->received().size();
  HistoryWindow* window = openWithKeys();
  ASSERT_TRUE(waitFor([&] { return window->model().rowCount() == 2; }));
  const QRect swatch = window->table()->visualRect(window->model().index(1, HistoryModel::Colour));
  QTest::mouseClick(window->table()->viewport(), Qt::LeftButton, {}, swatch.center());
  ASSERT_TRUE(waitFor([&] { return gimp_->received().size() == before + 1; }));
  EXPECT_EQ(gimp_->received().back(), (HostColor{1, 2, 3}));
  EXPECT_EQ(window->messageLine()->text(), "#010203 sent to the design applications");
  EXPECT_EQ(window->statusLine()->text(), "#010203");
  EXPECT_EQ(panel_->hexInfo->text(), "#040506");
  EXPECT_EQ(panel_->logic().commander().newColor().colorHex, "040506");
  // Not a new colour: nothing stored, and the repeat check still knows 4, 5, 6.
  postPenColour(4, 5, 6);
  QTest::qWait(200);
  EXPECT_EQ(gimp_->received().size(), before + 1);
  ASSERT_TRUE(store()->flush());
  EXPECT_EQ(onDisk().size(), 2u);
}

TEST_F(HistoryWindowTest, DraggedRowsCarryTheColourAndTheirHexes) {
  start();
  postPenColour(0x11, 0x22, 0x33);
  postPenColour(0x44, 0x55, 0x66);
  HistoryWindow* window = openWithKeys();
  ASSERT_TRUE(waitFor([&] { return window->model().rowCount() == 2; }));
  std::unique_ptr<QMimeData> data(window->model().mimeData(
      {window->model().index(1, 0), window->model().index(0, 3), window->model().index(0, 0)}));
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(qvariant_cast<QColor>(data->colorData()), QColor(0x44, 0x55, 0x66));
  EXPECT_EQ(data->text(), "#445566\n#112233");
  EXPECT_TRUE(window->model().flags(window->model().index(0, 0)) & Qt::ItemIsDragEnabled);
}

TEST_F(HistoryWindowTest, AnExportedPaletteImportsBackWithItsNames) {
  start();
  postPenColour(0x11, 0x22, 0x33);
  postPenColour(0x44, 0x55, 0x66);
  HistoryWindow* window = openWithKeys();
  ASSERT_TRUE(waitFor([&] { return window->model().rowCount() == 2; }));
  ASSERT_TRUE(window->model().setData(window->model().index(0, HistoryModel::Name), "Slate"));
  const QString file = home_.filePath(QStringLiteral("out.gpl"));
  ASSERT_TRUE(window->exportTo(file, palette::Format::Gpl));
  QFile written(file);
  ASSERT_TRUE(written.open(QIODevice::ReadOnly));
  const QByteArray text = written.readAll();
  EXPECT_TRUE(text.startsWith("GIMP Palette\n")) << text.toStdString();
  EXPECT_TRUE(text.contains("Slate")) << text.toStdString();
  EXPECT_TRUE(text.contains("#112233")) << text.toStdString();

  EXPECT_EQ(window->importFrom(file), 2);
  EXPECT_EQ(window->model().totalCount(), 4);
  const std::vector<history::Entry> disk = onDisk();
  int imported = 0;
  for (const auto& entry : disk) {
    if (entry.source != history::Source::Imported) continue;
    ++imported;
    EXPECT_EQ(entry.alias, entry.red == 0x44 ? QStringLiteral("Slate") : QString());
  }
  EXPECT_EQ(imported, 2);
}

TEST_F(HistoryWindowTest, RecentColourButtonsStayHiddenUnlessTheirOptionIsOn) {
  start();
  for (int i = 1; i <= 5; ++i) postPenColour(i, i, i);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#050505"; }));
  EXPECT_FALSE(panel_->btnColor1->isVisible());
  EXPECT_FALSE(panel_->btnColor4->isVisible());

  Preferences preferences = panel_->logic().preferences();
  preferences.setShowRecentColors(true);
  panel_->logic().applyPreferences(preferences);
  EXPECT_TRUE(panel_->btnColor1->isVisible());
  EXPECT_TRUE(panel_->btnColor4->isVisible());
  EXPECT_FALSE(panel_->btnSelectedBtn->isVisible());
  EXPECT_EQ(panel_->btnColor1->accessibleName(), "Recent colour #050505");
  EXPECT_EQ(panel_->btnColor4->accessibleName(), "Recent colour #020202");
  postPenColour(9, 9, 9);
  ASSERT_TRUE(
      waitFor([&] { return panel_->btnColor1->accessibleName() == "Recent colour #090909"; }));
  EXPECT_EQ(panel_->btnColor2->accessibleName(), "Recent colour #050505");

  // A click sends it again.
  ASSERT_TRUE(waitFor([&] {
    return !gimp_->received().empty() && gimp_->received().back() == HostColor{9, 9, 9};
  }));
  const std::size_t before = gimp_->received().size();
  panel_->btnColor2->click();
  ASSERT_TRUE(waitFor([&] { return gimp_->received().size() == before + 1; }));
  EXPECT_EQ(gimp_->received().back(), (HostColor{5, 5, 5}));

  preferences.setShowRecentColors(false);
  panel_->logic().applyPreferences(preferences);
  EXPECT_FALSE(panel_->btnColor1->isVisible());
}

TEST_F(HistoryWindowTest, RecentColourButtonsStartWithTheHistorysNewestColours) {
  start();
  for (int i = 1; i <= 6; ++i) postPenColour(i, 0, 0);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#060000"; }));
  ASSERT_TRUE(store()->flush());
  stop();
  writeSettings("[history]\nrecent=true\n");
  start();
  EXPECT_TRUE(panel_->btnColor4->isVisible());
  EXPECT_EQ(panel_->btnColor1->accessibleName(), "Recent colour #060000");
  EXPECT_EQ(panel_->btnColor4->accessibleName(), "Recent colour #030000");
}

TEST_F(HistoryWindowTest, ADamagedDatabaseIsSetAsideReportedOnceAndThePanelGoesOn) {
  QDir().mkpath(QFileInfo(databasePath()).path());
  {
    QFile file(databasePath());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(8192, '\x5a'));
  }
  start();
  postPenColour(1, 2, 3);
  postPenColour(4, 5, 6);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#040506"; }));
  ASSERT_TRUE(store()->flush());
  ASSERT_TRUE(waitFor([&] { return panel_->hostMessage->isVisible(); }));
  EXPECT_TRUE(panel_->hostMessage->text().startsWith("History: "))
      << panel_->hostMessage->text().toStdString();
  EXPECT_FALSE(store()->setAsidePath().isEmpty());
  QFile aside(store()->setAsidePath());
  ASSERT_TRUE(aside.open(QIODevice::ReadOnly));
  EXPECT_EQ(aside.readAll(), QByteArray(8192, '\x5a'));
  EXPECT_EQ(hexes(onDisk()), "040506 010203");
}

TEST_F(HistoryWindowTest, ThePreferencesWindowSwitchesTheHistoryOptions) {
  start();
  panel_->showPreferences();
  PreferencesDialog* dialog = panel_->preferencesDialog();
  ASSERT_NE(dialog, nullptr);
  EXPECT_TRUE(dialog->historyBox()->isChecked());
  EXPECT_FALSE(dialog->recentBox()->isChecked());
  EXPECT_FALSE(dialog->paletteFilesBox()->isChecked());
  EXPECT_FALSE(dialog->namesBox()->isChecked());
  dialog->recentBox()->click();
  EXPECT_TRUE(panel_->logic().preferences().showRecentColors());
  EXPECT_EQ(QSettings(settingsPath(), QSettings::IniFormat).value("history/recent").toString(),
            "true");
  dialog->historyBox()->click();
  postPenColour(7, 7, 7);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#070707"; }));
  ASSERT_TRUE(store()->flush());
  EXPECT_TRUE(onDisk().empty());
}

TEST_F(HistoryWindowTest, ColourNamesStayOffByDefaultAndALibraryChoiceShowsNothing) {
  start();
  postPenColour(255, 99, 71);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#FF6347"; }));
  EXPECT_FALSE(panel_->colorName->isVisible());
  EXPECT_TRUE(panel_->colorName->text().isEmpty());
  NotificationCenter::defaultCenter().post(
      notification::colorLibraryChanged(), qint64{1},
      UserInfo{{QStringLiteral("Library"), QStringLiteral("Changed")}});
  EXPECT_EQ(panel_->logic().preferences().nameLibrary(), 1);
  EXPECT_FALSE(panel_->colorName->isVisible());
  EXPECT_TRUE(panel_->colorName->text().isEmpty());
  EXPECT_EQ(QSettings(settingsPath(), QSettings::IniFormat).value("names/library").toString(), "1");
}

TEST_F(HistoryWindowTest, WithNamesOnThePanelNamesEachColourFromTheChosenLibrary) {
  writeSettings("[names]\nshow=true\n");
  start();
  postPenColour(255, 99, 71);
  ASSERT_TRUE(waitFor([&] { return panel_->colorName->text() == "tomato · ΔE00 0.0"; }))
      << panel_->colorName->text().toStdString();
  EXPECT_TRUE(panel_->colorName->isVisible());
  postPenColour(0, 128, 0);
  ASSERT_TRUE(waitFor([&] { return panel_->colorName->text() == "green · ΔE00 0.0"; }));

  // The library dialog's second row: the X11 names, where green is 0, 255, 0.
  auto* dialog = new VCPantonePicker(panel_);
  dialog->show();
  dialog->pantoneCombobox()->setCurrentIndex(1);
  Q_EMIT dialog->pantoneCombobox()->activated(1);
  const auto x11 = names::NameLibraries().library(1);
  ASSERT_TRUE(x11.has_value());
  const names::NameMatch expected = x11->nearest(0, 128, 0).front();
  EXPECT_NE(expected.entry.name, "green");
  EXPECT_EQ(panel_->colorName->text(), PanelLogic::nameText(expected));
  EXPECT_EQ(panel_->logic().preferences().nameLibrary(), 1);

  // And off again: the field goes.
  Preferences preferences = panel_->logic().preferences();
  preferences.setShowColorNames(false);
  panel_->logic().applyPreferences(preferences);
  EXPECT_FALSE(panel_->colorName->isVisible());
}

TEST_F(HistoryWindowTest, TheHistoryNamesColoursFromTheChosenLibraryEvenWithThePanelsNamesOff) {
  start();
  postPenColour(255, 99, 71);
  HistoryWindow* window = openWithKeys();
  ASSERT_TRUE(waitFor([&] { return window->model().rowCount() == 1; }));
  EXPECT_EQ(window->model().index(0, HistoryModel::Name).data().toString(), "tomato (ΔE00 0.0)");
  ASSERT_TRUE(window->model().setData(window->model().index(0, HistoryModel::Name), "Brick"));
  EXPECT_EQ(window->model().index(0, HistoryModel::Name).data().toString(),
            "Brick · tomato (ΔE00 0.0)");
  ASSERT_TRUE(waitFor([&] { return window->model().namesReady(); }));
  window->searchField()->setText("TOMA");
  EXPECT_EQ(window->model().rowCount(), 1);
  window->searchField()->setText("lavender");
  EXPECT_EQ(window->model().rowCount(), 0);
}

TEST_F(HistoryWindowTest, ASearchByNameFindsColoursNamedOnTheNamingThreadAndHashMeansHex) {
  start();
  postPenColour(255, 99, 71);    // tomato
  postPenColour(250, 128, 114);  // salmon
  postPenColour(0xFA, 0xAB, 0xCD);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#FAABCD"; }));
  ASSERT_TRUE(store()->flush());
  // Opened after the commits: the window reads them and names them on its
  // naming thread; the search is run again once the names are in.
  HistoryWindow* window = openWithKeys();
  window->searchField()->setText("salmon");
  ASSERT_TRUE(waitFor([&] { return window->model().namesReady(); }));
  EXPECT_EQ(shownHexes(window), (QStringList{"#FA8072"}));
  // Letters that are hex digits: both a hex start and a name.
  window->searchField()->setText("fa");
  EXPECT_EQ(shownHexes(window), (QStringList{"#FAABCD", "#FA8072"}));
  window->searchField()->setText("#fa");
  EXPECT_EQ(shownHexes(window), (QStringList{"#FAABCD", "#FA8072"}));
  window->searchField()->setText("#tomato");
  EXPECT_EQ(window->model().rowCount(), 0);
}

TEST_F(HistoryWindowTest, AnImportedNameLibraryBecomesARowOfTheLibraryDialogAndNamesColours) {
  writeSettings("[names]\nshow=true\n");
  start();
  const QString csv = home_.filePath(QStringLiteral("Brand.csv"));
  {
    QFile file(csv);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("name,hex\nHouse Red,#C8102E\nHouse Ink,#101820\n");
  }
  panel_->showPreferences();
  ASSERT_TRUE(panel_->preferencesDialog()->importNameLibrary(csv));
  const QStringList rows = VCPantonePicker::libraryNames();
  ASSERT_TRUE(rows.contains("Brand")) << rows.join(", ").toStdString();
  EXPECT_EQ(panel_->logic().preferences().nameLibrary(), rows.indexOf("Brand"));
  EXPECT_TRUE(panel_->preferencesDialog()->nameLibraryLabel()->text().contains("Brand"));
  postPenColour(0xC8, 0x10, 0x30);
  ASSERT_TRUE(waitFor([&] { return panel_->colorName->text().startsWith("House Red · ΔE00 "); }))
      << panel_->colorName->text().toStdString();
}

TEST_F(HistoryWindowTest, ThePaletteFileFollowsTheHistoryOnlyWithItsOptionAndAnExistingProfile) {
  // GIMP has run once: its profile is there. Inkscape and Krita have not.
  const QString gimpProfile = home_.filePath(QStringLiteral("config/GIMP/2.10"));
  ASSERT_TRUE(QDir().mkpath(gimpProfile));
  const QString gimpPalette = gimpProfile + QStringLiteral("/palettes/Tintwell.gpl");
  start();
  postPenColour(0x12, 0x34, 0x56);
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#123456"; }));
  QTest::qWait(1500);
  EXPECT_FALSE(QFile::exists(gimpPalette));  // the option is off

  Preferences preferences = panel_->logic().preferences();
  preferences.setPaletteFilesEnabled(true);
  panel_->logic().applyPreferences(preferences);
  postPenColour(0xAB, 0xCD, 0xEF);
  const auto paletteText = [&] {
    QFile file(gimpPalette);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
  };
  ASSERT_TRUE(waitFor([&] { return paletteText().contains("#ABCDEF"); }, 8000))
      << paletteText().toStdString();
  const QByteArray text = paletteText();
  EXPECT_TRUE(text.startsWith("GIMP Palette\nName: Tintwell\n")) << text.toStdString();
  EXPECT_LT(text.indexOf("#ABCDEF"), text.indexOf("#123456"));  // newest first
  EXPECT_FALSE(QFile::exists(home_.filePath(QStringLiteral("config/inkscape"))));
  EXPECT_FALSE(QFile::exists(home_.filePath(QStringLiteral("data/krita"))));
}

TEST(PaletteFollowerTest, StarredColoursAndTheNewestOthersMakeThePaletteInHistoryOrder) {
  std::vector<history::Entry> entries;
  for (int i = 0; i < 1000; ++i) {
    history::Entry entry;
    entry.id = 1000 - i;
    entry.red = i % 256;
    entry.green = i / 256;
    entry.starred = i == 10 || i == 900;
    if (i == 900) entry.alias = QStringLiteral("Kept");
    entries.push_back(entry);
  }
  const palette::Palette result = PaletteFollower::paletteOf(entries);
  ASSERT_EQ(result.swatches.size(), PaletteFollower::kMostColours);
  EXPECT_EQ(result.name, "Tintwell");
  EXPECT_EQ(result.swatches.front().name, "#000000");
  EXPECT_EQ(result.swatches[PaletteFollower::kMostColours - 2].name, "#F20100");
  EXPECT_EQ(result.swatches.back().name, "Kept");
}

}  // namespace
}  // namespace tw
