#include "tools/CsvCommand.h"

#include <fcntl.h>
#include <unistd.h>

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringDecoder>
#include <QStringList>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include "common/Json.h"
#include "library/CSwiftV.h"
#include "tools/CommandLine.h"

namespace tw {

namespace {

const char kUsage[] =
    "Usage: tintwell csv [--separator S] [--headers a,b,c] [FILE]\n"
    "\n"
    "Reads a colour library table from FILE (standard input without FILE or with \"-\")\n"
    "and prints it as one JSON object on one line:\n"
    "  {\"columnCount\": N, \"headers\": [...], \"rows\": [[...]], \"keyedRows\": [{...}]}\n"
    "\n"
    "Input is UTF-8 (a leading byte order mark is dropped). Fields are printed as they\n"
    "stand: quotes are kept, blank lines are skipped, a quoted field may hold the\n"
    "separator and line breaks.\n"
    "\n"
    "Options:\n"
    "  --separator S    Field separator, any length (default \",\"). An empty separator\n"
    "                   makes each line a single field.\n"
    "  --headers LIST   Column names, separated by commas; every line is then a data\n"
    "                   row. An empty LIST gives no column names. Without this option\n"
    "                   the first line holds the column names.\n"
    "  --help           Show this text.\n"
    "\n"
    "Exit status: 0 on success, 1 when the input cannot be read (the reason is printed)\n"
    "or, without --headers, holds no line, 2 for a bad option.\n";

int usageError(const char* message, const char* word) {
  std::fprintf(stderr, "tintwell csv: %s%s\nTry 'tintwell csv --help'.\n", message, word);
  return 2;
}

struct Options {
  QString separator = QStringLiteral(",");
  std::optional<QStringList> headers;
  std::optional<QString> file;
};

// All of FILE, or of standard input without one; on failure, why (the
// system's words, as other command-line tools print them).
struct Input {
  QByteArray bytes;
  QString error;
};

Input readAll(const std::optional<QString>& path) {
  int fd = STDIN_FILENO;
  if (path) {
    fd = ::open(QFile::encodeName(*path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return {{}, QString::fromLocal8Bit(std::strerror(errno))};
  }
  Input input;
  char buffer[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n > 0) {
      input.bytes.append(buffer, n);
    } else if (n == 0) {
      break;
    } else if (errno != EINTR) {
      // A folder opens, and fails here with EISDIR.
      input.error = QString::fromLocal8Bit(std::strerror(errno));
      break;
    }
  }
  if (path) ::close(fd);
  return input;
}

// A field or name as a JSON string. A byte order mark other than the dropped
// leading one (a second file's, after two were joined) is written as \ufeff:
// it is invisible, and some JSON readers, Qt's among them, drop it raw at the
// start of a string, which would turn the header "\ufeffName" into "Name".
QByteArray quoted(const QString& text) {
  return json::quote(text, false).replace("\xEF\xBB\xBF", "\\ufeff");
}

void appendStringArray(QByteArray& out, const QStringList& items) {
  out.append('[');
  for (qsizetype i = 0; i < items.size(); ++i) {
    if (i > 0) out.append(", ");
    out.append(quoted(items[i]));
  }
  out.append(']');
}

// Members in header order; a repeated header name appears once, with the value
// the row holds for it (the later column's).
void appendKeyedRow(QByteArray& out, const CSwiftV::KeyedRow& row, const QStringList& headers) {
  out.append('{');
  bool first = true;
  QStringList written;
  for (const QString& header : headers) {
    const auto value = row.constFind(header);
    if (value == row.constEnd() || written.contains(header)) continue;
    written.append(header);
    if (!first) out.append(", ");
    first = false;
    out.append(quoted(header));
    out.append(": ");
    out.append(quoted(*value));
  }
  out.append('}');
}

QByteArray toJson(const CSwiftV& table) {
  QByteArray out = "{\"columnCount\": ";
  out.append(QByteArray::number(table.columnCount()));
  out.append(", \"headers\": ");
  appendStringArray(out, table.headers());
  out.append(", \"rows\": [");
  for (qsizetype i = 0; i < table.rows().size(); ++i) {
    if (i > 0) out.append(", ");
    appendStringArray(out, table.rows()[i]);
  }
  out.append("], \"keyedRows\": [");
  const QList<CSwiftV::KeyedRow>& keyed = *table.keyedRows();
  for (qsizetype i = 0; i < keyed.size(); ++i) {
    if (i > 0) out.append(", ");
    appendKeyedRow(out, keyed[i], table.headers());
  }
  out.append("]}\n");
  return out;
}

}  // namespace

int runCsvCommand(int argc, char** argv) {
  Options options;
  bool endOfOptions = false;
  for (int i = 0; i < argc; ++i) {
    const char* arg = argv[i];
    if (!endOfOptions && (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0)) {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (!endOfOptions && std::strcmp(arg, "--") == 0) {
      endOfOptions = true;
      continue;
    }
    if (!endOfOptions && arg[0] == '-' && arg[1] == '-') {
      bool missing = false;
      if (auto value = optionValue("--separator", argc, argv, i, missing)) {
        options.separator = *value;
        continue;
      }
      if (auto value = optionValue("--headers", argc, argv, i, missing)) {
        options.headers = value->isEmpty() ? QStringList() : value->split(u',');
        continue;
      }
      if (missing) return usageError("option needs a value: ", arg);
      return usageError("unknown option: ", arg);
    }
    if (!endOfOptions && arg[0] == '-' && arg[1] != '\0') {
      return usageError("unknown option: ", arg);
    }
    if (options.file) return usageError("more than one FILE: ", arg);
    if (endOfOptions || std::strcmp(arg, "-") != 0) options.file = QString::fromLocal8Bit(arg);
  }

  const Input input = readAll(options.file);
  if (!input.error.isEmpty()) {
    const QString what = options.file ? *options.file : QStringLiteral("standard input");
    std::fprintf(stderr, "tintwell csv: cannot read %s: %s\n", what.toLocal8Bit().constData(),
                 input.error.toLocal8Bit().constData());
    return 1;
  }
  // The default decoder drops a leading byte order mark and turns malformed
  // bytes into U+FFFD.
  QStringDecoder decoder(QStringDecoder::Utf8);
  const QString text = decoder.decode(input.bytes);

  // The reader stops the process on a table without lines when it has to take
  // the headers from the text; a tool answers with a message instead.
  if (!options.headers && !CSwiftV::hasHeaderLine(text)) {
    std::fputs(
        "tintwell csv: the input has no non-blank line to take the column names from "
        "(give them with --headers)\n",
        stderr);
    return 1;
  }

  const CSwiftV table(text, options.separator, options.headers);
  const QByteArray json = toJson(table);
  if (std::fwrite(json.constData(), 1, json.size(), stdout) !=
          static_cast<std::size_t>(json.size()) ||
      std::fflush(stdout) != 0) {
    std::fputs("tintwell csv: cannot write standard output\n", stderr);
    return 1;
  }
  return 0;
}

}  // namespace tw
