#include "resources/NamedImages.h"

#include <gtest/gtest.h>

#include <QFile>

#include "color/picker/DropperCursor.h"

namespace tw {
namespace {

const QStringList kNames = {
    QStringLiteral("BT on"), QStringLiteral("BT off"),      QStringLiteral("10"),
    QStringLiteral("20"),    QStringLiteral("30"),          QStringLiteral("40"),
    QStringLiteral("50"),    QStringLiteral("60"),          QStringLiteral("70"),
    QStringLiteral("80"),    QStringLiteral("90"),          QStringLiteral("100"),
    QStringLiteral("crown"), QStringLiteral("dropper2.png")};

TEST(NamedImages, EveryNamedImageIsThereAtOneAndTwoTimes) {
  for (const QString& name : kNames) {
    const QImage normal = namedImage(name, 1.0);
    const QImage sharp = namedImage(name, 2.0);
    ASSERT_FALSE(normal.isNull()) << name.toStdString();
    ASSERT_FALSE(sharp.isNull()) << name.toStdString();
    EXPECT_EQ(sharp.size(), normal.size() * 2) << name.toStdString();
    EXPECT_EQ(sharp.devicePixelRatio(), 2.0);
    EXPECT_EQ(sharp.deviceIndependentSize(), QSizeF(normal.size()));
    EXPECT_TRUE(normal.hasAlphaChannel()) << name.toStdString();
  }
}

TEST(NamedImages, PngSuffixIsOptional) {
  EXPECT_EQ(namedImage(QStringLiteral("dropper2")), namedImage(QStringLiteral("dropper2.png")));
  EXPECT_EQ(namedImagePath(QStringLiteral("BT on"), 2), QStringLiteral(":/images/BT on@2x.png"));
}

TEST(NamedImages, UnknownNameGivesANullImage) {
  EXPECT_TRUE(namedImage(QStringLiteral("no such image")).isNull());
  EXPECT_TRUE(namedImage(QStringLiteral("no such image"), 2.0).isNull());
}

TEST(NamedImages, BatteryImagesFillMoreAsTheLevelRises) {
  auto filled = [](const QImage& image) {
    int count = 0;
    for (int x = 0; x < image.width(); ++x) {
      const QColor c = image.pixelColor(x, image.height() / 2);
      if (c.alpha() == 255 && c.saturation() > 100) ++count;  // the coloured bar
    }
    return count;
  };
  int previous = 0;
  for (int level = 10; level <= 100; level += 10) {
    const int now = filled(namedImage(QString::number(level), 2.0));
    EXPECT_GT(now, previous) << level;
    previous = now;
  }
}

// Start-up reads these images before the first paint; none of Qt's image
// plugins (and the libraries behind them) should be loaded to do it.
TEST(NamedImages, ReadingTheImagesLoadsNoImagePlugin) {
  for (const QString& name : kNames) {
    ASSERT_FALSE(namedImage(name, 1.0).isNull());
    ASSERT_FALSE(namedImage(name, 2.0).isNull());
  }
  QFile maps(QStringLiteral("/proc/self/maps"));
  ASSERT_TRUE(maps.open(QIODevice::ReadOnly));
  const QByteArray mapped = maps.readAll();
  ASSERT_TRUE(mapped.contains("libQt6Gui")) << "the map of this process was not read";
  EXPECT_FALSE(mapped.contains("/imageformats/")) << mapped.toStdString();
}

TEST(NamedImages, DropperTipIsAtTheHotSpotAndItsBackgroundIsClear) {
  const QImage dropper = namedImage(QStringLiteral("dropper2.png"));
  ASSERT_EQ(dropper.size(), QSize(30, 30));
  EXPECT_GT(dropper.pixelColor(kDropperHotSpot + QPoint(1, -1)).alpha(), 0);
  EXPECT_EQ(dropper.pixelColor(0, 0).alpha(), 0);
  EXPECT_EQ(dropper.pixelColor(29, 29).alpha(), 0);
}

}  // namespace
}  // namespace tw
