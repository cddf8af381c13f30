// Another application for the drag tests: a window that takes any drop and
// prints, one line each, "formats: ...", "text: ...", "color: #RRGGBB" (or
// "color: none"), then exits. Prints "ready" once its window is mapped.
// Arguments: x y (where the 200x200 window stands).
#include <QApplication>
#include <QColor>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QTimer>
#include <QWidget>
#include <cstdio>

namespace {

class Target : public QWidget {
 public:
  Target() {
    setAcceptDrops(true);
    setWindowTitle(QStringLiteral("tw drop target"));
  }

 protected:
  void dragEnterEvent(QDragEnterEvent* event) override { event->acceptProposedAction(); }
  void dragMoveEvent(QDragMoveEvent* event) override { event->acceptProposedAction(); }
  void dropEvent(QDropEvent* event) override {
    const QMimeData* data = event->mimeData();
    std::printf("formats: %s\n", qPrintable(data->formats().join(QLatin1Char(' '))));
    std::printf("text: %s\n", qPrintable(data->text()));
    const QColor color = qvariant_cast<QColor>(data->colorData());
    std::printf("color: %s\n",
                color.isValid() ? qPrintable(color.name(QColor::HexRgb).toUpper()) : "none");
    std::fflush(stdout);
    event->acceptProposedAction();
    QTimer::singleShot(0, qApp, &QApplication::quit);
  }
  void showEvent(QShowEvent*) override {
    QTimer::singleShot(100, [] {
      std::printf("ready\n");
      std::fflush(stdout);
    });
  }
};

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  Target target;
  target.setGeometry(QApplication::arguments().value(1).toInt(),
                     QApplication::arguments().value(2).toInt(), 200, 200);
  target.show();
  return app.exec();
}
