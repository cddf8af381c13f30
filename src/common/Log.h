#pragma once

#include <QString>
#include <functional>
#include <string_view>

namespace tw {

// Diagnostics are plain lines on standard output. Each line is written whole
// (threads never interleave inside a line) and flushed at once, so a reader on
// the other end of a pipe sees it as it happens.
void logLine(std::string_view text);
void logLine(const QString& text);

// Where the lines go: standard output unless a sink is set. The sink gets each
// line without its line end, one call at a time (calls never overlap, whatever
// thread logs), and must not log itself. Setting an empty sink restores
// standard output. Tests read what the application says through this.
using LogSink = std::function<void(std::string_view line)>;
void setLogSink(LogSink sink);

}  // namespace tw
