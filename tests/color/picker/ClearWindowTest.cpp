#include "color/picker/ClearWindow.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QPointer>
#include <QScreen>
#include <limits>

#include "color/ColorHelper.h"
#include "color/picker/ClearViewVC.h"
#include "color/picker/DropperCursor.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"
#include "tests/support/LogCapture.h"
#include "tests/support/QtWait.h"

namespace tw {
namespace {

void postMouseDown() {
  NotificationCenter::defaultCenter().post(
      notification::mouseDown(), {}, UserInfo{{QStringLiteral("Mouse"), QStringLiteral("Down")}});
}

class ClearWindowTest : public ::testing::Test {
 protected:
  void TearDown() override {
    delete window.data();
    testing::settle();
  }
  ClearWindow* open() {
    window = ClearWindow::windowWithContentViewController(new ClearViewVC);
    return window;
  }
  QPointer<ClearWindow> window;
};

TEST_F(ClearWindowTest, IsFramelessOnTopAndTransparentForInput) {
  const Qt::WindowFlags flags = open()->windowFlags();
  EXPECT_TRUE(flags.testFlag(Qt::FramelessWindowHint));
  EXPECT_TRUE(flags.testFlag(Qt::WindowStaysOnTopHint));
  EXPECT_TRUE(flags.testFlag(Qt::WindowTransparentForInput));
  EXPECT_TRUE(window->testAttribute(Qt::WA_TranslucentBackground));
  EXPECT_TRUE(window->testAttribute(Qt::WA_DeleteOnClose));
}

TEST_F(ClearWindowTest, BackgroundIsWhiteAtAlphaOneThousandth) {
  const QColor background = ClearWindow::backgroundColor();
  EXPECT_EQ(background.redF(), 1.0f);
  EXPECT_EQ(background.greenF(), 1.0f);
  EXPECT_EQ(background.blueF(), 1.0f);
  EXPECT_NEAR(background.alphaF(), 0.001, 0.0001);
  EXPECT_GT(background.alphaF(), 0.0f);
}

TEST_F(ClearWindowTest, ContentIsTheGivenControllerAndFollowsTheWindow) {
  auto* content = new ClearViewVC;
  window = ClearWindow::windowWithContentViewController(content);
  EXPECT_EQ(window->contentViewController(), content);
  EXPECT_EQ(content->parentWidget(), window.data());
}

TEST_F(ClearWindowTest, CoversThePrimaryScreenWhenShown) {
  open()->orderFrontEvenWithoutCompositor();
  EXPECT_TRUE(window->isVisible());
  EXPECT_EQ(window->geometry(), QGuiApplication::primaryScreen()->geometry());
}

TEST_F(ClearWindowTest, WithoutCompositorTheWindowStaysUnshown) {
  ASSERT_FALSE(pickingWindowCanBeShown());  // offscreen, no X server
  testing::LogCapture log;
  open()->makeKeyAndOrderFront();
  window->showWindow();
  const std::string out = log.text().toStdString();
  EXPECT_FALSE(window->isVisible());
  EXPECT_NE(out.find("no compositor: the picking window stays unshown"), std::string::npos);
}

TEST_F(ClearWindowTest, MouseDownBringsBackTheMainWindowAndClosesItself) {
  QWidget mainWindow;
  mainWindow.show();
  mainWindow.close();
  ASSERT_FALSE(mainWindow.isVisible());
  open()->appMainWindow = &mainWindow;
  window->orderFrontEvenWithoutCompositor();

  testing::LogCapture log;
  postMouseDown();
  // All of it before the post returns: the screen is read right after.
  EXPECT_TRUE(mainWindow.isVisible());
  EXPECT_FALSE(window && window->isVisible());
  testing::settle();
  const QString out = log.text();
  EXPECT_TRUE(window.isNull());
  EXPECT_EQ(out, "down down\nI'm closed!\n");
}

TEST_F(ClearWindowTest, LeavingTheScreenIsNotedSoThatTheReadWaitsForWhatItCovered) {
  open()->orderFrontEvenWithoutCompositor();
  postMouseDown();
  EXPECT_LT(msSinceCoveringWindowGone(), 10000);
}

TEST_F(ClearWindowTest, AWindowNeverShownLeavesNoNote) {
  ASSERT_EQ(msSinceCoveringWindowGone(), std::numeric_limits<qint64>::max());
  open()->makeKeyAndOrderFront();
  postMouseDown();
  testing::settle();
  EXPECT_TRUE(window.isNull());
  EXPECT_EQ(msSinceCoveringWindowGone(), std::numeric_limits<qint64>::max());
}

TEST_F(ClearWindowTest, UnshownWindowIsAlsoClosedByTheMouseDown) {
  open()->makeKeyAndOrderFront();
  postMouseDown();
  testing::settle();
  EXPECT_TRUE(window.isNull());
}

TEST_F(ClearWindowTest, MouseDownRestoresTheCursor) {
  open();
  setDropperCursor();
  ASSERT_NE(QGuiApplication::overrideCursor(), nullptr);
  postMouseDown();
  EXPECT_EQ(QGuiApplication::overrideCursor(), nullptr);
}

TEST_F(ClearWindowTest, ObserverOfAClosedWindowDoesNothing) {
  open();
  postMouseDown();
  testing::settle();
  ASSERT_TRUE(window.isNull());
  testing::LogCapture log;
  postMouseDown();
  EXPECT_EQ(log.text(), "");
}

}  // namespace
}  // namespace tw
