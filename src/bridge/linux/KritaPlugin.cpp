#include "bridge/linux/KritaPlugin.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStandardPaths>

#include "bridge/linux/KritaRc.h"

namespace tw {

namespace krita_plugin {

namespace {

// The files are compiled in as Qt resources (krita.cmake): the build embeds
// them as they are in resources/krita and again whenever they change, and
// they read like files, with no generated C++ to keep in step.
QByteArray resource(const QString& name) {
  QFile file(QStringLiteral(":/krita/") + name);
  if (!file.open(QIODevice::ReadOnly)) return {};
  return file.readAll();
}

}  // namespace

QByteArray desktopEntry() { return resource(QStringLiteral("tintwell_bridge.desktop")); }

QByteArray module() { return resource(QStringLiteral("tintwell_bridge/__init__.py")); }

std::optional<int> versionOf(const QByteArray& moduleText) {
  static const QRegularExpression line(QStringLiteral("^PLUGIN_VERSION = (\\d{1,6})\\r?$"),
                                       QRegularExpression::MultilineOption);
  const QRegularExpressionMatch match = line.match(QString::fromUtf8(moduleText));
  if (!match.hasMatch()) return std::nullopt;
  return match.captured(1).toInt();
}

int shippedVersion() {
  // The shipped module always has the line (a test checks it).
  static const int version = versionOf(module()).value_or(0);
  return version;
}

}  // namespace krita_plugin

namespace {

QByteArray readFile(const QString& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return {};
  return file.readAll();
}

std::optional<QString> writeFile(const QString& path, const QByteArray& bytes) {
  QSaveFile file(path);
  if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
    return QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
  }
  return std::nullopt;
}

bool hasFile(const QString& folder, const QString& pattern) {
  return !QDir(folder).entryList({pattern}, QDir::Files).isEmpty();
}

const QString kAptCommand = QStringLiteral("sudo apt install python3-pyqt5 python3-sip");

}  // namespace

KritaLocations KritaLocations::fromEnvironment() {
  KritaLocations locations;
  locations.pykrita =
      QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + "/krita/pykrita";
  locations.kritarc =
      QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/kritarc";
  locations.pythonModules = QStringLiteral("/usr/lib/python3/dist-packages");
  return locations;
}

KritaPluginInstaller::KritaPluginInstaller(KritaLocations locations)
    : locations_(std::move(locations)) {}

QString KritaPluginInstaller::desktopEntryPath() const {
  return locations_.pykrita + QLatin1Char('/') + QLatin1String(krita_plugin::kName) +
         QStringLiteral(".desktop");
}

QString KritaPluginInstaller::packagePath() const {
  return locations_.pykrita + QLatin1Char('/') + QLatin1String(krita_plugin::kName);
}

QString KritaPluginInstaller::modulePath() const {
  return packagePath() + QStringLiteral("/__init__.py");
}

std::optional<int> KritaPluginInstaller::installedVersion() const {
  if (!QFileInfo::exists(modulePath())) return std::nullopt;
  return krita_plugin::versionOf(readFile(modulePath()));
}

bool KritaPluginInstaller::isCurrent() const {
  return QFileInfo::exists(desktopEntryPath()) &&
         installedVersion() == krita_plugin::shippedVersion();
}

bool KritaPluginInstaller::pythonModulesPresent() const {
  const QString pyqt = locations_.pythonModules + QStringLiteral("/PyQt5");
  // Krita's bindings import PyQt5.sip (python3-pyqt5.sip, which python3-pyqt5
  // pulls in); python3-sip's top-level module, which Debian's Krita
  // recommends, counts as well.
  const bool sip = hasFile(pyqt, QStringLiteral("sip.*so")) ||
                   hasFile(locations_.pythonModules, QStringLiteral("sip.*so"));
  return hasFile(pyqt, QStringLiteral("QtCore.*so")) && sip;
}

QString KritaPluginInstaller::notice() const {
  const int shipped = krita_plugin::shippedVersion();
  QString text;
  const std::optional<int> installed = installedVersion();
  if (QFileInfo::exists(modulePath()) && installed != shipped) {
    text = QStringLiteral(
               "Tintwell updates its Krita plug-in \"Tintwell bridge\" from %1 to "
               "version %2, which sets Krita's foreground colour:\n")
               .arg(installed ? QStringLiteral("version %1").arg(*installed)
                              : QStringLiteral("an unknown version"))
               .arg(shipped);
  } else {
    text = QStringLiteral(
               "Tintwell adds its plug-in \"Tintwell bridge\" (version %1) to Krita, "
               "so that it can set Krita's foreground colour:\n")
               .arg(shipped);
  }
  text += QStringLiteral("  %1\n  %2\n").arg(desktopEntryPath(), modulePath());
  text += QStringLiteral("and turns it on in %1 (enable_%2=true in its [python] group).\n")
              .arg(locations_.kritarc, QLatin1String(krita_plugin::kName));
  text += QStringLiteral(
      "Restart Krita (quit it and start it again) to load it; until then "
      "colours do not reach Krita.");
  if (!pythonModulesPresent()) {
    text += QStringLiteral(
                "\nKrita runs Python plug-ins only with PyQt5 and sip, which are not "
                "installed. Install them with:\n  ") +
            kAptCommand;
  }
  return text;
}

std::optional<QString> KritaPluginInstaller::install() const {
  if (isCurrent()) return std::nullopt;
  if (!QDir().mkpath(packagePath())) {
    return QStringLiteral("cannot make the folder %1").arg(packagePath());
  }
  // Byte code Python cached from an older module is worthless now.
  QDir(packagePath() + QStringLiteral("/__pycache__")).removeRecursively();
  // The module before the entry that makes Krita look for it.
  if (auto failed = writeFile(modulePath(), krita_plugin::module())) return failed;
  if (auto failed = writeFile(desktopEntryPath(), krita_plugin::desktopEntry())) return failed;
  return setKritarcKeyTrue(locations_.kritarc,
                           QByteArrayLiteral("enable_") + QByteArray(krita_plugin::kName));
}

}  // namespace tw
