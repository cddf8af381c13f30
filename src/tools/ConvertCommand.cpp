#include "tools/ConvertCommand.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "color/ColorNotations.h"

namespace tw {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

// Writes everything or reports failure (a closed pipe, a full disk).
bool writeAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

class Output {
 public:
  explicit Output(bool flushEachLine) : flushEachLine_(flushEachLine) { buffer_.reserve(kSize); }
  ~Output() { flush(); }

  bool put(const char* data, std::size_t size) {
    buffer_.append(data, size);
    if (flushEachLine_ || buffer_.size() >= kSize - kNotationLineMax) return flush();
    return ok_;
  }
  bool flush() {
    if (ok_ && !buffer_.empty()) ok_ = writeAll(STDOUT_FILENO, buffer_.data(), buffer_.size());
    buffer_.clear();
    return ok_;
  }

 private:
  static constexpr std::size_t kSize = 1 << 20;
  std::string buffer_;
  bool flushEachLine_;
  bool ok_ = true;
};

void reject(std::size_t lineNumber, std::string_view line) {
  std::string message = "tintwell convert: line " + std::to_string(lineNumber) +
                        ": expected three integers from 0 to 255: ";
  message.append(line);
  message.push_back('\n');
  std::fwrite(message.data(), 1, message.size(), stderr);
}

bool writeLine(Output& out, int r, int g, int b) {
  char line[kNotationLineMax];
  const std::size_t n = formatNotationLine(computeNotations(r, g, b), line);
  return out.put(line, n);
}

int convertArguments(int argc, char** argv) {
  std::string joined;
  for (int i = 0; i < argc; ++i) {
    if (i > 0) joined.push_back(' ');
    joined.append(argv[i]);
  }
  bool wordsAreWhole = true;
  for (int i = 0; i < argc; ++i) {
    for (const char* c = argv[i]; *c != '\0'; ++c) wordsAreWhole = wordsAreWhole && !isBlank(*c);
  }
  const auto channels = wordsAreWhole ? parseChannelLine(joined) : std::nullopt;
  if (!channels) {
    std::fprintf(stderr,
                 "tintwell convert: expected three integers from 0 to 255, got: %s\n"
                 "usage: tintwell convert [R G B]\n",
                 joined.c_str());
    return 1;
  }
  Output out(true);
  return writeLine(out, (*channels)[0], (*channels)[1], (*channels)[2]) ? 0 : 1;
}

// A pipe holds 64 KiB by default, which makes a pipeline of fast stages switch
// between processes every few hundred lines; 1 MiB (the unprivileged limit)
// lets each side run longer. Not a pipe, or not allowed: nothing changes.
void widenPipe(int fd) {
  struct stat st {};
  if (::fstat(fd, &st) == 0 && S_ISFIFO(st.st_mode)) ::fcntl(fd, F_SETPIPE_SZ, 1 << 20);
}

int convertStream() {
  widenPipe(STDIN_FILENO);
  widenPipe(STDOUT_FILENO);
  Output out(isatty(STDOUT_FILENO) == 1);
  std::vector<char> chunk(1 << 20);
  std::string pending;  // an unfinished line carried over between reads
  std::size_t lineNumber = 0;
  bool rejected = false;
  bool writeFailed = false;

  auto handle = [&](std::string_view line) {
    ++lineNumber;
    if (const auto c = parseChannelLine(line)) {
      if (!writeLine(out, (*c)[0], (*c)[1], (*c)[2])) writeFailed = true;
    } else {
      rejected = true;
      reject(lineNumber, line);
    }
  };

  for (;;) {
    const ssize_t n = ::read(STDIN_FILENO, chunk.data(), chunk.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      std::perror("tintwell convert: reading standard input");
      return 1;
    }
    if (n == 0) break;
    std::string_view data(chunk.data(), static_cast<std::size_t>(n));
    while (!data.empty() && !writeFailed) {
      const auto end = data.find('\n');
      if (end == std::string_view::npos) {
        pending.append(data);
        break;
      }
      if (pending.empty()) {
        handle(data.substr(0, end));
      } else {
        pending.append(data.substr(0, end));
        handle(pending);
        pending.clear();
      }
      data.remove_prefix(end + 1);
    }
    if (writeFailed) break;
  }
  if (!pending.empty() && !writeFailed) handle(pending);
  if (!out.flush() || writeFailed) {
    std::fputs("tintwell convert: cannot write standard output\n", stderr);
    return 1;
  }
  return rejected ? 1 : 0;
}

}  // namespace

std::optional<std::array<int, 3>> parseChannelLine(std::string_view line) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  std::array<int, 3> channels{};
  std::size_t i = 0;
  for (int k = 0; k < 3; ++k) {
    const std::size_t start = i;
    while (i < line.size() && isBlank(line[i])) ++i;
    if (k > 0 && i == start) return std::nullopt;  // numbers must be separated
    int value = 0;
    std::size_t digits = 0;
    while (i < line.size() && line[i] >= '0' && line[i] <= '9') {
      value = value * 10 + (line[i] - '0');
      if (value > 255) return std::nullopt;
      ++i;
      ++digits;
    }
    if (digits == 0) return std::nullopt;
    channels[k] = value;
  }
  while (i < line.size() && isBlank(line[i])) ++i;
  if (i != line.size()) return std::nullopt;
  return channels;
}

int runConvertCommand(int argc, char** argv) {
  if (argc == 0) return convertStream();
  return convertArguments(argc, argv);
}

}  // namespace tw
