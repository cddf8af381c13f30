#include "telemetry/UsageRecords.h"

#include <QDateTime>
#include <limits>

#include "color/ColorStruct.h"
#include "common/Fatal.h"
#include "common/Json.h"

namespace tw {

QString currentTimeText() {
  return QDateTime::currentDateTime().toString(QStringLiteral("yyyy/MM/dd HH:mm:ss"));
}

QByteArray toJson(const ColorRecord::Fields& r) {
  return json::PrettyObject()
      .add("session_begin", r.session_begin)
      .add("session_end", r.session_end)
      .add("session_full", r.session_full)
      .add("vender", r.vender)
      .add("debug", r.debug)
      .add("os", r.os)
      .add("app", r.app)
      .add("version", r.version)
      .add("counter_screen", r.counter_screen)
      .add("counter_device", r.counter_device)
      .add("colors_screen", r.colors_screen)
      .add("colors_device", r.colors_device)
      .finish();
}

QByteArray toJson(const ApplicationRecord::Fields& r) {
  return json::PrettyObject()
      .add("session_begin", r.session_begin)
      .add("session_end", r.session_end)
      .add("session_full", r.session_full)
      .add("os", r.os)
      .add("debug", r.debug)
      .add("PS", r.PS)
      .add("AI", r.AI)
      .finish();
}

QByteArray ColorRecord::toJson() const { return tw::toJson(read()); }
QByteArray ApplicationRecord::toJson() const { return tw::toJson(read()); }

QString colorListEntry(qint64 red, qint64 green, qint64 blue) {
  return QLatin1Char('#') + hexText(red, green, blue);
}

void incrementCounter(qint64& counter) {
  if (counter == std::numeric_limits<qint64>::max()) fatalStop("a usage counter overflowed");
  ++counter;
}

}  // namespace tw
