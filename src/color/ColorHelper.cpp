#include "color/ColorHelper.h"

#include <atomic>
#include <charconv>
#include <chrono>
#include <cmath>
#include <limits>
#include <string>

#include "color/ColorStruct.h"
#include "common/Fatal.h"
#include "common/Log.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"

namespace tw {

namespace {

// [-2^63, 2^63): the doubles whose truncation fits a signed 64-bit integer.
constexpr double kInt64Low = -9223372036854775808.0;
constexpr double kInt64High = 9223372036854775808.0;

qint64 truncatedToInt64(double value, std::string_view what) {
  if (!std::isfinite(value)) fatalStop(std::string(what) + " is not finite");
  if (!(value >= kInt64Low && value < kInt64High))
    fatalStop(std::string(what) + " does not fit a 64-bit integer");
  return static_cast<qint64>(value);  // truncates toward zero
}

// A double as a debug print shows it: the shortest text that reads back as the
// same value, with ".0" on whole numbers ("255.0", "127.5").
std::string describe(double value) {
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  std::string text(buffer, result.ptr);
  if (text.find_first_of(".eEn") == std::string::npos) text += ".0";
  return text;
}

std::atomic<qint64> coveringWindowGoneAt{std::numeric_limits<qint64>::min()};

qint64 monotonicMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace

void noteCoveringWindowGone() { coveringWindowGoneAt.store(monotonicMs()); }

qint64 msSinceCoveringWindowGone() {
  const qint64 at = coveringWindowGoneAt.load();
  if (at == std::numeric_limits<qint64>::min()) return std::numeric_limits<qint64>::max();
  return monotonicMs() - at;
}

qint64 flippedY(double bottomLeftY, qint64 mainScreenHeight) {
  const qint64 y = truncatedToInt64(bottomLeftY, "pointer y");
  qint64 difference = 0;
  if (__builtin_sub_overflow(y, mainScreenHeight, &difference))
    fatalStop("overflow flipping the pointer y");
  if (difference == std::numeric_limits<qint64>::min())
    fatalStop("overflow flipping the pointer y");
  return difference < 0 ? -difference : difference;
}

qint64 channelFromComponent(double component) {
  return truncatedToInt64(component * 255.0, "colour component");
}

ScreenSample::ScreenSample(const QColor& sampled) : color(sampled) {
  // Doubles from QColor's 16-bit channels (redF() is a float): an 8-bit
  // channel v then gives exactly v / 255.0.
  const QRgba64 channels = sampled.rgba64();
  red = channels.red() / 65535.0;
  green = channels.green() / 65535.0;
  blue = channels.blue() / 65535.0;
}

ScreenSample ScreenSample::fromComponents(double red, double green, double blue) {
  ScreenSample sample;
  sample.red = red;
  sample.green = green;
  sample.blue = blue;
  sample.color = QColor::fromRgbF(static_cast<float>(red), static_cast<float>(green),
                                  static_cast<float>(blue), 1.0f);
  return sample;
}

PickFlag& PickFlag::operator=(bool armed) {
  value_.store(armed);
  if (armed && onArmed_) onArmed_();
  return *this;
}

ColorHelper::ColorHelper(ScreenBackend backend, QObject* parent)
    : QObject(parent), backend_(std::move(backend)) {
  if (!backend_.monitor || !backend_.pointer || !backend_.sampler)
    fatalStop("ColorHelper without a complete screen backend");
  bPickScreenColor.onArmed_ = [monitor = backend_.monitor] { monitor->pickArmed(); };
  backend_.monitor->setUnansweredHandler([self = QPointer<ColorHelper>(this)] {
    if (self) self->unanswered();
  });
}

void ColorHelper::unanswered() {
  if (!bPickScreenColor) return;
  bPickScreenColor = false;
  logLine(std::string_view("screen pick cancelled: no answer from the screen picker"));
  if (pickUnanswered) pickUnanswered();
}

qint64 ColorHelper::mainDisplayPixelsHigh() const {
  return backend_.pointer->mainDisplayPixelsHigh();
}

void ColorHelper::installMonitor() {
  // The helper lives as long as the panel; the guard only keeps a stray late
  // click from reaching a destroyed helper.
  backend_.monitor->addHandler([self = QPointer<ColorHelper>(this)] {
    if (self) self->mouseDownHandler();
  });
}

void ColorHelper::mouseDownHandler() {
  if (!bPickScreenColor) return;

  // Synchronous: the picking window closes itself before we read the screen.
  NotificationCenter::defaultCenter().post(
      notification::mouseDown(), {}, UserInfo{{QStringLiteral("Mouse"), QStringLiteral("Down")}});
  logLine(std::string_view("在 ColorHelpering 內的 Mouse Down"));

  if (!mainScreenHeight) fatalStop("mainScreenHeight is absent");
  const QPointF location = backend_.pointer->mouseLocation();
  const qint64 y = flippedY(location.y(), *mainScreenHeight);
  mousePos = QPointF(location.x(), static_cast<double>(y));

  logLine(QString::asprintf("Helper mouseLocation: %.1f, %.1f", location.x(), location.y()));
  logLine(QString::asprintf("Helper mouseLocation2: %.1f, %.1f \n", mousePos->x(), mousePos->y()));

  bPickScreenColor = false;  // one click, one pick
  sampleScreenColor();
}

void ColorHelper::sampleScreenColor() {
  if (!mousePos) fatalStop("mousePos is absent");
  backend_.sampler->sample(
      *mousePos, [self = QPointer<ColorHelper>(this)](std::optional<ScreenSample> sampled) {
        if (self) self->postSample(sampled);
      });
}

void ColorHelper::postSample(const std::optional<ScreenSample>& sampled) {
  if (!sampled || !sampled->color.isValid()) fatalStop("screen capture failed");

  // The components as the screen gave them, truncated here and only here.
  logLine(describe(sampled->red * 255.0) + ' ' + describe(sampled->green * 255.0) + ' ' +
          describe(sampled->blue * 255.0));
  const qint64 r = channelFromComponent(sampled->red);
  const qint64 g = channelFromComponent(sampled->green);
  const qint64 b = channelFromComponent(sampled->blue);
  ColorStruct picked{r, g, b, hexText(r, g, b), sampled->color, ColorSpace::display};
  NotificationCenter::defaultCenter().post(
      notification::newColor(), picked,
      UserInfo{{notification::quillaKey(), QStringLiteral("NewScreenColor")}});
}

}  // namespace tw
