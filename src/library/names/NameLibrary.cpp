#include "library/names/NameLibrary.h"

#include <QFile>
#include <QHash>
#include <QStringDecoder>
#include <QStringList>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "color/ColorNotations.h"
#include "common/Fatal.h"
#include "library/CSwiftV.h"

namespace tw::names {

// How nearest() avoids most difference computations, exactly.
//
// With kL = kC = kH = 1, CIEDE2000 is
//   dE^2 = (dL/SL)^2 + x^2 + y^2 + RT*x*y,  x = dC'/SC, y = dH'/SH.
// (1) RT = -sin(2*dTheta)*RC with 0 < dTheta <= 30 degrees and 0 <= RC < 2, so
//     |RT| <= 2*sin(60) = 1.732. The form x^2 + y^2 + RT*x*y has eigenvalues
//     1 +- RT/2 >= 1 - sin(60) = 0.1340, so the rotation term can lower the
//     chroma-hue part but never below 0.1340*(x^2 + y^2); dropping that part
//     altogether gives dE >= |dL|/SL.
// (2) SL = 1 + 0.015*u^2/sqrt(20 + u^2) with u = |mean L - 50| grows with u,
//     and u is at most the larger |L - 50| of the two colours: the largest SL
//     over the library and the query bounds every pair's.
// (3) dC'^2 + dH'^2 is the squared distance between the two colours in the
//     (a', b') plane (dH' = 2*sqrt(C1'C2')*sin(dh'/2)), and a' = (1 + G)*a with
//     the same G >= 0 for both, so it is at least da^2 + db^2.
// (4) T <= 1 + 0.17 + 0.24 + 0.32 + 0.20 = 1.93, so SH <= 1 + 0.029*mean C'
//     <= SC = 1 + 0.045*mean C'; with C' <= 1.5*C (G <= 0.5), mean C' <=
//     0.75*(C1 + C2), so SC <= 1 + 0.03375*(C1 + C2).
// Together: dE^2 >= (dL/SL)^2 + 0.1340*(da^2 + db^2)/(1 + 0.03375*(C1 + C2))^2.
//
// nearest() walks the entries sorted by L outward from the query's L, stops
// when |dL|/SLmax (2) exceeds the n-th best difference so far, and skips an
// entry whose bound above exceeds it. Both comparisons leave a small relative
// margin so that rounding in either computation never rules out an entry the
// full scan would keep, ties included. tests/library/names/ checks the bound
// on random pairs and the answers against nearestByFullScan().

namespace {

// Just below 1 - sin(60 degrees) = 0.133975.
constexpr double kCrossFloor = 0.1339;
constexpr double kChromaWeightSlope = 0.03375;
// The room left for rounding: differences are a few hundred at most and
// computed to about 1e-14 relative.
constexpr double kRelativeMargin = 1e-9;
constexpr double kAbsoluteMargin = 1e-12;

double lightnessWeight(double offsetFrom50) {
  const double o2 = offsetFrom50 * offsetFrom50;
  return 1.0 + 0.015 * o2 / std::sqrt(20.0 + o2);
}

std::uint8_t channel8(qint64 value) {
  return static_cast<std::uint8_t>(std::clamp<qint64>(value, 0, 255));
}

// The square of deltaE2000LowerBound, from what the index keeps per entry.
double squaredBound(double dL, double meanL, double da, double db, double chromaSum) {
  const double sl = lightnessWeight(std::fabs(meanL - 50.0));
  const double sc = 1.0 + kChromaWeightSlope * chromaSum;
  return (dL * dL) / (sl * sl) + kCrossFloor * (da * da + db * db) / (sc * sc);
}

struct Candidate {
  double deltaE;
  qsizetype entry;
};

// Smaller difference first, then library order.
bool before(const Candidate& x, const Candidate& y) {
  return x.deltaE < y.deltaE || (x.deltaE == y.deltaE && x.entry < y.entry);
}

std::vector<NameMatch> toMatches(const QList<ColorCodeLibrary>& entries,
                                 const std::vector<Candidate>& found) {
  std::vector<NameMatch> matches;
  matches.reserve(found.size());
  for (const Candidate& c : found) {
    NameMatch match{entries[c.entry], c.deltaE};
    match.entry.delta = static_cast<qint64>(roundHalfAway(c.deltaE * 100.0));
    matches.push_back(std::move(match));
  }
  return matches;
}

}  // namespace

double deltaE2000LowerBound(const LabColor& first, const LabColor& second) {
  return std::sqrt(squaredBound(second.L - first.L, (first.L + second.L) / 2.0, second.a - first.a,
                                second.b - first.b,
                                std::hypot(first.a, first.b) + std::hypot(second.a, second.b)));
}

double deltaE2000LightnessBound(double deltaL, double maxOffsetFrom50) {
  return std::fabs(deltaL) / lightnessWeight(maxOffsetFrom50);
}

NameLibrary::NameLibrary(QString title, QList<ColorCodeLibrary> entries)
    : title_(std::move(title)), entries_(std::move(entries)) {
  labs_.reserve(static_cast<std::size_t>(entries_.size()));
  byLightness_.reserve(static_cast<std::size_t>(entries_.size()));
  for (qsizetype i = 0; i < entries_.size(); ++i) {
    ColorCodeLibrary& e = entries_[i];
    e.sR = channel8(e.sR);
    e.sG = channel8(e.sG);
    e.sB = channel8(e.sB);
    e.delta = 0;
    const LabColor lab = labOfSRGB8(channel8(e.sR), channel8(e.sG), channel8(e.sB));
    labs_.push_back(lab);
    byLightness_.push_back({lab.L, lab.a, lab.b, std::hypot(lab.a, lab.b), i});
    maxLightnessOffset_ = std::max(maxLightnessOffset_, std::fabs(lab.L - 50.0));
  }
  std::sort(byLightness_.begin(), byLightness_.end(), [](const Indexed& x, const Indexed& y) {
    return x.L < y.L || (x.L == y.L && x.entry < y.entry);
  });
}

std::vector<NameMatch> NameLibrary::nearest(int red, int green, int blue, int n) const {
  if (n < 1 || entries_.isEmpty()) return {};
  const std::size_t want = std::min<std::size_t>(static_cast<std::size_t>(n), byLightness_.size());
  const LabColor query = labOfSRGB8(channel8(red), channel8(green), channel8(blue));
  const double queryChroma = std::hypot(query.a, query.b);
  const double maxWeight =
      lightnessWeight(std::max(maxLightnessOffset_, std::fabs(query.L - 50.0)));

  std::vector<Candidate> best;  // sorted by before(), at most `want`
  best.reserve(want + 1);
  double limit = std::numeric_limits<double>::infinity();  // bounds above it lose
  double limitSquared = limit;

  auto consider = [&](const Indexed& e) {
    if (best.size() == want) {
      const double bound = squaredBound(e.L - query.L, (e.L + query.L) / 2.0, e.a - query.a,
                                        e.b - query.b, e.chroma + queryChroma);
      if (bound > limitSquared) return;
    }
    const Candidate c{deltaE2000(query, labs_[static_cast<std::size_t>(e.entry)]), e.entry};
    if (best.size() == want && !before(c, best.back())) return;
    best.insert(std::upper_bound(best.begin(), best.end(), c, before), c);
    if (best.size() > want) best.pop_back();
    if (best.size() == want) {
      limit = best.back().deltaE * (1.0 + kRelativeMargin) + kAbsoluteMargin;
      limitSquared = limit * limit;
    }
  };

  const auto count = static_cast<std::ptrdiff_t>(byLightness_.size());
  std::ptrdiff_t up = std::lower_bound(byLightness_.begin(), byLightness_.end(), query.L,
                                       [](const Indexed& e, double L) { return e.L < L; }) -
                      byLightness_.begin();
  std::ptrdiff_t down = up - 1;
  while (down >= 0 || up < count) {
    // The nearer side in L next: once its gap rules it out, the other side's
    // larger gap does too.
    const bool takeUp =
        up < count && (down < 0 || byLightness_[up].L - query.L <= query.L - byLightness_[down].L);
    const double gap = takeUp ? byLightness_[up].L - query.L : query.L - byLightness_[down].L;
    if (best.size() == want && gap / maxWeight > limit) break;
    consider(takeUp ? byLightness_[up++] : byLightness_[down--]);
  }
  return toMatches(entries_, best);
}

std::vector<NameMatch> NameLibrary::nearestByFullScan(int red, int green, int blue, int n) const {
  if (n < 1 || entries_.isEmpty()) return {};
  const LabColor query = labOfSRGB8(channel8(red), channel8(green), channel8(blue));
  std::vector<Candidate> all;
  all.reserve(labs_.size());
  for (std::size_t i = 0; i < labs_.size(); ++i)
    all.push_back({deltaE2000(query, labs_[i]), static_cast<qsizetype>(i)});
  const std::size_t want = std::min<std::size_t>(static_cast<std::size_t>(n), all.size());
  std::partial_sort(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(want), all.end(),
                    before);
  all.resize(want);
  return toMatches(entries_, all);
}

NameLibrary NameLibrary::fromPalette(const palette::Palette& palette) {
  QList<ColorCodeLibrary> entries;
  entries.reserve(static_cast<qsizetype>(palette.swatches.size()));
  for (const palette::Swatch& s : palette.swatches) {
    ColorCodeLibrary e;
    e.name = s.name;
    e.sR = s.red;
    e.sG = s.green;
    e.sB = s.blue;
    entries.append(std::move(e));
  }
  return NameLibrary(palette.name, std::move(entries));
}

namespace {

// A field as the user meant it: see loadCsvLibrary.
QString unquoted(const QString& field) {
  QString trimmed = field.trimmed();
  if (trimmed.size() >= 2 && trimmed.front() == u'"' && trimmed.back() == u'"') {
    QString inner = trimmed.mid(1, trimmed.size() - 2);
    inner.replace(QStringLiteral("\"\""), QStringLiteral("\""));
    return inner;
  }
  return trimmed;
}

int hexDigit(QChar c) {
  const char16_t u = c.unicode();
  if (u >= u'0' && u <= u'9') return u - u'0';
  if (u >= u'a' && u <= u'f') return u - u'a' + 10;
  if (u >= u'A' && u <= u'F') return u - u'A' + 10;
  return -1;
}

bool parseHex(QStringView text, ColorCodeLibrary& e) {
  if (text.startsWith(u'#')) text = text.mid(1);
  if (text.size() != 6) return false;
  int v[6];
  for (int i = 0; i < 6; ++i) {
    v[i] = hexDigit(text[i]);
    if (v[i] < 0) return false;
  }
  e.sR = v[0] * 16 + v[1];
  e.sG = v[2] * 16 + v[3];
  e.sB = v[4] * 16 + v[5];
  return true;
}

// Decimal digits only, 0 to 255.
bool parseChannel(QStringView text, qint64& out) {
  if (text.isEmpty() || text.size() > 3) return false;
  qint64 value = 0;
  for (QChar c : text) {
    if (c < u'0' || c > u'9') return false;
    value = value * 10 + (c.unicode() - u'0');
  }
  if (value > 255) return false;
  out = value;
  return true;
}

}  // namespace

CsvLoad loadCsvLibrary(const QByteArray& bytes, const QString& title) {
  CsvLoad result;
  result.library = NameLibrary(title, {});
  // The default decoder drops a leading byte order mark.
  QStringDecoder decoder(QStringDecoder::Utf8);
  QString text = decoder(bytes);
  text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
  // The reader stops the process on a text without a line; rule it out first.
  if (!CSwiftV::hasHeaderLine(text)) {
    result.error = QStringLiteral("no header row");
    return result;
  }
  const CSwiftV table(text);

  QHash<QString, qsizetype> column;
  for (qsizetype i = 0; i < table.headers().size(); ++i) {
    const QString key = unquoted(table.headers()[i]).toLower();
    if (!column.contains(key)) column.insert(key, i);
  }
  const auto find = [&](const char* name) { return column.value(QString::fromLatin1(name), -1); };
  const qsizetype nameColumn = find("name");
  const qsizetype hexColumn = find("hex");
  const qsizetype redColumn = find("red");
  const qsizetype greenColumn = find("green");
  const qsizetype blueColumn = find("blue");
  const qsizetype codeColumn = find("abbr") >= 0 ? find("abbr") : find("code");
  const bool rgbColumns = redColumn >= 0 && greenColumn >= 0 && blueColumn >= 0;
  if (nameColumn < 0) {
    result.error = QStringLiteral("no \"name\" column");
    return result;
  }
  if (hexColumn < 0 && !rgbColumns) {
    result.error = QStringLiteral("no \"hex\" column and no \"red\", \"green\", \"blue\" columns");
    return result;
  }

  QList<ColorCodeLibrary> entries;
  for (const QStringList& fields : table.rows()) {
    const auto field = [&](qsizetype i) {
      return i >= 0 && i < fields.size() ? unquoted(fields[i]) : QString();
    };
    ColorCodeLibrary e;
    e.name = field(nameColumn);
    e.abbr = field(codeColumn);
    bool valid = !e.name.isEmpty();
    if (valid && hexColumn >= 0) {
      valid = parseHex(field(hexColumn), e);
    } else if (valid) {
      valid = parseChannel(field(redColumn), e.sR) && parseChannel(field(greenColumn), e.sG) &&
              parseChannel(field(blueColumn), e.sB);
    }
    if (valid) {
      entries.append(std::move(e));
    } else {
      ++result.skippedRows;
    }
  }
  result.library = NameLibrary(title, std::move(entries));
  return result;
}

namespace {

// The compiled-in lists: "R G B<TAB>name" lines, '!' lines are notes. They are
// part of the program, so a malformed line is a build mistake.
NameLibrary builtIn(const QString& title, const QString& resource) {
  QFile file(resource);
  if (!file.open(QIODevice::ReadOnly))
    fatalStop((QStringLiteral("missing built-in colour names: ") + resource).toStdString());
  QList<ColorCodeLibrary> entries;
  const QList<QByteArray> lines = file.readAll().split('\n');
  for (const QByteArray& line : lines) {
    if (line.isEmpty() || line.startsWith('!')) continue;
    const qsizetype tab = line.indexOf('\t');
    const QList<QByteArray> channels = line.left(tab).simplified().split(' ');
    ColorCodeLibrary e;
    bool ok = tab > 0 && channels.size() == 3;
    if (ok) {
      e.name = QString::fromUtf8(line.mid(tab + 1)).trimmed();
      ok = parseChannel(QString::fromLatin1(channels[0]), e.sR) &&
           parseChannel(QString::fromLatin1(channels[1]), e.sG) &&
           parseChannel(QString::fromLatin1(channels[2]), e.sB) && !e.name.isEmpty();
    }
    if (!ok)
      fatalStop((QStringLiteral("malformed built-in colour names: ") + resource).toStdString());
    entries.append(std::move(e));
  }
  return NameLibrary(title, std::move(entries));
}

}  // namespace

const NameLibrary& cssLibrary() {
  static const NameLibrary library =
      builtIn(QStringLiteral("CSS named colours"), QStringLiteral(":/names/css.txt"));
  return library;
}

const NameLibrary& x11Library() {
  static const NameLibrary library =
      builtIn(QStringLiteral("X11 colour names"), QStringLiteral(":/names/x11.txt"));
  return library;
}

const NameLibrary& tangoLibrary() {
  static const NameLibrary library =
      builtIn(QStringLiteral("Tango"), QStringLiteral(":/names/tango.txt"));
  return library;
}

}  // namespace tw::names
