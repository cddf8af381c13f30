#pragma once

#include <QString>
#include <memory>
#include <optional>
#include <vector>

#include "bridge/HostDescription.h"

namespace tw {

// The native macOS layout: Library ~/Library, "Preferences/..." settings folders,
// launcher ` open -a "APP" "SCRIPT"`.
class MacHostDescription : public HostDescription {
 public:
  explicit MacHostDescription(std::shared_ptr<const ApplicationLister> lister);
  std::optional<QString> libraryFolder() const override;
  QString settingsFolder(int version) const override;
  std::vector<RunningApplication> runningApplications() const override;
  QString launcherCommand(const QString& applicationPath, const QString& scriptPath) const override;

 private:
  std::shared_ptr<const ApplicationLister> lister_;
};

}  // namespace tw
