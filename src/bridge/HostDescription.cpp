#include "bridge/HostDescription.h"

#include <QDir>
#include <QStringList>
#include <QtGlobal>

#include "bridge/LoginName.h"

namespace tw {

namespace {

QString photoshopInstallName(int version) {
  switch (version) {
    case 0:
      return QStringLiteral("Adobe Photoshop CC 2019");
    case 1:
      return QStringLiteral("Adobe Photoshop 2020");
    default:
      return QStringLiteral("Adobe Photoshop 2021");
  }
}

QString quoted(const QString& text) { return QLatin1Char('"') + text + QLatin1Char('"'); }

}  // namespace

QString photoshopSettingsName(int version) {
  switch (version) {
    case 0:
      return QStringLiteral("Adobe Photoshop CC 2019 Settings");
    case 1:
      return QStringLiteral("Adobe Photoshop 2020 Settings");
    default:
      return QStringLiteral("Adobe Photoshop 2021 Settings");
  }
}

WineHostDescription::WineHostDescription(std::shared_ptr<const ApplicationLister> lister)
    : lister_(std::move(lister)) {}

std::optional<QString> WineHostDescription::libraryFolder() const {
  QString prefix = qEnvironmentVariable("WINEPREFIX");
  if (prefix.isEmpty()) prefix = QDir::homePath() + QStringLiteral("/.wine");
  QString user = qEnvironmentVariable("USER");
  if (user.isEmpty()) user = loginName();
  if (user.isEmpty()) return std::nullopt;
  return prefix + QStringLiteral("/drive_c/users/") + user +
         QStringLiteral("/AppData/Roaming/Adobe");
}

QString WineHostDescription::settingsFolder(int version) const {
  return photoshopInstallName(version) + QLatin1Char('/') + photoshopSettingsName(version);
}

std::vector<RunningApplication> WineHostDescription::runningApplications() const {
  return lister_->runningApplications();
}

QString WineHostDescription::launcherCommand(const QString& applicationPath,
                                             const QString& scriptPath) const {
  return QStringLiteral(" wine ") + quoted(applicationPath) + QLatin1Char(' ') +
         quoted(winePath(scriptPath));
}

QString WineHostDescription::winePath(const QString& unixPath) {
  QString path = unixPath;
  path.replace(QLatin1Char('/'), QLatin1Char('\\'));
  return QStringLiteral("Z:") + path;
}

}  // namespace tw
