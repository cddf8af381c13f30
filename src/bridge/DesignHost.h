#pragma once

#include <QString>
#include <chrono>
#include <optional>

#include "bridge/RunningApplications.h"

namespace tw {

// One colour as the native design applications take it: 8-bit sRGB channels.
struct HostColor {
  int red = 0;
  int green = 0;
  int blue = 0;

  // "#rrggbb", the form every host reads.
  QString hex() const;
  // Parses "#rrggbb" or "rrggbb" (either case); absent for anything else.
  static std::optional<HostColor> fromHex(const QString& text);

  friend bool operator==(const HostColor&, const HostColor&) = default;
};

// How one push into one host ended.
enum class PushStatus {
  // The host read the colour back as sent.
  Confirmed,
  // The host took the colour and will apply it when it can (Krita with no
  // document open yet).
  Queued,
  // The host is running and answered, but had nothing to colour (Inkscape
  // with an empty selection).
  NothingSelected,
  // The host's interface was not there.
  NotRunning,
  // Anything else: a time-out, an error reply, an answer that makes no sense.
  Failed,
};

struct PushOutcome {
  PushStatus status = PushStatus::Failed;
  // Why, in a few words, for anything but Confirmed: "no answer within 2000 ms".
  QString reason;

  friend bool operator==(const PushOutcome&, const PushOutcome&) = default;

  bool reached() const {
    return status == PushStatus::Confirmed || status == PushStatus::Queued ||
           status == PushStatus::NothingSelected;
  }
};

// A design application on this desktop that Tintwell sets the current colour
// of through the application's own interface. Each host is driven from one
// worker thread of its own (HostDispatcher), so push() may block, but must
// return within about `timeout` whatever the application does.
class DesignHost {
 public:
  virtual ~DesignHost() = default;

  // Lower-case name used in settings and on the command line: "gimp".
  virtual QString key() const = 0;
  // The application's name as users know it: "GIMP".
  virtual QString displayName() const = 0;
  // Whether `application` (from the running-application scan) is this host.
  virtual bool isHostProcess(const RunningApplication& application) const = 0;
  // Asked on the worker thread once, before the first push to a host seen
  // running: a text to show the user (Krita's plug-in notice, saying what
  // will be installed), absent when nothing needs doing. The default has
  // nothing to prepare.
  virtual std::optional<QString> preparationNotice() { return std::nullopt; }
  // Does what the notice announced, once the user has seen it; a reason
  // when it could not be done.
  virtual std::optional<QString> prepare() { return std::nullopt; }
  // Sets the host's current colour and confirms it where the host can.
  virtual PushOutcome push(const HostColor& color, std::chrono::milliseconds timeout) = 0;
  // The host's current colour read through the same channel; absent when it
  // cannot be read. For the command line, the tests and the benchmark.
  virtual std::optional<HostColor> readBack(std::chrono::milliseconds timeout) = 0;
};

}  // namespace tw
