// Taking the panel's colour out: dragging the crown or the hex field, and a
// click on a notation text copying it. Offscreen widgets; the events are the
// ones Qt delivers for a real pointer (PanelXvfbTest clicks on a real X server).
#include "app/desktop/ColorTransfer.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QMouseEvent>
#include <memory>

#include "tests/support/TestMain.h"

namespace tw {
namespace {

class ColorTransferTest : public ::testing::Test {
 protected:
  void SetUp() override {
    crown_ = new QLabel(&panel_);
    crown_->resize(72, 72);
    hex_ = new QLineEdit(QStringLiteral("#123456"), &panel_);
    rgb_ = new QLineEdit(QStringLiteral("18  52  86"), &panel_);
    for (QLineEdit* field : {hex_, rgb_}) {
      field->setReadOnly(true);
      field->resize(200, 24);
    }
    transfer_ = std::make_unique<ColorTransfer>(crown_, hex_, QList<QLineEdit*>{hex_, rgb_});
    transfer_->setDragStarter([this](QWidget* source, QMimeData* data) {
      sources_.append(source);
      drags_.emplace_back(data);
    });
    QObject::connect(transfer_.get(), &ColorTransfer::copied,
                     [this](const QString& text) { copies_.append(text); });
    QGuiApplication::clipboard()->setText(QStringLiteral("before"));
  }

  // What Qt sends a widget for the left button at `at` (widget coordinates).
  static void press(QWidget* w, QPoint at) {
    send(w, QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton);
  }
  static void move(QWidget* w, QPoint at) {
    send(w, QEvent::MouseMove, at, Qt::NoButton, Qt::LeftButton);
  }
  static void release(QWidget* w, QPoint at) {
    send(w, QEvent::MouseButtonRelease, at, Qt::LeftButton, Qt::NoButton);
  }
  static void send(QWidget* w, QEvent::Type type, QPoint at, Qt::MouseButton button,
                   Qt::MouseButtons buttons) {
    QMouseEvent event(type, QPointF(at), QPointF(w->mapToGlobal(at)), button, buttons,
                      Qt::NoModifier);
    QApplication::sendEvent(w, &event);
  }
  static int far() { return QApplication::startDragDistance() + 2; }

  QWidget panel_;
  QLabel* crown_ = nullptr;
  QLineEdit* hex_ = nullptr;
  QLineEdit* rgb_ = nullptr;
  std::unique_ptr<ColorTransfer> transfer_;
  QList<QWidget*> sources_;
  std::vector<std::unique_ptr<QMimeData>> drags_;
  QStringList copies_;
};

TEST(ColorMimeData, ADraggedColourIsApplicationXColorAndItsHexText) {
  const std::unique_ptr<QMimeData> data(colorMimeData(QColor(0x12, 0xAB, 0x0C)));
  EXPECT_TRUE(data->formats().contains(QStringLiteral("application/x-color")));
  EXPECT_TRUE(data->hasColor());
  EXPECT_EQ(qvariant_cast<QColor>(data->colorData()), QColor(0x12, 0xAB, 0x0C));
  EXPECT_EQ(data->text(), "#12AB0C");
}

TEST_F(ColorTransferTest, DraggingTheCrownStartsOneDragOfTheColourShown) {
  press(crown_, {30, 30});
  move(crown_, {30 + far(), 30});
  move(crown_, {30 + 2 * far(), 30});
  release(crown_, {30 + 2 * far(), 30});
  ASSERT_EQ(drags_.size(), 1u);
  EXPECT_EQ(sources_, QList<QWidget*>{crown_});
  EXPECT_EQ(qvariant_cast<QColor>(drags_[0]->colorData()), QColor(0x12, 0x34, 0x56));
  EXPECT_EQ(drags_[0]->text(), "#123456");
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "before");
}

TEST_F(ColorTransferTest, AMoveShorterThanTheDragDistanceIsNoDrag) {
  press(crown_, {30, 30});
  move(crown_, {30 + QApplication::startDragDistance() - 1, 30});
  release(crown_, {30 + QApplication::startDragDistance() - 1, 30});
  EXPECT_TRUE(drags_.empty());
}

TEST_F(ColorTransferTest, DraggingTheHexFieldDragsTheColourAndCopiesNothing) {
  press(hex_, {10, 12});
  move(hex_, {10 + far(), 12});
  release(hex_, {10 + far(), 12});
  ASSERT_EQ(drags_.size(), 1u);
  EXPECT_EQ(sources_, QList<QWidget*>{hex_});
  EXPECT_FALSE(hex_->hasSelectedText());
  EXPECT_TRUE(copies_.isEmpty());
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "before");
}

TEST_F(ColorTransferTest, WithNoColourShownThereIsNothingToDrag) {
  hex_->clear();
  press(crown_, {30, 30});
  move(crown_, {30 + far(), 30});
  EXPECT_TRUE(drags_.empty());
  hex_->setText(QStringLiteral("not a colour"));
  press(crown_, {30, 30});
  move(crown_, {30 + far(), 30});
  EXPECT_TRUE(drags_.empty());
  EXPECT_FALSE(transfer_->colorShown().isValid());
}

TEST_F(ColorTransferTest, AClickOnANotationCopiesItsTextAsShown) {
  press(rgb_, {20, 12});
  release(rgb_, {20, 12});
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "18  52  86");
  EXPECT_EQ(copies_, QStringList{QStringLiteral("18  52  86")});
  press(hex_, {20, 12});
  release(hex_, {20, 12});
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "#123456");
  EXPECT_TRUE(drags_.empty());
}

TEST_F(ColorTransferTest, DraggingAcrossANotationSelectsAndCopiesNothing) {
  press(rgb_, {2, 12});
  move(rgb_, {150, 12});
  release(rgb_, {150, 12});
  EXPECT_TRUE(drags_.empty());
  EXPECT_TRUE(rgb_->hasSelectedText());
  EXPECT_TRUE(copies_.isEmpty());
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "before");
}

TEST_F(ColorTransferTest, AnotherButtonNeitherDragsNorCopies) {
  send(rgb_, QEvent::MouseButtonPress, {20, 12}, Qt::RightButton, Qt::RightButton);
  send(rgb_, QEvent::MouseButtonRelease, {20, 12}, Qt::RightButton, Qt::NoButton);
  send(crown_, QEvent::MouseButtonPress, {30, 30}, Qt::MiddleButton, Qt::MiddleButton);
  send(crown_, QEvent::MouseMove, {30 + far(), 30}, Qt::NoButton, Qt::MiddleButton);
  EXPECT_TRUE(drags_.empty());
  EXPECT_TRUE(copies_.isEmpty());
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "before");
}

}  // namespace
}  // namespace tw
