#include <gtest/gtest.h>

#include <QColor>
#include <QSet>
#include <algorithm>
#include <cmath>
#include <random>

#include "color/ColorNotations.h"
#include "color/DeltaE.h"
#include "library/names/NameLibrary.h"

namespace tw::names {
namespace {

ColorCodeLibrary entry(const QString& name, int r, int g, int b, const QString& abbr = {}) {
  ColorCodeLibrary e;
  e.name = name;
  e.abbr = abbr;
  e.sR = r;
  e.sG = g;
  e.sB = b;
  return e;
}

// Random libraries: with `palette` > 0 the colours come from that many random
// colours only, so that duplicates and equal differences are common.
NameLibrary randomLibrary(std::mt19937& rng, int size, int palette) {
  std::uniform_int_distribution<int> channel(0, 255);
  std::vector<std::array<int, 3>> colours;
  for (int i = 0; i < palette; ++i) colours.push_back({channel(rng), channel(rng), channel(rng)});
  QList<ColorCodeLibrary> entries;
  for (int i = 0; i < size; ++i) {
    std::array<int, 3> c{channel(rng), channel(rng), channel(rng)};
    if (palette > 0) c = colours[std::uniform_int_distribution<int>(0, palette - 1)(rng)];
    entries.append(entry(QStringLiteral("e%1").arg(i), c[0], c[1], c[2]));
  }
  return NameLibrary(QStringLiteral("random"), entries);
}

void expectSameMatches(const std::vector<NameMatch>& got, const std::vector<NameMatch>& want,
                       const char* what, int r, int g, int b, int n) {
  ASSERT_EQ(got.size(), want.size())
      << what << " query " << r << "," << g << "," << b << " n=" << n;
  for (std::size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].entry.name, want[i].entry.name)
        << what << " query " << r << "," << g << "," << b << " n=" << n << " rank " << i;
    EXPECT_EQ(got[i].deltaE, want[i].deltaE);
    EXPECT_EQ(got[i].entry.delta, want[i].entry.delta);
    EXPECT_EQ(got[i].entry.sR, want[i].entry.sR);
  }
}

TEST(NameLibraryBound, NeverExceedsTheDifferenceOnRandomPairs) {
  std::mt19937 rng(20261125);
  std::uniform_int_distribution<int> channel(0, 255);
  // Every pair of sRGB colours is reachable; add pairs one step apart, where
  // the bound is tightest, and grey pairs, where only lightness differs.
  for (int i = 0; i < 300000; ++i) {
    const int r = channel(rng), g = channel(rng), b = channel(rng);
    int r2 = channel(rng), g2 = channel(rng), b2 = channel(rng);
    if (i % 3 == 1) {
      r2 = std::clamp(r + (i % 7) - 3, 0, 255);
      g2 = std::clamp(g + (i % 5) - 2, 0, 255);
      b2 = std::clamp(b + (i % 3) - 1, 0, 255);
    } else if (i % 3 == 2) {
      g2 = b2 = r2;
    }
    const LabColor x = labOfSRGB8(r, g, b);
    const LabColor y = labOfSRGB8(r2, g2, b2);
    const double d = deltaE2000(x, y);
    ASSERT_LE(deltaE2000LowerBound(x, y), d * (1 + 1e-12) + 1e-12)
        << r << "," << g << "," << b << " to " << r2 << "," << g2 << "," << b2;
    const double maxOffset = std::max(std::fabs(x.L - 50), std::fabs(y.L - 50));
    ASSERT_LE(deltaE2000LightnessBound(y.L - x.L, maxOffset), d * (1 + 1e-12) + 1e-12);
  }
}

TEST(NameLibraryBound, HoldsWhereTheRotationTermIsStrongest) {
  // The rotation term peaks for saturated blues (mean hue near 275 degrees),
  // where it is negative for some hue and chroma directions.
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> hue(230, 320), chroma(0, 140), lightness(0, 100),
      step(-30, 30);
  for (int i = 0; i < 200000; ++i) {
    const double h1 = hue(rng) * M_PI / 180, c1 = chroma(rng);
    const LabColor x{lightness(rng), c1 * std::cos(h1), c1 * std::sin(h1)};
    const LabColor y{std::clamp(x.L + step(rng) / 10, 0.0, 100.0), x.a + step(rng),
                     x.b + step(rng)};
    const double d = deltaE2000(x, y);
    ASSERT_LE(deltaE2000LowerBound(x, y), d * (1 + 1e-12) + 1e-12) << i;
  }
}

TEST(NameLibrary, NearestEqualsTheFullScanOnRandomLibrariesAndQueries) {
  std::mt19937 rng(1125);
  std::uniform_int_distribution<int> channel(0, 255);
  const int sizes[] = {1, 2, 3, 7, 40, 200, 1000};
  const int ns[] = {1, 1, 2, 3, 5, 12};
  int queries = 0;
  for (int round = 0; queries < 100000; ++round) {
    const int size = sizes[round % std::size(sizes)];
    const int palette = round % 3 == 0 ? std::max(1, size / 4) : 0;
    const NameLibrary library = randomLibrary(rng, size, palette);
    for (int q = 0; q < 500; ++q, ++queries) {
      int r = channel(rng), g = channel(rng), b = channel(rng);
      if (q % 10 == 0) {  // exactly an entry: zero differences and ties
        const auto& e = library.entries()[q % library.size()];
        r = static_cast<int>(e.sR), g = static_cast<int>(e.sG), b = static_cast<int>(e.sB);
      }
      const int n = q % 50 == 7 ? size + 3 : ns[q % std::size(ns)];
      expectSameMatches(library.nearest(r, g, b, n), library.nearestByFullScan(r, g, b, n),
                        "random", r, g, b, n);
      if (::testing::Test::HasFailure()) return;
    }
  }
}

TEST(NameLibrary, NearestEqualsTheFullScanOnA30000EntryLibrary) {
  std::mt19937 rng(30000);
  std::uniform_int_distribution<int> channel(0, 255);
  const NameLibrary library = randomLibrary(rng, 30000, 0);
  for (int q = 0; q < 300; ++q) {
    const int r = channel(rng), g = channel(rng), b = channel(rng);
    const int n = 1 + q % 4;
    expectSameMatches(library.nearest(r, g, b, n), library.nearestByFullScan(r, g, b, n), "30000",
                      r, g, b, n);
  }
}

TEST(NameLibrary, EmptyLibraryAndNonPositiveCountsGiveNothing) {
  const NameLibrary empty;
  EXPECT_TRUE(empty.nearest(1, 2, 3).empty());
  EXPECT_TRUE(empty.nearest(1, 2, 3, 5).empty());
  const NameLibrary one(QStringLiteral("one"), {entry(QStringLiteral("only"), 10, 20, 30)});
  EXPECT_TRUE(one.nearest(10, 20, 30, 0).empty());
  EXPECT_TRUE(one.nearest(10, 20, 30, -1).empty());
}

TEST(NameLibrary, OneEntryLibraryAlwaysAnswersThatEntry) {
  const NameLibrary one(QStringLiteral("one"),
                        {entry(QStringLiteral("only"), 10, 20, 30, QStringLiteral("O1"))});
  for (const auto& q : {std::array<int, 3>{0, 0, 0}, {255, 255, 255}, {10, 20, 30}, {200, 0, 9}}) {
    const auto found = one.nearest(q[0], q[1], q[2], 3);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].entry.name, QStringLiteral("only"));
    EXPECT_EQ(found[0].entry.abbr, QStringLiteral("O1"));
    const double d = deltaE2000(labOfSRGB8(q[0], q[1], q[2]), labOfSRGB8(10, 20, 30));
    EXPECT_DOUBLE_EQ(found[0].deltaE, d);
    EXPECT_EQ(found[0].entry.delta, static_cast<qint64>(std::llround(d * 100)));
  }
}

TEST(NameLibrary, EqualDifferencesKeepLibraryOrder) {
  const NameLibrary library(
      QStringLiteral("ties"),
      {entry(QStringLiteral("first"), 9, 9, 9), entry(QStringLiteral("x"), 200, 0, 0),
       entry(QStringLiteral("second"), 9, 9, 9), entry(QStringLiteral("third"), 9, 9, 9)});
  const auto found = library.nearest(9, 9, 9, 3);
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[0].entry.name, QStringLiteral("first"));
  EXPECT_EQ(found[1].entry.name, QStringLiteral("second"));
  EXPECT_EQ(found[2].entry.name, QStringLiteral("third"));
  EXPECT_EQ(found[2].deltaE, 0.0);
}

TEST(NameLibrary, ChannelsAreClampedAndDeltaIsRecomputed) {
  ColorCodeLibrary wild = entry(QStringLiteral("wild"), -5, 300, 128);
  wild.delta = 77;
  const NameLibrary library(QStringLiteral("t"), {wild});
  EXPECT_EQ(library.entries()[0].sR, 0);
  EXPECT_EQ(library.entries()[0].sG, 255);
  const auto found = library.nearest(-1, 999, 128);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].deltaE, 0.0);
  EXPECT_EQ(found[0].entry.delta, 0);
}

TEST(NameLibrary, FromPaletteKeepsNameOrderAndChannels) {
  palette::Palette p;
  p.name = QStringLiteral("Sunset");
  p.swatches = {{QStringLiteral("Dusk"), 40, 30, 90}, {QStringLiteral("Ember"), 230, 80, 20}};
  const NameLibrary library = NameLibrary::fromPalette(p);
  EXPECT_EQ(library.title(), QStringLiteral("Sunset"));
  ASSERT_EQ(library.size(), 2);
  EXPECT_EQ(library.entries()[1].name, QStringLiteral("Ember"));
  EXPECT_EQ(library.entries()[1].sR, 230);
  EXPECT_EQ(library.entries()[1].sG, 80);
  EXPECT_EQ(library.entries()[1].sB, 20);
  EXPECT_EQ(library.nearest(230, 80, 21)[0].entry.name, QStringLiteral("Ember"));
}

TEST(CssLibrary, Holds148NamesInAlphabeticalOrder) {
  const NameLibrary& css = cssLibrary();
  EXPECT_EQ(css.title(), QStringLiteral("CSS named colours"));
  ASSERT_EQ(css.size(), 148);
  EXPECT_EQ(css.entries().front().name, QStringLiteral("aliceblue"));
  EXPECT_EQ(css.entries().back().name, QStringLiteral("yellowgreen"));
  for (qsizetype i = 1; i < css.size(); ++i)
    EXPECT_LT(css.entries()[i - 1].name, css.entries()[i].name);
}

TEST(CssLibrary, AgreesWithQtsNamedColours) {
  // Qt knows the SVG keywords, which are the CSS ones but rebeccapurple.
  int known = 0;
  for (const ColorCodeLibrary& e : cssLibrary().entries()) {
    const QColor qt = QColor::fromString(e.name);
    if (!qt.isValid()) {
      EXPECT_EQ(e.name, QStringLiteral("rebeccapurple"));
      continue;
    }
    ++known;
    EXPECT_EQ(qt.red(), e.sR) << e.name.toStdString();
    EXPECT_EQ(qt.green(), e.sG) << e.name.toStdString();
    EXPECT_EQ(qt.blue(), e.sB) << e.name.toStdString();
  }
  EXPECT_GE(known, 147);
  const auto purple = cssLibrary().nearest(0x66, 0x33, 0x99);
  EXPECT_EQ(purple[0].entry.name, QStringLiteral("rebeccapurple"));
}

TEST(CssLibrary, EveryColourFindsItselfOrAnEarlierAliasAtZero) {
  const NameLibrary& css = cssLibrary();
  for (const ColorCodeLibrary& e : css.entries()) {
    const auto found =
        css.nearest(static_cast<int>(e.sR), static_cast<int>(e.sG), static_cast<int>(e.sB));
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].deltaE, 0.0) << e.name.toStdString();
    EXPECT_EQ(found[0].entry.delta, 0);
    EXPECT_EQ(found[0].entry.sR, e.sR);
    EXPECT_EQ(found[0].entry.sG, e.sG);
    EXPECT_EQ(found[0].entry.sB, e.sB);
    // The first entry in library order with these channels.
    const auto first = std::find_if(css.entries().begin(), css.entries().end(), [&](const auto& x) {
      return x.sR == e.sR && x.sG == e.sG && x.sB == e.sB;
    });
    EXPECT_EQ(found[0].entry.name, first->name);
  }
  EXPECT_EQ(css.nearest(0, 255, 255)[0].entry.name, QStringLiteral("aqua"));
  EXPECT_EQ(css.nearest(255, 0, 255)[0].entry.name, QStringLiteral("fuchsia"));
  EXPECT_EQ(css.nearest(128, 128, 128)[0].entry.name, QStringLiteral("gray"));
  const auto both = css.nearest(0, 255, 255, 2);
  EXPECT_EQ(both[1].entry.name, QStringLiteral("cyan"));
  EXPECT_EQ(both[1].deltaE, 0.0);
}

TEST(CssLibrary, KnownNeighbours) {
  const NameLibrary& css = cssLibrary();
  const auto tomato = css.nearest(250, 100, 70);
  EXPECT_EQ(tomato[0].entry.name, QStringLiteral("tomato"));
  EXPECT_GT(tomato[0].deltaE, 0.0);
  EXPECT_LT(tomato[0].deltaE, 2.0);
  EXPECT_EQ(css.nearest(1, 1, 1)[0].entry.name, QStringLiteral("black"));
  EXPECT_EQ(css.nearest(254, 254, 254)[0].entry.name, QStringLiteral("white"));
  EXPECT_EQ(css.nearest(0, 0, 250)[0].entry.name, QStringLiteral("blue"));
  EXPECT_EQ(css.nearest(0, 130, 0)[0].entry.name, QStringLiteral("green"));
  // Three nearest, nearest first, with the differences rounded to hundredths.
  const auto three = css.nearest(255, 0, 0, 3);
  ASSERT_EQ(three.size(), 3u);
  EXPECT_EQ(three[0].entry.name, QStringLiteral("red"));
  EXPECT_LE(three[0].deltaE, three[1].deltaE);
  EXPECT_LE(three[1].deltaE, three[2].deltaE);
  for (const NameMatch& m : three)
    EXPECT_EQ(m.entry.delta, static_cast<qint64>(std::llround(m.deltaE * 100)));
}

TEST(X11Library, HoldsOneSpellingPerName) {
  const NameLibrary& x11 = x11Library();
  EXPECT_EQ(x11.title(), QStringLiteral("X11 colour names"));
  EXPECT_EQ(x11.size(), 550);
  QSet<QString> seen;
  for (const ColorCodeLibrary& e : x11.entries()) {
    EXPECT_FALSE(e.name.contains(u' ')) << e.name.toStdString();
    QString key = e.name.toLower();
    key.replace(QStringLiteral("grey"), QStringLiteral("gray"));
    EXPECT_FALSE(seen.contains(key)) << e.name.toStdString();
    seen.insert(key);
  }
  EXPECT_EQ(x11.entries().front().name, QStringLiteral("snow"));
  EXPECT_TRUE(seen.contains(QStringLiteral("aliceblue")));
  const auto grey = x11.nearest(190, 190, 190);
  EXPECT_EQ(grey[0].entry.name, QStringLiteral("gray"));
  EXPECT_EQ(x11.nearest(127, 127, 127)[0].entry.name, QStringLiteral("gray50"));
  EXPECT_EQ(x11.nearest(240, 248, 255)[0].entry.name, QStringLiteral("AliceBlue"));
}

}  // namespace
}  // namespace tw::names
