// The GIMP and Inkscape hosts apart from the applications: the texts they
// send and read, the processes they answer to, and a session bus without them.

#include <gtest/gtest.h>

#include "bridge/linux/GimpHost.h"
#include "bridge/linux/InkscapeHost.h"
#include "tests/support/PrivateBus.h"

namespace tw {
namespace {

using namespace std::chrono_literals;

RunningApplication app(const char* name) {
  return {QString::fromLatin1(name), QStringLiteral("/usr/bin/") + QString::fromLatin1(name)};
}

TEST(GimpHostTest, TheScriptSetsTheForegroundAndWritesTheNumberedAnswer) {
  EXPECT_EQ(GimpHost::script(HostColor{18, 52, 86}, 7, QStringLiteral("/run/a \"b\"\\c")),
            QStringLiteral("(begin (gimp-context-set-foreground '(18 52 86)) "
                           "(let ((port (open-output-file \"/run/a \\\"b\\\"\\\\c\"))) "
                           "(write (list 7 (car (gimp-context-get-foreground))) port) "
                           "(close-output-port port)))"));
  EXPECT_FALSE(GimpHost::script(std::nullopt, 1, QStringLiteral("/a"))
                   .contains(QStringLiteral("set-foreground")));
}

TEST(GimpHostTest, OnlyTheAnswerToThisPushCounts) {
  EXPECT_EQ(GimpHost::parseAnswer("(3 (18 52 86))", 3), (HostColor{18, 52, 86}));
  EXPECT_EQ(GimpHost::parseAnswer("(3 (18 52 86))\n", 3), (HostColor{18, 52, 86}));
  // An older push's answer, a half-written file, nonsense.
  EXPECT_FALSE(GimpHost::parseAnswer("(2 (18 52 86))", 3));
  EXPECT_FALSE(GimpHost::parseAnswer("(3 (18 52", 3));
  EXPECT_FALSE(GimpHost::parseAnswer("", 3));
  EXPECT_FALSE(GimpHost::parseAnswer("(3 (256 0 0))", 3));
  EXPECT_FALSE(GimpHost::parseAnswer("(3 (1.0 0 0))", 3));
}

TEST(GimpHostTest, AnswersToGimpsOwnProcessNamesOnly) {
  GimpHost host(QDBusConnection(QStringLiteral("none")));
  EXPECT_TRUE(host.isHostProcess(app("gimp")));
  EXPECT_TRUE(host.isHostProcess(app("gimp-2.10")));
  EXPECT_FALSE(host.isHostProcess(app("gimp-console-2.10")));
  EXPECT_FALSE(host.isHostProcess(app("gimptool-2.0")));
  EXPECT_FALSE(host.isHostProcess(app("script-fu")));
  EXPECT_FALSE(host.isHostProcess({std::nullopt, std::nullopt}));
}

TEST(InkscapeHostTest, AnswersToInkscapeOnly) {
  InkscapeHost host(QDBusConnection(QStringLiteral("none")));
  EXPECT_TRUE(host.isHostProcess(app("inkscape")));
  EXPECT_FALSE(host.isHostProcess(app("inkview")));
  EXPECT_FALSE(host.isHostProcess(app("inkscape-helper")));
}

TEST(InkscapeHostTest, FillsAreReadFromStylesAndAttributes) {
  const QByteArray svg =
      "<svg><rect style=\"stroke:#000000;fill:#12aB56;opacity:1\"/>"
      "<circle fill=\"#ffffff\"/><path fill='#000001'/><g style=\"fill: #0a0b0c\"/>"
      "<rect style=\"fill:url(#g)\"/><rect style=\"fill:#abc\"/></svg>";
  EXPECT_EQ(InkscapeHost::fills(svg),
            (std::vector<HostColor>{{0x12, 0xab, 0x56}, {255, 255, 255}, {0, 0, 1}, {10, 11, 12}}));
}

TEST(NativeHostsOnAnEmptyBusTest, NeitherApplicationThereIsNotRunning) {
  testing::PrivateBus bus(testing::PrivateBus::Kind::Session);
  ASSERT_FALSE(bus.address().isEmpty());
  const QDBusConnection connection =
      QDBusConnection::connectToBus(bus.address(), QStringLiteral("empty"));
  GimpHost gimp(connection);
  InkscapeHost inkscape(connection);
  const PushOutcome gimpOutcome = gimp.push(HostColor{1, 2, 3}, 2s);
  EXPECT_EQ(gimpOutcome.status, PushStatus::NotRunning);
  EXPECT_EQ(gimpOutcome.reason, QStringLiteral("not running on this session bus"));
  EXPECT_EQ(inkscape.push(HostColor{1, 2, 3}, 2s).status, PushStatus::NotRunning);
  EXPECT_FALSE(gimp.readBack(2s));
}

}  // namespace
}  // namespace tw
