// Writes all 16,777,216 8-bit colours as "R G B" lines to standard output.
#include <cstdio>
#include <string>

int main() {
  std::string out;
  out.reserve(1 << 20);
  for (int r = 0; r < 256; ++r) {
    for (int g = 0; g < 256; ++g) {
      for (int b = 0; b < 256; ++b) {
        out += std::to_string(r);
        out += ' ';
        out += std::to_string(g);
        out += ' ';
        out += std::to_string(b);
        out += '\n';
      }
      if (out.size() > (1 << 20) - 4096) {
        std::fwrite(out.data(), 1, out.size(), stdout);
        out.clear();
      }
    }
  }
  std::fwrite(out.data(), 1, out.size(), stdout);
  return 0;
}
