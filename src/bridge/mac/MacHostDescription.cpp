#include "bridge/mac/MacHostDescription.h"

#include <QDir>

namespace tw {

namespace {

QString quoted(const QString& text) { return QLatin1Char('"') + text + QLatin1Char('"'); }

}  // namespace

MacHostDescription::MacHostDescription(std::shared_ptr<const ApplicationLister> lister)
    : lister_(std::move(lister)) {}

std::optional<QString> MacHostDescription::libraryFolder() const {
  return QDir::homePath() + QStringLiteral("/Library");
}

QString MacHostDescription::settingsFolder(int version) const {
  return QStringLiteral("Preferences/") + photoshopSettingsName(version);
}

std::vector<RunningApplication> MacHostDescription::runningApplications() const {
  return lister_->runningApplications();
}

QString MacHostDescription::launcherCommand(const QString& applicationPath,
                                            const QString& scriptPath) const {
  return QStringLiteral(" open -a ") + quoted(applicationPath) + QLatin1Char(' ') +
         quoted(scriptPath);
}

}  // namespace tw
