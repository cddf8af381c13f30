#pragma once

#include <QColor>
#include <QPointF>
#include <mutex>
#include <optional>
#include <vector>

#include "color/ColorHelper.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"

namespace tw::testing {

// Fakes of the three seams, driven by the test.
struct FakeClickMonitor : GlobalClickMonitor {
  std::vector<Handler> handlers;
  int armedCalls = 0;
  void addHandler(Handler handler) override { handlers.push_back(std::move(handler)); }
  void pickArmed() override { ++armedCalls; }
  Handler unanswered;
  void setUnansweredHandler(const Handler& handler) override { unanswered = handler; }
  // As a backend that cannot answer the armed pick.
  void reportUnanswered() {
    if (unanswered) unanswered();
  }
  void click() {
    const auto copy = handlers;
    for (const auto& handler : copy) handler();
  }
};

struct FakePointer : PointerSource {
  QPointF location;  // bottom-left origin
  qint64 height = 1024;
  QPointF mouseLocation() override { return location; }
  qint64 mainDisplayPixelsHigh() override { return height; }
};

struct FakeSampler : ScreenSampler {
  std::optional<QColor> color = QColor::fromRgb(10, 20, 30);
  std::vector<QPointF> reads;
  std::vector<QString>* events = nullptr;  // shared order log, if set
  bool deferred = false;                   // hold completions until finish()
  std::vector<Completion> pending;
  void sample(QPointF at, Completion done) override {
    reads.push_back(at);
    if (events) events->push_back(QStringLiteral("sample"));
    if (deferred)
      pending.push_back(std::move(done));
    else
      done(color);
  }
  void finish() {
    auto held = std::move(pending);
    pending.clear();
    for (auto& done : held) done(color);
  }
};

// The magnifier's source: one colour everywhere, a pointer the keys move.
struct FakeLensSource : PickLensSource {
  QPoint pointer{100, 100};
  QColor fill = QColor(10, 20, 30);
  std::vector<QPoint> moves;
  std::optional<QPoint> pointerPixel() override { return pointer; }
  QImage grab(const QRect& area) override {
    QImage image(area.size(), QImage::Format_ARGB32);
    image.fill(fill);
    return image;
  }
  void movePointerBy(int dx, int dy) override {
    pointer += QPoint(dx, dy);
    moves.emplace_back(dx, dy);
  }
};

// Everything posted on the two picking notifications. Observers can never be
// removed, so one recorder lives for the whole test process.
struct PickRecorder {
  std::vector<Notification> mouseDowns;
  std::vector<Notification> newColors;
  std::vector<QString>* events = nullptr;

  static PickRecorder& instance() {
    static PickRecorder* recorder = [] {
      auto* r = new PickRecorder;
      auto& center = NotificationCenter::defaultCenter();
      center.addObserver(notification::mouseDown(), [r](const Notification& n) {
        r->mouseDowns.push_back(n);
        if (r->events) r->events->push_back(QStringLiteral("mouse down"));
      });
      center.addObserver(notification::newColor(), [r](const Notification& n) {
        r->newColors.push_back(n);
        if (r->events) r->events->push_back(QStringLiteral("new color"));
      });
      return r;
    }();
    return *recorder;
  }
  void clear() {
    mouseDowns.clear();
    newColors.clear();
    events = nullptr;
  }
};

}  // namespace tw::testing
