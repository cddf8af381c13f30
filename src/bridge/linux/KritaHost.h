#pragma once

#include "bridge/DesignHost.h"
#include "bridge/linux/KritaPlugin.h"

namespace tw {

// Krita, through Tintwell's Python plug-in inside it (resources/krita): the
// plug-in listens on a local socket only this user can open and speaks a
// fixed line grammar (set, get, ping, version). Krita has no interface of its
// own to reach from outside. prepare() installs the plug-in; Krita loads it
// at its next start, after the notice has been shown.
class KritaHost : public DesignHost {
 public:
  // The current user's Krita and socket.
  KritaHost();
  KritaHost(QString socketPath, KritaPluginInstaller installer);

  QString key() const override { return QStringLiteral("krita"); }
  QString displayName() const override { return QStringLiteral("Krita"); }
  // The process named "krita" (argv[0]'s last component).
  bool isHostProcess(const RunningApplication& application) const override;
  // The install notice when the plug-in is missing or another version;
  // nothing when the current one is in place.
  std::optional<QString> preparationNotice() override;
  // Installs the plug-in unless the current one is in place; why not, when
  // it could not.
  std::optional<QString> prepare() override;
  // Both at once: the notice (with the reason appended when the install
  // failed) after installing; nothing when the current one is in place.
  std::optional<QString> installWithNotice();
  // Sends the colour and reads Krita's foreground back in the same
  // conversation: Confirmed only when Krita reports the colour sent.
  PushOutcome push(const HostColor& color, std::chrono::milliseconds timeout) override;
  // The active view's foreground; absent with no document open or no answer.
  std::optional<HostColor> readBack(std::chrono::milliseconds timeout) override;

  // Worked out on first use: with no XDG_RUNTIME_DIR, Qt's fallback warns
  // on standard error, which only a Krita actually pushed to should cost.
  const QString& socketPath() const;

 private:
  mutable std::optional<QString> socketPath_;
  KritaPluginInstaller installer_;
};

}  // namespace tw
