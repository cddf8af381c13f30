#include "bridge/ShellRunner.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <atomic>
#include <cstdio>
#include <thread>

#include "bridge/Commander.h"
#include "tests/bridge/BridgeTestSupport.h"

namespace tw {
namespace {

// Puts a pipe holding `input` (then its end) in place of this process's
// standard input, and a temporary file in place of its standard error, until
// restore() or the end of the object.
class StandardStreams {
 public:
  explicit StandardStreams(const QByteArray& input) {
    savedIn_ = ::dup(STDIN_FILENO);
    savedErr_ = ::dup(STDERR_FILENO);
    std::fflush(stderr);
    int fds[2];
    if (savedIn_ < 0 || savedErr_ < 0 || ::pipe(fds) != 0) return;
    // Small enough for the pipe's buffer: written whole before anyone reads.
    const bool written = ::write(fds[1], input.constData(), input.size()) == input.size();
    ::close(fds[1]);
    const bool in = ::dup2(fds[0], STDIN_FILENO) == STDIN_FILENO;
    ::close(fds[0]);
    if (!errorFile_.open()) return;
    const bool err = ::dup2(errorFile_.handle(), STDERR_FILENO) == STDERR_FILENO;
    ready_ = written && in && err;
  }
  ~StandardStreams() { restore(); }

  bool ready() const { return ready_; }
  void restore() {
    if (savedIn_ >= 0) {
      ::dup2(savedIn_, STDIN_FILENO);
      ::close(savedIn_);
      savedIn_ = -1;
    }
    if (savedErr_ >= 0) {
      std::fflush(stderr);
      ::dup2(savedErr_, STDERR_FILENO);
      ::close(savedErr_);
      savedErr_ = -1;
    }
  }
  // What was written to standard error meanwhile.
  QByteArray error() {
    QFile file(errorFile_.fileName());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
  }

 private:
  int savedIn_ = -1;
  int savedErr_ = -1;
  QTemporaryFile errorFile_;
  bool ready_ = false;
};

TEST(ShellRunner, CollectsStandardOutputThroughBash) {
  EXPECT_EQ(runBashCommand(QStringLiteral("echo one; printf two")), "one\ntwo");
  // Bash syntax, not sh.
  EXPECT_EQ(runBashCommand(QStringLiteral("a=(x y z); echo ${#a[@]}")), "3\n");
}

TEST(ShellRunner, StandardErrorIsNotCollectedButGoesWhereOursGoes) {
  StandardStreams streams{QByteArray()};
  ASSERT_TRUE(streams.ready());
  const QByteArray out = runBashCommand(QStringLiteral("echo out; echo err >&2"));
  streams.restore();
  EXPECT_EQ(out, "out\n");
  EXPECT_EQ(streams.error(), "err\n");
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
  // The child reads a line of the caller's own standard input.
  StandardStreams streams("a line from the caller\nleft for later\n");
  ASSERT_TRUE(streams.ready());
  const QByteArray out = runBashCommand(QStringLiteral("IFS= read -r line && echo \"got: $line\""));
  streams.restore();
  EXPECT_EQ(out, "got: a line from the caller\n");
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
