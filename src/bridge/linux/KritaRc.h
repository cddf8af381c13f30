#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace tw {

// Krita's settings file (kritarc, KDE's INI dialect) with `key=true` in its
// [python] group, by the smallest text edit: an existing `key=...` line of
// that group is rewritten, otherwise one line is added at the end of the
// group (after its last entry), or the group is appended to the file. Every
// other byte stays as it was: comments, blank lines, other groups, the order
// and spacing of other keys, line ends ("\r\n" lines get an "\r\n" line).
// Absent when every `key` line of [python] already says "true".
std::optional<QByteArray> kritarcWithKeyTrue(const QByteArray& text, const QByteArray& key);

// Applies kritarcWithKeyTrue to the file at `path` (a missing file counts as
// empty; its folder is made), written atomically and only when it changes.
// Absent on success; otherwise why not, in a few words.
std::optional<QString> setKritarcKeyTrue(const QString& path, const QByteArray& key);

}  // namespace tw
