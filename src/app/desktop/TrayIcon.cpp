#include "app/desktop/TrayIcon.h"

#include <QAction>
#include <QIcon>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>

#include "app/desktop/ViewController_plus.h"

namespace tw {

TrayIcon::TrayIcon(ViewController_plus& panel, const QList<QAction*>& actions, QObject* parent)
    : QObject(parent), panel_(panel) {
  for (QAction* action : actions) actions_ << action;
  connection_ = panel_.logic().connectionText();
  connect(&panel_, &ViewController_plus::connectionTextChanged, this, [this](const QString& text) {
    connection_ = text;
    refresh();
  });
  connect(&panel_, &ViewController_plus::batteryLevelChanged, this, [this] { refresh(); });
  connect(&panel_, &ViewController_plus::colorShown, this, [this](const QColor& color) {
    color_ = color;
    refresh();
  });
}

TrayIcon::~TrayIcon() {
  delete icon_;
  delete menu_;
}

void TrayIcon::setShown(bool shown) {
  if (!shown) {
    if (icon_) icon_->hide();
    return;
  }
  if (!icon_) {
    // The menu has no parent widget: the tray shows it on its own.
    menu_ = new QMenu;
    menu_->setObjectName(QStringLiteral("trayMenu"));
    for (const QPointer<QAction>& action : actions_) {
      if (action)
        menu_->addAction(action);
      else
        menu_->addSeparator();
    }
    icon_ = new QSystemTrayIcon;
    icon_->setObjectName(QStringLiteral("trayIcon"));
    icon_->setContextMenu(menu_);
    // A click on the icon brings the panel forward.
    connect(icon_, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason why) {
              if (why != QSystemTrayIcon::Trigger) return;
              QWidget* window = panel_.window();
              window->show();
              window->raise();
              window->activateWindow();
            });
  }
  refresh();
  icon_->show();
}

bool TrayIcon::isShown() const { return icon_ && icon_->isVisible(); }

QString TrayIcon::toolTip() const {
  QString line = connection_;
  if (const std::optional<qint64> level = panel_.batteryLevel())
    line += tr(", battery %1 %").arg(*level);
  return QStringLiteral("Tintwell\n") + line;
}

QPixmap TrayIcon::dot(const QColor& color, int size) {
  QPixmap pixmap(size, size);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  painter.setRenderHint(QPainter::Antialiasing);
  // A dark rim keeps a pale colour visible on a pale panel.
  painter.setPen(QPen(QColor(40, 40, 20), size / 16.0));
  painter.setBrush(color);
  const qreal inset = size / 10.0;
  painter.drawEllipse(QRectF(inset, inset, size - 2 * inset, size - 2 * inset));
  return pixmap;
}

void TrayIcon::refresh() {
  if (!icon_) return;
  QIcon image;
  for (const int size : {16, 22, 32, 64}) image.addPixmap(dot(color_, size));
  icon_->setIcon(image);
  icon_->setToolTip(toolTip());
}

}  // namespace tw
