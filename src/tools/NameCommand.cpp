#include "tools/NameCommand.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <array>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "library/names/NameLibraries.h"
#include "library/names/NameLibrary.h"
#include "tools/CommandLine.h"

namespace tw {

namespace {

const char kUsage[] =
    "Usage: tintwell name R G B [--library css|x11|tango|FILE] [-n N]\n"
    "       tintwell name '#RRGGBB' [--library css|x11|tango|FILE] [-n N]\n"
    "\n"
    "Prints the N colour names nearest to a colour (default 1), nearest first, by\n"
    "the CIEDE2000 colour difference. One line per name, TAB separated:\n"
    "  NAME  #RRGGBB  DIFFERENCE [CODE]\n"
    "NAME and the hex code are the library entry's, DIFFERENCE has two decimals\n"
    "(0.00 for an exact match), CODE is there when the entry has one. Equal\n"
    "differences keep library order, so of two names for the same colour (aqua and\n"
    "cyan) the first in the library comes first. Control characters in a name or\n"
    "code are printed as blanks.\n"
    "\n"
    "R, G and B are whole numbers from 0 to 255; the hex form takes six hex digits,\n"
    "with or without the '#'.\n"
    "\n"
    "Options:\n"
    "  --library LIB  css: the 148 CSS named colours (the default);\n"
    "                 x11: the X11 colour names;\n"
    "                 tango: the 27 colours of the Tango palette;\n"
    "                 a FILE ending in .gpl (GIMP palette) or .ase (Adobe Swatch\n"
    "                 Exchange), in any case, gives its named swatches in file order;\n"
    "                 any other FILE is CSV with a header row, a \"name\" column\n"
    "                 and either \"hex\" or \"red\", \"green\", \"blue\" columns (optional\n"
    "                 \"abbr\" or \"code\"). Rows or swatches without a name or a valid\n"
    "                 colour are left out, and how many is said on standard error. A\n"
    "                 file called css, x11 or tango is reached as ./css, ./x11 or ./tango.\n"
    "  -n N           How many names, 1 or more (fewer when the library is smaller).\n"
    "  --help         Show this text.\n"
    "\n"
    "Exit status: 0 on success, 1 when the library cannot be read or holds no colour,\n"
    "2 for a bad colour or option.\n";

int usageError(const std::string& message) {
  std::fprintf(stderr, "tintwell name: %s\nTry 'tintwell name --help'.\n", message.c_str());
  return 2;
}

std::optional<int> parseChannel(const char* text) {
  const std::size_t length = std::strlen(text);
  if (length == 0 || length > 3) return std::nullopt;
  int value = 0;
  for (const char* c = text; *c != '\0'; ++c) {
    if (*c < '0' || *c > '9') return std::nullopt;
    value = value * 10 + (*c - '0');
  }
  if (value > 255) return std::nullopt;
  return value;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<std::array<int, 3>> parseHex(const char* text) {
  if (*text == '#') ++text;
  if (std::strlen(text) != 6) return std::nullopt;
  std::array<int, 3> rgb{};
  for (std::size_t i = 0; i < 3; ++i) {
    const int high = hexDigit(text[2 * i]);
    const int low = hexDigit(text[2 * i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    rgb[static_cast<std::size_t>(i)] = high * 16 + low;
  }
  return rgb;
}

// A count: decimal digits only, at least 1; large values are capped (a
// library never holds more than that many names).
std::optional<int> parseCount(const char* text) {
  if (*text == '\0') return std::nullopt;
  long long value = 0;
  for (const char* c = text; *c != '\0'; ++c) {
    if (*c < '0' || *c > '9') return std::nullopt;
    value = std::min<long long>(value * 10 + (*c - '0'), 1 << 30);
  }
  if (value < 1) return std::nullopt;
  return static_cast<int>(value);
}

QByteArray printable(const QString& text) {
  QString out = text;
  for (QChar& c : out) {
    if (c.category() == QChar::Other_Control) c = u' ';
  }
  return out.toUtf8();
}

QByteArray formatMatch(const names::NameMatch& match) {
  const ColorCodeLibrary& e = match.entry;
  char hex[16];
  std::snprintf(hex, sizeof hex, "#%02X%02X%02X", static_cast<unsigned>(e.sR),
                static_cast<unsigned>(e.sG), static_cast<unsigned>(e.sB));
  char difference[32];
  std::snprintf(difference, sizeof difference, "%lld.%02lld", static_cast<long long>(e.delta / 100),
                static_cast<long long>(e.delta % 100));
  QByteArray line = printable(e.name);
  line.append('\t').append(hex).append('\t').append(difference);
  if (!e.abbr.isEmpty()) line.append('\t').append(printable(e.abbr));
  line.append('\n');
  return line;
}

}  // namespace

int runNameCommand(int argc, char** argv) {
  std::optional<QString> library;
  int count = 1;
  std::vector<const char*> words;
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
    bool missing = false;
    if (!endOfOptions) {
      if (auto value = optionValue("--library", argc, argv, i, missing)) {
        library = value;
        if (library->isEmpty()) return usageError("empty --library");
        continue;
      }
      if (missing) return usageError("option needs a value: --library");
    }
    if (!endOfOptions && std::strcmp(arg, "-n") == 0) {
      if (i + 1 >= argc) return usageError("option needs a value: -n");
      const auto n = parseCount(argv[++i]);
      if (!n)
        return usageError(std::string("-n needs a whole number of 1 or more, got: ") + argv[i]);
      count = *n;
      continue;
    }
    if (!endOfOptions && arg[0] == '-' && arg[1] != '\0') {
      return usageError(std::string("unknown option: ") + arg);
    }
    words.push_back(arg);
  }

  std::optional<std::array<int, 3>> rgb;
  if (words.size() == 1) {
    rgb = parseHex(words[0]);
  } else if (words.size() == 3) {
    const auto r = parseChannel(words[0]);
    const auto g = parseChannel(words[1]);
    const auto b = parseChannel(words[2]);
    if (r && g && b) rgb = std::array<int, 3>{*r, *g, *b};
  }
  if (!rgb) {
    std::string given;
    for (const char* w : words) given.append(given.empty() ? "" : " ").append(w);
    return usageError("expected R G B (0 to 255) or #RRGGBB, got: " + given);
  }

  const names::NameLibrary* chosen = &names::cssLibrary();
  names::CsvLoad loaded;
  if (library && *library == QStringLiteral("x11")) {
    chosen = &names::x11Library();
  } else if (library && *library == QStringLiteral("tango")) {
    chosen = &names::tangoLibrary();
  } else if (library && *library != QStringLiteral("css")) {
    loaded = names::loadLibraryFile(*library);
    const QByteArray what = library->toLocal8Bit();
    if (!loaded.error.isEmpty()) {
      std::fprintf(stderr, "tintwell name: cannot read %s: %s\n", what.constData(),
                   loaded.error.toLocal8Bit().constData());
      return 1;
    }
    if (loaded.skippedRows > 0) {
      std::fprintf(stderr,
                   "tintwell name: %s: rows without a name or a valid colour left out: %lld\n",
                   what.constData(), static_cast<long long>(loaded.skippedRows));
    }
    if (loaded.library.isEmpty()) {
      std::fprintf(stderr, "tintwell name: %s holds no colour\n", what.constData());
      return 1;
    }
    chosen = &loaded.library;
  }

  QByteArray out;
  for (const names::NameMatch& match : chosen->nearest((*rgb)[0], (*rgb)[1], (*rgb)[2], count))
    out.append(formatMatch(match));
  if (std::fwrite(out.constData(), 1, static_cast<std::size_t>(out.size()), stdout) !=
          static_cast<std::size_t>(out.size()) ||
      std::fflush(stdout) != 0)
    return 1;
  return 0;
}

}  // namespace tw
