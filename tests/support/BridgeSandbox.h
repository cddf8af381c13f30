#pragma once

#include <QDir>
#include <QFile>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace tw::testing {

// A temporary home for the design-application bridge: HOME, XDG_DATA_HOME,
// XDG_CONFIG_HOME and WINEPREFIX inside it, and a `wine` stand-in first on
// PATH that records each launch as one line of its arguments ("a|b|") in
// HOME/launches.
class BridgeSandbox {
 public:
  BridgeSandbox() { ok_ = dir_.isValid() && setWineScript(kRecordingWine); }

  bool isValid() const { return ok_; }
  QString path() const { return dir_.path(); }
  QString filePath(const QString& name) const { return dir_.filePath(name); }

  // Points this process's environment at the sandbox.
  void enter() const {
    qputenv("HOME", path().toUtf8());
    qputenv("XDG_DATA_HOME", filePath(QStringLiteral("data")).toUtf8());
    qputenv("XDG_CONFIG_HOME", filePath(QStringLiteral("config")).toUtf8());
    qputenv("WINEPREFIX", filePath(QStringLiteral("wine")).toUtf8());
    qputenv("PATH",
            (filePath(QStringLiteral("bin")) + u':' + qEnvironmentVariable("PATH")).toUtf8());
  }
  // The same for a child process's environment.
  void applyTo(QProcessEnvironment& env) const {
    env.insert(QStringLiteral("HOME"), path());
    env.insert(QStringLiteral("XDG_DATA_HOME"), filePath(QStringLiteral("data")));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("WINEPREFIX"), filePath(QStringLiteral("wine")));
    env.insert(QStringLiteral("PATH"),
               filePath(QStringLiteral("bin")) + u':' + env.value(QStringLiteral("PATH")));
  }

  // Replaces the stand-in with another shell script.
  bool setWineScript(const QByteArray& script) const {
    QDir().mkpath(filePath(QStringLiteral("bin")));
    QFile wine(filePath(QStringLiteral("bin/wine")));
    if (!wine.open(QIODevice::WriteOnly | QIODevice::Truncate) || wine.write(script) < 0)
      return false;
    wine.close();
    return wine.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
  }

  // The launches recorded so far, one per line.
  QStringList launches() const {
    QFile file(filePath(QStringLiteral("launches")));
    if (!file.open(QIODevice::ReadOnly)) return {};
    return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
  }
  // The Photoshop script as last written by the bridge.
  QByteArray photoshopScript() const {
    QFile file(filePath(QStringLiteral("data/Tintwell/colorScriptPS.jsx")));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
  }

  static constexpr const char* kRecordingWine =
      "#!/bin/sh\nprintf '%s|' \"$@\" >> \"$HOME/launches\"\necho >> \"$HOME/launches\"\n";

 private:
  QTemporaryDir dir_;
  bool ok_ = false;
};

}  // namespace tw::testing
