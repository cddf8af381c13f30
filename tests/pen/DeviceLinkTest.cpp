// This central's link to one device, apart from BlueZ's own Connected.
#include "pen/bluez/DeviceLink.h"

#include <gtest/gtest.h>

namespace tw::pen::bluez {
namespace {

using Report = DeviceLink::Report;

TEST(DeviceLink, ASystemConnectionWithoutARequestIsNotALinkConnection) {
  DeviceLink link;
  EXPECT_EQ(link.connectedChanged(true), Report::None);
  EXPECT_EQ(link.peripheralState(), Peripheral::kDisconnected);
  EXPECT_EQ(link.connectedChanged(false), Report::None);
}

TEST(DeviceLink, ARequestIsConnectingAndItsConnectedChangeIsReportedOnce) {
  DeviceLink link;
  link.connectRequested();
  EXPECT_EQ(link.peripheralState(), Peripheral::kConnecting);
  EXPECT_EQ(link.connectedChanged(true), Report::Connected);
  EXPECT_EQ(link.peripheralState(), Peripheral::kConnected);
  EXPECT_EQ(link.connectedChanged(true), Report::None);
  // The answer that follows the change reports nothing more.
  EXPECT_FALSE(link.connectAnswered(true, true));
  EXPECT_EQ(link.peripheralState(), Peripheral::kConnected);
}

TEST(DeviceLink, ASuccessfulAnswerOnADeviceConnectedAlreadyConnects) {
  DeviceLink link;
  link.connectRequested();
  EXPECT_TRUE(link.connectAnswered(true, true));
  EXPECT_EQ(link.peripheralState(), Peripheral::kConnected);
}

TEST(DeviceLink, AFailedOrUnconfirmedAnswerLeavesTheLinkDown) {
  DeviceLink link;
  link.connectRequested();
  EXPECT_FALSE(link.connectAnswered(false, true));
  EXPECT_EQ(link.peripheralState(), Peripheral::kDisconnected);
  link.connectRequested();
  EXPECT_FALSE(link.connectAnswered(true, false));
  EXPECT_EQ(link.peripheralState(), Peripheral::kDisconnected);
  // More answers than requests never count below zero.
  EXPECT_FALSE(link.connectAnswered(false, false));
  link.connectRequested();
  EXPECT_EQ(link.peripheralState(), Peripheral::kConnecting);
}

TEST(DeviceLink, TwoRequestsStayConnectingUntilBothAreAnswered) {
  DeviceLink link;
  link.connectRequested();
  link.connectRequested();
  EXPECT_FALSE(link.connectAnswered(false, false));
  EXPECT_EQ(link.peripheralState(), Peripheral::kConnecting);
  EXPECT_EQ(link.connectedChanged(true), Report::Connected);
}

TEST(DeviceLink, ADisconnectionIsReportedOnlyForAReportedConnection) {
  DeviceLink link;
  link.connectRequested();
  EXPECT_EQ(link.connectedChanged(false), Report::None);
  EXPECT_EQ(link.connectedChanged(true), Report::Connected);
  EXPECT_EQ(link.connectedChanged(false), Report::Disconnected);
  // The request is still out (BlueZ has not answered it): connecting again.
  EXPECT_EQ(link.peripheralState(), Peripheral::kConnecting);
  EXPECT_FALSE(link.connectAnswered(false, false));
  EXPECT_EQ(link.peripheralState(), Peripheral::kDisconnected);
  EXPECT_EQ(link.connectedChanged(false), Report::None);
  EXPECT_FALSE(link.drop());
}

TEST(DeviceLink, ServicesAreDueOnlyWhileConnectedAndADropForgetsTheWish) {
  DeviceLink link;
  link.wantServices();
  EXPECT_FALSE(link.servicesWanted());
  link.connectRequested();
  link.connectedChanged(true);
  EXPECT_TRUE(link.servicesWanted());
  link.batteryWaitOver();
  EXPECT_FALSE(link.mayWaitForBattery());
  EXPECT_TRUE(link.drop());
  EXPECT_FALSE(link.servicesWanted());
  EXPECT_TRUE(link.mayWaitForBattery());
  link.connectRequested();
  link.connectedChanged(true);
  EXPECT_FALSE(link.servicesWanted());
}

TEST(DeviceLink, FoundServicesAreKeptAndEndTheWish) {
  DeviceLink link;
  EXPECT_FALSE(link.services().has_value());
  link.connectRequested();
  link.connectedChanged(true);
  link.wantServices();
  link.servicesFound({});
  EXPECT_FALSE(link.servicesWanted());
  ASSERT_TRUE(link.services().has_value());
  EXPECT_TRUE(link.services()->isEmpty());
}

}  // namespace
}  // namespace tw::pen::bluez
