#include "color/picker/ClearViewVC.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QScreen>

#include "tests/support/LogCapture.h"
#include "tests/support/QtWait.h"

namespace tw {
namespace {

class ClearViewVCTest : public ::testing::Test {
 protected:
};

TEST_F(ClearViewVCTest, LoadingTakesTheScreensVisibleSizeAndLogsTheFrame) {
  testing::LogCapture log;
  ClearViewVC view;
  const QString out = log.text();
  const QRect visible = QGuiApplication::primaryScreen()->availableGeometry();
  EXPECT_EQ(view.geometry(), QRect(0, 0, visible.width(), visible.height()));
  EXPECT_EQ(out, QStringLiteral("clearWindow frame :  (0.0, 0.0, %1.0, %2.0)\n")
                     .arg(visible.width())
                     .arg(visible.height()));
}

TEST_F(ClearViewVCTest, StartsWithTheDeclaredValues) {
  ClearViewVC view;
  ASSERT_TRUE(view.mousePos.has_value());
  EXPECT_EQ(*view.mousePos, QPointF(0, 0));
  EXPECT_EQ(view.xDiff, 0);
  EXPECT_EQ(view.yDiff, 0);
  EXPECT_EQ(view.droppSize, 30.0);
  ASSERT_TRUE(view.dropperImgView);
  EXPECT_EQ(view.dropperImgView->size(), QSize(30, 30));
  EXPECT_FALSE(view.dropperImgView->pixmap().isNull());
}

TEST_F(ClearViewVCTest, MouseMovedLogsAndPutsTheDropperTipThere) {
  ClearViewVC view;
  testing::LogCapture log;
  view.mouseMoved(QPointF(100, 200));
  EXPECT_EQ(log.text(), "mouseMoved xxx : (100.0, 200.0)\n");
  // Always 30 by 30; the bottom-left corner (the tip) on the pointer.
  EXPECT_EQ(view.dropperImgView->geometry(), QRect(100, 170, 30, 30));
}

TEST_F(ClearViewVCTest, ReleasingItLogsImClosed) {
  auto* view = new ClearViewVC;
  testing::LogCapture log;
  delete view;
  EXPECT_EQ(log.text(), "I'm closed!\n");
}

}  // namespace
}  // namespace tw
