// The magnifier end to end on a real Xvfb: the real probe application with
// the X11 backend and the lens, the pointer moved and keys typed by xdotool,
// the screen read back by xwd.
#include <gtest/gtest.h>

#include <QRect>
#include <QRegularExpression>
#include <QThread>

#include "color/picker/PickLens.h"
#include "tests/color/x11/PickProbe.h"
#include "tests/support/XwdScreenshot.h"

namespace tw {
namespace {

using testing::Probe;
using testing::XvfbServer;

constexpr int kLensWidth = PickLens::kPixels * PickLens::kZoom;
constexpr int kLensHeight = PickLens::kPixels * PickLens::kZoom + PickLens::kLabelHeight;
constexpr int kGap = PickLens::kGap;

void xdotool(const XvfbServer& server, const QStringList& args) {
  int code = -1;
  server.run(QStringLiteral("xdotool"), args, &code);
  ASSERT_EQ(code, 0) << args.join(' ').toStdString();
}

void moveTo(const XvfbServer& server, int x, int y) {
  xdotool(server, {QStringLiteral("mousemove"), QString::number(x), QString::number(y)});
}

void key(const XvfbServer& server, const QString& name) {
  xdotool(server, {QStringLiteral("key"), name});
}

QPoint pointerOf(const XvfbServer& server) {
  const QString out = QString::fromLatin1(server.run(
      QStringLiteral("xdotool"), {QStringLiteral("getmouselocation"), QStringLiteral("--shell")}));
  const auto x = QRegularExpression(QStringLiteral("X=(-?\\d+)")).match(out);
  const auto y = QRegularExpression(QStringLiteral("Y=(-?\\d+)")).match(out);
  return {x.captured(1).toInt(), y.captured(1).toInt()};
}

// What the probe's gradient shows at root pixel (x, y).
QString gradientLine(int x, int y) {
  return testing::newColorLine(qRgb(x % 256, y % 256, (x / 256) * 16 + y / 256));
}

QString placedLine(const QRect& r) {
  return QStringLiteral("LENS_PLACED %1 %2 %3 %4")
      .arg(r.x())
      .arg(r.y())
      .arg(r.width())
      .arg(r.height());
}

QRect lastPlacement(const Probe& probe) {
  const QStringList placed = probe.matching(QStringLiteral("LENS_PLACED"));
  if (placed.isEmpty()) return {};
  const QStringList f = placed.last().split(' ');
  return QRect(f.value(1).toInt(), f.value(2).toInt(), f.value(3).toInt(), f.value(4).toInt());
}

// The lens's window as the X server has it, in root pixels.
QRect windowOf(const XvfbServer& server, const Probe& probe) {
  const QStringList id = probe.matching(QStringLiteral("LENS_WINID"));
  if (id.isEmpty()) return {};
  return testing::viewableWindow(server, id.last().section(' ', 1));
}

QRect magnified(QPoint p) {
  return QRect(p.x() - PickLens::kPixels / 2, p.y() - PickLens::kPixels / 2, PickLens::kPixels,
               PickLens::kPixels);
}

class PickLensXvfbTest : public ::testing::Test {
 protected:
  // A pick armed with the lens over the whole-screen gradient, the pointer at
  // `start`, the keyboard taken.
  void arm(QPoint start, const QString& scale = QString(),
           const QStringList& screen = {QStringLiteral("-screen"), QStringLiteral("0"),
                                        QStringLiteral("800x600x24")}) {
    server_ = std::make_unique<XvfbServer>(screen);
    ASSERT_TRUE(server_->isRunning());
    moveTo(*server_, start.x(), start.y());
    probe_ = std::make_unique<Probe>(
        *server_, QStringList{"--at", "0,0,1,1", "--gradient", "--root-gradient", "--lens"}, scale);
    ASSERT_TRUE(probe_->waitFor("READY")) << probe_->all().toStdString();
    probe_->send("arm");
    ASSERT_TRUE(probe_->waitFor("LENS_KEYBOARD")) << probe_->all().toStdString();
  }
  // Moves the pointer and waits until the lens has been placed for it.
  void moveAndWait(QPoint to, const QRect& expected) {
    moveTo(*server_, to.x(), to.y());
    ASSERT_TRUE(probe_->waitFor(placedLine(expected), 5000))
        << "pointer " << to.x() << "," << to.y() << "\n"
        << probe_->all().toStdString();
  }

  std::unique_ptr<XvfbServer> server_;
  std::unique_ptr<Probe> probe_;
};

TEST_F(PickLensXvfbTest, TheLensFollowsThePointerBesideItAndShowsTheCentrePixel) {
  arm({100, 100});
  EXPECT_EQ(lastPlacement(*probe_), QRect(100 + kGap, 100 + kGap, kLensWidth, kLensHeight));
  for (const QPoint p : {QPoint(200, 150), QPoint(300, 301), QPoint(17, 400)}) {
    moveAndWait(p, QRect(p + QPoint(kGap, kGap), QSize(kLensWidth, kLensHeight)));
    // The server's own idea of the window agrees.
    EXPECT_EQ(windowOf(*server_, *probe_),
              QRect(p + QPoint(kGap, kGap), QSize(kLensWidth, kLensHeight)));
  }
  // The centre pixel's hex is the gradient's at the pointer (17, 400).
  probe_->send("lens");
  ASSERT_TRUE(probe_->waitFor("LENS_INFO"));
  EXPECT_TRUE(probe_->matching("LENS_INFO").last().startsWith("LENS_INFO #119001 "))
      << probe_->all().toStdString();
}

TEST_F(PickLensXvfbTest, TheLensFlipsAtTheEdgesOfTheScreen) {
  arm({100, 100});
  const QSize size(kLensWidth, kLensHeight);
  // Near the right edge it goes to the left of the pointer.
  moveAndWait({780, 100}, QRect(QPoint(780 - kGap - kLensWidth, 100 + kGap), size));
  // Near the bottom, above it.
  moveAndWait({100, 590}, QRect(QPoint(100 + kGap, 590 - kGap - kLensHeight), size));
  // In the bottom-right corner, both.
  moveAndWait({799, 599}, QRect(QPoint(799 - kGap - kLensWidth, 599 - kGap - kLensHeight), size));
  // Just where it still fits, it does not flip.
  moveAndWait({800 - kGap - kLensWidth, 600 - kGap - kLensHeight},
              QRect(QPoint(800 - kLensWidth, 600 - kLensHeight), size));
  EXPECT_EQ(windowOf(*server_, *probe_), QRect(QPoint(800 - kLensWidth, 600 - kLensHeight), size));
}

TEST_F(PickLensXvfbTest, TheLensIsNeverOverThePixelsItShowsNorThePickedOne) {
  arm({400, 300});
  QList<QPoint> points;
  for (int x : {0, 5, 399, 800 - kGap - kLensWidth, 800 - kGap - kLensWidth + 1, 794, 799})
    for (int y : {0, 5, 299, 600 - kGap - kLensHeight, 600 - kGap - kLensHeight + 1, 594, 599})
      points << QPoint(x, y);
  for (const QPoint p : points) {
    moveTo(*server_, p.x(), p.y());
    // The lens has caught up with the pointer once it shows the pointer's pixel.
    const QString shown =
        QStringLiteral("LENS_INFO #%1 ").arg(gradientLine(p.x(), p.y()).section(' ', 4, 4));
    bool caughtUp = false;
    for (int i = 0; i < 100 && !caughtUp; ++i) {
      // Asked without pause, the probe would have no idle moment for the
      // lens's frame timer.
      if (i > 0) QThread::msleep(20);
      probe_->send("lens");
      ASSERT_TRUE(probe_->waitFor("LENS_INFO"));
      caughtUp = probe_->matching("LENS_INFO").last().startsWith(shown);
    }
    ASSERT_TRUE(caughtUp) << "pointer " << p.x() << "," << p.y() << " "
                          << probe_->matching("LENS_INFO").last().toStdString();
    const QRect window = windowOf(*server_, *probe_);
    ASSERT_FALSE(window.isEmpty());
    EXPECT_FALSE(window.intersects(magnified(p)))
        << "pointer " << p.x() << "," << p.y() << " lens " << window.x() << "," << window.y();
  }
  // And a click picks the pixel below the pointer, the lens up beside it.
  xdotool(*server_, {QStringLiteral("mousemove"), QStringLiteral("799"), QStringLiteral("599"),
                     QStringLiteral("click"), QStringLiteral("1")});
  ASSERT_TRUE(probe_->waitFor("NEW_COLOR")) << probe_->all().toStdString();
  EXPECT_EQ(probe_->matching("NEW_COLOR"), QStringList{gradientLine(799, 599)});
  // The lens goes within a frame, usually before the colour is read.
  EXPECT_TRUE(probe_->count("LENS_CLOSED") == 1 || probe_->waitFor("LENS_CLOSED"));
}

TEST_F(PickLensXvfbTest, ArrowKeysMoveThePointerOneDevicePixelAndWithShiftTen) {
  arm({200, 200});
  key(*server_, QStringLiteral("Right"));
  EXPECT_EQ(pointerOf(*server_), QPoint(201, 200));
  key(*server_, QStringLiteral("Down"));
  EXPECT_EQ(pointerOf(*server_), QPoint(201, 201));
  key(*server_, QStringLiteral("Left"));
  key(*server_, QStringLiteral("Left"));
  EXPECT_EQ(pointerOf(*server_), QPoint(199, 201));
  key(*server_, QStringLiteral("Up"));
  EXPECT_EQ(pointerOf(*server_), QPoint(199, 200));
  key(*server_, QStringLiteral("shift+Right"));
  EXPECT_EQ(pointerOf(*server_), QPoint(209, 200));
  key(*server_, QStringLiteral("shift+Up"));
  EXPECT_EQ(pointerOf(*server_), QPoint(209, 190));
  // At the edge the pointer stays on the screen.
  moveTo(*server_, 3, 3);
  key(*server_, QStringLiteral("shift+Left"));
  EXPECT_EQ(pointerOf(*server_), QPoint(0, 3));
  EXPECT_EQ(probe_->count("NEW_COLOR"), 0);
  EXPECT_EQ(probe_->count("MOUSE_DOWN"), 0);
}

TEST_F(PickLensXvfbTest, EnterPicksThePixelUnderThePointerAsTheScreenShowsIt) {
  arm({300, 260});
  key(*server_, QStringLiteral("shift+Right"));
  key(*server_, QStringLiteral("Right"));
  key(*server_, QStringLiteral("Down"));
  const QImage screen = testing::xwdScreenshot(*server_);
  ASSERT_FALSE(screen.isNull()) << "xwd (x11-apps) is needed";
  key(*server_, QStringLiteral("Return"));
  ASSERT_TRUE(probe_->waitFor("NEW_COLOR")) << probe_->all().toStdString();
  EXPECT_EQ(probe_->matching("NEW_COLOR"),
            QStringList{testing::newColorLine(screen.pixel(311, 261))});
  EXPECT_EQ(probe_->matching("NEW_COLOR"), QStringList{gradientLine(311, 261)});
  // Its neighbours differ: a pixel off would have shown.
  EXPECT_NE(screen.pixel(310, 261), screen.pixel(311, 261));
  EXPECT_NE(screen.pixel(311, 260), screen.pixel(311, 261));
  EXPECT_EQ(probe_->count("MOUSE_DOWN"), 1);
  // The lens goes within a frame, usually before the colour is read.
  EXPECT_TRUE(probe_->count("LENS_CLOSED") == 1 || probe_->waitFor("LENS_CLOSED"));
}

TEST_F(PickLensXvfbTest, SpacePicksToo) {
  arm({450, 123});
  key(*server_, QStringLiteral("space"));
  ASSERT_TRUE(probe_->waitFor("NEW_COLOR")) << probe_->all().toStdString();
  EXPECT_EQ(probe_->matching("NEW_COLOR"), QStringList{gradientLine(450, 123)});
}

TEST_F(PickLensXvfbTest, EscapeGivesThePickUpAndALaterClickPicksNothing) {
  arm({250, 250});
  key(*server_, QStringLiteral("Escape"));
  ASSERT_TRUE(probe_->waitFor("CANCELLED")) << probe_->all().toStdString();
  ASSERT_TRUE(probe_->waitFor("LENS_CLOSED")) << probe_->all().toStdString();
  xdotool(*server_, {QStringLiteral("click"), QStringLiteral("1")});
  ASSERT_TRUE(probe_->waitFor("CLICK_SEEN"));
  EXPECT_EQ(probe_->count("NEW_COLOR"), 0);
  EXPECT_EQ(probe_->count("MOUSE_DOWN"), 0);
  // The keyboard is free again: the arrow keys no longer move the pointer.
  key(*server_, QStringLiteral("Right"));
  EXPECT_EQ(pointerOf(*server_), QPoint(250, 250));
}

TEST_F(PickLensXvfbTest, AClickStillPicksWithTheLensUp) {
  arm({120, 80});
  xdotool(*server_, {QStringLiteral("mousemove"), QStringLiteral("640"), QStringLiteral("480"),
                     QStringLiteral("click"), QStringLiteral("1")});
  ASSERT_TRUE(probe_->waitFor("NEW_COLOR")) << probe_->all().toStdString();
  EXPECT_EQ(probe_->matching("NEW_COLOR"), QStringList{gradientLine(640, 480)});
  // The lens goes within a frame, usually before the colour is read.
  EXPECT_TRUE(probe_->count("LENS_CLOSED") == 1 || probe_->waitFor("LENS_CLOSED"));
}

TEST_F(PickLensXvfbTest, AtScaleTwoAKeyMovesOneDevicePixelAndTheLensIsTwiceAsLarge) {
  arm({200, 200}, QStringLiteral("2"));
  EXPECT_EQ(lastPlacement(*probe_), QRect(200 + kGap, 200 + kGap, 2 * kLensWidth, 2 * kLensHeight));
  key(*server_, QStringLiteral("Right"));
  EXPECT_EQ(pointerOf(*server_), QPoint(201, 200));
  moveAndWait({700, 500}, QRect(QPoint(700 - kGap - 2 * kLensWidth, 500 - kGap - 2 * kLensHeight),
                                QSize(2 * kLensWidth, 2 * kLensHeight)));
  key(*server_, QStringLiteral("Return"));
  ASSERT_TRUE(probe_->waitFor("NEW_COLOR")) << probe_->all().toStdString();
  EXPECT_EQ(probe_->matching("NEW_COLOR"), QStringList{gradientLine(700, 500)});
}

}  // namespace
}  // namespace tw
