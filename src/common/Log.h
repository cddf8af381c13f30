#pragma once

#include <QString>
#include <string_view>

namespace tw {

// Diagnostics are plain lines on standard output. Each line is written whole
// (threads never interleave inside a line) and flushed at once, so a reader on
// the other end of a pipe sees it as it happens.
void logLine(std::string_view text);
void logLine(const QString& text);

}  // namespace tw
