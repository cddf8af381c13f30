// Saves a PNG of an X window (or the whole screen) on $DISPLAY: the
// screenshots in the README are taken with it under Xvfb.
// Usage: tw_grab OUT.png [WINDOW-ID [X Y WIDTH HEIGHT]]
//   WINDOW-ID: decimal or 0x hex; the root window when absent or 0.
//   X Y WIDTH HEIGHT: only that part of it.
#include <QGuiApplication>
#include <QImage>
#include <QPixmap>
#include <QScreen>
#include <cstdio>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: tw_grab OUT.png [WINDOW-ID [X Y WIDTH HEIGHT]]\n", stderr);
    return 2;
  }
  QGuiApplication app(argc, argv);
  QScreen* screen = QGuiApplication::primaryScreen();
  if (!screen) {
    std::fputs("tw_grab: no screen\n", stderr);
    return 1;
  }
  const WId window = argc > 2 ? QByteArray(argv[2]).toULongLong(nullptr, 0) : 0;
  const auto number = [&](int i, int otherwise) {
    return argc > i ? QByteArray(argv[i]).toInt() : otherwise;
  };
  const QPixmap shot =
      screen->grabWindow(window, number(3, 0), number(4, 0), number(5, -1), number(6, -1));
  if (shot.isNull() || !shot.save(QString::fromLocal8Bit(argv[1]), "PNG")) {
    std::fprintf(stderr, "tw_grab: could not grab or save %s\n", argv[1]);
    return 1;
  }
  return 0;
}
