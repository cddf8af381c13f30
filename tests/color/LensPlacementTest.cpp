#include "color/LensPlacement.h"

#include <gtest/gtest.h>

#include <random>

namespace tw {
namespace {

constexpr int kGap = 24;
const QSize kLens(110, 132);
const QRect kMonitor(0, 0, 800, 600);

TEST(LensPlacement, BesideThePointerDownAndRight) {
  EXPECT_EQ(lensPlacement({100, 100}, kLens, kMonitor, kGap), QRect(124, 124, 110, 132));
}

TEST(LensPlacement, FlipsLeftAtTheRightEdgeAndUpAtTheBottom) {
  EXPECT_EQ(lensPlacement({780, 100}, kLens, kMonitor, kGap), QRect(646, 124, 110, 132));
  EXPECT_EQ(lensPlacement({100, 590}, kLens, kMonitor, kGap), QRect(124, 434, 110, 132));
  EXPECT_EQ(lensPlacement({799, 599}, kLens, kMonitor, kGap), QRect(665, 443, 110, 132));
  // Exactly fitting is fitting.
  EXPECT_EQ(lensPlacement({666, 444}, kLens, kMonitor, kGap), QRect(690, 468, 110, 132));
}

TEST(LensPlacement, FollowsTheMonitorsOrigin) {
  const QRect right(640, 100, 640, 800);
  EXPECT_EQ(lensPlacement({650, 110}, kLens, right, kGap), QRect(674, 134, 110, 132));
  EXPECT_EQ(lensPlacement({1270, 890}, kLens, right, kGap), QRect(1136, 734, 110, 132));
}

TEST(LensPlacement, TooTallForEitherSideItSlidesAlongTheEdgeBesideThePointer) {
  // 480 rows, a lens of 264: neither below nor above the centre row.
  const QRect small(0, 0, 640, 480);
  const QSize big(220, 264);
  EXPECT_EQ(lensPlacement({319, 239}, big, small, kGap), QRect(343, 216, 220, 264));
}

TEST(LensPlacement, NeverOverTheMagnifiedPixelsAndOnTheMonitorWheneverItFits) {
  std::mt19937 random(20261126);
  std::uniform_int_distribution<int> coordinate(-2000, 2000);
  std::uniform_int_distribution<int> length(1, 1500);
  std::uniform_int_distribution<int> lensSide(1, 400);
  for (int i = 0; i < 200000; ++i) {
    const QRect monitor(coordinate(random), coordinate(random), length(random), length(random));
    const QPoint pointer(
        monitor.x() + std::uniform_int_distribution<int>(0, monitor.width() - 1)(random),
        monitor.y() + std::uniform_int_distribution<int>(0, monitor.height() - 1)(random));
    const QSize lens(lensSide(random), lensSide(random));
    const QRect placed = lensPlacement(pointer, lens, monitor, kGap);
    ASSERT_EQ(placed.size(), lens);
    ASSERT_FALSE(placed.intersects(magnifiedArea(pointer, 11)))
        << pointer.x() << "," << pointer.y() << " in " << monitor.x() << "," << monitor.y() << " "
        << monitor.width() << "x" << monitor.height();
    const bool besideFits = pointer.x() + kGap + lens.width() <= monitor.right() + 1 ||
                            pointer.x() - kGap - lens.width() >= monitor.x();
    const bool aboveOrBelowFits = pointer.y() + kGap + lens.height() <= monitor.bottom() + 1 ||
                                  pointer.y() - kGap - lens.height() >= monitor.y();
    const bool fits = (besideFits && lens.height() <= monitor.height()) ||
                      (aboveOrBelowFits && lens.width() <= monitor.width());
    if (fits) {
      ASSERT_TRUE(monitor.contains(placed))
          << pointer.x() << "," << pointer.y() << " lens " << lens.width() << "x" << lens.height()
          << " in " << monitor.x() << "," << monitor.y() << " " << monitor.width() << "x"
          << monitor.height();
    }
  }
}

TEST(MonitorUnder, TheOneHoldingThePointerOrTheFirst) {
  const QList<QRect> monitors{QRect(0, 0, 640, 480), QRect(640, 0, 640, 800)};
  EXPECT_EQ(monitorUnder({700, 700}, monitors), monitors[1]);
  EXPECT_EQ(monitorUnder({10, 10}, monitors), monitors[0]);
  EXPECT_EQ(monitorUnder({10, 700}, monitors), monitors[0]);
  EXPECT_EQ(monitorUnder({10, 10}, {}), QRect());
}

TEST(MagnifiedArea, CentredOnThePointer) {
  EXPECT_EQ(magnifiedArea({100, 50}, 11), QRect(95, 45, 11, 11));
}

}  // namespace
}  // namespace tw
