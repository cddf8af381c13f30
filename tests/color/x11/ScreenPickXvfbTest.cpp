// The X11 backend end to end: a real Xvfb, the real probe application with
// the platform backend, real clicks from xdotool.
#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QProcess>
#include <QRegularExpression>

#include "tests/color/x11/PickProbe.h"

namespace tw {
namespace {

using testing::Probe;
using testing::XvfbServer;

void click(const XvfbServer& server, int x, int y) {
  int code = -1;
  server.run(QStringLiteral("xdotool"),
             {QStringLiteral("mousemove"), QString::number(x), QString::number(y),
              QStringLiteral("click"), QStringLiteral("1")},
             &code);
  ASSERT_EQ(code, 0);
}

TEST(ScreenPickXvfb, ArmedClickPostsTheColourUnderThePointerOnce) {
  XvfbServer server;
  ASSERT_TRUE(server.isRunning());
  Probe probe(server, {"--at", "100,100,200,150", "--fill", "12,34,56", "--arm"});
  ASSERT_TRUE(probe.waitFor("READY")) << probe.all().toStdString();
  click(server, 150, 160);
  ASSERT_TRUE(probe.waitFor("NEW_COLOR")) << probe.all().toStdString();
  EXPECT_EQ(probe.matching("NEW_COLOR"), QStringList{"NEW_COLOR 12 34 56 0C2238 NewScreenColor"});
  EXPECT_EQ(probe.count("MOUSE_DOWN"), 1);
  EXPECT_EQ(probe.matching("HEIGHT"), QStringList{"HEIGHT 600"});
  // The pointer at row 160 of 600: bottom-left y 440, flipped back to 160.
  EXPECT_EQ(probe.matching("Helper mouseLocation:"),
            QStringList{"Helper mouseLocation: 150.0, 440.0"});
  EXPECT_EQ(probe.matching("Helper mouseLocation2:"),
            QStringList{"Helper mouseLocation2: 150.0, 160.0 "});
}

TEST(ScreenPickXvfb, OnASixteenBitScreenEachChannelIsItsFractionTimes255Truncated) {
  // A 5-6-5 TrueColor visual. 24,24,24 is stored as red 3 of 31, green 6 of
  // 63, blue 3 of 31: 3/31 x 255 = 24.68 and 6/63 x 255 = 24.29, so 24 each
  // (rounding would give 25 for red and blue).
  XvfbServer server({QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("800x600x16")});
  ASSERT_TRUE(server.isRunning());
  Probe probe(server, {"--at", "100,100,200,150", "--fill", "24,24,24", "--arm"});
  ASSERT_TRUE(probe.waitFor("READY")) << probe.all().toStdString();
  click(server, 150, 160);
  ASSERT_TRUE(probe.waitFor("NEW_COLOR")) << probe.all().toStdString();
  EXPECT_EQ(probe.matching("NEW_COLOR"), QStringList{"NEW_COLOR 24 24 24 181818 NewScreenColor"})
      << probe.all().toStdString();
}

TEST(ScreenPickXvfb, ClickWhileNotArmedDoesNothing) {
  XvfbServer server;
  ASSERT_TRUE(server.isRunning());
  Probe probe(server, {"--at", "100,100,200,150", "--fill", "200,100,50"});
  ASSERT_TRUE(probe.waitFor("READY")) << probe.all().toStdString();
  click(server, 150, 160);
  // CLICK_SEEN comes from a handler added after the picker's: the picker has
  // had the click by then.
  ASSERT_TRUE(probe.waitFor("CLICK_SEEN")) << probe.all().toStdString();
  EXPECT_EQ(probe.count("MOUSE_DOWN"), 0);
  EXPECT_EQ(probe.count("NEW_COLOR"), 0);

  probe.send("arm");
  ASSERT_TRUE(probe.waitFor("ARMED"));
  click(server, 150, 160);
  ASSERT_TRUE(probe.waitFor("NEW_COLOR")) << probe.all().toStdString();
  EXPECT_EQ(probe.matching("NEW_COLOR"), QStringList{"NEW_COLOR 200 100 50 C86432 NewScreenColor"});
}

TEST(ScreenPickXvfb, TwoClicksAfterOneArmingSampleOnce) {
  XvfbServer server;
  ASSERT_TRUE(server.isRunning());
  Probe probe(server, {"--at", "0,0,300,300", "--fill", "1,2,3", "--arm"});
  ASSERT_TRUE(probe.waitFor("READY")) << probe.all().toStdString();
  click(server, 10, 10);
  ASSERT_TRUE(probe.waitFor("NEW_COLOR")) << probe.all().toStdString();
  click(server, 20, 20);
  ASSERT_TRUE(probe.waitFor("CLICK_SEEN"));
  // Arm once more and pick: anything the second click had started would
  // have arrived before this pick's colour.
  probe.send("arm");
  ASSERT_TRUE(probe.waitFor("ARMED"));
  click(server, 30, 30);
  ASSERT_TRUE(probe.waitFor("NEW_COLOR")) << probe.all().toStdString();
  EXPECT_EQ(probe.count("NEW_COLOR"), 2);
  EXPECT_EQ(probe.count("MOUSE_DOWN"), 2);
  EXPECT_EQ(
      probe.matching("Helper mouseLocation2:"),
      (QStringList{"Helper mouseLocation2: 10.0, 10.0 ", "Helper mouseLocation2: 30.0, 30.0 "}));
}

TEST(ScreenPickXvfb, PickingWindowLetsClicksThroughToTheWindowBelow) {
  XvfbServer server;
  ASSERT_TRUE(server.isRunning());
  Probe probe(server, {"--at", "200,150,240,180", "--fill", "90,180,30", "--picker-over"});
  ASSERT_TRUE(probe.waitFor("READY")) << probe.all().toStdString();

  // The picking window is mapped, above the target, and covers the click point.
  const QStringList id = probe.matching("PICKER_WINID");
  ASSERT_EQ(id.size(), 1);
  const QString info = QString::fromLocal8Bit(
      server.run(QStringLiteral("xwininfo"), {QStringLiteral("-id"), id[0].section(' ', 1)}));
  EXPECT_TRUE(info.contains(QStringLiteral("Map State: IsViewable"))) << info.toStdString();
  EXPECT_TRUE(info.contains(QStringLiteral("Width: 800"))) << info.toStdString();
  const QString stack = QString::fromLocal8Bit(server.run(
      QStringLiteral("xwininfo"), {QStringLiteral("-root"), QStringLiteral("-children")}));
  const qsizetype pickerLine =
      stack.indexOf(QStringLiteral("0x%1").arg(id[0].section(' ', 1).toULongLong(), 0, 16));
  const qsizetype targetLine = stack.indexOf(QStringLiteral("240x180+200+150"));
  ASSERT_GE(pickerLine, 0) << stack.toStdString();
  ASSERT_GE(targetLine, 0) << stack.toStdString();
  EXPECT_LT(pickerLine, targetLine) << "children are listed top first\n" << stack.toStdString();

  click(server, 250, 200);
  ASSERT_TRUE(probe.waitFor("BELOW_PRESS")) << probe.all().toStdString();
  EXPECT_EQ(probe.matching("BELOW_PRESS"), QStringList{"BELOW_PRESS 50 50"});
}

TEST(ScreenPickXvfb, SampleIsTakenAfterThePickingWindowIsGone) {
  XvfbServer server;
  ASSERT_TRUE(server.isRunning());
  // Without a compositor the shown picking window covers the screen in
  // near-black; the sample must still be the colour below it.
  Probe probe(server, {"--at", "200,150,240,180", "--fill", "90,180,30", "--picker-over", "--arm"});
  ASSERT_TRUE(probe.waitFor("READY")) << probe.all().toStdString();
  click(server, 250, 200);
  ASSERT_TRUE(probe.waitFor("NEW_COLOR")) << probe.all().toStdString();
  EXPECT_EQ(probe.matching("NEW_COLOR"), QStringList{"NEW_COLOR 90 180 30 5AB41E NewScreenColor"});
  EXPECT_EQ(probe.count("down down"), 1);
  EXPECT_EQ(probe.count("I'm closed!"), 1);
}

TEST(ScreenPickXvfb, AtDevicePixelRatioTwoThePixelUnderThePointerIsSampled) {
  XvfbServer server;
  ASSERT_TRUE(server.isRunning());
  // Logical 50,50 100x100 is device 100,100 200x200; columns alternate per
  // device pixel, so a neighbour's pixel would give the other colour.
  Probe probe(server, {"--at", "50,50,100,100", "--columns", "10,20,30/240,230,220"},
              /*scale2=*/true);
  ASSERT_TRUE(probe.waitFor("READY")) << probe.all().toStdString();
  EXPECT_EQ(probe.matching("HEIGHT"), QStringList{"HEIGHT 600"});  // device pixels

  probe.send("arm");
  ASSERT_TRUE(probe.waitFor("ARMED"));
  click(server, 151, 201);  // odd device column
  ASSERT_TRUE(probe.waitFor("NEW_COLOR")) << probe.all().toStdString();
  probe.send("arm");
  ASSERT_TRUE(probe.waitFor("ARMED"));
  click(server, 152, 201);  // even device column
  ASSERT_TRUE(probe.waitFor("NEW_COLOR")) << probe.all().toStdString();
  EXPECT_EQ(probe.matching("NEW_COLOR"), (QStringList{"NEW_COLOR 240 230 220 F0E6DC NewScreenColor",
                                                      "NEW_COLOR 10 20 30 0A141E NewScreenColor"}));
  EXPECT_EQ(probe.matching("Helper mouseLocation2:"),
            (QStringList{"Helper mouseLocation2: 151.0, 201.0 ",
                         "Helper mouseLocation2: 152.0, 201.0 "}));
}

TEST(ScreenPickXvfb, PickOnATallerScreenWhoseOriginIsNotZero) {
  // One 1280x800 root split into two monitors: the primary 640x480 at (0,0)
  // and a taller 640x800 one at (640,0). A pointer low on the right-hand
  // monitor is above the primary's height in bottom-left terms: the flip
  // rule's absolute value brings back its row.
  XvfbServer server(
      {QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1280x800x24")});
  ASSERT_TRUE(server.isRunning());
  int code = -1;
  server.run(QStringLiteral("xrandr"),
             {QStringLiteral("--setmonitor"), QStringLiteral("left"),
              QStringLiteral("640/170x480/130+0+0"), QStringLiteral("none")},
             &code);
  if (code != 0) GTEST_SKIP() << "xrandr cannot define monitors here";
  server.run(QStringLiteral("xrandr"),
             {QStringLiteral("--setmonitor"), QStringLiteral("right"),
              QStringLiteral("640/170x800/210+640+0"), QStringLiteral("none")},
             &code);
  ASSERT_EQ(code, 0);

  Probe probe(server, {"--at", "700,600,100,100", "--fill", "77,88,99", "--arm"});
  ASSERT_TRUE(probe.waitFor("READY")) << probe.all().toStdString();
  EXPECT_EQ(probe.matching("HEIGHT"), QStringList{"HEIGHT 480"});
  click(server, 710, 650);
  ASSERT_TRUE(probe.waitFor("NEW_COLOR")) << probe.all().toStdString();
  EXPECT_EQ(probe.matching("NEW_COLOR"), QStringList{"NEW_COLOR 77 88 99 4D5863 NewScreenColor"});
  EXPECT_EQ(probe.matching("Helper mouseLocation:"),
            QStringList{"Helper mouseLocation: 710.0, -170.0"});
  EXPECT_EQ(probe.matching("Helper mouseLocation2:"),
            QStringList{"Helper mouseLocation2: 710.0, 650.0 "});
}

}  // namespace
}  // namespace tw
