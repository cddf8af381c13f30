#include "common/FreedMemory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace tw {
namespace {

long residentAnonKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("RssAnon:", 0) == 0) return std::stol(line.substr(8));
  return -1;
}

// Small blocks freed between ones still in use stay resident after free(),
// since the heap's top cannot shrink past the kept ones; the release gives
// their pages back.
TEST(FreedMemoryTest, PagesFreedInsideTheHeapGoBackToTheSystem) {
#if !defined(__GLIBC__)
  GTEST_SKIP() << "only glibc's allocator is known to keep freed pages";
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's allocator stands in for glibc's: malloc_trim has none of its "
                  "pages to give back";
#endif
  constexpr int kBlocks = 40 * 1024;  // 40 MiB in 1 KiB blocks
  std::vector<char*> blocks(kBlocks);
  for (char*& block : blocks) {
    block = static_cast<char*>(std::malloc(1024));
    ASSERT_NE(block, nullptr);
    std::memset(block, 0x5A, 1024);
  }
  for (int i = 0; i < kBlocks; ++i) {
    if (i % 256 == 255) continue;  // one kept every 256 KiB, the last one too
    std::free(blocks[i]);
    blocks[i] = nullptr;
  }
  const long before = residentAnonKiB();
  releaseFreedMemory();
  const long after = residentAnonKiB();
  for (char* block : blocks) std::free(block);
  ASSERT_GT(before, 0);
  EXPECT_LT(after, before - 30 * 1024) << "before " << before << " KiB, after " << after << " KiB";
}

}  // namespace
}  // namespace tw
