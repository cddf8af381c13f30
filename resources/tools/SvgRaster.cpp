// Renders one of our SVG drawings to PNG at a given scale, at build time.
// Qt's SVG module is not part of the base packages, so this reads the small
// subset our drawings use and stops with an error on anything else, so that a
// drawing never renders silently wrong:
//   <svg width height [viewBox]>, <g> (style inheritance only), <rect>,
//   <circle>, <ellipse>, <line>, <polygon>, <polyline>, <path> with the
//   commands M L H V C Q Z (either case);
//   fill, stroke, stroke-width, stroke-linecap, stroke-linejoin, fill-rule,
//   opacity, fill-opacity, stroke-opacity; colours #rgb, #rrggbb, none.
// Usage: tw_svgraster IN.svg OUT.png SCALE
#include <QColor>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QRegularExpression>
#include <QXmlStreamReader>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

[[noreturn]] void fail(const QString& why) {
  std::fprintf(stderr, "tw_svgraster: %s\n", qPrintable(why));
  std::exit(1);
}

struct Style {
  QString fill = QStringLiteral("#000000");
  QString stroke = QStringLiteral("none");
  double strokeWidth = 1.0;
  Qt::PenCapStyle cap = Qt::FlatCap;
  Qt::PenJoinStyle join = Qt::MiterJoin;
  Qt::FillRule fillRule = Qt::WindingFill;
  double opacity = 1.0;
  double fillOpacity = 1.0;
  double strokeOpacity = 1.0;
};

double number(const QXmlStreamAttributes& attributes, const char* name, double fallback = 0.0) {
  const QString text = attributes.value(QLatin1String(name)).toString();
  if (text.isEmpty()) return fallback;
  bool ok = false;
  const double value = text.toDouble(&ok);
  if (!ok) fail(QStringLiteral("bad number in %1: %2").arg(QLatin1String(name), text));
  return value;
}

QColor colour(const QString& text, double alpha) {
  static const QRegularExpression hex(QStringLiteral("^#([0-9a-fA-F]{3}|[0-9a-fA-F]{6})$"));
  if (!hex.match(text).hasMatch()) fail(QStringLiteral("unsupported colour: ") + text);
  QColor c(text);
  c.setAlphaF(static_cast<float>(alpha));
  return c;
}

Style styled(Style style, const QXmlStreamAttributes& a) {
  for (const auto& attribute : a) {
    const QString name = attribute.name().toString();
    const QString value = attribute.value().toString();
    if (name == QLatin1String("fill")) {
      style.fill = value;
    } else if (name == QLatin1String("stroke")) {
      style.stroke = value;
    } else if (name == QLatin1String("stroke-width")) {
      style.strokeWidth = number(a, "stroke-width");
    } else if (name == QLatin1String("stroke-linecap")) {
      if (value == QLatin1String("round"))
        style.cap = Qt::RoundCap;
      else if (value == QLatin1String("square"))
        style.cap = Qt::SquareCap;
      else if (value == QLatin1String("butt"))
        style.cap = Qt::FlatCap;
      else
        fail(QStringLiteral("unsupported linecap: ") + value);
    } else if (name == QLatin1String("stroke-linejoin")) {
      if (value == QLatin1String("round"))
        style.join = Qt::RoundJoin;
      else if (value == QLatin1String("bevel"))
        style.join = Qt::BevelJoin;
      else if (value == QLatin1String("miter"))
        style.join = Qt::MiterJoin;
      else
        fail(QStringLiteral("unsupported linejoin: ") + value);
    } else if (name == QLatin1String("fill-rule")) {
      style.fillRule = value == QLatin1String("evenodd") ? Qt::OddEvenFill : Qt::WindingFill;
    } else if (name == QLatin1String("opacity")) {
      style.opacity = number(a, "opacity", 1.0);
    } else if (name == QLatin1String("fill-opacity")) {
      style.fillOpacity = number(a, "fill-opacity", 1.0);
    } else if (name == QLatin1String("stroke-opacity")) {
      style.strokeOpacity = number(a, "stroke-opacity", 1.0);
    } else if (name == QLatin1String("transform") || name == QLatin1String("style") ||
               name == QLatin1String("class")) {
      fail(QStringLiteral("unsupported attribute: ") + name);
    }
  }
  return style;
}

std::vector<double> numbers(const QString& text) {
  static const QRegularExpression token(
      QStringLiteral("[-+]?(?:\\d+\\.?\\d*|\\.\\d+)(?:[eE][-+]?\\d+)?"));
  std::vector<double> values;
  for (auto it = token.globalMatch(text); it.hasNext();)
    values.push_back(it.next().captured().toDouble());
  return values;
}

QPainterPath pathData(const QString& d) {
  static const QRegularExpression command(QStringLiteral("([MmLlHhVvCcQqZz])([^MmLlHhVvCcQqZz]*)"));
  static const QRegularExpression unknown(QStringLiteral("[AaSsTt]"));
  if (unknown.match(d).hasMatch()) fail(QStringLiteral("unsupported path command in: ") + d);
  QPainterPath path;
  QPointF current;
  QPointF start;
  for (auto it = command.globalMatch(d); it.hasNext();) {
    const auto match = it.next();
    const QChar c = match.captured(1).at(0);
    const bool relative = c.isLower();
    const std::vector<double> v = numbers(match.captured(2));
    auto point = [&](size_t i) {
      QPointF p(v[i], v[i + 1]);
      return relative ? current + p : p;
    };
    const char op = static_cast<char>(c.toUpper().toLatin1());
    size_t arity = op == 'M' || op == 'L'   ? 2
                   : op == 'H' || op == 'V' ? 1
                   : op == 'C'              ? 6
                   : op == 'Q'              ? 4
                                            : 0;
    if (arity == 0) {
      path.closeSubpath();
      current = start;
      continue;
    }
    if (v.empty() || v.size() % arity != 0) fail(QStringLiteral("bad path data: ") + d);
    for (size_t i = 0; i < v.size(); i += arity) {
      if (op == 'M' && i == 0) {
        current = start = point(i);
        path.moveTo(current);
      } else if (op == 'M' || op == 'L') {
        current = point(i);
        path.lineTo(current);
      } else if (op == 'H') {
        current.setX(relative ? current.x() + v[i] : v[i]);
        path.lineTo(current);
      } else if (op == 'V') {
        current.setY(relative ? current.y() + v[i] : v[i]);
        path.lineTo(current);
      } else if (op == 'C') {
        const QPointF c1 = point(i), c2 = point(i + 2), end = point(i + 4);
        path.cubicTo(c1, c2, end);
        current = end;
      } else {
        const QPointF c1 = point(i), end = point(i + 2);
        path.quadTo(c1, end);
        current = end;
      }
    }
  }
  return path;
}

QPainterPath points(const QString& text, bool close) {
  const std::vector<double> v = numbers(text);
  if (v.size() < 4 || v.size() % 2) fail(QStringLiteral("bad points: ") + text);
  QPainterPath path(QPointF(v[0], v[1]));
  for (size_t i = 2; i < v.size(); i += 2) path.lineTo(v[i], v[i + 1]);
  if (close) path.closeSubpath();
  return path;
}

void draw(QPainter& painter, QPainterPath path, const Style& style) {
  path.setFillRule(style.fillRule);
  if (style.fill != QLatin1String("none"))
    painter.fillPath(path, colour(style.fill, style.fillOpacity * style.opacity));
  if (style.stroke != QLatin1String("none")) {
    QPen pen(colour(style.stroke, style.strokeOpacity * style.opacity), style.strokeWidth,
             Qt::SolidLine, style.cap, style.join);
    painter.strokePath(path, pen);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) fail(QStringLiteral("usage: tw_svgraster IN.svg OUT.png SCALE"));
  QFile in(QString::fromLocal8Bit(argv[1]));
  if (!in.open(QIODevice::ReadOnly)) fail(QStringLiteral("cannot read ") + in.fileName());
  const double scale = QByteArray(argv[3]).toDouble();
  if (scale <= 0) fail(QStringLiteral("bad scale"));

  QXmlStreamReader xml(&in);
  QImage image;
  QPainter painter;
  std::vector<Style> styles;
  while (!xml.atEnd()) {
    xml.readNext();
    if (xml.isEndElement()) {
      if (xml.name() == QLatin1String("g") || xml.name() == QLatin1String("svg")) styles.pop_back();
      continue;
    }
    if (!xml.isStartElement()) continue;
    const QString name = xml.name().toString();
    const QXmlStreamAttributes a = xml.attributes();
    if (name == QLatin1String("svg")) {
      const double width = number(a, "width"), height = number(a, "height");
      if (width <= 0 || height <= 0) fail(QStringLiteral("svg needs width and height"));
      std::vector<double> box = numbers(a.value(QLatin1String("viewBox")).toString());
      if (box.empty()) box = {0, 0, width, height};
      if (box.size() != 4) fail(QStringLiteral("bad viewBox"));
      image = QImage(qRound(width * scale), qRound(height * scale),
                     QImage::Format_ARGB32_Premultiplied);
      image.fill(Qt::transparent);
      painter.begin(&image);
      painter.setRenderHint(QPainter::Antialiasing);
      painter.scale(scale * width / box[2], scale * height / box[3]);
      painter.translate(-box[0], -box[1]);
      styles.push_back(styled(Style{}, a));
      continue;
    }
    if (!painter.isActive()) fail(QStringLiteral("drawing outside <svg>"));
    if (name == QLatin1String("title") || name == QLatin1String("desc")) {
      xml.skipCurrentElement();
      continue;
    }
    if (name == QLatin1String("g")) {
      styles.push_back(styled(styles.back(), a));
      continue;
    }
    const Style style = styled(styles.back(), a);
    QPainterPath path;
    if (name == QLatin1String("rect")) {
      const double rx = number(a, "rx"), ry = number(a, "ry", rx);
      path.addRoundedRect(
          QRectF(number(a, "x"), number(a, "y"), number(a, "width"), number(a, "height")), rx, ry);
    } else if (name == QLatin1String("circle")) {
      const double r = number(a, "r");
      path.addEllipse(QPointF(number(a, "cx"), number(a, "cy")), r, r);
    } else if (name == QLatin1String("ellipse")) {
      path.addEllipse(QPointF(number(a, "cx"), number(a, "cy")), number(a, "rx"), number(a, "ry"));
    } else if (name == QLatin1String("line")) {
      path.moveTo(number(a, "x1"), number(a, "y1"));
      path.lineTo(number(a, "x2"), number(a, "y2"));
    } else if (name == QLatin1String("polygon") || name == QLatin1String("polyline")) {
      path = points(a.value(QLatin1String("points")).toString(), name == QLatin1String("polygon"));
    } else if (name == QLatin1String("path")) {
      path = pathData(a.value(QLatin1String("d")).toString());
    } else {
      fail(QStringLiteral("unsupported element: ") + name);
    }
    draw(painter, path, style);
    xml.skipCurrentElement();
  }
  if (xml.hasError()) fail(QStringLiteral("XML: ") + xml.errorString());
  if (!painter.isActive()) fail(QStringLiteral("no <svg> element"));
  painter.end();
  if (!image.save(QString::fromLocal8Bit(argv[2]), "PNG")) fail(QStringLiteral("cannot write PNG"));
  return 0;
}
