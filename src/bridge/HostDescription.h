#pragma once

#include <QString>
#include <memory>
#include <optional>
#include <vector>

#include "bridge/RunningApplications.h"

namespace tw {

// Where a design-application host keeps things and how it opens a script with an
// application. The bridge's logic is written against this alone, so the Wine
// layout on Linux and the native macOS layout share one implementation.
class HostDescription {
 public:
  virtual ~HostDescription() = default;

  // The user's Library folder, under which the Photoshop settings folders sit;
  // absent when it cannot be resolved. Not created, not checked for existence.
  virtual std::optional<QString> libraryFolder() const = 0;
  // The settings folder of Photoshop `version` relative to the Library folder:
  // 0 the CC 2019 one, 1 the 2020 one, any other value the 2021 one.
  virtual QString settingsFolder(int version) const = 0;
  // The user's running applications, in the order the host gives them.
  virtual std::vector<RunningApplication> runningApplications() const = 0;
  // The shell command line that opens `scriptPath` with the application at
  // `applicationPath`. Both are put between double quotes as they are, unescaped.
  virtual QString launcherCommand(const QString& applicationPath,
                                  const QString& scriptPath) const = 0;
};

// Photoshop and Illustrator under Wine on Linux. Library folder:
// $WINEPREFIX/drive_c/users/$USER/AppData/Roaming/Adobe (WINEPREFIX defaults to
// ~/.wine, USER to the login name), read from the environment at each call.
// Launcher: ` wine "APP" "Z:\path\to\script"`.
class WineHostDescription : public HostDescription {
 public:
  explicit WineHostDescription(std::shared_ptr<const ApplicationLister> lister);
  std::optional<QString> libraryFolder() const override;
  QString settingsFolder(int version) const override;
  std::vector<RunningApplication> runningApplications() const override;
  QString launcherCommand(const QString& applicationPath, const QString& scriptPath) const override;

  // The path as Wine's Z: drive shows it: "Z:" and the path with '/' as '\'.
  static QString winePath(const QString& unixPath);

 private:
  std::shared_ptr<const ApplicationLister> lister_;
};

// The name Photoshop gives the settings folder of `version` (0: CC 2019, 1: 2020,
// any other value 2021), the same under every host.
QString photoshopSettingsName(int version);

// The host of this build: Wine over the /proc process table on Linux.
std::shared_ptr<HostDescription> defaultHostDescription();

}  // namespace tw
