#include "color/picker/ClearWindow.h"

#include <QGuiApplication>
#include <QHideEvent>
#include <QPainter>
#include <QScreen>

#include "color/ColorHelper.h"
#include "color/picker/ClearViewVC.h"
#include "color/picker/DropperCursor.h"
#include "common/Log.h"
#include "events/Notifications.h"

namespace tw {

ClearWindow::ClearWindow(ClearViewVC* contentViewController)
    : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::WindowTransparentForInput | Qt::WindowDoesNotAcceptFocus |
                           Qt::NoDropShadowWindowHint),
      content_(contentViewController) {
  setAttribute(Qt::WA_DeleteOnClose);
  setAttribute(Qt::WA_TranslucentBackground);
  setAttribute(Qt::WA_ShowWithoutActivating);
  setWindowTitle(QStringLiteral("Tintwell picker"));
  content_->setParent(this);
  content_->move(0, 0);

  NotificationCenter::defaultCenter().addObserver(
      notification::mouseDown(), [self = QPointer<ClearWindow>(this)](const Notification& n) {
        if (self) self->mouseClickDownWithNotification(n);
      });
}

ClearWindow* ClearWindow::windowWithContentViewController(ClearViewVC* contentViewController) {
  return new ClearWindow(contentViewController);
}

QColor ClearWindow::backgroundColor() { return QColor::fromRgbF(1.0f, 1.0f, 1.0f, 0.001f); }

void ClearWindow::makeKeyAndOrderFront() {
  if (!pickingWindowCanBeShown()) {
    logLine(std::string_view("no compositor: the picking window stays unshown"));
    return;
  }
  orderFrontEvenWithoutCompositor();
}

void ClearWindow::orderFrontEvenWithoutCompositor() {
  if (const QScreen* screen = QGuiApplication::primaryScreen()) setGeometry(screen->geometry());
  show();
  raise();
}

void ClearWindow::mouseClickDownWithNotification(const Notification&) {
  if (appMainWindow) {
    appMainWindow->show();
    appMainWindow->raise();
    appMainWindow->activateWindow();
  }
  logLine(std::string_view("down down"));
  restoreCursor();
  close();
}

void ClearWindow::hideEvent(QHideEvent* event) {
  // It was on the screen: what it covered has to be repainted before a read.
  if (!event->spontaneous()) noteCoveringWindowGone();
  QWidget::hideEvent(event);
}

void ClearWindow::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setCompositionMode(QPainter::CompositionMode_Source);
  painter.fillRect(rect(), backgroundColor());
}

}  // namespace tw
