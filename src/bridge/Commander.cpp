#include "bridge/Commander.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QStringDecoder>

#include "bridge/PhotoshopSettings.h"
#include "bridge/ShellRunner.h"
#include "common/Fatal.h"
#include "common/Log.h"

namespace tw {

namespace {

const QByteArray kWarnRunningScripts(kWarnRunningScriptsLine);

// The found-flags are unset only before the first scan; every reader scans first.
bool requireFlag(const std::optional<bool>& flag) {
  if (!flag) fatalStop("design application flag read before any scan");
  return *flag;
}

// A copy that shares no string data with `text`. Qt's shared string data is
// counted inside the Qt library, where ThreadSanitizer cannot see the counting,
// so strings handed across threads are copied whole instead of shared.
QString unshared(const QString& text) {
  return text.isNull() ? QString() : QString(text.constData(), text.size());
}

std::optional<QString> unshared(const std::optional<QString>& text) {
  return text ? std::optional<QString>(unshared(*text)) : std::nullopt;
}

ColorStruct unshared(const ColorStruct& color) {
  ColorStruct copy = color;
  copy.colorHex = unshared(color.colorHex);
  return copy;
}

// The component as plain decimal text: "0", "7", "128", "255".
QString component(qint64 value) { return QString::number(value); }

void writeSettingsOrStop(const QString& path, const QByteArray& text) {
  QSaveFile file(path);
  if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit()) {
    fatalStop(("cannot write " + path + ": " + file.errorString()).toStdString());
  }
}

}  // namespace

ColorStruct Commander::initialNewColor() {
  ColorStruct color;
  color.iR = 0;
  color.iG = 0;
  color.iB = 0;
  color.colorHex = QStringLiteral("FFFFFF");
  color.color = platformColor(255, 255, 255);
  return color;
}

Commander::Commander(std::shared_ptr<HostDescription> host, std::shared_ptr<AlertPresenter> alerts)
    : host_(std::move(host)),
      alerts_(alerts ? std::move(alerts) : std::make_shared<SilentAlertPresenter>()),
      tempApplicationRecord_(std::make_shared<ApplicationRecord>()) {}

std::optional<QString> Commander::scriptDirectory() const {
  const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
  if (base.isEmpty()) return std::nullopt;
  const QString folder = base + QStringLiteral("/Tintwell");
  const QFileInfo info(folder);
  if (!info.exists() || !info.isDir()) {
    if (!QDir().mkpath(folder)) return std::nullopt;
  }
  return folder;
}

void Commander::initScriptFiles() {
  {
    std::lock_guard lock(mutex_);
    // The folder is looked up afresh for each path, as it always was.
    const auto pathIn = [this](const char* name) {
      const std::optional<QString> folder = scriptDirectory();
      if (!folder) fatalStop("no script folder");
      return *folder + QLatin1Char('/') + QLatin1String(name);
    };
    state_.jfxFilePathPS = pathIn("colorScriptPS.jsx");
    state_.jfxFilePathAI = pathIn("colorScriptAI.jsx");
    state_.jfxFilePathID = pathIn("colorScriptID.jsx");
  }
  patchPhotoshopSettings(0);
  patchPhotoshopSettings(1);
  patchPhotoshopSettings(2);
}

void Commander::patchPhotoshopSettings(int version) {
  {
    std::lock_guard lock(mutex_);
    const std::optional<QString> library = host_->libraryFolder();
    if (!library) return;
    const QString folder = *library + QLatin1Char('/') + host_->settingsFolder(version);
    // Not installed; whether it is a folder is not looked at.
    if (!QFileInfo::exists(folder)) return;
    const QString path = folder + QStringLiteral("/PSUserConfig.txt");

    if (!QFileInfo::exists(path)) {
      writeSettingsOrStop(path, kWarnRunningScripts);
    } else {
      QFile file(path);
      if (!file.open(QIODevice::ReadOnly)) {
        fatalStop(("cannot read " + path + ": " + file.errorString()).toStdString());
      }
      const QByteArray bytes = file.readAll();
      if (file.error() != QFileDevice::NoError) {
        fatalStop(("cannot read " + path + ": " + file.errorString()).toStdString());
      }
      file.close();
      // The file is read as UTF-8 text; anything else is as fatal as a failed read.
      const std::optional<QString> original = photoshopSettingsText(bytes);
      if (!original) fatalStop(("cannot read " + path + ": not UTF-8 text").toStdString());
      const std::optional<QString> patched = patchedPhotoshopSettings(*original);
      if (!patched) return;
      writeSettingsOrStop(path, patched->toUtf8());
    }
  }
  checkPhotoshopRestart();
}

bool Commander::photoshopNeedsRestartLocked() {
  findDesignAppsLocked();
  if (!requireFlag(state_.bPhotoshopFound) || !state_.appPathPhotoshop) return false;
  const QString& path = *state_.appPathPhotoshop;
  return path.contains(QStringLiteral("2019")) || path.contains(QStringLiteral("2020"));
}

void Commander::checkPhotoshopRestart() {
  bool show = false;
  {
    std::lock_guard lock(mutex_);
    show = photoshopNeedsRestartLocked();
  }
  // No lock held: the alert may run a nested event loop that delivers a push.
  if (show) {
    alerts_->showInformation(
        QStringLiteral("Information"),
        QStringLiteral(
            "Tintwell has changed Photoshop setting, please restart Photoshop to use color "
            "picking!"));
  }
}

void Commander::findDesignApps() {
  std::lock_guard lock(mutex_);
  findDesignAppsLocked();
}

void Commander::findDesignAppsLocked() {
  state_.bPhotoshopFound = false;
  state_.bIllustragorFound = false;
  state_.appPathPhotoshop.reset();
  state_.appPathIllustrator.reset();
  running_ = host_->runningApplications();
  for (const RunningApplication& application : running_) {
    if (!application.localizedName) fatalStop("a running application has no name");
    const QString& name = *application.localizedName;
    if (name.contains(QStringLiteral("Photoshop"))) {
      logLine(std::string_view("Photoshop is open"));
      if (!application.bundleURL) fatalStop("the running Photoshop has no bundle location");
      state_.bPhotoshopFound = true;
      state_.appPathPhotoshop = application.bundleURL;
    } else if (name.contains(QStringLiteral("Illustrator"))) {
      if (!application.bundleURL) fatalStop("the running Illustrator has no bundle location");
      state_.bIllustragorFound = true;
      state_.appPathIllustrator = application.bundleURL;
    }
  }
}

void Commander::sendColorToApps() {
  std::lock_guard lock(mutex_);
  sendLocked();
}

void Commander::sendColorToApps(const ColorStruct& color) {
  const ColorStruct own = unshared(color);
  std::lock_guard lock(mutex_);
  state_.newColor = own;
  sendLocked();
}

void Commander::sendLocked() {
  // The first colour after start (the panel's start-up colour) is only shown.
  if (state_.bFirstColor) {
    state_.bFirstColor = false;
    return;
  }
  findDesignAppsLocked();
  const bool photoshop = requireFlag(state_.bPhotoshopFound) && state_.appPathPhotoshop;
  if (photoshop && photoshopEnabled_) pushToPhotoshop();
  const bool illustrator = requireFlag(state_.bIllustragorFound) && state_.appPathIllustrator;
  if (illustrator && illustratorEnabled_) pushToIllustrator();
  // Handed over, never waited for: a slow host must not hold up the pen.
  if (nativeHosts_) {
    const ColorStruct& color = state_.newColor;
    nativeHosts_->offer(HostColor{static_cast<int>(color.iR), static_cast<int>(color.iG),
                                  static_cast<int>(color.iB)},
                        running_);
  }
}

std::vector<QString> Commander::pushToScriptHosts(const ColorStruct& color) {
  const ColorStruct own = unshared(color);
  std::lock_guard lock(mutex_);
  state_.newColor = own;
  findDesignAppsLocked();
  std::vector<QString> pushed;
  if (requireFlag(state_.bPhotoshopFound) && state_.appPathPhotoshop && photoshopEnabled_) {
    pushToPhotoshop();
    pushed.push_back(QStringLiteral("photoshop"));
  }
  if (requireFlag(state_.bIllustragorFound) && state_.appPathIllustrator && illustratorEnabled_) {
    pushToIllustrator();
    pushed.push_back(QStringLiteral("illustrator"));
  }
  return pushed;
}

void Commander::pushAgain(const ColorStruct& color) {
  const ColorStruct own = unshared(color);
  std::lock_guard lock(mutex_);
  // The scripts are written from newColor; it goes back once they are.
  const ColorStruct previous = state_.newColor;
  state_.newColor = own;
  findDesignAppsLocked();
  if (requireFlag(state_.bPhotoshopFound) && state_.appPathPhotoshop && photoshopEnabled_)
    pushToPhotoshop();
  if (requireFlag(state_.bIllustragorFound) && state_.appPathIllustrator && illustratorEnabled_)
    pushToIllustrator();
  state_.newColor = previous;
  if (nativeHosts_) {
    nativeHosts_->offer(
        HostColor{static_cast<int>(own.iR), static_cast<int>(own.iG), static_cast<int>(own.iB)},
        running_);
  }
}

void Commander::setNativeHosts(std::shared_ptr<HostDispatcher> hosts) {
  std::lock_guard lock(mutex_);
  nativeHosts_ = std::move(hosts);
}

std::shared_ptr<HostDispatcher> Commander::nativeHosts() const {
  std::lock_guard lock(mutex_);
  return nativeHosts_;
}

void Commander::setScriptHostEnabled(const QString& key, bool enabled) {
  std::lock_guard lock(mutex_);
  if (key == QLatin1String("photoshop")) photoshopEnabled_ = enabled;
  if (key == QLatin1String("illustrator")) illustratorEnabled_ = enabled;
}

bool Commander::isScriptHostEnabled(const QString& key) const {
  std::lock_guard lock(mutex_);
  if (key == QLatin1String("photoshop")) return photoshopEnabled_;
  if (key == QLatin1String("illustrator")) return illustratorEnabled_;
  return false;
}

QString Commander::photoshopScript(const ColorStruct& color) {
  const QString r = component(color.iR);
  const QString g = component(color.iG);
  const QString b = component(color.iB);
  return QStringLiteral("app.foregroundColor.rgb.red = ") + r + QStringLiteral(";") +
         QStringLiteral("app.foregroundColor.rgb.green = ") + g + QStringLiteral(";") +
         QStringLiteral("app.foregroundColor.rgb.blue = ") + b + QStringLiteral(";") +
         QStringLiteral("app.backgroundColor.rgb.red = ") + r + QStringLiteral(";") +
         QStringLiteral("app.backgroundColor.rgb.green = ") + g + QStringLiteral(";") +
         QStringLiteral("app.backgroundColor.rgb.blue = ") + b + QStringLiteral(";");
}

QString Commander::illustratorScript(const ColorStruct& color) {
  return QStringLiteral("var newColor = new RGBColor();newColor.red = ") + component(color.iR) +
         QStringLiteral(";") + QStringLiteral("newColor.green = ") + component(color.iG) +
         QStringLiteral(";") + QStringLiteral("newColor.blue = ") + component(color.iB) +
         QStringLiteral(";") +
         QStringLiteral("try {  app.activeDocument.defaultFillColor = newColor; }") +
         QStringLiteral("catch(err) {}");
}

bool Commander::writeScript(const QString& path, const QString& text) {
  const QByteArray bytes = text.toUtf8();
  QSaveFile file(path);
  if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
    logLine(file.errorString());
    return false;
  }
  return true;
}

void Commander::pushToPhotoshop() {
  if (!state_.jfxFilePathPS) fatalStop("no Photoshop script path");
  if (!writeScript(*state_.jfxFilePathPS, photoshopScript(state_.newColor))) return;
  const QString output =
      runShell(host_->launcherCommand(*state_.appPathPhotoshop, *state_.jfxFilePathPS));
  requireRecord()->update([](ApplicationRecord::Fields& record) { incrementCounter(record.PS); });
  logLine(QStringLiteral("runShell result : ") + QLatin1Char(' ') + output);
}

void Commander::pushToIllustrator() {
  if (!state_.jfxFilePathAI) fatalStop("no Illustrator script path");
  if (!writeScript(*state_.jfxFilePathAI, illustratorScript(state_.newColor))) return;
  const QString output =
      runShell(host_->launcherCommand(*state_.appPathIllustrator, *state_.jfxFilePathAI));
  requireRecord()->update([](ApplicationRecord::Fields& record) { incrementCounter(record.AI); });
  logLine(output);
}

QString Commander::runShell(const QString& command) const {
  const QByteArray output = runBashCommand(command);
  QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
  QString text = decoder.decode(output);
  if (decoder.hasError()) fatalStop("launcher output is not valid UTF-8");
  return text;
}

ColorStruct Commander::newColor() const {
  std::lock_guard lock(mutex_);
  return unshared(state_.newColor);
}

void Commander::setNewColor(const ColorStruct& color) {
  const ColorStruct own = unshared(color);
  std::lock_guard lock(mutex_);
  state_.newColor = own;
}

std::shared_ptr<ApplicationRecord> Commander::tempApplicationRecord() const {
  std::lock_guard lock(recordMutex_);
  return tempApplicationRecord_;
}

void Commander::setTempApplicationRecord(std::shared_ptr<ApplicationRecord> record) {
  std::lock_guard lock(recordMutex_);
  tempApplicationRecord_ = std::move(record);
}

std::shared_ptr<ApplicationRecord> Commander::requireRecord() const {
  std::shared_ptr<ApplicationRecord> record = tempApplicationRecord();
  if (!record) fatalStop("no application record");
  return record;
}

Commander::State Commander::state() const {
  std::lock_guard lock(mutex_);
  State copy = state_;
  copy.newColor = unshared(state_.newColor);
  for (auto member :
       {&State::jfxFilePathPS, &State::jfxFilePathAI, &State::jfxFilePathID, &State::vbsFilePathID,
        &State::appPathPhotoshop, &State::appPathIllustrator}) {
    copy.*member = unshared(state_.*member);
  }
  return copy;
}

}  // namespace tw
