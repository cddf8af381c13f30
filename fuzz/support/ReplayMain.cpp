// Runs a fuzz target's entry point once for every file named on the command
// line (folders: every file inside, in name order), as libFuzzer would, so the
// committed corpus stays a regression test in builds without libFuzzer. Fails
// when a named folder holds no file.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

std::vector<std::filesystem::path> inputsOf(const std::filesystem::path& path) {
  std::vector<std::filesystem::path> files;
  if (std::filesystem::is_directory(path)) {
    for (const auto& entry : std::filesystem::directory_iterator(path))
      if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
  } else {
    files.push_back(path);
  }
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  std::size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    const std::vector<std::filesystem::path> files = inputsOf(argv[i]);
    if (files.empty()) {
      std::fprintf(stderr, "replay: no input in %s\n", argv[i]);
      return 1;
    }
    for (const auto& file : files) {
      std::ifstream in(file, std::ios::binary);
      if (!in) {
        std::fprintf(stderr, "replay: cannot read %s\n", file.c_str());
        return 1;
      }
      const std::vector<char> bytes{std::istreambuf_iterator<char>(in),
                                    std::istreambuf_iterator<char>()};
      std::fprintf(stderr, "replay: %s\n", file.c_str());
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
      ++replayed;
    }
  }
  std::fprintf(stderr, "replay: %zu inputs, no finding\n", replayed);
  return replayed > 0 ? 0 : 1;
}
