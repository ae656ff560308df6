#include "host/framework/DriveThreadHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <stdexcept>
#include <string>

namespace corvane::host {
namespace {

using testing::HasSubstr;

constexpr size_t kinds = 6;

/// Maps a name as each of the kinds in turn; true when the map succeeded.
const std::array<std::function<bool(vdl::DriveThread&, const char*, int*)>, kinds>& maps() {
  static const std::array<std::function<bool(vdl::DriveThread&, const char*, int*)>, kinds> all{
      [](vdl::DriveThread& d, const char* name, int* err) { return d.mapU32(name, 3, err, 0) != nullptr; },
      [](vdl::DriveThread& d, const char* name, int* err) { return d.mapU64(name, 3, err, 0) != nullptr; },
      [](vdl::DriveThread& d, const char* name, int* err) { return d.mapBool(name, 3, err, false) != nullptr; },
      [](vdl::DriveThread& d, const char* name, int* err) { return d.mapBuffer(name, 3, err) != nullptr; },
      [](vdl::DriveThread& d, const char* name, int* err) { return d.mapTaggedBuffer(name, 3, err) != nullptr; },
      [](vdl::DriveThread& d, const char* name, int* err) { return d.mapLBARangeQueue(name, 3, err) != nullptr; }};
  return all;
}

std::string complaintAbout(DriveThreadHost::Settings settings) {
  try {
    const DriveThreadHost host(std::move(settings));
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "accepted";
}

TEST(DriveThreadHost, ANameHasOneKindForEveryPairOfKinds) {
  for (size_t first = 0; first < kinds; ++first) {
    for (size_t second = 0; second < kinds; ++second) {
      DriveThreadHost host(DriveThreadHost::Settings{});
      int err = 0;
      ASSERT_TRUE(maps()[first](host.thread(), "Name", &err));
      EXPECT_EQ(maps()[second](host.thread(), "Name", &err), first == second) << first << " then " << second;
      EXPECT_EQ(err < 0, first != second) << first << " then " << second;
    }
  }
}

TEST(DriveThreadHost, AMapOfAnotherKindLeavesTheVariableAlone) {
  DriveThreadHost host(DriveThreadHost::Settings{});
  int err = 0;
  uint32_t* value = host.thread().mapU32("Name", 2, &err, 5);
  EXPECT_EQ(host.thread().mapU64("Name", 2, &err, 6), nullptr);
  EXPECT_EQ(host.thread().mapU32("Name", 2, &err, 7), value);
  EXPECT_EQ(*value, 5U);
}

TEST(DriveThreadHost, TheAccessModeRestrictsNothing) {
  DriveThreadHost host(DriveThreadHost::Settings{});
  int err = 0;
  uint32_t* value = host.thread().mapU32("Name", 1, &err, 5);
  for (const uint32_t mode : {2U, 3U, 5U}) {
    EXPECT_EQ(host.thread().mapU32("Name", mode, &err, 0), value) << mode;
  }
  EXPECT_EQ(err, 0);
}

TEST(DriveThreadHost, DefaultsOfBothSidesApplyToWhoeverComesFirst) {
  DriveThreadHost host(DriveThreadHost::Settings{});
  int err = 0;
  host.variables().u64("Host first", 1);
  EXPECT_EQ(*host.thread().mapU64("Host first", 1, &err, 2), 1U);
  EXPECT_TRUE(*host.thread().mapBool("Agent first", 1, &err, true));
  EXPECT_TRUE(host.variables().flag("Agent first", false));
}

TEST(DriveThreadHost, DrivesShareNoVariables) {
  DriveThreadHost first(DriveThreadHost::Settings{});
  DriveThreadHost second(DriveThreadHost::Settings{});
  first.variables().u32("Name") = 1;
  first.variables().setWriters("Name", 2);
  EXPECT_EQ(second.variables().u32("Name"), 0U);
  EXPECT_EQ(second.thread().countVarWriters("Name"), 0U);
}

TEST(DriveThreadHost, CountsDeclaredWritersAndNotMaps) {
  DriveThreadHost host(DriveThreadHost::Settings{});
  int err = 0;
  host.thread().mapU32("Name", 2, &err, 0);
  EXPECT_EQ(host.thread().countVarWriters("Name"), 0U);
  host.variables().setWriters("Name", 3);
  host.variables().setWriters("Name", 1);
  EXPECT_EQ(host.thread().countVarWriters("Name"), 1U);
}

TEST(DriveThreadHost, ThreadAndHostSeeTheSameTags) {
  DriveThreadHost::Settings settings;
  settings.queueDepth = 2;
  DriveThreadHost host(settings);
  EXPECT_EQ(host.thread().freeTags, &host.tags().platform());
  EXPECT_EQ(host.tags().size(), 2U);
  host.tags().take();
  EXPECT_EQ(host.thread().freeTags->peekNextFreeTag(), 1U);
}

TEST(DriveThreadHost, TakesTheLimitsOfTheQueueDepth) {
  for (const uint32_t depth : {1U, 1024U}) {
    DriveThreadHost::Settings settings;
    settings.queueDepth = depth;
    DriveThreadHost host(settings);
    EXPECT_EQ(host.thread().queueDepth, depth);
    EXPECT_EQ(host.tags().size(), depth);
  }
}

TEST(DriveThreadHost, ComplaintsNameWhatIsWrong) {
  DriveThreadHost::Settings deep;
  deep.queueDepth = 1025;
  EXPECT_THAT(complaintAbout(deep), HasSubstr("1025"));
  DriveThreadHost::Settings empty;
  empty.name = "left disk";
  empty.blockSize = 0;
  EXPECT_THAT(complaintAbout(empty), HasSubstr("left disk"));
}

TEST(DriveThreadHost, TheLastRegisteredRecordIsTheAgents) {
  DriveThreadHost host(DriveThreadHost::Settings{});
  int first = 0;
  int second = 0;
  ASSERT_EQ(host.thread().registerDriveData(&first), 0);
  ASSERT_EQ(host.thread().registerDriveData(&second), 0);
  EXPECT_EQ(host.driveData(), &second);
}

}  // namespace
}  // namespace corvane::host
