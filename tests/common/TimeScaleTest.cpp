#include <gtest/gtest.h>

#include <QProcess>

#include "common/TimeScale.h"

namespace tw {
namespace {

// The factor is read once per process, so each case checks the value this
// process was started with (CTest starts each case in its own process).
TEST(TimeScale, DefaultsToOneWhenUnsetOrUnusable) {
  const QByteArray raw = qgetenv("TINTWELL_TIME_SCALE");
  bool ok = false;
  const double parsed = raw.toDouble(&ok);
  const double expected = ok && parsed > 0 ? parsed : 1.0;
  EXPECT_EQ(timeScale(), expected);
  EXPECT_EQ(scaledMs(2.5), static_cast<int>(std::round(2500 * expected)));
}

TEST(TimeScale, ScaledDelaysNeverCollapseToZero) {
  EXPECT_GE(scaledMs(0.0001), 1);
  EXPECT_EQ(scaledMs(0), 0);
}

}  // namespace
}  // namespace tw
