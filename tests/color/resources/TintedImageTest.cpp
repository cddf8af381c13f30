#include "resources/TintedImage.h"

#include <gtest/gtest.h>

#include "resources/NamedImages.h"
#include "tests/support/QtWait.h"

namespace tw {
namespace {

QImage strip() {
  QImage image(4, 1, QImage::Format_ARGB32);
  image.setPixelColor(0, 0, QColor(0, 0, 0, 0));
  image.setPixelColor(1, 0, QColor(255, 0, 0, 255));
  image.setPixelColor(2, 0, QColor(0, 255, 0, 128));
  image.setPixelColor(3, 0, QColor(0, 0, 255, 255));
  return image;
}

TEST(TintedImage, PaintsTheColourOverEveryNonTransparentPixel) {
  const QColor tint(10, 200, 30);
  const QImage tinted = tintedImage(strip(), tint);
  EXPECT_EQ(tinted.pixelColor(0, 0).alpha(), 0);
  EXPECT_EQ(tinted.pixelColor(1, 0), tint);
  EXPECT_EQ(tinted.pixelColor(3, 0), tint);
  const QColor half = tinted.pixelColor(2, 0);
  EXPECT_EQ(half.alpha(), 128);
  EXPECT_NEAR(half.red(), 10, 2);
  EXPECT_NEAR(half.green(), 200, 2);
  EXPECT_NEAR(half.blue(), 30, 2);
}

TEST(TintedImage, LeavesTheImagePassedInUnchanged) {
  const QImage original = strip();
  const QImage before = original.copy();
  const QImage tinted = tintedImage(original, QColor(1, 2, 3));
  EXPECT_EQ(original, before);
  EXPECT_NE(tinted.constBits(), original.constBits());
}

TEST(TintedImage, KeepsSizeAndDevicePixelRatio) {
  QImage image(8, 6, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::white);
  image.setDevicePixelRatio(2.0);
  const QImage tinted = tintedImage(image, Qt::red);
  EXPECT_EQ(tinted.size(), image.size());
  EXPECT_EQ(tinted.devicePixelRatio(), 2.0);
  EXPECT_EQ(tinted.pixelColor(7, 5), QColor(Qt::red));  // the whole area, not a quarter
}

TEST(TintedImage, TintsOnlyTheCrownAndNotItsBackground) {
  for (qreal ratio : {1.0, 2.0}) {
    const QImage crown = namedImage(QStringLiteral("crown"), ratio);
    ASSERT_FALSE(crown.isNull());
    const QColor tint(171, 205, 239);
    const QImage tinted = tintedImage(crown, tint);
    int painted = 0;
    for (int y = 0; y < tinted.height(); ++y)
      for (int x = 0; x < tinted.width(); ++x) {
        const QColor pixel = tinted.pixelColor(x, y);
        EXPECT_EQ(pixel.alpha(), crown.pixelColor(x, y).alpha());
        if (pixel.alpha() == 255) {
          ++painted;
          ASSERT_EQ(pixel, tint) << x << "," << y;
        }
      }
    EXPECT_GT(painted, tinted.width() * tinted.height() / 5);
    EXPECT_EQ(tinted.pixelColor(0, 0).alpha(), 0);
    EXPECT_EQ(tinted.pixelColor(tinted.width() - 1, 0).alpha(), 0);
  }
}

TEST(TintedImage, TintingATintedImageAgainGivesTheNewColour) {
  // The panel tints the crown, then the button from the already tinted crown.
  const QImage crown = namedImage(QStringLiteral("crown"));
  const QImage once = tintedImage(crown, QColor(250, 250, 250));
  const QImage twice = tintedImage(once, QColor(20, 40, 60));
  EXPECT_EQ(twice, tintedImage(crown, QColor(20, 40, 60)));
}

TEST(TintedImage, PixmapFormTintsTheSameWay) {
  const QPixmap pixmap = QPixmap::fromImage(strip());
  const QPixmap tinted = tintedImage(pixmap, QColor(10, 200, 30));
  EXPECT_EQ(tinted.toImage().pixelColor(1, 0), QColor(10, 200, 30));
  EXPECT_EQ(tinted.toImage().pixelColor(0, 0).alpha(), 0);
  EXPECT_EQ(pixmap.toImage().pixelColor(1, 0), QColor(255, 0, 0));
}

}  // namespace
}  // namespace tw
