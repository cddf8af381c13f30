#pragma once

#include <QDBusConnection>
#include <QString>
#include <memory>
#include <vector>

#include "bridge/DesignHost.h"

class QTemporaryDir;

namespace tw {

// Inkscape 1.2 and later through its application actions on the session bus:
// "object-set-property" gives the current selection the fill. The action
// answers the same whether or not anything was selected, so the drawing is
// exported as plain SVG to a private file and read: the colour among its
// fills confirms the push, its absence means nothing was selected. The
// user's clipboard and file are never touched.
class InkscapeHost : public DesignHost {
 public:
  explicit InkscapeHost(QDBusConnection bus = QDBusConnection::sessionBus());
  ~InkscapeHost() override;

  QString key() const override { return QStringLiteral("inkscape"); }
  QString displayName() const override { return QStringLiteral("Inkscape"); }
  bool isHostProcess(const RunningApplication& application) const override;
  PushOutcome push(const HostColor& color, std::chrono::milliseconds timeout) override;
  // Inkscape has no current colour to read: the fill lives on the selected
  // objects, which the bus does not show. Always absent.
  std::optional<HostColor> readBack(std::chrono::milliseconds timeout) override;

  // Every fill colour written in an SVG text ("fill:#rrggbb" in a style or a
  // fill="#rrggbb" attribute), in document order.
  static std::vector<HostColor> fills(const QByteArray& svg);

 private:
  QString exportPath();

  QDBusConnection bus_;
  std::unique_ptr<QTemporaryDir> folder_;
};

}  // namespace tw
