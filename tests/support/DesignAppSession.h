#pragma once

#include <QColor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVariantList>
#include <chrono>
#include <functional>
#include <memory>

#include "tests/support/PrivateBus.h"

namespace tw::testing {

// One design application as a user would run it, but thrown away after the
// test: a HOME and XDG folders of its own, a runtime folder only this user
// can open, a temporary folder (TMPDIR) of its own, a private session bus,
// and the test's X display. The application
// runs in a process group of its own, so ending the test ends all of it
// (GIMP's plug-ins, Krita's helpers).
class DesignAppSession {
 public:
  explicit DesignAppSession(const QString& display);
  ~DesignAppSession();
  DesignAppSession(const DesignAppSession&) = delete;
  DesignAppSession& operator=(const DesignAppSession&) = delete;

  bool isReady() const { return home_.isValid() && !bus_.address().isEmpty(); }
  QString home() const { return home_.path(); }
  QString runtimeDir() const { return home_.path() + QStringLiteral("/run"); }
  QString configDir() const { return home_.path() + QStringLiteral("/.config"); }
  QString dataDir() const { return home_.path() + QStringLiteral("/.local/share"); }
  // What the application (and any helper tool) runs with.
  QProcessEnvironment environment() const;
  // A connection of the test's own to the session's bus.
  QDBusConnection bus() const;
  // Sets HOME, the XDG folders and the bus in the test process itself, for
  // product code that reads them (the runtime folder, the settings file).
  void exportEnvironment() const;

  // Starts `program` in the session as the leader of a new process group.
  bool start(const QString& program, const QStringList& arguments);
  qint64 pid() const { return process_ ? process_->processId() : 0; }
  bool isRunning() const { return process_ && process_->state() != QProcess::NotRunning; }
  // Kills the whole group (SIGKILL) and waits for the leader.
  void killAll();
  // SIGSTOP / SIGCONT to the whole group: an application that hangs.
  void freeze();
  void thaw();
  // The application's standard error and output so far, for failure messages.
  QString output();
  // Runs `program` in the session (xdotool, xclip, xwd) and returns its
  // standard output; empty on failure.
  QByteArray runTool(const QString& program, const QStringList& arguments, int ms = 20000) const;

  // Activates the application action `name` on `path` of `service`
  // (org.gtk.Actions, as GTK applications such as Inkscape export them).
  QDBusMessage activateAction(const QString& service, const QString& path, const QString& name,
                              const QVariantList& parameters = {}) const;
  // Pixels of exactly `rgb` in a screenshot of the whole display, taken again
  // until there are at least `atLeast` (applications redraw a moment after a
  // change) or `limit` passes; -1 when no screenshot could be read.
  qsizetype pixelsOnScreen(QRgb rgb, qsizetype atLeast,
                           std::chrono::milliseconds limit = std::chrono::seconds(10)) const;

  // Polls `ready` every 200 ms until it holds or `limit` passes.
  static bool waitUntil(const std::function<bool()>& ready, std::chrono::milliseconds limit);

 private:
  QString display_;
  QTemporaryDir home_;
  PrivateBus bus_{PrivateBus::Kind::Session};
  QString connectionName_;
  std::unique_ptr<QProcess> process_;
  QByteArray output_;
};

// Whether `program` is on PATH.
bool hasProgram(const QString& program);

}  // namespace tw::testing
