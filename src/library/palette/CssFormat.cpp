// A :root rule with one custom property per swatch, for style sheets.

#include <QSet>
#include <QStringList>

#include "library/palette/PaletteFormats.h"

namespace tw::palette {

namespace {

QString slugOf(const QString& name) {
  QString slug;
  bool dash = false;
  for (const QChar c : name) {
    const char16_t u = c.unicode();
    const bool alnum =
        (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9');
    if (alnum) {
      if (dash && !slug.isEmpty()) slug.append(u'-');
      dash = false;
      slug.append(c.toLower());
    } else {
      dash = true;
    }
  }
  return slug;
}

QString hexOf(const Swatch& swatch) {
  return QStringLiteral("#%1%2%3")
      .arg(swatch.red, 2, 16, QLatin1Char('0'))
      .arg(swatch.green, 2, 16, QLatin1Char('0'))
      .arg(swatch.blue, 2, 16, QLatin1Char('0'));
}

}  // namespace

QStringList cssSlugs(const Palette& palette) {
  QStringList slugs;
  QSet<QString> taken;
  for (std::size_t i = 0; i < palette.swatches.size(); ++i) {
    QString base = slugOf(palette.swatches[i].name);
    if (base.isEmpty()) base = QStringLiteral("color-%1").arg(i + 1);
    QString slug = base;
    for (int n = 2; taken.contains(slug); ++n) slug = QStringLiteral("%1-%2").arg(base).arg(n);
    taken.insert(slug);
    slugs.append(slug);
  }
  return slugs;
}

QByteArray writeCss(const Palette& palette) {
  // The name may not end the comment early.
  QString title = oneLine(palette.name);
  title.replace(QStringLiteral("*/"), QStringLiteral("* /"));
  QByteArray out = "/* ";
  out.append(title.toUtf8());
  out.append(" */\n:root {\n");
  const QStringList slugs = cssSlugs(palette);
  for (std::size_t i = 0; i < palette.swatches.size(); ++i) {
    out.append("  --");
    out.append(slugs[qsizetype(i)].toUtf8());
    out.append(": ");
    out.append(hexOf(palette.swatches[i]).toUtf8());
    out.append(";\n");
  }
  out.append("}\n");
  return out;
}

}  // namespace tw::palette
