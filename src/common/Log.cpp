#include "common/Log.h"

#include <cstdio>
#include <string>

namespace tw {

void logLine(std::string_view text) {
  std::string line(text);
  line.push_back('\n');
  // One stdio call holds the stream lock for the whole line.
  flockfile(stdout);
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fflush(stdout);
  funlockfile(stdout);
}

void logLine(const QString& text) {
  const QByteArray utf8 = text.toUtf8();
  logLine(std::string_view(utf8.constData(), static_cast<size_t>(utf8.size())));
}

}  // namespace tw
