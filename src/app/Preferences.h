#pragma once

#include <QString>
#include <QStringList>
#include <map>
#include <vector>

namespace tw {

class Commander;

// The user's choices, kept in the application's settings file (QSettings
// "Orlo", "Tintwell", beside the saved pen and the telemetry address):
//
//   hosts/photoshop, hosts/illustrator, hosts/gimp, hosts/inkscape,
//   hosts/krita        bool, true   that design application receives colours
//   copy/enabled       bool, false  every new colour goes to the clipboard
//   copy/notation      "hex", "rgb", "cmyk", "hsb" or "lab", "hex"
//   telemetry/enabled  bool, true   usage reports are sent
//   history/enabled    bool, true   accepted colours are kept in the history
//   history/recent     bool, false  the panel's four small buttons show the
//                                   last four accepted colours
//   history/palettes   bool, false  a "Tintwell" palette file in the user
//                                   palette folders of GIMP, Inkscape and
//                                   Krita follows the history
//   names/show         bool, false  the panel's name field shows the nearest
//                                   named colour
//   names/library      int, 0       the active name library's row in the
//                                   library dialog
//   picker/magnifier   bool, false  an armed screen pick shows a magnifier
//                                   and takes the keyboard (X11)
//   pen/reconnect      bool, false  after the pen disconnects, the link tries
//                                   again by itself (1 s, 2 s, 4 s ... 60 s apart)
//   notify/enabled     bool, true   desktop notifications for a low battery
//                                   (20 %, 10 %) and a disconnected pen
//   tray/show          bool, false  an icon in the desktop's tray
//
// A missing key, or a value that is not one of its kind (a bool is true,
// false, 1 or 0), reads as the default. GUI-free: the desktop panel and
// `tintwell listen` read the same file at start.
class Preferences {
 public:
  struct Host {
    QString key;   // settings key under "hosts/", the dispatcher's key
    QString name;  // as users know it
    // Reached through the native-host dispatcher rather than by script.
    bool native = false;
  };
  // Photoshop, Illustrator, GIMP, Inkscape, Krita, in that order.
  static const std::vector<Host>& hosts();
  // "hex", "rgb", "cmyk", "hsb", "lab": the panel's notations, in its order.
  static const QStringList& notations();

  // Every value at its default.
  Preferences();

  // Reads the settings file; defaults for what it lacks.
  static Preferences load();
  // Writes every key and syncs the file.
  void save() const;

  // False only for a known host switched off.
  bool hostEnabled(const QString& key) const;
  // Ignores keys that are not in hosts().
  void setHostEnabled(const QString& key, bool enabled);

  bool copyEnabled() const { return copyEnabled_; }
  void setCopyEnabled(bool enabled) { copyEnabled_ = enabled; }
  QString copyNotation() const { return copyNotation_; }
  // False, leaving the notation as it was, for anything not in notations().
  bool setCopyNotation(const QString& notation);

  bool telemetryEnabled() const { return telemetryEnabled_; }
  void setTelemetryEnabled(bool enabled) { telemetryEnabled_ = enabled; }

  bool historyEnabled() const { return historyEnabled_; }
  void setHistoryEnabled(bool enabled) { historyEnabled_ = enabled; }
  bool showRecentColors() const { return showRecentColors_; }
  void setShowRecentColors(bool shown) { showRecentColors_ = shown; }
  bool paletteFilesEnabled() const { return paletteFilesEnabled_; }
  void setPaletteFilesEnabled(bool enabled) { paletteFilesEnabled_ = enabled; }
  bool showColorNames() const { return showColorNames_; }
  void setShowColorNames(bool shown) { showColorNames_ = shown; }
  bool magnifierEnabled() const { return magnifierEnabled_; }
  void setMagnifierEnabled(bool enabled) { magnifierEnabled_ = enabled; }
  // A row of the library dialog; negative rows read as 0.
  int nameLibrary() const { return nameLibrary_; }
  void setNameLibrary(int row) { nameLibrary_ = row < 0 ? 0 : row; }
  bool reconnectAutomatically() const { return reconnectAutomatically_; }
  void setReconnectAutomatically(bool on) { reconnectAutomatically_ = on; }
  bool notificationsEnabled() const { return notificationsEnabled_; }
  void setNotificationsEnabled(bool on) { notificationsEnabled_ = on; }
  bool showTrayIcon() const { return showTrayIcon_; }
  void setShowTrayIcon(bool shown) { showTrayIcon_ = shown; }

  // Switches the commander's hosts: Photoshop and Illustrator through its
  // script switches, the others through its native-host dispatcher when it
  // has one (without one they have nothing to switch).
  void applyHosts(Commander& commander) const;

  friend bool operator==(const Preferences&, const Preferences&) = default;

 private:
  std::map<QString, bool> hostEnabled_;
  bool copyEnabled_ = false;
  QString copyNotation_;
  bool telemetryEnabled_ = true;
  bool historyEnabled_ = true;
  bool showRecentColors_ = false;
  bool paletteFilesEnabled_ = false;
  bool showColorNames_ = false;
  bool magnifierEnabled_ = false;
  int nameLibrary_ = 0;
  bool reconnectAutomatically_ = false;
  bool notificationsEnabled_ = true;
  bool showTrayIcon_ = false;
};

}  // namespace tw
