#include "bridge/linux/ProcApplicationLister.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "tests/bridge/BridgeTestSupport.h"

namespace tw {
namespace {

using bridge_testing::StandInProcess;

TEST(ProcApplicationLister, WinePathGivesTheExecutableNameAndTheReportedPath) {
  StandInProcess process(
      QStringLiteral("C:\\Program Files\\Adobe\\Adobe Photoshop 2020\\Photoshop.exe"));
  ASSERT_TRUE(process.ready());
  const auto application = ProcApplicationLister::readProcess(process.pid());
  ASSERT_TRUE(application);
  EXPECT_EQ(application->localizedName, "Photoshop.exe");
  EXPECT_EQ(application->bundleURL,
            "C:\\Program Files\\Adobe\\Adobe Photoshop 2020\\Photoshop.exe");
}

TEST(ProcApplicationLister, NameIsAfterTheLastSlashOfEitherKind) {
  const std::vector<std::pair<QString, QString>> cases = {
      {QStringLiteral("/usr/bin/Illustrator"), QStringLiteral("Illustrator")},
      {QStringLiteral("Z:\\opt/mixed\\tools/Adobe Illustrator.exe"),
       QStringLiteral("Adobe Illustrator.exe")},
      {QStringLiteral("C:/a\\b"), QStringLiteral("b")},
      {QStringLiteral("plain name"), QStringLiteral("plain name")},
      {QStringLiteral("C:\\ends\\"), QString()},
  };
  for (const auto& [argv0, name] : cases) {
    StandInProcess process(argv0);
    ASSERT_TRUE(process.ready()) << argv0.toStdString();
    const auto application = ProcApplicationLister::readProcess(process.pid());
    ASSERT_TRUE(application) << argv0.toStdString();
    EXPECT_EQ(application->localizedName, name) << argv0.toStdString();
    EXPECT_EQ(application->bundleURL, argv0);
  }
}

TEST(ProcApplicationLister, CurrentUserProcessesAreListedInAscendingOrder) {
  StandInProcess a(QStringLiteral("one"));
  StandInProcess b(QStringLiteral("two"));
  ASSERT_TRUE(a.ready() && b.ready());
  const std::vector<qint64> pids = ProcApplicationLister::currentUserProcessIds();
  EXPECT_TRUE(std::is_sorted(pids.begin(), pids.end()));
  EXPECT_EQ(std::adjacent_find(pids.begin(), pids.end()), pids.end());
  for (const qint64 pid : {qint64(getpid()), a.pid(), b.pid()}) {
    EXPECT_TRUE(std::binary_search(pids.begin(), pids.end(), pid)) << pid;
  }
  for (const qint64 pid : pids) {
    struct stat info {};
    if (stat(QStringLiteral("/proc/%1").arg(pid).toLocal8Bit().constData(), &info) == 0) {
      EXPECT_EQ(info.st_uid, geteuid()) << pid;
    }
  }
}

TEST(ProcApplicationLister, ListsInTheOrderOfItsPidSource) {
  StandInProcess a(QStringLiteral("C:\\x\\first.exe"));
  StandInProcess b(QStringLiteral("C:\\x\\second.exe"));
  ASSERT_TRUE(a.ready() && b.ready());
  const ProcApplicationLister lister([&] { return std::vector<qint64>{b.pid(), a.pid()}; });
  const auto applications = lister.runningApplications();
  ASSERT_EQ(applications.size(), 2u);
  EXPECT_EQ(applications[0].localizedName, "second.exe");
  EXPECT_EQ(applications[1].localizedName, "first.exe");
}

TEST(ProcApplicationLister, ProcessThatVanishesAfterListingIsSkipped) {
  StandInProcess staying(QStringLiteral("C:\\Adobe\\Illustrator.exe"));
  auto leaving = std::make_unique<StandInProcess>(QStringLiteral("C:\\Adobe\\Photoshop.exe"));
  ASSERT_TRUE(staying.ready() && leaving->ready());
  const qint64 leavingPid = leaving->pid();
  const ProcApplicationLister lister([&] {
    std::vector<qint64> pids = ProcApplicationLister::currentUserProcessIds();
    std::erase_if(pids, [&](qint64 pid) { return pid != staying.pid() && pid != leavingPid; });
    EXPECT_EQ(pids.size(), 2u);
    // Gone between the listing and the reading of its command line.
    leaving->stop();
    return pids;
  });
  const auto applications = lister.runningApplications();
  ASSERT_EQ(applications.size(), 1u);
  EXPECT_EQ(applications[0].localizedName, "Illustrator.exe");
  EXPECT_EQ(applications[0].bundleURL, "C:\\Adobe\\Illustrator.exe");
}

TEST(ProcApplicationLister, ProcessWithoutACommandLineIsSkipped) {
  // A zombie keeps its /proc entry but has no command line any more.
  const pid_t zombie = fork();
  if (zombie == 0) _exit(0);
  const QString status = QStringLiteral("/proc/%1/stat").arg(zombie);
  for (int i = 0; i < 1000 && !bridge_testing::readBytes(status).contains(") Z "); ++i)
    usleep(2000);
  ASSERT_TRUE(bridge_testing::readBytes(status).contains(") Z "));
  EXPECT_FALSE(ProcApplicationLister::readProcess(zombie));
  const ProcApplicationLister lister([&] { return std::vector<qint64>{zombie, getpid()}; });
  EXPECT_EQ(lister.runningApplications().size(), 1u);
  waitpid(zombie, nullptr, 0);
  EXPECT_FALSE(ProcApplicationLister::readProcess(zombie));
}

// The literal's bytes, inner NULs included.
template <std::size_t N>
QByteArray bytesOf(const char (&text)[N]) {
  return QByteArray(text, N - 1);
}

TEST(ProcApplicationLister, CommandLineGivesArgvZeroUpToItsNul) {
  const auto application =
      ProcApplicationLister::applicationFromCommandLine(bytesOf("C:\\Adobe\\Photoshop.exe\0-x\0"));
  ASSERT_TRUE(application);
  EXPECT_EQ(application->localizedName, "Photoshop.exe");
  EXPECT_EQ(application->bundleURL, "C:\\Adobe\\Photoshop.exe");
}

TEST(ProcApplicationLister, EmptyCommandLineGivesNoApplication) {
  EXPECT_FALSE(ProcApplicationLister::applicationFromCommandLine(QByteArray()));
}

TEST(ProcApplicationLister, CommandLineStartingWithNulGivesAnEmptyName) {
  const auto application =
      ProcApplicationLister::applicationFromCommandLine(bytesOf("\0/usr/bin/x"));
  ASSERT_TRUE(application);
  EXPECT_EQ(application->localizedName, QString());
  EXPECT_EQ(application->bundleURL, QString());
}

}  // namespace
}  // namespace tw
