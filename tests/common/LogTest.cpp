#include <gtest/gtest.h>

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

}  // namespace
}  // namespace tw
