#pragma once

#include <QDBusConnection>
#include <QString>
#include <memory>

#include "bridge/DesignHost.h"

class QTemporaryDir;

namespace tw {

// GIMP 2.10 through the interface it offers on the session bus
// (org.gimp.GIMP.UI): a one-line Script-Fu program sets the foreground colour
// and writes the colour GIMP then holds to a private answer file, because the
// bus call itself answers before the script has run and also when it fails.
class GimpHost : public DesignHost {
 public:
  explicit GimpHost(QDBusConnection bus = QDBusConnection::sessionBus());
  ~GimpHost() override;

  QString key() const override { return QStringLiteral("gimp"); }
  QString displayName() const override { return QStringLiteral("GIMP"); }
  // "gimp" or "gimp-2.10"; not the console-only "gimp-console-2.10".
  bool isHostProcess(const RunningApplication& application) const override;
  PushOutcome push(const HostColor& color, std::chrono::milliseconds timeout) override;
  std::optional<HostColor> readBack(std::chrono::milliseconds timeout) override;

  // The Script-Fu program for one push: sets the foreground (unless `color`
  // is absent) and writes "(SEQUENCE (R G B))" to `answerPath`.
  static QString script(const std::optional<HostColor>& color, quint64 sequence,
                        const QString& answerPath);
  // The colour in an answer file's text when it is the answer to `sequence`.
  static std::optional<HostColor> parseAnswer(const QByteArray& text, quint64 sequence);

 private:
  struct Answer {
    PushOutcome outcome;
    std::optional<HostColor> color;
  };
  Answer run(const std::optional<HostColor>& color, std::chrono::milliseconds timeout);
  QString answerPath();

  QDBusConnection bus_;
  std::unique_ptr<QTemporaryDir> folder_;
  quint64 sequence_ = 0;
};

}  // namespace tw
