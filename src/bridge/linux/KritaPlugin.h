#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace tw {

// The Krita plug-in Tintwell ships (resources/krita): a desktop entry and a
// Python package of the same name, compiled into the program.
namespace krita_plugin {

// The plug-in's name: the desktop entry's X-KDE-Library, its package folder
// and the kritarc key "enable_<name>".
inline constexpr char kName[] = "tintwell_bridge";

// tintwell_bridge.desktop as shipped.
QByteArray desktopEntry();
// tintwell_bridge/__init__.py as shipped.
QByteArray module();
// The version a plug-in module declares on its "PLUGIN_VERSION = N" line;
// absent when there is no such line.
std::optional<int> versionOf(const QByteArray& moduleText);
// The shipped module's version: what the plug-in answers to "version" and
// what an installed copy is compared with.
int shippedVersion();

}  // namespace krita_plugin

// Where a user's Krita looks for things, and where the Python modules Krita's
// scripting needs are installed.
struct KritaLocations {
  // The user's Python plug-in folder: $XDG_DATA_HOME/krita/pykrita.
  QString pykrita;
  // Krita's settings file: $XDG_CONFIG_HOME/kritarc.
  QString kritarc;
  // Debian's folder of Python 3 modules: /usr/lib/python3/dist-packages.
  QString pythonModules;

  // The current user's, from the environment (HOME and the XDG variables).
  static KritaLocations fromEnvironment();
};

// Puts the shipped plug-in into the user's Krita and turns it on. GUI-free;
// callable from any thread (one at a time per set of locations).
class KritaPluginInstaller {
 public:
  explicit KritaPluginInstaller(KritaLocations locations = KritaLocations::fromEnvironment());

  const KritaLocations& locations() const { return locations_; }
  // The version of the plug-in in the user's folder; absent when there is
  // none, or its module names no version.
  std::optional<int> installedVersion() const;
  // Both files are there and the module is the shipped version: nothing to do.
  bool isCurrent() const;
  // Whether PyQt5 (its QtCore module) and sip are installed, without which
  // Krita runs no Python plug-in at all.
  bool pythonModulesPresent() const;

  // What the user is told before the install: what goes where, that Krita
  // must be restarted, and how to add missing Python modules.
  QString notice() const;

  // Writes both files (replacing any other version; a current one is left
  // untouched) and enables the plug-in in kritarc. Absent on success;
  // otherwise why not, in a few words.
  std::optional<QString> install() const;

 private:
  QString desktopEntryPath() const;
  QString packagePath() const;
  QString modulePath() const;

  KritaLocations locations_;
};

}  // namespace tw
