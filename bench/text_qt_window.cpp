// A second floor for the start-up comparison: the empty window plus only the
// panel's texts, in its three fonts (the system font for the captions, the
// fixed font for the values, the fixed font bold at 1.6 times for the hex), and
// no logic at all. What a Qt Widgets window pays to show this much text, which
// the empty window never draws, is the difference between the two floors.
#include <QApplication>
#include <QFontDatabase>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QWidget>

int main(int argc, char* argv[]) {
  QApplication app(argc, argv);
  QWidget window;
  window.setWindowTitle(QStringLiteral("TextQt"));
  const QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  QFont hexFont = mono;
  hexFont.setPointSizeF(mono.pointSizeF() * 1.6);
  hexFont.setBold(true);
  auto* grid = new QGridLayout(&window);
  auto* hex = new QLineEdit(QStringLiteral("#FAFAFA"), &window);
  hex->setFont(hexFont);
  grid->addWidget(hex, 0, 0, 1, 2);
  const char* captions[] = {"RGB", "CMYK", "HSB", "Lab"};
  const char* values[] = {"250 250 250", "0 0 0 2", "0 0 98", "98.3 0.0 0.0"};
  for (int i = 0; i < 4; ++i) {
    grid->addWidget(new QLabel(QString::fromLatin1(captions[i]), &window), i + 1, 0);
    auto* field = new QLineEdit(QString::fromLatin1(values[i]), &window);
    field->setFont(mono);
    grid->addWidget(field, i + 1, 1);
  }
  window.show();
  return QApplication::exec();
}
