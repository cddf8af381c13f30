#include "common/Log.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

namespace tw {

namespace {

// Serialises the lines of every thread, and the sink's replacement with them.
std::mutex& sinkMutex() {
  static std::mutex mutex;
  return mutex;
}

LogSink& currentSink() {
  static LogSink sink;
  return sink;
}

void writeToStdout(std::string_view text) {
  std::string line(text);
  line.push_back('\n');
  // One stdio call under the stream lock for the whole line, so that other
  // writers to stdout (the convert tool) never split it either.
  flockfile(stdout);
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fflush(stdout);
  funlockfile(stdout);
}

}  // namespace

void logLine(std::string_view text) {
  std::lock_guard<std::mutex> lock(sinkMutex());
  if (const LogSink& sink = currentSink())
    sink(text);
  else
    writeToStdout(text);
}

void logLine(const QString& text) {
  const QByteArray utf8 = text.toUtf8();
  logLine(std::string_view(utf8.constData(), static_cast<size_t>(utf8.size())));
}

void setLogSink(LogSink sink) {
  std::lock_guard<std::mutex> lock(sinkMutex());
  currentSink() = std::move(sink);
}

}  // namespace tw
