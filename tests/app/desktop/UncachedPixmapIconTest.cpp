// The crown button's icon: scaled like Qt's own, but never stored in Qt's
// process-wide pixmap cache, which a stream of new icons would only fill.
#include "app/desktop/UncachedPixmapIcon.h"

#include <gtest/gtest.h>

#include <QPixmapCache>
#include <QPushButton>

#include "tests/support/QtWait.h"

namespace tw {
namespace {

QPixmap filled(int side, const QColor& colour) {
  QPixmap pixmap(side, side);
  pixmap.fill(colour);
  return pixmap;
}

class UncachedPixmapIconTest : public ::testing::Test {
 protected:
  // Paints a button `times` times, each with a new icon from `makeIcon`, and
  // tells whether a pixmap put into the cache before is still there.
  bool sentinelSurvives(const std::function<QIcon(const QPixmap&)>& makeIcon, int times) {
    QPixmapCache::clear();
    QPixmapCache::setCacheLimit(256);  // KiB
    EXPECT_TRUE(QPixmapCache::insert(QStringLiteral("sentinel"), filled(32, Qt::black)));
    QPushButton button;
    button.setIconSize(QSize(24, 24));
    button.resize(40, 40);
    for (int i = 0; i < times; ++i) {
      button.setIcon(makeIcon(filled(96, QColor::fromRgb(i % 256, 255 - i % 256, 128))));
      button.grab();
    }
    QPixmap found;
    return QPixmapCache::find(QStringLiteral("sentinel"), &found);
  }
};

TEST_F(UncachedPixmapIconTest, ScalesDownToTheSizeAskedFor) {
  const QIcon icon = uncachedPixmapIcon(filled(96, Qt::red));
  const QPixmap pixmap = icon.pixmap(QSize(24, 24));
  EXPECT_EQ(pixmap.size(), QSize(24, 24));
  EXPECT_EQ(pixmap.toImage().pixelColor(12, 12), QColor(Qt::red));
  EXPECT_EQ(icon.actualSize(QSize(24, 24)), QSize(24, 24));
}

TEST_F(UncachedPixmapIconTest, AtDevicePixelRatioTwoHasTwiceThePixels) {
  const QPixmap pixmap = uncachedPixmapIcon(filled(96, Qt::red)).pixmap(QSize(24, 24), 2.0);
  EXPECT_EQ(pixmap.size(), QSize(48, 48));
  EXPECT_EQ(pixmap.devicePixelRatio(), 2.0);
}

TEST_F(UncachedPixmapIconTest, NeverScalesUp) {
  EXPECT_EQ(uncachedPixmapIcon(filled(16, Qt::red)).pixmap(QSize(24, 24)).size(), QSize(16, 16));
}

TEST_F(UncachedPixmapIconTest, KeepsTheAspectRatio) {
  QPixmap wide(96, 48);
  wide.fill(Qt::red);
  EXPECT_EQ(uncachedPixmapIcon(wide).pixmap(QSize(24, 24)).size(), QSize(24, 12));
}

TEST_F(UncachedPixmapIconTest, ANullPixmapIsANullIcon) {
  EXPECT_TRUE(uncachedPixmapIcon(QPixmap()).isNull());
}

TEST_F(UncachedPixmapIconTest, ManyNewIconsLeaveQtsPixmapCacheAlone) {
  EXPECT_TRUE(sentinelSurvives(uncachedPixmapIcon, 300));
}

// Why the crown button needs its own engine: with Qt's, the same stream of
// icons pushes everything else out of the cache (and would grow it without
// end at its default size).
TEST_F(UncachedPixmapIconTest, QtsOwnIconEngineFillsThePixmapCache) {
  EXPECT_FALSE(sentinelSurvives([](const QPixmap& p) { return QIcon(p); }, 300));
}

}  // namespace
}  // namespace tw
