#pragma once

#include <QString>
#include <memory>
#include <mutex>
#include <optional>

#include "bridge/AlertPresenter.h"
#include "bridge/HostDescription.h"
#include "bridge/HostDispatcher.h"
#include "color/ColorStruct.h"
#include "telemetry/UsageRecords.h"

namespace tw {

// The bridge between the colour panel and the design applications: finds the
// running Photoshop and Illustrator, keeps the script folder, patches
// Photoshop's settings once so scripts run without a warning, and pushes each
// new colour into the running applications by script.
//
// Pushes come from the pen thread (pen colours) and the main thread (screen
// colours), and the telemetry sender swaps the application record from its
// network thread. One lock serialises pushes, scans and patches and guards the
// state below; the record pointer has its own lock so the sender never waits
// behind a running launcher. Alerts are shown with no lock held.
class Commander : public ApplicationUsageCounters {
 public:
  // Everything Commander keeps besides the record, under the names it has
  // always had. Script and application paths are plain path texts.
  struct State {
    // Black components with white hex and colour, on purpose: only the
    // components are ever pushed, and the panel overwrites it first anyway.
    ColorStruct newColor = initialNewColor();
    std::optional<QString> jfxFilePathPS;
    std::optional<QString> jfxFilePathAI;
    // Reserved for InDesign: computed, never written or run.
    std::optional<QString> jfxFilePathID;
    // Never assigned.
    std::optional<QString> vbsFilePathID;
    std::optional<QString> appPathPhotoshop;
    std::optional<QString> appPathIllustrator;
    // Unset until the first scan; every reader scans first.
    std::optional<bool> bPhotoshopFound;
    std::optional<bool> bIllustragorFound;  // spelled so on purpose
    bool bFirstColor = true;
  };

  static ColorStruct initialNewColor();

  // No file access here. The host defaults to this build's host (Wine over
  // /proc on Linux); alerts default to none shown.
  explicit Commander(std::shared_ptr<HostDescription> host = defaultHostDescription(),
                     std::shared_ptr<AlertPresenter> alerts = nullptr);
  Commander(const Commander&) = delete;
  Commander& operator=(const Commander&) = delete;

  // Fixes the three script paths (the folder is created if need be; without one
  // the process stops) and patches the three Photoshop settings folders.
  void initScriptFiles();
  // "Tintwell" in the user's application-data folder, created if missing;
  // absent when there is no such folder or it cannot be created.
  std::optional<QString> scriptDirectory() const;
  // Adds "WarnRunningScripts 0" to PSUserConfig.txt of Photoshop `version`
  // (0: CC 2019, 1: 2020, else 2021) unless a line already holds it; a missing
  // settings folder is skipped. A file that cannot be read as UTF-8 text, or
  // cannot be written, stops the process.
  void patchPhotoshopSettings(int version);
  // Scans, and if the running Photoshop's path names 2019 or 2020, asks the
  // user to restart it. Blocks while the alert is shown.
  void checkPhotoshopRestart();
  // Refreshes the found-flags and application paths from the running
  // applications: "Photoshop" in a name wins over "Illustrator"; the last
  // match of each kind wins.
  void findDesignApps();

  // Pushes `newColor` into every running design application, Photoshop first.
  // The very first call after construction only clears `bFirstColor`.
  void sendColorToApps();
  // Sets `newColor` and pushes it as one step, so two threads pushing at once
  // each push their own colour.
  void sendColorToApps(const ColorStruct& color);

  // Pushes `color` at once into the running Photoshop and Illustrator that
  // are switched on, with no first-colour rule and no native hosts: the
  // command line's single colour. Returns the keys ("photoshop",
  // "illustrator") of the applications whose script was opened.
  std::vector<QString> pushToScriptHosts(const ColorStruct& color);

  // Pushes `color` once more into every running design application that is
  // switched on, native ones included, with no first-colour rule: a colour
  // taken again from the history. `newColor` is as it was afterwards, so the
  // panel's repeat check still compares with the last colour it accepted.
  void pushAgain(const ColorStruct& color);

  // The native design applications (GIMP, Inkscape, Krita), pushed to after
  // Photoshop and Illustrator with the same colours; none until set.
  void setNativeHosts(std::shared_ptr<HostDispatcher> hosts);
  std::shared_ptr<HostDispatcher> nativeHosts() const;
  // Whether Photoshop ("photoshop") and Illustrator ("illustrator") receive
  // colours; both do unless switched off.
  void setScriptHostEnabled(const QString& key, bool enabled);
  bool isScriptHostEnabled(const QString& key) const;

  // Runs `command` with /bin/bash -c and returns its standard output, read to
  // its end, decoded as UTF-8 (anything else stops the process). Standard error
  // and input are inherited; the exit status is not looked at.
  QString runShell(const QString& command) const;

  ColorStruct newColor() const;
  void setNewColor(const ColorStruct& color);

  // The record the push counts go into. The telemetry sender replaces it with
  // a fresh one after a successful post, from its own thread.
  std::shared_ptr<ApplicationRecord> tempApplicationRecord() const override;
  void setTempApplicationRecord(std::shared_ptr<ApplicationRecord> record) override;

  // A copy of the state, taken under the lock.
  State state() const;

  static QString photoshopScript(const ColorStruct& color);
  static QString illustratorScript(const ColorStruct& color);

 private:
  void findDesignAppsLocked();
  void sendLocked();
  void pushToPhotoshop();
  void pushToIllustrator();
  // Writes the script; false (after printing the error) when it cannot.
  bool writeScript(const QString& path, const QString& text);
  // Whether the running Photoshop asks for the restart alert.
  bool photoshopNeedsRestartLocked();
  std::shared_ptr<ApplicationRecord> requireRecord() const;

  const std::shared_ptr<HostDescription> host_;
  const std::shared_ptr<AlertPresenter> alerts_;

  mutable std::mutex mutex_;
  State state_;

  // Guarded by mutex_: the applications of the last scan, and the switches.
  std::vector<RunningApplication> running_;
  bool photoshopEnabled_ = true;
  bool illustratorEnabled_ = true;
  std::shared_ptr<HostDispatcher> nativeHosts_;

  mutable std::mutex recordMutex_;
  std::shared_ptr<ApplicationRecord> tempApplicationRecord_;
};

}  // namespace tw
