#include "bridge/ShellRunner.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <atomic>
#include <thread>

#include "bridge/Commander.h"
#include "tests/bridge/BridgeTestSupport.h"

namespace tw {
namespace {

TEST(ShellRunner, CollectsStandardOutputThroughBash) {
  EXPECT_EQ(runBashCommand(QStringLiteral("echo one; printf two")), "one\ntwo");
  // Bash syntax, not sh.
  EXPECT_EQ(runBashCommand(QStringLiteral("a=(x y z); echo ${#a[@]}")), "3\n");
}

TEST(ShellRunner, StandardErrorIsNotCollected) {
  EXPECT_EQ(runBashCommand(QStringLiteral("echo out; echo err >&2")), "out\n");
}

TEST(ShellRunner, ExitStatusIsIgnored) {
  EXPECT_EQ(runBashCommand(QStringLiteral("echo partial; exit 3")), "partial\n");
  EXPECT_EQ(runBashCommand(QStringLiteral("no-such-command-here")), "");
}

TEST(ShellRunner, ReadsUntilTheLastWriterClosesThePipe) {
  // The shell exits at once; a background child still writes later.
  EXPECT_EQ(runBashCommand(QStringLiteral("(sleep 0.3; echo late) & echo early")), "early\nlate\n");
}

TEST(ShellRunner, StandardInputIsInherited) {
  // Standard input is the test's own; reading it must not see a closed pipe of ours.
  const QByteArray out = runBashCommand(QStringLiteral("[ -e /dev/fd/0 ] && echo present"));
  EXPECT_EQ(out, "present\n");
}

TEST(ShellRunner, ConcurrentRunsDoNotHoldEachOthersPipes) {
  // A short run's pipe is open while a long run starts on another thread. Were
  // the pipe inherited by the long run's child, the short run would wait for
  // that child's end instead of its own.
  std::atomic<bool> shortDone{false};
  std::thread shortRun([&] {
    runBashCommand(QStringLiteral("sleep 0.4"));
    shortDone = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  std::thread longRun([] { runBashCommand(QStringLiteral("exec sleep 3.14159")); });
  shortRun.join();
  // The long run's child must still be alive when the short run has returned.
  const QByteArray alive =
      runBashCommand(QStringLiteral("pgrep -x -f 'sleep 3.14159' >/dev/null && echo alive"));
  longRun.join();
  EXPECT_TRUE(shortDone);
  EXPECT_EQ(alive, "alive\n");
}

TEST(ShellRunner, RunShellDecodesUtf8) {
  Commander commander(std::make_shared<WineHostDescription>(nullptr));
  EXPECT_EQ(commander.runShell(QStringLiteral("printf '\\xe4\\xb8\\xad ok'")),
            QStringLiteral("中 ok"));
  EXPECT_EQ(commander.runShell(QStringLiteral("true")), QString());
}

TEST(ShellRunner, RunShellStopsOnOutputThatIsNotUtf8) {
  Commander commander(std::make_shared<WineHostDescription>(nullptr));
  EXPECT_DEATH(commander.runShell(QStringLiteral("printf 'ok \\xc3'")),
               "launcher output is not valid UTF-8");
}

}  // namespace
}  // namespace tw
