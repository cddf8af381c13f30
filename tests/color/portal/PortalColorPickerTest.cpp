// The portal backend against a fake portal on a private session bus.
#include "color/portal/PortalColorPicker.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QElapsedTimer>
#include <memory>
#include <string>

#include "color/ColorHelper.h"
#include "color/ColorStruct.h"
#include "tests/color/ScreenPickTestSupport.h"
#include "tests/color/portal/FakePortal.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PrivateBus.h"

namespace tw {
namespace {

using testing::FakePortal;
using testing::spinUntil;

class PortalColorPickerTest : public ::testing::Test {
 protected:
  void SetUp() override { recorder.clear(); }
  void TearDown() override {
    helper.reset();
    picker.reset();
    QDBusConnection::disconnectFromBus(QStringLiteral("portal-test"));
    recorder.clear();
  }
  void connect(const QString& address) {
    picker = std::make_shared<portal::PortalColorPicker>(
        QDBusConnection::connectToBus(address, QStringLiteral("portal-test")));
    helper = std::make_unique<ColorHelper>(ScreenBackend{picker, picker, picker});
    helper->pickUnanswered = [this] { ++unanswered; };
    helper->installMonitor();
    helper->mainScreenHeight = helper->mainDisplayPixelsHigh();
  }

  testing::PrivateBus bus{testing::PrivateBus::Kind::Session};
  testing::PickRecorder& recorder = testing::PickRecorder::instance();
  std::shared_ptr<portal::PortalColorPicker> picker;
  std::unique_ptr<ColorHelper> helper;
  int unanswered = 0;
};

TEST_F(PortalColorPickerTest, ArmedPickPostsThePortalsColourTruncated) {
  FakePortal portal(bus.address(), QStringLiteral("0.5,1.0,0.999"), QStringLiteral("0"));
  ASSERT_TRUE(portal.ready());
  connect(bus.address());
  helper->bPickScreenColor = true;
  ASSERT_TRUE(spinUntil([&] { return !recorder.newColors.empty(); }));
  EXPECT_EQ(portal.calls(), 1);
  EXPECT_EQ(recorder.mouseDowns.size(), 1u);
  const auto* color = std::any_cast<ColorStruct>(&recorder.newColors[0].object);
  ASSERT_NE(color, nullptr);
  EXPECT_EQ(color->iR, 127);
  EXPECT_EQ(color->iG, 255);
  EXPECT_EQ(color->iB, 254);
  EXPECT_EQ(color->colorHex, QStringLiteral("7FFFFE"));
  EXPECT_EQ(*recorder.newColors[0].userInfo,
            (UserInfo{{QStringLiteral("Quilla"), QStringLiteral("NewScreenColor")}}));
  EXPECT_FALSE(helper->bPickScreenColor);
}

TEST_F(PortalColorPickerTest, ComponentsAreTruncatedFromTheirDoublesNotFromSixteenBits) {
  // Each just below a channel: 0.999999 x 255 = 254.99974 and
  // 0.50195686 x 255 = 127.999. Rounded to 16 bits first they would reach
  // 255 and 128.
  FakePortal portal(bus.address(), QStringLiteral("0.999999,0.50195686,0.0"), QStringLiteral("0"));
  ASSERT_TRUE(portal.ready());
  connect(bus.address());
  helper->bPickScreenColor = true;
  ASSERT_TRUE(spinUntil([&] { return !recorder.newColors.empty(); }));
  const auto* color = std::any_cast<ColorStruct>(&recorder.newColors[0].object);
  ASSERT_NE(color, nullptr);
  EXPECT_EQ(color->iR, 254);
  EXPECT_EQ(color->iG, 127);
  EXPECT_EQ(color->iB, 0);
  EXPECT_EQ(color->colorHex, QStringLiteral("FE7F00"));
}

struct PortalCase {
  const char* name;
  double component;
  qint64 channel;
};

class PortalChannel : public ::testing::TestWithParam<PortalCase> {};

TEST_P(PortalChannel, IsTheComponentTimes255Truncated) {
  EXPECT_EQ(portal::portalChannel(GetParam().component), GetParam().channel);
}

INSTANTIATE_TEST_SUITE_P(Table, PortalChannel,
                         ::testing::Values(PortalCase{"belowZero", -0.25, 0},
                                           PortalCase{"zero", 0.0, 0}, PortalCase{"half", 0.5, 127},
                                           PortalCase{"justBelow128", 127.999 / 255.0, 127},
                                           PortalCase{"exactly128", 128.0 / 255.0, 128},
                                           PortalCase{"fiveNines", 0.99999, 254},
                                           PortalCase{"sixNines", 0.999999, 254},
                                           PortalCase{"one", 1.0, 255},
                                           PortalCase{"aboveOne", 1.5, 255}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PortalComponent, KeepsTheDoubleItself) {
  EXPECT_EQ(portal::portalComponent(0.999999), 0.999999);
  EXPECT_EQ(portal::portalComponent(127.999 / 255.0), 127.999 / 255.0);
  EXPECT_EQ(portal::portalComponent(2.0), 1.0);
  EXPECT_EQ(portal::portalComponent(-1.0), 0.0);
}

TEST_F(PortalColorPickerTest, NotArmedAsksNothing) {
  FakePortal portal(bus.address(), QStringLiteral("0.1,0.2,0.3"), QStringLiteral("0"));
  ASSERT_TRUE(portal.ready());
  connect(bus.address());
  helper->bPickScreenColor = false;
  spinUntil([] { return false; }, 300);
  EXPECT_EQ(portal.calls(), 0);
  EXPECT_TRUE(recorder.newColors.empty());
}

TEST_F(PortalColorPickerTest, CancelledPickIsAskedAgain) {
  FakePortal portal(bus.address(), QStringLiteral("0.0,0.0,1.0"), QStringLiteral("1,0"));
  ASSERT_TRUE(portal.ready());
  connect(bus.address());
  helper->bPickScreenColor = true;
  ASSERT_TRUE(spinUntil([&] { return !recorder.newColors.empty(); }));
  EXPECT_EQ(portal.calls(), 2);
  EXPECT_EQ(recorder.newColors.size(), 1u);
  EXPECT_EQ(std::any_cast<ColorStruct>(recorder.newColors[0].object).colorHex,
            QStringLiteral("0000FF"));
}

TEST_F(PortalColorPickerTest, WithoutPortalThePickFailsQuietly) {
  connect(bus.address());
  testing::LogCapture log;
  helper->bPickScreenColor = true;
  spinUntil([] { return false; }, 500);
  const std::string out = log.text().toStdString();
  EXPECT_NE(out.find("portal: PickColor failed"), std::string::npos) << out;
  EXPECT_TRUE(recorder.newColors.empty());
  EXPECT_TRUE(recorder.mouseDowns.empty());
}

TEST_F(PortalColorPickerTest, WithoutPortalThePickIsDisarmedAndReportedUnansweredOnce) {
  connect(bus.address());
  testing::LogCapture log;
  helper->bPickScreenColor = true;
  ASSERT_TRUE(spinUntil([&] { return unanswered > 0; }));
  spinUntil([] { return false; }, 300);
  EXPECT_EQ(unanswered, 1);
  EXPECT_FALSE(helper->bPickScreenColor);
  EXPECT_TRUE(recorder.newColors.empty());
  EXPECT_TRUE(recorder.mouseDowns.empty());
  const std::string out = log.text().toStdString();
  EXPECT_NE(out.find("no desktop portal with a Screenshot interface answered"), std::string::npos)
      << out;
  // A click reported now (none can come from the portal) picks nothing.
  helper->mouseDownHandler();
  EXPECT_TRUE(recorder.newColors.empty());
}

TEST_F(PortalColorPickerTest, APortalWhoseScreenshotPredatesPickColorIsNeverAsked) {
  FakePortal portal(bus.address(), QStringLiteral("0.1,0.2,0.3"), QStringLiteral("0"),
                    QStringLiteral("1"));
  ASSERT_TRUE(portal.ready());
  connect(bus.address());
  testing::LogCapture log;
  helper->bPickScreenColor = true;
  ASSERT_TRUE(spinUntil([&] { return unanswered > 0; }));
  EXPECT_EQ(portal.calls(), 0);
  EXPECT_FALSE(helper->bPickScreenColor);
  EXPECT_TRUE(recorder.newColors.empty());
  const std::string out = log.text().toStdString();
  EXPECT_NE(out.find("the Screenshot portal (version 1) has no PickColor"), std::string::npos)
      << out;
}

// A portal that owns its name but never answers (its backend hangs) is
// reported after the check's time-out, not after D-Bus's 25 s.
TEST_F(PortalColorPickerTest, APortalThatNeverAnswersIsReportedUnansweredAfterTheCheckTimeOut) {
  FakePortal portal(bus.address(), QStringLiteral("0.1,0.2,0.3"), QStringLiteral("0"),
                    QStringLiteral("hang"));
  ASSERT_TRUE(portal.ready());
  connect(bus.address());
  EXPECT_EQ(picker->checkTimeoutMs(), 8000);
  picker->setCheckTimeoutMs(600);
  testing::LogCapture log;
  QElapsedTimer clock;
  clock.start();
  helper->bPickScreenColor = true;
  ASSERT_TRUE(spinUntil([&] { return unanswered > 0; }, 20000));
  EXPECT_GE(clock.elapsed(), 550);
  EXPECT_LT(clock.elapsed(), 10000);
  EXPECT_EQ(unanswered, 1);
  EXPECT_EQ(portal.calls(), 0);
  EXPECT_FALSE(helper->bPickScreenColor);
  EXPECT_TRUE(recorder.newColors.empty());
  const std::string out = log.text().toStdString();
  EXPECT_NE(out.find("portal: PickColor failed: the desktop portal did not answer within 600 ms"),
            std::string::npos)
      << out;
}

TEST_F(PortalColorPickerTest, APickThePortalEndsWithAnErrorCodeIsUnansweredWithoutAColour) {
  FakePortal portal(bus.address(), QStringLiteral("0.1,0.2,0.3"), QStringLiteral("2"));
  ASSERT_TRUE(portal.ready());
  connect(bus.address());
  helper->bPickScreenColor = true;
  ASSERT_TRUE(spinUntil([&] { return unanswered > 0; }));
  EXPECT_EQ(portal.calls(), 1);
  EXPECT_FALSE(helper->bPickScreenColor);
  EXPECT_TRUE(recorder.newColors.empty());
  EXPECT_TRUE(recorder.mouseDowns.empty());
}

TEST_F(PortalColorPickerTest, AnAnsweredPickIsNotReportedUnanswered) {
  FakePortal portal(bus.address(), QStringLiteral("0.0,0.0,1.0"), QStringLiteral("0"));
  ASSERT_TRUE(portal.ready());
  connect(bus.address());
  helper->bPickScreenColor = true;
  ASSERT_TRUE(spinUntil([&] { return !recorder.newColors.empty(); }));
  spinUntil([] { return false; }, 200);
  EXPECT_EQ(unanswered, 0);
}

}  // namespace
}  // namespace tw
