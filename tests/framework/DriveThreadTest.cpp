#include "vdl/DriveThread.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "host/framework/DriveThreadHost.h"

namespace corvane::host {
namespace {

DriveThreadHost::Settings settingsOf(uint32_t queueDepth) {
  DriveThreadHost::Settings settings;
  settings.name = "d0";
  settings.queueDepth = queueDepth;
  return settings;
}

TEST(DriveThread, DescribesItsDrive) {
  DriveThreadHost::Settings settings = settingsOf(16);
  settings.blockSize = 4096;
  settings.protectionBytes = 8;
  settings.physicalExponent = 3;
  settings.ostraDevice = 5;
  DriveThreadHost host(settings);
  const vdl::DriveThread& thread = host.thread();
  EXPECT_EQ(thread.name, "d0");
  EXPECT_EQ(thread.blockSize, 4096U);
  EXPECT_EQ(thread.protectionBytes, 8U);
  EXPECT_FALSE(thread.protectionEnabled);
  EXPECT_EQ(thread.physicalExponent, 3U);
  EXPECT_EQ(thread.ostraDevice, 5);
  EXPECT_EQ(thread.queueDepth, 16U);
  EXPECT_EQ(thread.conditions, 0U);
  EXPECT_GT(thread.timestampUs, 1'600'000'000'000'000U);
  EXPECT_NE(thread.eventLog, nullptr);
  EXPECT_EQ(thread.freeTags->peekNextFreeTag(), 0U);
}

TEST(DriveThread, ProtectionBytesCountOnlyWhenEnabled) {
  DriveThreadHost::Settings settings = settingsOf(1);
  settings.protectionBytes = 8;
  EXPECT_EQ(DriveThreadHost(settings).sectorBytes(), 512U);
  settings.protectionEnabled = true;
  EXPECT_EQ(DriveThreadHost(settings).sectorBytes(), 520U);
}

TEST(DriveThread, RefusesADriveThatCannotBe) {
  EXPECT_THROW(DriveThreadHost(settingsOf(0)), std::invalid_argument);
  EXPECT_THROW(DriveThreadHost(settingsOf(1025)), std::invalid_argument);
  DriveThreadHost::Settings settings = settingsOf(1);
  settings.blockSize = 0;
  EXPECT_THROW(DriveThreadHost{settings}, std::invalid_argument);
}

TEST(DriveThread, MapsAreTheHostsVariables) {
  DriveThreadHost host(settingsOf(4));
  int err = 0;
  const uint32_t* mapped = host.thread().mapU32("A", 1, &err, 5);
  EXPECT_EQ(mapped, &host.variables().u32("A"));
  EXPECT_EQ(host.variables().u32("A"), 5U);
  EXPECT_EQ(host.thread().mapU64("B", 3, &err, 6), &host.variables().u64("B"));
  EXPECT_EQ(host.thread().mapBool("C", 2, &err, true), &host.variables().flag("C"));
  EXPECT_EQ(host.thread().mapBuffer("D", 5, &err), &host.variables().buffer("D"));
  EXPECT_EQ(host.thread().mapTaggedBuffer("E", 1, &err), &host.variables().tagged("E").platform());
  EXPECT_EQ(host.thread().mapLBARangeQueue("F", 1, &err), &host.variables().ranges("F"));
  EXPECT_EQ(err, 0);
}

TEST(DriveThread, AMapOfAnotherKindStoresAStatusAndAGoodOneLeavesIt) {
  DriveThreadHost host(settingsOf(4));
  int err = 0;
  host.thread().mapU32("A", 1, &err, 5);
  EXPECT_EQ(host.thread().mapU64("A", 1, &err, 5), nullptr);
  EXPECT_LT(err, 0);
  const int kept = err;
  EXPECT_NE(host.thread().mapU32("B", 1, &err, 5), nullptr);
  EXPECT_EQ(err, kept);
}

TEST(DriveThread, KeepsTheAgentsRecordAndCountsWriters) {
  DriveThreadHost host(settingsOf(4));
  EXPECT_EQ(host.driveData(), nullptr);
  int record = 0;
  EXPECT_EQ(host.thread().registerDriveData(&record), 0);
  EXPECT_EQ(host.driveData(), &record);
  EXPECT_EQ(host.thread().countVarWriters("CSZoneReset"), 0U);
  host.variables().setWriters("CSZoneReset", 1);
  EXPECT_EQ(host.thread().countVarWriters("CSZoneReset"), 1U);
}

}  // namespace
}  // namespace corvane::host
