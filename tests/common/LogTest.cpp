#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "common/Log.h"

namespace tw {
namespace {

TEST(Log, LinesFromManyThreadsNeverInterleave) {
  testing::internal::CaptureStdout();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      const std::string line(200, static_cast<char>('a' + t));
      for (int i = 0; i < 200; ++i) logLine(line);
    });
  }
  for (auto& t : threads) t.join();
  const std::string out = testing::internal::GetCapturedStdout();
  size_t lines = 0;
  for (size_t start = 0; start < out.size();) {
    const size_t end = out.find('\n', start);
    ASSERT_NE(end, std::string::npos);
    const std::string line = out.substr(start, end - start);
    ASSERT_EQ(line.size(), 200u);
    EXPECT_EQ(line.find_first_not_of(line[0]), std::string::npos);
    ++lines;
    start = end + 1;
  }
  EXPECT_EQ(lines, 800u);
}

TEST(Log, Utf8TextIsWrittenAsIs) {
  testing::internal::CaptureStdout();
  logLine(QStringLiteral("try 招式1 ~ 取已存檔的 savedQuillaUUID "));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "try 招式1 ~ 取已存檔的 savedQuillaUUID \n");
}

TEST(Log, ASinkTakesTheLinesInsteadOfStandardOutput) {
  std::vector<std::string> taken;
  testing::internal::CaptureStdout();
  setLogSink([&](std::string_view line) { taken.emplace_back(line); });
  logLine(std::string_view("one"));
  logLine(QStringLiteral("two 招式"));
  setLogSink(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(taken, (std::vector<std::string>{"one", "two 招式"}));
}

TEST(Log, AnEmptySinkGivesTheLinesBackToStandardOutput) {
  setLogSink([](std::string_view) {});
  setLogSink(nullptr);
  testing::internal::CaptureStdout();
  logLine(std::string_view("back"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "back\n");
}

TEST(Log, TheSinkIsCalledForOneLineAtATime) {
  std::atomic<int> inside{0};
  std::atomic<int> overlaps{0};
  std::atomic<int> lines{0};
  setLogSink([&](std::string_view) {
    if (inside.fetch_add(1) != 0) ++overlaps;
    std::this_thread::yield();
    inside.fetch_sub(1);
    ++lines;
  });
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([] {
      for (int i = 0; i < 500; ++i) logLine(std::string_view("x"));
    });
  for (auto& t : threads) t.join();
  setLogSink(nullptr);
  EXPECT_EQ(lines.load(), 2000);
  EXPECT_EQ(overlaps.load(), 0);
}

}  // namespace
}  // namespace tw
