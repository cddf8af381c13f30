#include "app/Preferences.h"

#include <QSettings>
#include <QVariant>
#include <optional>

#include "bridge/Commander.h"

namespace tw {

namespace {

QSettings openSettings() { return QSettings(QStringLiteral("Orlo"), QStringLiteral("Tintwell")); }

const QString kCopyEnabled = QStringLiteral("copy/enabled");
const QString kCopyNotation = QStringLiteral("copy/notation");
const QString kTelemetryEnabled = QStringLiteral("telemetry/enabled");
const QString kHistoryEnabled = QStringLiteral("history/enabled");
const QString kHistoryRecent = QStringLiteral("history/recent");
const QString kHistoryPalettes = QStringLiteral("history/palettes");
const QString kNamesShow = QStringLiteral("names/show");
const QString kPickerMagnifier = QStringLiteral("picker/magnifier");
const QString kNamesLibrary = QStringLiteral("names/library");
const QString kPenReconnect = QStringLiteral("pen/reconnect");
const QString kNotifyEnabled = QStringLiteral("notify/enabled");
const QString kTrayShow = QStringLiteral("tray/show");

QString hostSettingsKey(const QString& key) { return QStringLiteral("hosts/") + key; }

// A hand-edited file may hold anything; QVariant::toBool would read "maybe"
// as true, so only the spellings QSettings itself writes, and 1 and 0, count.
std::optional<bool> readBool(const QSettings& settings, const QString& key) {
  const QVariant value = settings.value(key);
  if (!value.isValid()) return std::nullopt;
  if (value.typeId() == QMetaType::Bool) return value.toBool();
  const QString text = value.toString().trimmed().toLower();
  if (text == QLatin1String("true") || text == QLatin1String("1")) return true;
  if (text == QLatin1String("false") || text == QLatin1String("0")) return false;
  return std::nullopt;
}

}  // namespace

const std::vector<Preferences::Host>& Preferences::hosts() {
  static const std::vector<Host> list{
      {QStringLiteral("photoshop"), QStringLiteral("Photoshop"), false},
      {QStringLiteral("illustrator"), QStringLiteral("Illustrator"), false},
      {QStringLiteral("gimp"), QStringLiteral("GIMP"), true},
      {QStringLiteral("inkscape"), QStringLiteral("Inkscape"), true},
      {QStringLiteral("krita"), QStringLiteral("Krita"), true},
  };
  return list;
}

const QStringList& Preferences::notations() {
  static const QStringList list{QStringLiteral("hex"), QStringLiteral("rgb"),
                                QStringLiteral("cmyk"), QStringLiteral("hsb"),
                                QStringLiteral("lab")};
  return list;
}

Preferences::Preferences() : copyNotation_(QStringLiteral("hex")) {
  for (const Host& host : hosts()) hostEnabled_[host.key] = true;
}

Preferences Preferences::load() {
  Preferences preferences;
  const QSettings settings = openSettings();
  for (const Host& host : hosts()) {
    if (const auto on = readBool(settings, hostSettingsKey(host.key)))
      preferences.hostEnabled_[host.key] = *on;
  }
  if (const auto on = readBool(settings, kCopyEnabled)) preferences.copyEnabled_ = *on;
  preferences.setCopyNotation(settings.value(kCopyNotation).toString());
  if (const auto on = readBool(settings, kTelemetryEnabled)) preferences.telemetryEnabled_ = *on;
  if (const auto on = readBool(settings, kHistoryEnabled)) preferences.historyEnabled_ = *on;
  if (const auto on = readBool(settings, kHistoryRecent)) preferences.showRecentColors_ = *on;
  if (const auto on = readBool(settings, kHistoryPalettes)) preferences.paletteFilesEnabled_ = *on;
  if (const auto on = readBool(settings, kNamesShow)) preferences.showColorNames_ = *on;
  if (const auto on = readBool(settings, kPickerMagnifier)) preferences.magnifierEnabled_ = *on;
  if (const auto on = readBool(settings, kPenReconnect)) preferences.reconnectAutomatically_ = *on;
  if (const auto on = readBool(settings, kNotifyEnabled)) preferences.notificationsEnabled_ = *on;
  if (const auto on = readBool(settings, kTrayShow)) preferences.showTrayIcon_ = *on;
  bool isNumber = false;
  const int row = settings.value(kNamesLibrary).toString().trimmed().toInt(&isNumber);
  if (isNumber) preferences.setNameLibrary(row);
  return preferences;
}

void Preferences::save() const {
  QSettings settings = openSettings();
  for (const auto& [key, on] : hostEnabled_) settings.setValue(hostSettingsKey(key), on);
  settings.setValue(kCopyEnabled, copyEnabled_);
  settings.setValue(kCopyNotation, copyNotation_);
  settings.setValue(kTelemetryEnabled, telemetryEnabled_);
  settings.setValue(kHistoryEnabled, historyEnabled_);
  settings.setValue(kHistoryRecent, showRecentColors_);
  settings.setValue(kHistoryPalettes, paletteFilesEnabled_);
  settings.setValue(kNamesShow, showColorNames_);
  settings.setValue(kNamesLibrary, nameLibrary_);
  settings.setValue(kPickerMagnifier, magnifierEnabled_);
  settings.setValue(kPenReconnect, reconnectAutomatically_);
  settings.setValue(kNotifyEnabled, notificationsEnabled_);
  settings.setValue(kTrayShow, showTrayIcon_);
  settings.sync();
}

bool Preferences::hostEnabled(const QString& key) const {
  const auto found = hostEnabled_.find(key);
  return found == hostEnabled_.end() || found->second;
}

void Preferences::setHostEnabled(const QString& key, bool enabled) {
  const auto found = hostEnabled_.find(key);
  if (found != hostEnabled_.end()) found->second = enabled;
}

bool Preferences::setCopyNotation(const QString& notation) {
  if (!notations().contains(notation)) return false;
  copyNotation_ = notation;
  return true;
}

void Preferences::applyHosts(Commander& commander) const {
  const std::shared_ptr<HostDispatcher> dispatcher = commander.nativeHosts();
  for (const Host& host : hosts()) {
    const bool on = hostEnabled(host.key);
    if (!host.native) {
      commander.setScriptHostEnabled(host.key, on);
    } else if (dispatcher) {
      dispatcher->setEnabled(host.key, on);
    }
  }
}

}  // namespace tw
