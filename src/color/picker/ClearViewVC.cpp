#include "color/picker/ClearViewVC.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

#include "common/Fatal.h"
#include "common/Log.h"
#include "resources/NamedImages.h"

namespace tw {

ClearViewVC::ClearViewVC(QWidget* parent) : QWidget(parent) {
  auto* dropper = new QLabel(this);
  dropper->setPixmap(namedPixmap(QStringLiteral("dropper2.png"), devicePixelRatioF()));
  dropper->setScaledContents(true);
  dropper->setAttribute(Qt::WA_TransparentForMouseEvents);
  dropper->setGeometry(0, 0, 30, 30);
  dropperImgView = dropper;

  pointerTimer_.setInterval(16);
  connect(&pointerTimer_, &QTimer::timeout, this, &ClearViewVC::trackPointer);
  viewDidLoad();
}

ClearViewVC::~ClearViewVC() { logLine(std::string_view("I'm closed!")); }

void ClearViewVC::viewDidLoad() {
  const QScreen* screen = QGuiApplication::primaryScreen();
  if (!screen) fatalStop("no main screen for the picking view");
  const QRect visible = screen->availableGeometry();
  setGeometry(0, 0, visible.width(), visible.height());
  logLine(QString::asprintf("clearWindow frame :  (%.1f, %.1f, %.1f, %.1f)", 0.0, 0.0,
                            static_cast<double>(visible.width()),
                            static_cast<double>(visible.height())));
}

void ClearViewVC::mouseMoved(QPointF locationInWindow) {
  logLine(QString::asprintf("mouseMoved xxx : (%.1f, %.1f)", locationInWindow.x(),
                            locationInWindow.y()));
  if (dropperImgView)
    dropperImgView->setGeometry(
        QRectF(locationInWindow.x(), locationInWindow.y() - 30.0, 30.0, 30.0).toRect());
}

void ClearViewVC::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  pointerTimer_.start();
}

void ClearViewVC::hideEvent(QHideEvent* event) {
  pointerTimer_.stop();
  QWidget::hideEvent(event);
}

void ClearViewVC::trackPointer() {
  const QPointF local = mapFromGlobal(QCursor::pos());
  if (local == lastPointer_) return;
  lastPointer_ = local;
  mousePos = local;
  mouseMoved(local);
}

}  // namespace tw
