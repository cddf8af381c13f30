#include "color/picker/PickLens.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QScreen>
#include <QWindow>
#include <cmath>

#include "color/LensPlacement.h"

namespace tw {

namespace {

// A screen's rectangle in device pixels: Qt keeps a screen's top-left at its
// device position and divides only its size by the ratio.
QRect deviceRect(const QScreen* screen) {
  const QRect g = screen->geometry();
  const qreal ratio = screen->devicePixelRatio();
  return QRect(g.topLeft(), QSize(static_cast<int>(std::lround(g.width() * ratio)),
                                  static_cast<int>(std::lround(g.height() * ratio))));
}

const QScreen* screenAt(QPoint devicePoint) {
  for (const QScreen* screen : QGuiApplication::screens())
    if (deviceRect(screen).contains(devicePoint)) return screen;
  return QGuiApplication::primaryScreen();
}

}  // namespace

PickLens::PickLens(std::shared_ptr<PickLensSource> source, std::function<bool()> armed)
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::X11BypassWindowManagerHint | Qt::WindowDoesNotAcceptFocus),
      source_(std::move(source)),
      armed_(std::move(armed)) {
  setObjectName(QStringLiteral("pickLens"));
  setWindowTitle(QStringLiteral("Tintwell magnifier"));
  setAccessibleName(tr("Magnifier"));
  setAccessibleDescription(
      tr("The pixels around the pointer. Arrow keys move the pointer by one pixel, with Shift by "
         "ten; Enter or Space picks; Escape cancels."));
  setAttribute(Qt::WA_DeleteOnClose);
  setAttribute(Qt::WA_ShowWithoutActivating);
  setFixedSize(kPixels * kZoom, kPixels * kZoom + kLabelHeight);
  // About sixty frames a second; a frame is one pointer query and one small
  // image read.
  timer_.setInterval(16);
  connect(&timer_, &QTimer::timeout, this, &PickLens::follow);
}

PickLens::~PickLens() {
  if (keyboardGrabbed_) releaseKeyboard();
}

void PickLens::start() {
  follow();
  if (!armed_ || !armed_()) return;
  show();
  // Where Qt mapped it is only near the right place on monitors of
  // different scales: place it again, now by device pixels.
  lastPlacement_ = QRect();
  lastPointer_ = QPoint(-1, -1);
  follow();
  timer_.start();
  tryGrabKeyboard();
}

void PickLens::tryGrabKeyboard() {
  // The window must be viewable for the grab; until the server has mapped it
  // the grab fails, so it is tried again on the next frames.
  if (keyboardGrabbed_ || !windowHandle()) return;
  ++grabTries_;
  keyboardGrabbed_ = windowHandle()->setKeyboardGrabEnabled(true);
  if (keyboardGrabbed_) grabKeyboard();
}

void PickLens::follow() {
  if (!armed_ || !armed_()) {
    timer_.stop();
    close();
    return;
  }
  if (!keyboardGrabbed_ && grabTries_ < 60) tryGrabKeyboard();
  const std::optional<QPoint> pointer = source_->pointerPixel();
  if (!pointer) return;
  const QImage pixels = source_->grab(magnifiedArea(*pointer, kPixels));
  if (pixels.isNull()) return;
  const bool moved = *pointer != lastPointer_;
  if (!moved && pixels == pixels_) return;
  pixels_ = pixels;
  const QColor centre = QColor::fromRgb(pixels_.pixel(kPixels / 2, kPixels / 2));
  centreHex_ = centre.name(QColor::HexRgb).toUpper();
  if (moved) place(*pointer);
  lastPointer_ = *pointer;
  update();
}

void PickLens::place(QPoint pointer) {
  const QScreen* screen = screenAt(pointer);
  if (!screen) return;
  const qreal ratio = screen->devicePixelRatio();
  const QRect monitor = deviceRect(screen);
  // From the fixed logical size: Qt's own idea of it can lag behind a move
  // to a monitor of another scale.
  const QSize lens(static_cast<int>(std::ceil(kPixels * kZoom * ratio)),
                   static_cast<int>(std::ceil((kPixels * kZoom + kLabelHeight) * ratio)));
  const QRect device = lensPlacement(pointer, lens, monitor, kGap);
  if (device == lastPlacement_) return;
  lastPlacement_ = device;
  // Once shown, the window system puts it exactly where it belongs; before,
  // Qt's logical coordinates tell Qt where to map it.
  if (!isVisible() || !source_->placeWindow(winId(), device)) {
    // The screen's origin stays, offsets shrink. Rounded away from the
    // pointer, so rounding never brings the lens closer.
    const QPointF offset = QPointF(device.topLeft() - monitor.topLeft()) / ratio;
    const int x =
        static_cast<int>(device.x() > pointer.x() ? std::ceil(offset.x()) : std::floor(offset.x()));
    const int y =
        static_cast<int>(device.y() > pointer.y() ? std::ceil(offset.y()) : std::floor(offset.y()));
    move(monitor.topLeft() + QPoint(x, y));
  }
  Q_EMIT placed(device);
}

void PickLens::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.fillRect(rect(), palette().window());
  if (pixels_.isNull()) return;
  const QRect view(0, 0, kPixels * kZoom, kPixels * kZoom);
  painter.setRenderHint(QPainter::SmoothPixmapTransform, false);
  painter.drawImage(view, pixels_);
  // The centre pixel: a dark frame inside a light one, visible on any colour.
  const QRect centre((kPixels / 2) * kZoom, (kPixels / 2) * kZoom, kZoom, kZoom);
  painter.setPen(QPen(Qt::white, 1));
  painter.drawRect(centre.adjusted(-2, -2, 1, 1));
  painter.setPen(QPen(Qt::black, 1));
  painter.drawRect(centre.adjusted(-1, -1, 0, 0));
  painter.setPen(QPen(Qt::black, 1));
  painter.drawRect(rect().adjusted(0, 0, -1, -1));
  painter.setPen(palette().windowText().color());
  painter.drawText(QRect(0, view.height(), width(), kLabelHeight), Qt::AlignCenter, centreHex_);
  ++frames_;
}

void PickLens::keyPressEvent(QKeyEvent* event) {
  const int step = event->modifiers().testFlag(Qt::ShiftModifier) ? 10 : 1;
  switch (event->key()) {
    case Qt::Key_Left:
      source_->movePointerBy(-step, 0);
      break;
    case Qt::Key_Right:
      source_->movePointerBy(step, 0);
      break;
    case Qt::Key_Up:
      source_->movePointerBy(0, -step);
      break;
    case Qt::Key_Down:
      source_->movePointerBy(0, step);
      break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Space:
      if (!event->isAutoRepeat()) Q_EMIT pickRequested();
      break;
    case Qt::Key_Escape:
      Q_EMIT cancelRequested();
      break;
    default:
      QWidget::keyPressEvent(event);
      return;
  }
  event->accept();
  follow();
}

}  // namespace tw
