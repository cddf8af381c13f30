// The panel and its windows from the keyboard and through Qt's accessibility
// interfaces, in process on the offscreen platform: the tab order, Enter and
// Space on the colour texts and the swatch, the names and descriptions every
// control carries and the colour texts in the fields' descriptions.
#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QContextMenuEvent>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QThread>
#include <QTimer>
#include <memory>

#include "app/AppDelegate.h"
#include "app/desktop/ColorTransfer.h"
#include "app/desktop/HistoryWindow.h"
#include "app/desktop/PanelWindow.h"
#include "app/desktop/PreferencesDialog.h"
#include "app/desktop/ViewController_plus.h"
#include "bridge/AlertPresenter.h"
#include "bridge/RunningApplications.h"
#include "color/ColorStruct.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"
#include "library/dialog/VCPantonePicker.h"
#include "tests/app/desktop/PanelOnFakes.h"
#include "tests/color/ScreenPickTestSupport.h"
#include "tests/pen/simulated/SimulatedCentral.h"
#include "tests/support/BridgeSandbox.h"
#include "tests/support/QtWait.h"
#include "tests/support/TestMain.h"

namespace tw {
namespace {

using testing::waitFor;

using testing::IdleTransport;

void pressKey(QWidget* widget, int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
  QKeyEvent press(QEvent::KeyPress, key, modifiers);
  QCoreApplication::sendEvent(widget, &press);
  QKeyEvent release(QEvent::KeyRelease, key, modifiers);
  QCoreApplication::sendEvent(widget, &release);
}

class PanelKeyboardTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(home_.isValid());
    home_.enter();
    pointer_->height = 600;
    pointer_->location = QPointF(100, 500);
    panel_ = testing::showPanel(delegate_,
                                testing::panelPartsOnFakes(
                                    [](pen::CentralDelegate* d, QThread* q) {
                                      return std::make_unique<pen::SimulatedCentral>(
                                          d, q, pen::CentralManager::kPoweredOff);
                                    },
                                    monitor_, pointer_, sampler_),
                                window_);
    ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#FAFAFA"; }));
    QApplication::setActiveWindow(window_.get());
    ASSERT_TRUE(waitFor([&] { return window_->isActiveWindow(); }));
  }
  void TearDown() override { window_.reset(); }

  // Every control of `root` a keyboard can reach has a name and a
  // description, as its accessibility interface gives them.
  static void expectNamedAndDescribed(QWidget* root) {
    QList<QWidget*> widgets = root->findChildren<QWidget*>();
    widgets.prepend(root);
    int checked = 0;
    for (QWidget* widget : widgets) {
      if (!widget->isVisibleTo(root) || !(widget->focusPolicy() & Qt::TabFocus)) continue;
      // The parts of a compound control (a scroll area's viewport, a combo
      // box's list) speak through their owner.
      if (widget->focusProxy()) continue;
      QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(widget);
      ASSERT_NE(iface, nullptr) << widget->objectName().toStdString();
      EXPECT_FALSE(iface->text(QAccessible::Name).isEmpty())
          << widget->metaObject()->className() << " " << widget->objectName().toStdString()
          << " has no accessible name";
      EXPECT_FALSE(iface->text(QAccessible::Description).isEmpty())
          << widget->metaObject()->className() << " " << widget->objectName().toStdString() << " ("
          << iface->text(QAccessible::Name).toStdString() << ") has no description";
      ++checked;
    }
    EXPECT_GT(checked, 0);
  }

  testing::BridgeSandbox home_;
  AppDelegate delegate_;
  std::shared_ptr<testing::FakeClickMonitor> monitor_ =
      std::make_shared<testing::FakeClickMonitor>();
  std::shared_ptr<testing::FakePointer> pointer_ = std::make_shared<testing::FakePointer>();
  std::shared_ptr<testing::FakeSampler> sampler_ = std::make_shared<testing::FakeSampler>();
  ViewController_plus* panel_ = nullptr;  // owned by the window
  std::unique_ptr<PanelWindow> window_;
};

TEST_F(PanelKeyboardTest, TabWalksThePanelInReadingOrderAndReachesEveryAction) {
  panel_->btStatus->setFocus(Qt::TabFocusReason);
  ASSERT_TRUE(waitFor([&] { return panel_->btStatus->hasFocus(); }));
  QStringList order{QApplication::focusWidget()->objectName()};
  for (int i = 0; i < 12; ++i) {
    pressKey(QApplication::focusWidget(), Qt::Key_Tab);
    order << QApplication::focusWidget()->objectName();
  }
  EXPECT_EQ(order, (QStringList{"btStatus", "crown", "hexInfo", "rgbInfo", "cmykInfo", "hsbInfo",
                                "labInfo", "crownBtn", "dropperBtn", "libraryBtn", "infoBtn",
                                "btStatus", "crown"}));
}

// The Menu key arrives as a keyboard context-menu event for the focused
// widget (the xcb plugin makes one of it); on a button it opens the panel's
// menu, where the actions without a button of their own are.
TEST_F(PanelKeyboardTest, TheMenuKeyOnAFocusedButtonOpensThePanelsActions) {
  panel_->dropperBtn->setFocus(Qt::TabFocusReason);
  ASSERT_TRUE(waitFor([&] { return panel_->dropperBtn->hasFocus(); }));
  QStringList shown;
  QTimer::singleShot(0, [&] {
    if (auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget())) {
      for (QAction* action : menu->actions())
        if (!action->isSeparator()) shown << action->text();
      menu->close();
    }
  });
  const QPoint at = panel_->dropperBtn->rect().center();
  QContextMenuEvent menuKey(QContextMenuEvent::Keyboard, at, panel_->dropperBtn->mapToGlobal(at));
  QCoreApplication::sendEvent(panel_->dropperBtn, &menuKey);
  EXPECT_TRUE(shown.contains(QStringLiteral("Reconnect"))) << shown.join(", ").toStdString();
  EXPECT_TRUE(shown.contains(QStringLiteral("About Tintwell")));
  EXPECT_TRUE(shown.contains(QStringLiteral("Pick from Screen")));
}

TEST_F(PanelKeyboardTest, EnterOrSpaceOnAFocusedTextCopiesItAsAClickDoes) {
  QStringList copied;
  QObject::connect(&panel_->colorTransfer(), &ColorTransfer::copied,
                   [&](const QString& text) { copied << text; });
  panel_->rgbInfo->setFocus(Qt::TabFocusReason);
  pressKey(panel_->rgbInfo, Qt::Key_Return);
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "250  250  250");
  panel_->labInfo->setFocus(Qt::TabFocusReason);
  pressKey(panel_->labInfo, Qt::Key_Space);
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "98.3  0.0  -0.0 ");
  panel_->hexInfo->setFocus(Qt::TabFocusReason);
  pressKey(panel_->hexInfo, Qt::Key_Enter, Qt::KeypadModifier);
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "#FAFAFA");
  EXPECT_EQ(copied, (QStringList{"250  250  250", "98.3  0.0  -0.0 ", "#FAFAFA"}));
  // The texts themselves are untouched (read-only, and Space went nowhere).
  EXPECT_EQ(panel_->labInfo->text(), "98.3  0.0  -0.0 ");
  // Other keys stay the field's: Ctrl+A selects, nothing is copied.
  pressKey(panel_->hexInfo, Qt::Key_A, Qt::ControlModifier);
  EXPECT_EQ(copied.size(), 3);
  EXPECT_TRUE(panel_->hexInfo->hasSelectedText());
}

TEST_F(PanelKeyboardTest, EnterOnTheSwatchCopiesTheColourADragWouldCarry) {
  panel_->crown->setFocus(Qt::TabFocusReason);
  pressKey(panel_->crown, Qt::Key_Return);
  const QMimeData* data = QGuiApplication::clipboard()->mimeData();
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(data->text(), "#FAFAFA");
  EXPECT_EQ(qvariant_cast<QColor>(data->colorData()), QColor(250, 250, 250));
}

TEST_F(PanelKeyboardTest, EveryReachableControlHasANameAndADescription) {
  ASSERT_NO_FATAL_FAILURE(expectNamedAndDescribed(panel_));
  QAccessibleInterface* hex = QAccessible::queryAccessibleInterface(panel_->hexInfo);
  ASSERT_NE(hex, nullptr);
  EXPECT_EQ(hex->text(QAccessible::Name), "Hex value");
  EXPECT_EQ(hex->role(), QAccessible::EditableText);
  EXPECT_EQ(QAccessible::queryAccessibleInterface(panel_->dropperBtn)->text(QAccessible::Name),
            "Pick from screen");
  EXPECT_EQ(QAccessible::queryAccessibleInterface(panel_->imgBattery)->text(QAccessible::Name),
            "Pen battery");
  // Tooltips and object names as they were.
  EXPECT_EQ(panel_->dropperBtn->toolTip(), "Pick from screen");
  EXPECT_EQ(panel_->imgBattery->toolTip(), "Pen battery");

  panel_->showPreferences();
  ASSERT_NE(panel_->preferencesDialog(), nullptr);
  ASSERT_NO_FATAL_FAILURE(expectNamedAndDescribed(panel_->preferencesDialog()));
  panel_->showHistory();
  ASSERT_NE(panel_->historyWindow(), nullptr);
  ASSERT_NO_FATAL_FAILURE(expectNamedAndDescribed(panel_->historyWindow()));
  VCPantonePicker libraries;
  ASSERT_NO_FATAL_FAILURE(expectNamedAndDescribed(&libraries));
}

// The events a screen reader hears are checked over AT-SPI
// (PanelAccessibilityXvfbTest): offscreen, Qt has no accessibility layer to
// send them to.
TEST_F(PanelKeyboardTest, ANewColourIsInTheFieldsDescriptionsAndTheirTextsAreTheirValues) {
  const ColorStruct colour = ColorStruct::fromChannels(0x12, 0x34, 0x56);
  QThread* pen = QThread::create([&] {
    NotificationCenter::defaultCenter().post(
        notification::newColor(), colour,
        UserInfo{{notification::quillaKey(), QStringLiteral("NewColor")}});
  });
  pen->start();
  pen->wait();
  delete pen;
  ASSERT_TRUE(waitFor([&] { return panel_->hexInfo->text() == "#123456"; }));
  ASSERT_TRUE(waitFor([&] { return panel_->rgbInfo->text() == "18  52  86"; }));
  const struct {
    QLineEdit* field;
    const char* name;
  } fields[] = {{panel_->hexInfo, "Hex value"},
                {panel_->rgbInfo, "RGB value"},
                {panel_->cmykInfo, "CMYK value"},
                {panel_->hsbInfo, "HSB value"},
                {panel_->labInfo, "Lab value"}};
  for (const auto& f : fields) {
    QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(f.field);
    ASSERT_NE(iface, nullptr);
    EXPECT_EQ(iface->text(QAccessible::Name), QString::fromLatin1(f.name));
    EXPECT_EQ(iface->text(QAccessible::Description),
              f.field->text() + QStringLiteral(". Enter or Space copies it."));
    EXPECT_EQ(iface->text(QAccessible::Value), f.field->text());
  }
  EXPECT_EQ(QAccessible::queryAccessibleInterface(panel_->hexInfo)->text(QAccessible::Description),
            "#123456. Enter or Space copies it.");
}

}  // namespace
}  // namespace tw
