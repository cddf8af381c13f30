#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace tw {

// The PSUserConfig.txt line that lets Photoshop run our scripts without a warning.
inline constexpr char kWarnRunningScriptsLine[] = "WarnRunningScripts 0";

// The settings file's bytes as text, or nothing when they are not valid UTF-8.
// A byte order mark stays in the text as a character, so a rewrite keeps it.
std::optional<QString> photoshopSettingsText(const QByteArray& bytes);

// The settings text with kWarnRunningScriptsLine added, or nothing when a line
// already holds it. The text is split at line feeds only; blank lines are
// dropped, every kept line ends with a line feed and the added one has none.
std::optional<QString> patchedPhotoshopSettings(const QString& original);

}  // namespace tw
