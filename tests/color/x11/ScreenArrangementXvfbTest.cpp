// Picks on every screen arrangement a desktop can have, each checked against
// an outside screenshot: one monitor at scales 1, 1.25, 1.5 and 2, two side by
// side with different sizes and scales, a monitor left of the primary one and
// one above it (monitors defined with xrandr on one Xvfb root). The real probe
// application with the X11 backend and the magnifier; xdotool moves and clicks,
// xwd reads the screen.
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

struct Monitor {
  QString name;  // a leading '*' makes it the primary one
  QRect rect;    // device pixels on the root
  QString scale;
};

struct Arrangement {
  const char* name;
  QSize root;
  std::vector<Monitor> monitors;  // none: the root is the one monitor
};

// The arrangements, each at one scale (a second monitor, where there is one,
// at another).
std::vector<Arrangement> arrangements(const QString& scale) {
  const QString other = scale == QLatin1String("2") ? QStringLiteral("1") : QStringLiteral("2");
  return {
      {"One", {800, 600}, {}},
      {"SideBySide",
       {1280, 800},
       {{QStringLiteral("*left"), QRect(0, 0, 640, 480), scale},
        {QStringLiteral("right"), QRect(640, 0, 640, 800), other}}},
      {"LeftOfThePrimary",
       {1280, 600},
       {{QStringLiteral("*main"), QRect(480, 0, 800, 600), scale},
        {QStringLiteral("side"), QRect(0, 100, 480, 500), other}}},
      {"AboveThePrimary",
       {800, 1000},
       {{QStringLiteral("*main"), QRect(0, 400, 800, 600), scale},
        {QStringLiteral("top"), QRect(100, 0, 600, 400), other}}},
  };
}

struct Case {
  QString scale;
  int arrangement;
};

void PrintTo(const Case& c, std::ostream* os) {
  *os << arrangements(c.scale)[c.arrangement].name << " at scale " << c.scale.toStdString();
}

std::string caseName(const ::testing::TestParamInfo<Case>& info) {
  QString scale = info.param.scale;
  scale.replace(QLatin1Char('.'), QLatin1Char('_'));
  return std::string(arrangements(info.param.scale)[info.param.arrangement].name) + "AtScale" +
         scale.toStdString();
}

class ScreenArrangementXvfbTest : public ::testing::TestWithParam<Case> {};

TEST_P(ScreenArrangementXvfbTest, EveryPickIsThePixelUnderThePointerAndTheLensStaysBesideIt) {
  const Arrangement arrangement = arrangements(GetParam().scale)[GetParam().arrangement];
  XvfbServer server(
      {QStringLiteral("-screen"), QStringLiteral("0"),
       QStringLiteral("%1x%2x24").arg(arrangement.root.width()).arg(arrangement.root.height())});
  ASSERT_TRUE(server.isRunning());
  std::vector<Monitor> monitors = arrangement.monitors;
  QStringList factors;
  for (const Monitor& m : monitors) {
    int code = -1;
    server.run(QStringLiteral("xrandr"),
               {QStringLiteral("--setmonitor"), m.name,
                QStringLiteral("%1/170x%2/130+%3+%4")
                    .arg(m.rect.width())
                    .arg(m.rect.height())
                    .arg(m.rect.x())
                    .arg(m.rect.y()),
                QStringLiteral("none")},
               &code);
    if (code != 0) GTEST_SKIP() << "xrandr cannot define monitors here";
    factors << QStringLiteral("%1=%2").arg(QString(m.name).remove(QLatin1Char('*')), m.scale);
  }
  if (monitors.empty())
    monitors.push_back(
        {QStringLiteral("screen"), QRect(QPoint(0, 0), arrangement.root), GetParam().scale});

  std::unique_ptr<Probe> probe;
  const QStringList args{"--at", "0,0,1,1", "--gradient", "--root-gradient", "--lens"};
  if (arrangement.monitors.empty()) {
    probe = std::make_unique<Probe>(server, args, GetParam().scale);
  } else {
    qputenv("QT_SCREEN_SCALE_FACTORS", factors.join(QLatin1Char(';')).toUtf8());
    probe = std::make_unique<Probe>(server, args, QString());
    qunsetenv("QT_SCREEN_SCALE_FACTORS");
  }
  ASSERT_TRUE(probe->waitFor("READY")) << probe->all().toStdString();
  // Qt sees each monitor at its scale.
  for (const Monitor& m : arrangement.monitors) {
    const QString name = QString(m.name).remove(QLatin1Char('*'));
    const QStringList seen = probe->matching(QStringLiteral("SCREEN ") + name + QLatin1Char(' '));
    ASSERT_EQ(seen.size(), 1) << probe->all().toStdString();
    EXPECT_EQ(seen[0].section(' ', 2, 3), QStringLiteral("%1 %2").arg(m.rect.x()).arg(m.rect.y()));
    EXPECT_EQ(seen[0].section(' ', 6, 6).toDouble(), m.scale.toDouble()) << seen[0].toStdString();
  }
  // The primary monitor is Qt's first screen.
  if (!arrangement.monitors.empty()) {
    const QString primary = QString(arrangement.monitors[0].name).remove(QLatin1Char('*'));
    EXPECT_TRUE(probe->matching(QStringLiteral("SCREEN "))
                    .first()
                    .startsWith(QStringLiteral("SCREEN ") + primary + QLatin1Char(' ')));
  }

  const QImage screen = testing::xwdScreenshot(server);
  ASSERT_FALSE(screen.isNull()) << "xwd (x11-apps) is needed";

  QStringList expected;
  for (const Monitor& m : monitors) {
    const QRect r = m.rect;
    for (const QPoint p : {r.center(), r.topLeft() + QPoint(1, 1), r.topRight() + QPoint(-1, 1),
                           r.bottomLeft() + QPoint(1, -1), r.bottomRight() + QPoint(-1, -1)}) {
      const QString where = QStringLiteral("%1 at %2,%3").arg(m.name).arg(p.x()).arg(p.y());
      // Neighbouring pixels differ, so a pick one pixel off would show.
      ASSERT_NE(screen.pixel(p), screen.pixel(p + QPoint(1, 0))) << where.toStdString();
      ASSERT_NE(screen.pixel(p), screen.pixel(p + QPoint(0, 1))) << where.toStdString();

      probe->send("arm");
      ASSERT_TRUE(probe->waitFor("ARMED"));
      int code = -1;
      server.run(QStringLiteral("xdotool"),
                 {QStringLiteral("mousemove"), QString::number(p.x()), QString::number(p.y())},
                 &code);
      ASSERT_EQ(code, 0);
      // The lens shows the pointer's pixel once it has caught up.
      const QString shown =
          QStringLiteral("LENS_INFO %1 ").arg(QColor(screen.pixel(p)).name().toUpper());
      bool caughtUp = false;
      for (int i = 0; i < 100 && !caughtUp; ++i) {
        if (i > 0) QThread::msleep(20);
        probe->send("lens");
        ASSERT_TRUE(probe->waitFor("LENS_INFO"));
        caughtUp = probe->matching("LENS_INFO").last().startsWith(shown);
      }
      ASSERT_TRUE(caughtUp) << where.toStdString() << ": "
                            << probe->matching("LENS_INFO").last().toStdString();
      const QRect lens =
          testing::viewableWindow(server, probe->matching("LENS_WINID").last().section(' ', 1));
      ASSERT_FALSE(lens.isEmpty()) << where.toStdString();
      const QRect shownArea(p.x() - PickLens::kPixels / 2, p.y() - PickLens::kPixels / 2,
                            PickLens::kPixels, PickLens::kPixels);
      EXPECT_FALSE(lens.intersects(shownArea)) << where.toStdString();
      // On the pointer's monitor, at that monitor's scale, and inside it
      // wherever it has the room beside or above and below the pointer.
      const bool room = (p.x() + PickLens::kGap + lens.width() <= m.rect.right() + 1 ||
                         p.x() - PickLens::kGap - lens.width() >= m.rect.x()) ||
                        (p.y() + PickLens::kGap + lens.height() <= m.rect.bottom() + 1 ||
                         p.y() - PickLens::kGap - lens.height() >= m.rect.y());
      EXPECT_TRUE(room ? m.rect.contains(lens) : m.rect.contains(lens.center()))
          << where.toStdString() << ": lens " << lens.x() << "," << lens.y() << " " << lens.width()
          << "x" << lens.height();
      const double scale = m.scale.toDouble();
      EXPECT_NEAR(lens.width(), PickLens::kPixels * PickLens::kZoom * scale, 1.0)
          << where.toStdString();

      server.run(QStringLiteral("xdotool"), {QStringLiteral("click"), QStringLiteral("1")}, &code);
      ASSERT_EQ(code, 0);
      ASSERT_TRUE(probe->waitFor("NEW_COLOR")) << where.toStdString() << "\n"
                                               << probe->all().toStdString();
      expected << testing::newColorLine(screen.pixel(p));
      EXPECT_EQ(probe->matching("NEW_COLOR").last(), expected.last()) << where.toStdString();
    }
  }
  EXPECT_EQ(probe->matching("NEW_COLOR"), expected);
}

std::vector<Case> allCases() {
  std::vector<Case> cases;
  for (const char* scale : {"1", "1.25", "1.5", "2"})
    for (int a = 0; a < 4; ++a) cases.push_back({QString::fromLatin1(scale), a});
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Arrangements, ScreenArrangementXvfbTest, ::testing::ValuesIn(allCases()),
                         caseName);

}  // namespace
}  // namespace tw
