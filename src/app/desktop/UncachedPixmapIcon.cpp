#include "app/desktop/UncachedPixmapIcon.h"

#include <QIconEngine>
#include <QPainter>

namespace tw {

namespace {

QSize fitted(const QSize& size, const QSize& bounds) {
  if (size.width() <= bounds.width() && size.height() <= bounds.height()) return size;
  return size.scaled(bounds, Qt::KeepAspectRatio);
}

class UncachedPixmapEngine final : public QIconEngine {
 public:
  explicit UncachedPixmapEngine(QPixmap pixmap) : pixmap_(std::move(pixmap)) {}

  void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override {
    const qreal scale = painter->device() ? painter->device()->devicePixelRatioF() : 1.0;
    const QPixmap drawn = scaledPixmap(rect.size() * scale, mode, state, scale);
    QRect target(QPoint(), drawn.deviceIndependentSize().toSize());
    target.moveCenter(rect.center());
    painter->drawPixmap(target, drawn);
  }
  QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
    return scaledPixmap(size, mode, state, 1.0);
  }
  // `size` is in device pixels already (QIcon multiplies it by `scale`).
  QPixmap scaledPixmap(const QSize& size, QIcon::Mode, QIcon::State, qreal scale) override {
    if (pixmap_.isNull() || size.isEmpty()) return {};
    // Scaled down to fit, never up, as Qt's own engine does.
    const QSize wanted = fitted(pixmap_.size(), size);
    QPixmap out = wanted == pixmap_.size()
                      ? pixmap_
                      : pixmap_.scaled(wanted, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    out.setDevicePixelRatio(scale);
    return out;
  }
  QSize actualSize(const QSize& size, QIcon::Mode, QIcon::State) override {
    return fitted(pixmap_.deviceIndependentSize().toSize(), size);
  }
  QIconEngine* clone() const override { return new UncachedPixmapEngine(pixmap_); }
  QString key() const override { return QStringLiteral("tw.uncachedPixmap"); }
  bool isNull() override { return pixmap_.isNull(); }

 private:
  QPixmap pixmap_;
};

}  // namespace

QIcon uncachedPixmapIcon(const QPixmap& pixmap) { return QIcon(new UncachedPixmapEngine(pixmap)); }

}  // namespace tw
