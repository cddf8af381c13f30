// `tintwell convert` end to end in this process (runConvertCommand): standard
// input is a socket of packets, so each read returns exactly one chunk and the
// lines cut across reads are joined again; standard output is captured and
// compared line by line with what parseChannelLine and the notation line give.
// The argument form (`tintwell convert R G B`) is checked the same way.
//
// Input: byte 0 bit 0 picks the argument form (words separated by NUL in the
// rest); otherwise byte 1 gives up to seven cut positions (two bytes each) and
// the rest is standard input.
#include <sys/socket.h>
#include <unistd.h>

#include <QByteArray>
#include <QList>
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "StdioRedirect.h"
#include "color/ColorNotations.h"
#include "tools/ConvertCommand.h"

namespace tw {
namespace {

using testing::FuzzInput;

QByteArray notationLine(const std::array<int, 3>& c) {
  char out[kNotationLineMax];
  const std::size_t n = formatNotationLine(computeNotations(c[0], c[1], c[2]), out);
  return QByteArray(out, static_cast<qsizetype>(n));
}

struct Run {
  int status;
  QByteArray output;
};

Run runWithInput(const QList<QByteArray>& chunks) {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) std::abort();
  for (const QByteArray& chunk : chunks)
    if (::send(ends[1], chunk.constData(), chunk.size(), 0) != chunk.size()) std::abort();
  ::shutdown(ends[1], SHUT_WR);
  const int out = testing::memoryFile({});
  Run run{};
  {
    const testing::Redirect input(STDIN_FILENO, ends[0]);
    const testing::Redirect output(STDOUT_FILENO, out);
    run.status = runConvertCommand(0, nullptr);
  }
  run.output = testing::readWhole(out);
  ::close(out);
  ::close(ends[0]);
  ::close(ends[1]);
  return run;
}

void streamForm(FuzzInput& in) {
  const std::size_t cutCount = in.below(8);
  std::vector<std::uint16_t> cuts;
  for (std::size_t i = 0; i < cutCount; ++i) cuts.push_back(in.u16());
  const QByteArray data = in.rest();
  for (auto& cut : cuts) cut = static_cast<std::uint16_t>(cut % (data.size() + 1));
  std::sort(cuts.begin(), cuts.end());
  QList<QByteArray> chunks;
  qsizetype from = 0;
  for (const std::uint16_t cut : cuts) {
    // An empty packet would read as the end of the input.
    if (cut > from) chunks.append(data.mid(from, cut - from));
    from = std::max<qsizetype>(from, cut);
  }
  if (from < data.size()) chunks.append(data.mid(from));

  // Every line ended by a line feed, and a last one without it unless empty.
  QList<QByteArray> lines = data.split('\n');
  if (lines.last().isEmpty()) lines.removeLast();
  QByteArray expected;
  bool rejected = false;
  for (const QByteArray& line : lines) {
    if (const auto c = parseChannelLine(std::string_view(line.constData(), line.size())))
      expected += notationLine(*c);
    else
      rejected = true;
  }
  const Run run = runWithInput(chunks);
  TW_FUZZ_CHECK(run.output == expected);
  TW_FUZZ_CHECK(run.status == (rejected ? 1 : 0));
}

void argumentForm(FuzzInput& in) {
  QList<QByteArray> words = in.rest().split('\0');
  if (words.size() > 8) words.resize(8);
  std::vector<std::string> storage;
  for (const QByteArray& word : words) storage.emplace_back(word.constData(), word.size());
  std::vector<char*> argv;
  for (std::string& word : storage) argv.push_back(word.data());
  argv.push_back(nullptr);

  // The words joined by one space, when none holds a blank itself.
  const QByteArray joined = words.join(' ');
  const bool whole = std::none_of(words.begin(), words.end(), [](const QByteArray& w) {
    return w.contains(' ') || w.contains('\t');
  });
  const auto channels =
      whole ? parseChannelLine(std::string_view(joined.constData(), joined.size())) : std::nullopt;

  const int out = testing::memoryFile({});
  int status = 0;
  {
    const testing::Redirect output(STDOUT_FILENO, out);
    status = runConvertCommand(static_cast<int>(storage.size()), argv.data());
  }
  const QByteArray written = testing::readWhole(out);
  ::close(out);
  TW_FUZZ_CHECK(status == (channels ? 0 : 1));
  TW_FUZZ_CHECK(written == (channels ? notationLine(*channels) : QByteArray()));
}

}  // namespace
}  // namespace tw

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tw::testing::FuzzInput in(data, size);
  if ((in.byte() & 1) != 0)
    tw::argumentForm(in);
  else
    tw::streamForm(in);
  return 0;
}
