#include <gtest/gtest.h>

#include <QThread>

#include "telemetry/API_Logger.h"
#include "tests/support/LogCapture.h"

namespace tw {
namespace {

class CountingTest : public ::testing::Test {
 protected:
  void SetUp() override { logger.startLogging(); }
  ColorRecord::Fields record() const { return logger.colorRecord()->read(); }
  API_Logger logger;
};

TEST_F(CountingTest, FirstColourIsNeitherCountedNorListed) {
  logger.countColor(250, 250, 250);
  EXPECT_FALSE(logger.bFirstColor);
  EXPECT_EQ(record().counter_device, 0);
  EXPECT_EQ(record().counter_screen, 0);
  EXPECT_EQ(record().colors_device, "");
}

TEST_F(CountingTest, FirstColourFromAScreenPickIsNotCountedEither) {
  logger.bPickScreenColor = true;
  logger.countColor(1, 2, 3);
  EXPECT_FALSE(logger.bFirstColor);
  EXPECT_EQ(record().counter_screen, 0);
  EXPECT_EQ(record().colors_screen, "");
}

TEST_F(CountingTest, PenColoursGrowTheDeviceListAndCloseIntoBrackets) {
  logger.countColor(250, 250, 250);
  logger.countColor(255, 0, 16);
  logger.countColor(1, 2, 3);
  EXPECT_EQ(record().colors_device, ",#FF0010,#010203");
  EXPECT_EQ(record().counter_device, 2);
  logger.closeColorLists();
  EXPECT_EQ(record().colors_device, "[#FF0010,#010203]");
}

TEST_F(CountingTest, NoScreenColoursCloseToEmptyBrackets) {
  logger.countColor(250, 250, 250);
  logger.countColor(255, 0, 16);
  logger.closeColorLists();
  EXPECT_EQ(record().colors_screen, "[]");
}

TEST_F(CountingTest, AScreenPickCountsOnceThenPenColoursCountAsPen) {
  logger.countColor(250, 250, 250);
  logger.bPickScreenColor = true;
  logger.countColor(10, 20, 30);
  EXPECT_FALSE(logger.bPickScreenColor);
  logger.countColor(40, 50, 60);
  EXPECT_EQ(record().colors_screen, ",#0A141E");
  EXPECT_EQ(record().counter_screen, 1);
  EXPECT_EQ(record().colors_device, ",#28323C");
  EXPECT_EQ(record().counter_device, 1);
}

TEST_F(CountingTest, AFailedSendLeavesAClosedListThatGrowsWithoutNewBrackets) {
  logger.countColor(250, 250, 250);
  logger.countColor(255, 0, 16);
  logger.countColor(1, 2, 3);
  logger.closeColorLists();  // the send then fails: nothing is reset
  logger.countColor(10, 11, 12);
  logger.closeColorLists();
  EXPECT_EQ(record().colors_device, "[#FF0010,#010203],#0A0B0C");
  EXPECT_EQ(record().counter_device, 3);
}

TEST_F(CountingTest, NewColourRecordKeepsVenderAppVersionAndStartsAfresh) {
  logger.colorRecord()->update([](ColorRecord::Fields& f) {
    f.vender = "Vandu";
    f.app = "TW+V";
    f.version = "1.0.0";
    f.session_begin = "2000/01/01 00:00:00";
    f.session_end = "2000/01/01 00:10:00";
    f.session_full = true;
  });
  logger.countColor(250, 250, 250);
  logger.countColor(255, 0, 16);
  logger.bPickScreenColor = true;
  logger.countColor(1, 1, 1);
  const auto before = logger.colorRecord();
  logger.startNewColorRecord();
  ASSERT_NE(logger.colorRecord(), before);
  const auto f = record();
  EXPECT_EQ(f.vender, "Vandu");
  EXPECT_EQ(f.app, "TW+V");
  EXPECT_EQ(f.version, "1.0.0");
  EXPECT_EQ(f.counter_device, 0);
  EXPECT_EQ(f.counter_screen, 0);
  EXPECT_EQ(f.colors_device, "");
  EXPECT_EQ(f.colors_screen, "");
  EXPECT_EQ(f.session_end, "");
  EXPECT_FALSE(f.session_full);
  EXPECT_FALSE(f.debug);
  EXPECT_NE(f.session_begin, "2000/01/01 00:00:00");
  EXPECT_FALSE(f.session_begin.isEmpty());
}

TEST_F(CountingTest, CountingPrintsTheScreenListWhicheverListGrew) {
  logger.countColor(250, 250, 250);
  logger.bPickScreenColor = true;
  testing::LogCapture log;
  logger.countColor(10, 20, 30);
  logger.countColor(40, 50, 60);
  EXPECT_EQ(log.text(), ",#0A141E\n,#0A141E\n");
}

TEST_F(CountingTest, ColoursCountedFromTwoThreadsAreAllKept) {
  logger.countColor(250, 250, 250);
  auto quiet = std::make_unique<testing::LogCapture>();
  QThread* other = QThread::create([&] {
    for (int i = 0; i < 500; ++i) logger.countColor(1, 2, 3);
  });
  other->start();
  for (int i = 0; i < 500; ++i) logger.countColor(4, 5, 6);
  other->wait();
  delete other;
  quiet.reset();
  EXPECT_EQ(record().counter_device, 1000);
  EXPECT_EQ(record().colors_device.size(), 1000 * 8);
}

TEST(CountingDeathTest, CountingWithoutARecordStopsTheProcess) {
  API_Logger logger;
  logger.bFirstColor = false;
  EXPECT_DEATH(logger.countColor(1, 2, 3), "colour usage record is missing");
}

TEST(CountingStart, StartLoggingStampsTheSessionBegin) {
  API_Logger logger;
  EXPECT_EQ(logger.colorRecord(), nullptr);
  logger.startLogging();
  ASSERT_NE(logger.colorRecord(), nullptr);
  ASSERT_NE(logger.applicationRecord(), nullptr);
  EXPECT_EQ(logger.colorRecord()->read().session_begin.size(), 19);
}

}  // namespace
}  // namespace tw
