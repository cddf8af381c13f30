#pragma once

#include <QByteArray>
#include <optional>

namespace tw {

// The PSUserConfig.txt line that lets Photoshop run our scripts without a warning.
inline constexpr char kWarnRunningScriptsLine[] = "WarnRunningScripts 0";

// The settings file's text with kWarnRunningScriptsLine added, or nothing when
// a line already holds it. Blank lines are dropped, every kept line ends with a
// line feed and the added one has none.
//
// The file is handled as bytes rather than decoded text: splitting at line
// feeds and searching for an ASCII line give the same result on valid UTF-8,
// and a file with other bytes (a comment saved in a legacy encoding) is patched
// with those bytes kept exactly, instead of stopping every start or mangling
// the user's lines.
std::optional<QByteArray> patchedPhotoshopSettings(const QByteArray& original);

}  // namespace tw
