#include "tools/HistoryCommand.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QFile>
#include <QRegularExpression>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "color/ColorNotations.h"
#include "common/Json.h"
#include "library/history/HistoryStore.h"
#include "library/palette/Palette.h"
#include "tools/CommandLine.h"

namespace tw {

namespace {

const char kHistoryUsage[] =
    "Usage: tintwell history [--json | --csv] [--since TIME] [--database FILE]\n"
    "\n"
    "Prints the colour history, newest first. Plain output is one colour per line,\n"
    "TAB separated: local time, source (pen, screen, imported), #RRGGBB, a star (*)\n"
    "or \"-\", and the colour's own name if it has one.\n"
    "\n"
    "Options:\n"
    "  --json           One JSON array of objects: id, time (UTC, ISO 8601), source,\n"
    "                   hex, red, green, blue, alias, starred.\n"
    "  --csv            A header line and one line per colour with every notation;\n"
    "                   'tintwell csv' reads it.\n"
    "  --since TIME     Only colours from TIME on: a date or date and time\n"
    "                   (2026-11-25, 2026-11-25T14:30) or an age (90m, 12h, 7d, 2w).\n"
    "  --database FILE  Another history file (default: the application's).\n"
    "  --help           Show this text.\n"
    "\n"
    "Exit status: 0 on success, 1 when the history cannot be read, 2 for bad usage.\n";

const char kExportUsage[] =
    "Usage: tintwell export --format gpl|ase|css|csv [--starred] [--database FILE] [FILE]\n"
    "\n"
    "Writes the colour history, newest first, as a palette file: GIMP palette (gpl,\n"
    "read by GIMP, Inkscape and Krita), Adobe Swatch Exchange (ase), CSS custom\n"
    "properties (css) or CSV with every notation (csv). Each colour is named by its\n"
    "own name, or by its hex. Without FILE, or with \"-\", the file goes to standard\n"
    "output.\n"
    "\n"
    "Options:\n"
    "  --starred        Only the starred colours.\n"
    "  --database FILE  Another history file (default: the application's).\n"
    "  --help           Show this text.\n"
    "\n"
    "Exit status: 0 on success, 1 when the history cannot be read or FILE cannot be\n"
    "written, 2 for bad usage.\n";

int usageError(const char* command, const QString& message) {
  std::fprintf(stderr, "tintwell %s: %s\nTry 'tintwell %s --help'.\n", command,
               message.toUtf8().constData(), command);
  return 2;
}

// A CSV field for the table reader: as it is unless it holds the separator,
// a quote or a line break; then in quotes with inner quotes doubled.
QString csvField(const QString& text) {
  if (!text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('"')) &&
      !text.contains(QLatin1Char('\n')) && !text.contains(QLatin1Char('\r')))
    return text;
  QString quoted = text;
  quoted.replace(QLatin1String("\""), QLatin1String("\"\""));
  return QLatin1Char('"') + quoted + QLatin1Char('"');
}

// Reads the history without writing to it; prints why not on failure.
std::optional<std::vector<history::Entry>> readHistory(const char* command, const QString& path,
                                                       qint64 sinceMs) {
  history::HistoryStore::Options options;
  options.path = path;
  options.readOnly = true;
  QString problem;
  std::vector<history::Entry> entries;
  {
    history::HistoryStore store(options, [&problem](history::Fault, const QString& line) {
      if (problem.isEmpty()) problem = line;
    });
    entries = store.entries(sinceMs);
  }
  if (!problem.isEmpty() && entries.empty() && QFile::exists(path)) {
    std::fprintf(stderr, "tintwell %s: %s\n", command, problem.toUtf8().constData());
    return std::nullopt;
  }
  return entries;
}

bool writeAll(FILE* out, const QByteArray& bytes) {
  return std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), out) ==
             static_cast<std::size_t>(bytes.size()) &&
         std::fflush(out) == 0;
}

// Writes beside FILE and renames over it, so a reader never sees half a
// palette; the reason when it cannot. Plain POSIX: a QSaveFile is a QObject,
// which without an application object leaves Qt's thread data behind.
std::optional<std::string> writeFileAtomically(const QString& path, const QByteArray& bytes) {
  const QByteArray target = QFile::encodeName(path);
  QByteArray temporary = target + ".XXXXXX";
  const int fd = mkstemp(temporary.data());
  if (fd < 0) return std::string(std::strerror(errno));
  const mode_t mask = umask(0);
  umask(mask);
  bool ok = fchmod(fd, 0666 & ~mask) == 0;
  for (qsizetype done = 0; ok && done < bytes.size();) {
    const ssize_t wrote = ::write(fd, bytes.constData() + done, std::size_t(bytes.size() - done));
    if (wrote < 0 && errno == EINTR) continue;
    ok = wrote > 0;
    if (ok) done += wrote;
  }
  ok = ok && fsync(fd) == 0;
  const int error = errno;
  ok = (::close(fd) == 0) && ok;
  if (ok && std::rename(temporary.constData(), target.constData()) == 0) return std::nullopt;
  const std::string reason = std::strerror(ok ? errno : error);
  ::unlink(temporary.constData());
  return reason;
}

bool isHelp(const char* arg) {
  return std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0;
}

}  // namespace

std::optional<QDateTime> parseSince(const QString& text, const QDateTime& now) {
  static const QRegularExpression age(QStringLiteral("^(\\d{1,9})([smhdw])$"));
  const QRegularExpressionMatch match = age.match(text.trimmed());
  if (match.hasMatch()) {
    const qint64 amount = match.captured(1).toLongLong();
    const QChar unit = match.captured(2).at(0);
    const qint64 seconds = unit == QLatin1Char('s')   ? 1
                           : unit == QLatin1Char('m') ? 60
                           : unit == QLatin1Char('h') ? 3600
                           : unit == QLatin1Char('d') ? 86400
                                                      : 7 * 86400;
    return now.addSecs(-amount * seconds);
  }
  // A bare date only: QDate's reader would also take "2026-11-25T25:00" (a
  // bad time after a good date) as that day.
  static const QRegularExpression dateOnly(QStringLiteral("^\\d{4}-\\d{2}-\\d{2}$"));
  QDateTime at = QDateTime::fromString(text.trimmed(), Qt::ISODateWithMs);
  if (!at.isValid() && dateOnly.match(text.trimmed()).hasMatch()) {
    const QDate day = QDate::fromString(text.trimmed(), Qt::ISODate);
    if (day.isValid()) at = day.startOfDay();
  }
  if (!at.isValid()) return std::nullopt;
  return at;
}

int runHistoryCommand(int argc, char** argv) {
  enum class Output { Plain, Json, Csv } output = Output::Plain;
  qint64 sinceMs = 0;
  QString path = history::defaultHistoryPath();
  for (int i = 0; i < argc; ++i) {
    const char* arg = argv[i];
    if (isHelp(arg)) {
      std::fputs(kHistoryUsage, stdout);
      return 0;
    }
    bool missing = false;
    if (std::strcmp(arg, "--json") == 0 || std::strcmp(arg, "--csv") == 0) {
      const Output chosen = arg[2] == 'j' ? Output::Json : Output::Csv;
      if (output != Output::Plain && output != chosen)
        return usageError("history", QStringLiteral("--json and --csv exclude each other"));
      output = chosen;
    } else if (auto database = optionValue("--database", argc, argv, i, missing)) {
      path = *database;
    } else if (auto value = optionValue("--since", argc, argv, i, missing)) {
      const auto since = parseSince(*value, QDateTime::currentDateTime());
      if (!since) return usageError("history", QStringLiteral("not a time: ") + *value);
      sinceMs = since->toMSecsSinceEpoch();
    } else if (missing) {
      return usageError("history", QStringLiteral("%1 needs a value").arg(QLatin1String(arg)));
    } else {
      return usageError("history",
                        QStringLiteral("unexpected argument: ") + QString::fromLocal8Bit(arg));
    }
  }
  const auto entries = readHistory("history", path, sinceMs);
  if (!entries) return 1;

  QByteArray out;
  if (output == Output::Json) {
    out = "[";
    bool first = true;
    for (const history::Entry& entry : *entries) {
      out += first ? "\n  " : ",\n  ";
      first = false;
      const QString time =
          QDateTime::fromMSecsSinceEpoch(entry.timeMs, Qt::UTC).toString(Qt::ISODateWithMs);
      out += "{\"id\": " + QByteArray::number(entry.id) +
             ", \"time\": " + json::quote(time, false) +
             ", \"source\": " + json::quote(history::sourceName(entry.source), false) +
             ", \"hex\": " + json::quote(history::hexOf(entry), false) +
             ", \"red\": " + QByteArray::number(entry.red) +
             ", \"green\": " + QByteArray::number(entry.green) +
             ", \"blue\": " + QByteArray::number(entry.blue) +
             ", \"alias\": " + json::quote(entry.alias, false) +
             ", \"starred\": " + (entry.starred ? "true" : "false") + "}";
    }
    out += first ? "]\n" : "\n]\n";
  } else if (output == Output::Csv) {
    out = "id,time,source,hex,red,green,blue,rgb,cmyk,hsb,lab,alias,starred\n";
    for (const history::Entry& entry : *entries) {
      const auto all = convertToAllColor(entry.red, entry.green, entry.blue);
      const QString time =
          QDateTime::fromMSecsSinceEpoch(entry.timeMs, Qt::UTC).toString(Qt::ISODateWithMs);
      const QStringList fields{QString::number(entry.id),
                               time,
                               history::sourceName(entry.source),
                               history::hexOf(entry),
                               QString::number(entry.red),
                               QString::number(entry.green),
                               QString::number(entry.blue),
                               all->txtRGB,
                               all->txtCMYK,
                               all->txtHSB,
                               all->txtLAB.trimmed(),
                               csvField(entry.alias),
                               entry.starred ? QStringLiteral("1") : QStringLiteral("0")};
      out += fields.join(QLatin1Char(',')).toUtf8() + '\n';
    }
  } else {
    for (const history::Entry& entry : *entries) {
      const QString time = QDateTime::fromMSecsSinceEpoch(entry.timeMs)
                               .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
      QString alias = entry.alias;
      // One line, five columns: a name's own tabs and line breaks print as blanks.
      alias.replace(QLatin1Char('\t'), QLatin1Char(' '))
          .replace(QLatin1Char('\n'), QLatin1Char(' '))
          .replace(QLatin1Char('\r'), QLatin1Char(' '));
      out += (time + QLatin1Char('\t') + history::sourceName(entry.source) + QLatin1Char('\t') +
              history::hexOf(entry) + QLatin1Char('\t') +
              (entry.starred ? QLatin1Char('*') : QLatin1Char('-')) + QLatin1Char('\t') + alias)
                 .toUtf8() +
             '\n';
    }
  }
  return writeAll(stdout, out) ? 0 : 1;
}

int runExportCommand(int argc, char** argv) {
  std::optional<palette::Format> format;
  bool starredOnly = false;
  QString path = history::defaultHistoryPath();
  std::optional<QString> file;
  for (int i = 0; i < argc; ++i) {
    const char* arg = argv[i];
    if (isHelp(arg)) {
      std::fputs(kExportUsage, stdout);
      return 0;
    }
    bool missing = false;
    if (std::strcmp(arg, "--starred") == 0) {
      starredOnly = true;
    } else if (auto database = optionValue("--database", argc, argv, i, missing)) {
      path = *database;
    } else if (auto value = optionValue("--format", argc, argv, i, missing)) {
      format = palette::formatFromName(*value);
      if (!format || value->contains(QLatin1Char('.')))
        return usageError("export", QStringLiteral("unknown format: ") + *value);
    } else if (missing) {
      return usageError("export", QStringLiteral("%1 needs a value").arg(QLatin1String(arg)));
    } else if (arg[0] == '-' && arg[1] != '\0') {
      return usageError("export", QStringLiteral("unknown option: ") + QString::fromLocal8Bit(arg));
    } else if (file) {
      return usageError("export", QStringLiteral("more than one file"));
    } else {
      file = QString::fromLocal8Bit(arg);
    }
  }
  if (!format) return usageError("export", QStringLiteral("--format is required"));
  const auto entries = readHistory("export", path, 0);
  if (!entries) return 1;

  palette::Palette result;
  result.name = QStringLiteral("Tintwell");
  for (const history::Entry& entry : *entries) {
    if (starredOnly && !entry.starred) continue;
    result.swatches.push_back({history::paletteName(entry), entry.red, entry.green, entry.blue});
  }
  const QByteArray bytes = palette::writePalette(result, *format);
  if (!file || *file == QLatin1String("-")) return writeAll(stdout, bytes) ? 0 : 1;
  if (const auto problem = writeFileAtomically(*file, bytes)) {
    std::fprintf(stderr, "tintwell export: cannot write %s: %s\n", file->toUtf8().constData(),
                 problem->c_str());
    return 1;
  }
  return 0;
}

}  // namespace tw
