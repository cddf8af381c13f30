#include "bridge/linux/KritaRc.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <vector>

namespace tw {

namespace {

// One line of the file: its text is [begin, end), its line end [end, next)
// ("\n", "\r\n", or nothing on a last line without one).
struct Line {
  qsizetype begin = 0;
  qsizetype end = 0;
  qsizetype next = 0;
};

std::vector<Line> splitLines(const QByteArray& text) {
  std::vector<Line> lines;
  qsizetype begin = 0;
  while (begin < text.size()) {
    const qsizetype feed = text.indexOf('\n', begin);
    Line line;
    line.begin = begin;
    line.next = feed < 0 ? text.size() : feed + 1;
    line.end = feed < 0 ? text.size() : feed;
    if (line.end > begin && text.at(line.end - 1) == '\r') --line.end;
    lines.push_back(line);
    begin = line.next;
  }
  return lines;
}

const QByteArray kPythonGroup = QByteArrayLiteral("[python]");

}  // namespace

std::optional<QByteArray> kritarcWithKeyTrue(const QByteArray& text, const QByteArray& key) {
  const QByteArray entry = key + QByteArrayLiteral("=true");
  const std::vector<Line> lines = splitLines(text);

  // KConfig trims keys and values, skips '#' comments and lines without '=',
  // and merges groups of the same name: every [python] group counts.
  std::vector<size_t> keyLines;
  bool allTrue = true;
  int pythonGroups = 0;
  bool inPython = false;
  std::optional<size_t> insertAfter;  // the first [python] group's last entry, or its header
  for (size_t i = 0; i < lines.size(); ++i) {
    const QByteArray content = text.mid(lines[i].begin, lines[i].end - lines[i].begin).trimmed();
    if (content.startsWith('[')) {
      inPython = content == kPythonGroup;
      if (inPython && ++pythonGroups == 1) insertAfter = i;
      continue;
    }
    if (!inPython || content.isEmpty() || content.startsWith('#')) continue;
    const qsizetype equals = content.indexOf('=');
    if (equals < 0) continue;
    if (pythonGroups == 1) insertAfter = i;
    if (content.left(equals).trimmed() != key) continue;
    keyLines.push_back(i);
    if (content.mid(equals + 1).trimmed() != "true") allTrue = false;
  }

  if (!keyLines.empty()) {
    if (allTrue) return std::nullopt;
    QByteArray result;
    qsizetype copied = 0;
    for (const size_t i : keyLines) {
      result += text.mid(copied, lines[i].begin - copied);
      result += entry;
      copied = lines[i].end;
    }
    result += text.mid(copied);
    return result;
  }

  if (insertAfter) {
    const Line& line = lines[*insertAfter];
    const QByteArray lineEnd = text.mid(line.end, line.next - line.end);
    QByteArray result = text.left(line.next);
    if (lineEnd.isEmpty()) {
      result += '\n' + entry + '\n';
    } else {
      result += entry + lineEnd;
    }
    result += text.mid(line.next);
    return result;
  }

  // No [python] group: a new one at the end, after a blank line as KDE
  // writes them, with the file's own line ends.
  const QByteArray lineEnd = text.contains("\r\n") ? QByteArrayLiteral("\r\n") : QByteArray("\n");
  QByteArray result = text;
  if (!result.isEmpty()) {
    if (!result.endsWith('\n')) result += lineEnd;
    if (!lines.empty() && lines.back().end > lines.back().begin) result += lineEnd;
  }
  result += kPythonGroup + lineEnd + entry + lineEnd;
  return result;
}

std::optional<QString> setKritarcKeyTrue(const QString& path, const QByteArray& key) {
  QByteArray text;
  QFile file(path);
  if (file.exists()) {
    if (!file.open(QIODevice::ReadOnly)) {
      return QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
    }
    text = file.readAll();
    file.close();
  }
  const std::optional<QByteArray> changed = kritarcWithKeyTrue(text, key);
  if (!changed) return std::nullopt;
  if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
    return QStringLiteral("cannot make the folder of %1").arg(path);
  }
  // Krita may read the file at any moment: it sees the old text or the new.
  QSaveFile out(path);
  if (!out.open(QIODevice::WriteOnly) || out.write(*changed) != changed->size() || !out.commit()) {
    return QStringLiteral("cannot write %1: %2").arg(path, out.errorString());
  }
  return std::nullopt;
}

}  // namespace tw
