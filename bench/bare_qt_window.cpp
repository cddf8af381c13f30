// The floor of the start-up comparison: a QApplication and one empty top-level
// window, nothing else. Whatever tintwell costs above this is its own.
#include <QApplication>
#include <QWidget>

int main(int argc, char* argv[]) {
  QApplication app(argc, argv);
  QWidget window;
  window.setWindowTitle(QStringLiteral("BareQt"));
  window.resize(320, 240);
  window.show();
  return QApplication::exec();
}
