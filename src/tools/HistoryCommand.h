#pragma once

#include <QDateTime>
#include <QString>
#include <optional>

namespace tw {

// `tintwell history [--json|--csv] [--since TIME] [--database FILE]`: the
// colour history, newest first. argv holds the arguments after the command.
int runHistoryCommand(int argc, char** argv);

// `tintwell export --format gpl|ase|css|csv [--starred] [--database FILE]
// [FILE]`: the history as a palette file (standard output without FILE).
int runExportCommand(int argc, char** argv);

// A --since value: an ISO 8601 date or date and time ("2026-11-25",
// "2026-11-25T14:30", local time unless it says otherwise), or an age before
// `now`: a whole number with s, m, h, d or w ("90m", "7d"). Nothing for
// anything else.
std::optional<QDateTime> parseSince(const QString& text, const QDateTime& now);

}  // namespace tw
