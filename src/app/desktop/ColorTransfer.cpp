#include "app/desktop/ColorTransfer.h"

#include <QApplication>
#include <QClipboard>
#include <QDrag>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QPixmap>
#include <QToolTip>
#include <utility>

namespace tw {

namespace {

// The swatch under the pointer while a colour is dragged.
QPixmap dragSwatch(const QColor& color) {
  QPixmap swatch(28, 28);
  swatch.fill(Qt::transparent);
  QPainter painter(&swatch);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(QColor(0xEC, 0xEC, 0xDF), 2));
  painter.setBrush(color);
  painter.drawRoundedRect(QRectF(1, 1, 26, 26), 5, 5);
  return swatch;
}

void startRealDrag(QWidget* source, QMimeData* data) {
  auto* drag = new QDrag(source);
  const QColor color = qvariant_cast<QColor>(data->colorData());
  drag->setMimeData(data);
  drag->setPixmap(dragSwatch(color));
  drag->setHotSpot(QPoint(14, 14));
  drag->exec(Qt::CopyAction);
}

}  // namespace

QMimeData* colorMimeData(const QColor& color) {
  auto* data = new QMimeData;
  data->setColorData(color);
  data->setText(color.name(QColor::HexRgb).toUpper());
  return data;
}

ColorTransfer::ColorTransfer(QWidget* crown, QLineEdit* hex, const QList<QLineEdit*>& notations,
                             QObject* parent)
    : QObject(parent), crown_(crown), hex_(hex), startDrag_(startRealDrag) {
  for (QLineEdit* field : notations) notations_.append(field);
  if (crown_) {
    crown_->installEventFilter(this);
    crown_->setCursor(Qt::OpenHandCursor);
  }
  for (const QPointer<QLineEdit>& field : notations_) field->installEventFilter(this);
  if (hex_ && !notations_.contains(hex_)) hex_->installEventFilter(this);
}

QColor ColorTransfer::colorShown() const {
  if (!hex_) return {};
  const QString text = hex_->text();
  // Only the panel's own form: "#" and six hexadecimal digits.
  if (text.size() != 7 || !text.startsWith(QLatin1Char('#'))) return {};
  return QColor::fromString(text);
}

void ColorTransfer::copyToClipboard(const QString& text) {
  QGuiApplication::clipboard()->setText(text, QClipboard::Clipboard);
}

bool ColorTransfer::isDragSource(QObject* watched) const {
  return (crown_ && watched == crown_) || (hex_ && watched == hex_);
}

bool ColorTransfer::eventFilter(QObject* watched, QEvent* event) {
  switch (event->type()) {
    case QEvent::MouseButtonPress: {
      const auto* mouse = static_cast<QMouseEvent*>(event);
      if (mouse->button() != Qt::LeftButton) break;
      pressedOn_ = watched;
      pressAt_ = mouse->position().toPoint();
      dragging_ = false;
      // The crown's label would pass the press on to the panel; keep it, so the
      // moves that follow come here.
      if (crown_ && watched == crown_) return true;
      break;
    }
    case QEvent::MouseMove: {
      const auto* mouse = static_cast<QMouseEvent*>(event);
      if (pressedOn_ != watched || !(mouse->buttons() & Qt::LeftButton)) break;
      if (dragging_) return true;
      const bool far = (mouse->position().toPoint() - pressAt_).manhattanLength() >=
                       QApplication::startDragDistance();
      if (!far || !isDragSource(watched)) break;
      const QColor color = colorShown();
      if (!color.isValid()) break;
      dragging_ = true;
      startDrag_(static_cast<QWidget*>(watched), colorMimeData(color));
      return true;  // the hex field must not start selecting text under the drag
    }
    case QEvent::MouseButtonRelease: {
      const auto* mouse = static_cast<QMouseEvent*>(event);
      if (mouse->button() != Qt::LeftButton || pressedOn_ != watched) break;
      pressedOn_ = nullptr;
      if (std::exchange(dragging_, false)) return true;
      auto* field = qobject_cast<QLineEdit*>(watched);
      if (!field) break;
      const bool still = (mouse->position().toPoint() - pressAt_).manhattanLength() <
                         QApplication::startDragDistance();
      // A press-and-drag across the text is a selection: leave it to the field.
      if (!still || field->hasSelectedText() || field->text().isEmpty()) break;
      copyToClipboard(field->text());
      QToolTip::showText(field->mapToGlobal(QPoint(0, field->height())), tr("Copied"), field);
      Q_EMIT copied(field->text());
      break;
    }
    case QEvent::KeyPress: {
      // The keyboard's click: Enter or Space on a focused notation copies it
      // as a click does; on the crown it copies the colour a drag would carry.
      const auto* key = static_cast<QKeyEvent*>(event);
      if (key->modifiers() & ~Qt::KeypadModifier) break;
      if (key->key() != Qt::Key_Return && key->key() != Qt::Key_Enter &&
          key->key() != Qt::Key_Space)
        break;
      if (crown_ && watched == crown_) {
        const QColor color = colorShown();
        if (!color.isValid()) break;
        QGuiApplication::clipboard()->setMimeData(colorMimeData(color), QClipboard::Clipboard);
        QToolTip::showText(crown_->mapToGlobal(QPoint(0, crown_->height())), tr("Copied"), crown_);
        Q_EMIT copied(color.name(QColor::HexRgb).toUpper());
        return true;
      }
      auto* field = qobject_cast<QLineEdit*>(watched);
      if (!field || field->text().isEmpty()) break;
      copyToClipboard(field->text());
      QToolTip::showText(field->mapToGlobal(QPoint(0, field->height())), tr("Copied"), field);
      Q_EMIT copied(field->text());
      return true;
    }
    default:
      break;
  }
  return QObject::eventFilter(watched, event);
}

}  // namespace tw
