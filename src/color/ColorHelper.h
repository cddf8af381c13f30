#pragma once

#include <QColor>
#include <QImage>
#include <QObject>
#include <QPoint>
#include <QPointF>
#include <QPointer>
#include <QRect>
#include <QtGlobal>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace tw {

// --- Seams of the screen picker ---------------------------------------------
// The picking logic below never talks to a window system; a backend (X11 in
// color/x11, the desktop portal in color/portal, fakes in the tests) supplies
// these three. Everything is called on the main thread.

// Reports left-button presses anywhere on the desktop, outside our own windows
// too. Implementations call each handler on the main thread, once per press, in
// the order the handlers were added. Handlers are never removed.
class GlobalClickMonitor {
 public:
  using Handler = std::function<void()>;
  virtual ~GlobalClickMonitor() = default;
  virtual void addHandler(Handler handler) = 0;
  // A pick has just been armed. A backend that has to ask for the click (the
  // portal's interactive PickColor) starts asking here; the others ignore it.
  virtual void pickArmed() {}
  // Where an armed pick goes when it can never be answered (the portal is not
  // there or has no PickColor): the backend calls `handler` on the main thread
  // instead of reporting a click. One handler; a later call replaces it. The
  // X11 monitor always answers and keeps none.
  virtual void setUnansweredHandler(const Handler& handler) { (void)handler; }
};

// Where the pointer is and how tall the main display is, both in device pixels.
class PointerSource {
 public:
  virtual ~PointerSource() = default;
  // Pointer position in device pixels with a bottom-left origin: x as the
  // window system reports it, y = mainDisplayPixelsHigh() - top-left y. May be
  // negative (a pointer below the main display's bottom edge).
  virtual QPointF mouseLocation() = 0;
  // Height in device pixels of the display whose pixels the sampler reads.
  virtual qint64 mainDisplayPixelsHigh() = 0;
};

// One pixel as the screen gave it: its red, green and blue components as
// fractions from 0 to 1, at the precision the source has (an X11 channel's
// value over its maximum, the portal's doubles), and the colour itself.
struct ScreenSample {
  double red = 0.0;
  double green = 0.0;
  double blue = 0.0;
  QColor color;

  ScreenSample() = default;
  // A colour as QColor holds it: the components are its 16-bit channels /
  // 65535. Implicit, so a sampler whose source is a QColor can hand it on.
  ScreenSample(const QColor& sampled);
  // Components kept as given; the colour is made from them, alpha 1.0.
  static ScreenSample fromComponents(double red, double green, double blue);
};

// Reads one device pixel of the screen.
class ScreenSampler {
 public:
  using Completion = std::function<void(std::optional<ScreenSample>)>;
  virtual ~ScreenSampler() = default;
  // Reads the device pixel whose top-left-origin coordinates are `at`
  // (fractions truncated) and calls `done` with it, or with nullopt
  // when the capture fails. `done` runs exactly once on the main thread,
  // before sample() returns or later: a backend may first let the screen
  // settle, so that windows just closed (the picking window) are gone from it.
  virtual void sample(QPointF at, Completion done) = 0;
};

// What the magnifier needs from the window system: the pointer's pixel, the
// pixels around it and a way to move the pointer by whole device pixels. Only
// where the screen can be read at will (X11); the portal shows its own.
class PickLensSource {
 public:
  virtual ~PickLensSource() = default;
  // The device pixel under the pointer, top-left origin; nullopt when the
  // pointer cannot be found.
  virtual std::optional<QPoint> pointerPixel() = 0;
  // The device pixels of `area` (top-left origin), area.size() of them;
  // pixels outside the screen are transparent black. A null image when the
  // screen cannot be read.
  virtual QImage grab(const QRect& area) = 0;
  // Moves the pointer by (dx, dy) device pixels; the window system keeps it on
  // the screen.
  virtual void movePointerBy(int dx, int dy) = 0;
  // Gives our top-level window `window` (a native id) the device rectangle
  // `rect` and answers true; false where the window system does not allow
  // it, and the caller places the window itself. Qt's logical coordinates
  // cannot name every device position when monitors have different scales.
  virtual bool placeWindow(quintptr window, const QRect& rect) {
    (void)window;
    (void)rect;
    return false;
  }
};

struct ScreenBackend {
  std::shared_ptr<GlobalClickMonitor> monitor;
  std::shared_ptr<PointerSource> pointer;
  std::shared_ptr<ScreenSampler> sampler;
  // Absent where there is no magnifier (the portal).
  std::shared_ptr<PickLensSource> lens = nullptr;
};

// The backend for the running session: the desktop portal in a Wayland
// session (pickingPathFor()), X11 otherwise. Each choice is logged. Needs a
// QGuiApplication.
ScreenBackend makeScreenBackend();

// Whether a nearly transparent full-screen window can be shown as such. On X11
// that takes a compositing manager (an owner of _NET_WM_CM_S<screen>); without
// one the window would show near-black, so the picking window stays unshown.
bool pickingWindowCanBeShown();

// Our own windows that may cover the screen while a pick is armed (the
// picking window) say when they leave it, so that a sampler knows whether
// anything has yet to be repainted below them. Any thread.
void noteCoveringWindowGone();
// Milliseconds since the last such note, on the monotonic clock; a very large
// number when there was none.
qint64 msSinceCoveringWindowGone();

// --- Picking rules, free so they can be tested on their own ------------------

// The flip rule: the absolute value of (truncated bottom-left y − height).
// Stops the process when y is not finite, does not fit a signed 64-bit integer,
// or the subtraction (or its absolute value) overflows.
qint64 flippedY(double bottomLeftY, qint64 mainScreenHeight);

// A colour component in [0, 1] to an 8-bit channel: component × 255.0 truncated
// toward zero (0.5 → 127, 0.999 → 254, 1.0 → 255). Stops the process when the
// product is not finite or does not fit a signed 64-bit integer.
qint64 channelFromComponent(double component);

// A pick is armed while this is true. Setting it to true also tells the click
// monitor (see GlobalClickMonitor::pickArmed). Safe to read from any thread.
class PickFlag {
 public:
  PickFlag& operator=(bool armed);
  operator bool() const { return value_.load(); }

 private:
  friend class ColorHelper;
  std::atomic<bool> value_{false};
  std::function<void()> onArmed_;
};

// Holds the screen-picking state, installs the global mouse monitor and
// samples the screen. Lives on the main thread, owned by the main panel.
// A QObject without meta-object: it has no signals, and a moc'd class would
// need the platform default constructor wherever it is linked.
class ColorHelper : public QObject {
 public:
  // With the platform's backend (makeScreenBackend(); defined with the
  // backends, in tintwell_screen_backends).
  explicit ColorHelper(QObject* parent = nullptr);
  explicit ColorHelper(ScreenBackend backend, QObject* parent = nullptr);

  // The main panel's window; set by the panel, not read by picking.
  QPointer<QObject> window;
  // The pixel to sample, in top-left-origin device pixels.
  std::optional<QPointF> mousePos = QPointF(0, 0);
  // Height of the screen in device pixels, used to flip the y coordinate. The
  // panel sets it from mainDisplayPixelsHigh() after installing the monitor.
  std::optional<qint64> mainScreenHeight = 1024;
  PickFlag bPickScreenColor;
  // D65 reference white, 2° observer (held, not read by the conversions).
  double REFX_O2_D65 = 95.047;
  double REFY_O2_D65 = 100.0;
  double REFZ_O2_D65 = 108.883;
  // Back reference to the owner; not used by picking.
  QPointer<QObject> parentApp;

  // Registers mouseDownHandler() for every global left press. Each call adds
  // one more registration; none is ever removed.
  void installMonitor();
  // The monitor's handler: when armed, posts "Notification_Mouse_Down" (the
  // picking window closes itself there), reads and flips the pointer position,
  // disarms and samples. Does nothing when not armed.
  void mouseDownHandler();
  // Samples the pixel at mousePos and posts it as "Notification_New_Color"
  // with {"Quilla": "NewScreenColor"}, when the sampler has it (see
  // ScreenSampler::sample); the ColorStruct's colour is in the display's
  // colour space. A failed capture stops the process.
  void sampleScreenColor();

  // Called on the main thread when an armed pick cannot be answered (see
  // GlobalClickMonitor::setUnansweredHandler), after the pick is disarmed;
  // nothing is posted for it. Set by the panel.
  std::function<void()> pickUnanswered;

  // The height in device pixels of the display the sampler reads; what the
  // panel stores in mainScreenHeight.
  qint64 mainDisplayPixelsHigh() const;

  // The magnifier's source, or null where the backend has none.
  const std::shared_ptr<PickLensSource>& lensSource() const { return backend_.lens; }

 private:
  void postSample(const std::optional<ScreenSample>& sampled);
  void unanswered();

  ScreenBackend backend_;
};

}  // namespace tw
