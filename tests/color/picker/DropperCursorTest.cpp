#include "color/picker/DropperCursor.h"

#include <gtest/gtest.h>

#include <QCursor>
#include <QGuiApplication>

#include "tests/support/LogCapture.h"
#include "tests/support/QtWait.h"

namespace tw {
namespace {

class DropperCursorTest : public ::testing::Test {
 protected:
  void TearDown() override { restoreCursor(); }
};

TEST_F(DropperCursorTest, SetsTheDropperWithItsTipAsHotSpotAndLogs) {
  testing::LogCapture log;
  setDropperCursor();
  EXPECT_EQ(log.text(), "cursor changed\n");
  const QCursor* cursor = QGuiApplication::overrideCursor();
  ASSERT_NE(cursor, nullptr);
  EXPECT_EQ(cursor->shape(), Qt::BitmapCursor);
  EXPECT_EQ(cursor->hotSpot(), QPoint(0, 29));
  EXPECT_EQ(cursor->pixmap().deviceIndependentSize(), QSizeF(30, 30));
}

TEST_F(DropperCursorTest, SettingTwiceNeedsOneRestore) {
  setDropperCursor();
  setDropperCursor();
  restoreCursor();
  EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
}

TEST_F(DropperCursorTest, RestoreWithoutDropperDoesNothing) {
  QGuiApplication::setOverrideCursor(Qt::WaitCursor);
  restoreCursor();
  ASSERT_NE(QGuiApplication::overrideCursor(), nullptr);
  EXPECT_EQ(QGuiApplication::overrideCursor()->shape(), Qt::WaitCursor);
  QGuiApplication::restoreOverrideCursor();
}

}  // namespace
}  // namespace tw
