#include "color/ColorHelper.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>

#include "color/ColorStruct.h"
#include "tests/color/ScreenPickTestSupport.h"
#include "tests/support/LogCapture.h"

namespace tw {
namespace {

using testing::FakeClickMonitor;
using testing::FakePointer;
using testing::FakeSampler;
using testing::PickRecorder;

class ColorHelperTest : public ::testing::Test {
 protected:
  void SetUp() override {
    recorder.clear();
    helper = std::make_unique<ColorHelper>(ScreenBackend{monitor, pointer, sampler});
  }
  void TearDown() override { recorder.clear(); }

  std::shared_ptr<FakeClickMonitor> monitor = std::make_shared<FakeClickMonitor>();
  std::shared_ptr<FakePointer> pointer = std::make_shared<FakePointer>();
  std::shared_ptr<FakeSampler> sampler = std::make_shared<FakeSampler>();
  PickRecorder& recorder = PickRecorder::instance();
  std::unique_ptr<ColorHelper> helper;
};

TEST_F(ColorHelperTest, StartsWithTheDeclaredValues) {
  EXPECT_FALSE(helper->window);
  ASSERT_TRUE(helper->mousePos.has_value());
  EXPECT_EQ(*helper->mousePos, QPointF(0, 0));
  ASSERT_TRUE(helper->mainScreenHeight.has_value());
  EXPECT_EQ(*helper->mainScreenHeight, 1024);
  EXPECT_FALSE(helper->bPickScreenColor);
  EXPECT_EQ(helper->REFX_O2_D65, 95.047);
  EXPECT_EQ(helper->REFY_O2_D65, 100.0);
  EXPECT_EQ(helper->REFZ_O2_D65, 108.883);
  EXPECT_FALSE(helper->parentApp);
}

TEST_F(ColorHelperTest, InstallMonitorRegistersOneHandlerPerCall) {
  helper->installMonitor();
  EXPECT_EQ(monitor->handlers.size(), 1u);
  helper->installMonitor();
  EXPECT_EQ(monitor->handlers.size(), 2u);
}

TEST_F(ColorHelperTest, ClickWhileNotArmedPostsNothingAndSamplesNothing) {
  helper->installMonitor();
  pointer->location = QPointF(5, 5);
  monitor->click();
  EXPECT_TRUE(recorder.mouseDowns.empty());
  EXPECT_TRUE(recorder.newColors.empty());
  EXPECT_TRUE(sampler->reads.empty());
  EXPECT_EQ(*helper->mousePos, QPointF(0, 0));
}

TEST_F(ColorHelperTest, TwoClicksAfterOneArmingSampleOnce) {
  helper->installMonitor();
  helper->bPickScreenColor = true;
  monitor->click();
  monitor->click();
  EXPECT_EQ(sampler->reads.size(), 1u);
  EXPECT_EQ(recorder.mouseDowns.size(), 1u);
  EXPECT_EQ(recorder.newColors.size(), 1u);
  EXPECT_FALSE(helper->bPickScreenColor);
}

TEST_F(ColorHelperTest, TwoInstalledMonitorsStillPickOncePerArming) {
  // The panel installs one more monitor at every appearance.
  helper->installMonitor();
  helper->installMonitor();
  helper->bPickScreenColor = true;
  monitor->click();
  EXPECT_EQ(sampler->reads.size(), 1u);
  EXPECT_EQ(recorder.newColors.size(), 1u);
}

TEST_F(ColorHelperTest, ClickWhileASampleIsPendingDoesNotPickAgain) {
  sampler->deferred = true;
  helper->installMonitor();
  helper->bPickScreenColor = true;
  monitor->click();
  EXPECT_TRUE(recorder.newColors.empty());  // the sampler has not answered yet
  monitor->click();
  sampler->finish();
  EXPECT_EQ(sampler->reads.size(), 1u);
  EXPECT_EQ(recorder.mouseDowns.size(), 1u);
  EXPECT_EQ(recorder.newColors.size(), 1u);
}

TEST_F(ColorHelperTest, SampleArrivingAfterTheHelperIsGonePostsNothing) {
  sampler->deferred = true;
  helper->installMonitor();
  helper->bPickScreenColor = true;
  monitor->click();
  helper.reset();
  sampler->finish();
  EXPECT_TRUE(recorder.newColors.empty());
}

TEST_F(ColorHelperTest, EachArmingPicksAgain) {
  helper->installMonitor();
  for (int i = 0; i < 3; ++i) {
    helper->bPickScreenColor = true;
    monitor->click();
  }
  EXPECT_EQ(sampler->reads.size(), 3u);
  EXPECT_EQ(recorder.newColors.size(), 3u);
}

TEST_F(ColorHelperTest, ArmingTellsTheMonitorAndDisarmingDoesNot) {
  helper->bPickScreenColor = true;
  EXPECT_EQ(monitor->armedCalls, 1);
  helper->bPickScreenColor = false;
  EXPECT_EQ(monitor->armedCalls, 1);
}

TEST_F(ColorHelperTest, MouseDownIsPostedBeforeTheScreenIsRead) {
  std::vector<QString> events;
  recorder.events = &events;
  sampler->events = &events;
  helper->installMonitor();
  helper->bPickScreenColor = true;
  monitor->click();
  ASSERT_EQ(events.size(), 3u);
  EXPECT_EQ(events[0], QStringLiteral("mouse down"));
  EXPECT_EQ(events[1], QStringLiteral("sample"));
  EXPECT_EQ(events[2], QStringLiteral("new color"));

  const Notification& down = recorder.mouseDowns.at(0);
  EXPECT_FALSE(down.object.has_value());
  ASSERT_TRUE(down.userInfo.has_value());
  EXPECT_EQ(*down.userInfo, (UserInfo{{QStringLiteral("Mouse"), QStringLiteral("Down")}}));
}

TEST_F(ColorHelperTest, PickPostsTheSampledColourItselfAsNewScreenColor) {
  // A colour in another spec than the pen's: the struct carries it unchanged.
  const QColor sampled = QColor::fromHsv(200, 128, 255);
  sampler->color = sampled;
  helper->installMonitor();
  helper->bPickScreenColor = true;
  monitor->click();

  ASSERT_EQ(recorder.newColors.size(), 1u);
  const Notification& posted = recorder.newColors[0];
  ASSERT_TRUE(posted.userInfo.has_value());
  EXPECT_EQ(*posted.userInfo,
            (UserInfo{{QStringLiteral("Quilla"), QStringLiteral("NewScreenColor")}}));
  const auto* color = std::any_cast<ColorStruct>(&posted.object);
  ASSERT_NE(color, nullptr);
  EXPECT_EQ(color->color, sampled);
  EXPECT_EQ(color->color.spec(), QColor::Hsv);
  const QRgba64 rgb = sampled.rgba64();
  EXPECT_EQ(color->iR, static_cast<qint64>(rgb.red() / 65535.0 * 255.0));
  EXPECT_EQ(color->iG, static_cast<qint64>(rgb.green() / 65535.0 * 255.0));
  EXPECT_EQ(color->iB, static_cast<qint64>(rgb.blue() / 65535.0 * 255.0));
  EXPECT_EQ(color->colorHex, hexText(color->iR, color->iG, color->iB));
}

TEST_F(ColorHelperTest, APickIsPostedInTheDisplaysColourSpace) {
  sampler->color = QColor::fromRgb(250, 250, 250);
  helper->installMonitor();
  helper->bPickScreenColor = true;
  monitor->click();
  const auto* color = std::any_cast<ColorStruct>(&recorder.newColors.at(0).object);
  ASSERT_NE(color, nullptr);
  EXPECT_EQ(color->colorSpace, ColorSpace::display);
  // Not the same colour as the start-up colour of the same channels.
  EXPECT_FALSE(color->hasSameColor(ColorStruct::fromChannels(250, 250, 250)));
}

TEST_F(ColorHelperTest, EightBitSampleKeepsItsChannels) {
  sampler->color = QColor::fromRgb(171, 205, 239);
  helper->installMonitor();
  helper->bPickScreenColor = true;
  monitor->click();
  const auto* color = std::any_cast<ColorStruct>(&recorder.newColors.at(0).object);
  ASSERT_NE(color, nullptr);
  EXPECT_EQ(color->iR, 171);
  EXPECT_EQ(color->iG, 205);
  EXPECT_EQ(color->iB, 239);
  EXPECT_EQ(color->colorHex, QStringLiteral("ABCDEF"));
}

TEST_F(ColorHelperTest, SamplesAtTheFlippedPointerPosition) {
  helper->mainScreenHeight = 768;
  pointer->location = QPointF(100.75, 700.9);  // bottom-left origin
  helper->installMonitor();
  helper->bPickScreenColor = true;
  monitor->click();
  ASSERT_EQ(sampler->reads.size(), 1u);
  // x unchanged; y truncated to 700 and flipped: |700 - 768| = 68.
  EXPECT_EQ(sampler->reads[0], QPointF(100.75, 68));
  EXPECT_EQ(*helper->mousePos, QPointF(100.75, 68));
}

TEST_F(ColorHelperTest, PickLogsTheLinesInOrder) {
  helper->mainScreenHeight = 1024;
  pointer->location = QPointF(10.5, 700.0);
  sampler->color = QColor::fromRgb(255, 128, 0);
  helper->installMonitor();
  helper->bPickScreenColor = true;
  testing::LogCapture log;
  monitor->click();
  const QString out = log.text();
  EXPECT_EQ(out,
            "在 ColorHelpering 內的 Mouse Down\n"
            "Helper mouseLocation: 10.5, 700.0\n"
            "Helper mouseLocation2: 10.5, 324.0 \n\n"
            "255.0 128.0 0.0\n");
}

TEST_F(ColorHelperTest, ComponentOneGives255AndHalfGives127) {
  sampler->color = QColor::fromRgbF(1.0f, 0.5f, 0.0f);
  helper->installMonitor();
  helper->bPickScreenColor = true;
  monitor->click();
  const auto* color = std::any_cast<ColorStruct>(&recorder.newColors.at(0).object);
  ASSERT_NE(color, nullptr);
  EXPECT_EQ(color->iR, 255);
  EXPECT_EQ(color->iG, 127);
  EXPECT_EQ(color->iB, 0);
  EXPECT_EQ(color->colorHex, QStringLiteral("FF7F00"));
}

// A sampler that reads components finer than QColor's 16 bits.
struct ComponentSampler : ScreenSampler {
  ScreenSample sample_;
  void sample(QPointF, Completion done) override { done(sample_); }
};

TEST(ColorHelperComponents, APickIsTruncatedFromTheSamplersOwnComponents) {
  auto sampler = std::make_shared<ComponentSampler>();
  // A 5-bit 15 of 31, a portal's 0.999999 and a full channel: 123.39, 254.9997
  // and 255.0. Through QColor's 16 bits the middle one would become 255.
  sampler->sample_ = ScreenSample::fromComponents(15.0 / 31.0, 0.999999, 1.0);
  auto monitor = std::make_shared<FakeClickMonitor>();
  ColorHelper helper(ScreenBackend{monitor, std::make_shared<FakePointer>(), sampler});
  PickRecorder& recorder = PickRecorder::instance();
  recorder.clear();
  helper.installMonitor();
  helper.bPickScreenColor = true;
  std::string out;
  {
    testing::LogCapture log;
    monitor->click();
    out = log.text().toStdString();
  }
  const auto* color = std::any_cast<ColorStruct>(&recorder.newColors.at(0).object);
  ASSERT_NE(color, nullptr);
  EXPECT_EQ(color->iR, 123);
  EXPECT_EQ(color->iG, 254);
  EXPECT_EQ(color->iB, 255);
  EXPECT_EQ(color->colorHex, QStringLiteral("7BFEFF"));
  // The components are logged × 255 as they came.
  EXPECT_NE(out.find("\n123.38709677419355 254.999745 255.0\n"), std::string::npos) << out;
  recorder.clear();
}

TEST_F(ColorHelperTest, MainDisplayHeightComesFromThePointerSource) {
  pointer->height = 1600;
  EXPECT_EQ(helper->mainDisplayPixelsHigh(), 1600);
}

using ColorHelperDeathTest = ColorHelperTest;

TEST_F(ColorHelperDeathTest, FailedCaptureStopsTheProcess) {
  sampler->color = std::nullopt;
  helper->installMonitor();
  helper->bPickScreenColor = true;
  EXPECT_DEATH(monitor->click(), "screen capture failed");
}

TEST_F(ColorHelperDeathTest, AbsentScreenHeightStopsTheProcess) {
  helper->mainScreenHeight = std::nullopt;
  helper->installMonitor();
  helper->bPickScreenColor = true;
  EXPECT_DEATH(monitor->click(), "mainScreenHeight is absent");
}

TEST_F(ColorHelperDeathTest, NonFinitePointerStopsTheProcess) {
  pointer->location = QPointF(1, std::numeric_limits<double>::quiet_NaN());
  helper->installMonitor();
  helper->bPickScreenColor = true;
  EXPECT_DEATH(monitor->click(), "pointer y is not finite");
}

// --- The flip rule on its own -------------------------------------------------

struct FlipCase {
  const char* name;
  double y;
  qint64 height;
  qint64 expected;
};

void PrintTo(const FlipCase& flip, std::ostream* os) { *os << flip.name; }

class FlipRule : public ::testing::TestWithParam<FlipCase> {};

TEST_P(FlipRule, GivesTheTopLeftRow) {
  EXPECT_EQ(flippedY(GetParam().y, GetParam().height), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, FlipRule,
    ::testing::Values(FlipCase{"PointerAtScreenHeightGivesZero", 1024.0, 1024, 0},
                      FlipCase{"PointerAboveScreenHeightGivesPositive", 1100.0, 1024, 76},
                      FlipCase{"PointerAtBottomGivesHeight", 0.0, 1024, 1024},
                      FlipCase{"FractionIsTruncatedNotRounded", 1000.9, 1024, 24},
                      FlipCase{"NegativeFractionTruncatesTowardZero", -0.9, 1024, 1024},
                      FlipCase{"PointerBelowMainScreenGivesItsRow", -300.0, 1024, 1324},
                      FlipCase{"HugeValuesThatFit", 9.0e18, 0, 9000000000000000000LL}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(FlipRuleDeathTest, NonFiniteYStopsTheProcess) {
  EXPECT_DEATH(flippedY(std::numeric_limits<double>::infinity(), 1024), "not finite");
  EXPECT_DEATH(flippedY(std::numeric_limits<double>::quiet_NaN(), 1024), "not finite");
}

TEST(FlipRuleDeathTest, YOutOfIntegerRangeStopsTheProcess) {
  EXPECT_DEATH(flippedY(9.3e18, 1024), "does not fit");
  EXPECT_DEATH(flippedY(-9.3e18, 1024), "does not fit");
}

TEST(FlipRuleDeathTest, OverflowInTheSubtractionStopsTheProcess) {
  EXPECT_DEATH(flippedY(-9.0e18, 9.0e18), "overflow");
  EXPECT_DEATH(flippedY(-9223372036854775808.0, 0), "overflow");  // |min| does not fit
}

// --- Component truncation -----------------------------------------------------

TEST(ChannelFromComponent, OneGives255) { EXPECT_EQ(channelFromComponent(1.0), 255); }
TEST(ChannelFromComponent, HalfGives127) { EXPECT_EQ(channelFromComponent(0.5), 127); }
TEST(ChannelFromComponent, JustBelowOneGives254) { EXPECT_EQ(channelFromComponent(0.999), 254); }
TEST(ChannelFromComponent, ZeroGivesZero) { EXPECT_EQ(channelFromComponent(0.0), 0); }

TEST(ChannelFromComponent, EveryEightBitQColorComesBackUnchanged) {
  for (int v = 0; v < 256; ++v) {
    const QColor c = QColor::fromRgb(v, v, v);
    EXPECT_EQ(channelFromComponent(c.rgba64().red() / 65535.0), v) << v;
    EXPECT_EQ(channelFromComponent(v / 255.0), v) << v;
  }
}

TEST(ChannelFromComponentDeathTest, NonFiniteStopsTheProcess) {
  EXPECT_DEATH(channelFromComponent(std::numeric_limits<double>::infinity()), "not finite");
}

}  // namespace
}  // namespace tw
