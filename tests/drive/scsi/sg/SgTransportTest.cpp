// Over a unit of the kernel's scsi_debug, which is named by CORVANE_TEST_SG and whose errors are switched on and off.

#include "host/drive/scsi/sg/SgTransport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <thread>

#include "host/base/BigEndian.h"
#include "host/drive/DriveError.h"
#include "tests/drive/CommandMaker.h"

namespace corvane::host {
namespace {

using testing::HasSubstr;
using Data = ScsiRequest::Data;

constexpr uint32_t sectorBytes = 512;

std::string devicePath() {
  const char* path = std::getenv("CORVANE_TEST_SG");
  if (path == nullptr) {
    throw std::runtime_error("CORVANE_TEST_SG names no device of scsi_debug, such as /dev/sg0");
  }
  return path;
}

/// A setting of scsi_debug, for the life of the object.
class Setting {
 public:
  Setting(const std::string& name, const std::string& value)
      : path_("/sys/bus/pseudo/drivers/scsi_debug/" + name), before_(read()) {
    write(value);
  }
  ~Setting() { write(before_); }
  Setting(const Setting&) = delete;
  Setting& operator=(const Setting&) = delete;

 private:
  std::string read() const {
    std::ifstream file(path_);
    std::string value;
    file >> value;
    return value;
  }
  void write(const std::string& value) const {
    std::ofstream file(path_);
    file << value << std::flush;
    EXPECT_TRUE(file.good()) << path_ << " does not take " << value;
  }

  std::string path_;
  std::string before_;
};

class SgTransportTest : public testing::Test {
 protected:
  explicit SgTransportTest(uint32_t timeoutSeconds = 30)
      : transport({.path = devicePath(), .timeoutSeconds = timeoutSeconds}, 100) {
    settle(transport);
  }

  static ScsiRequest request(uint8_t operation, uint32_t lba, uint16_t blocks, Data direction, Bytes* data) {
    ScsiRequest made;
    made.cdbBytes = 10;
    made.cdb[0] = operation;
    putBigEndian(&made.cdb[2], lba);
    putBigEndian(&made.cdb[7], blocks);
    made.direction = direction;
    if (data != nullptr) {
      made.data = data->data();
      made.bytes = data->size();
    }
    return made;
  }
  static ScsiRequest write(uint32_t lba, Bytes& data) {
    return request(0x2A, lba, static_cast<uint16_t>(data.size() / sectorBytes), Data::toUnit, &data);
  }
  static ScsiRequest read(uint32_t lba, Bytes& data) {
    return request(0x28, lba, static_cast<uint16_t>(data.size() / sectorBytes), Data::fromUnit, &data);
  }

  static ScsiReply run(ScsiTransport& way, const ScsiRequest& sent) {
    way.submit(sent);
    ScsiReply reply;
    EXPECT_TRUE(way.poll(reply, true));
    return reply;
  }
  ScsiReply run(const ScsiRequest& sent) { return run(transport, sent); }

  /// Until no unit attention is left.
  static void settle(ScsiTransport& way) {
    ScsiRequest testUnitReady;
    testUnitReady.cdbBytes = 6;
    for (int i = 0; i < 8 && run(way, testUnitReady).status != scsi_status::good; ++i) {
    }
    EXPECT_EQ(run(way, testUnitReady).status, scsi_status::good);
  }

  SgTransport transport;
};

TEST_F(SgTransportTest, SaysHowTheUnitIsReached) {
  EXPECT_THAT(transport.description(), HasSubstr("SCSI generic " + devicePath() + " at "));
  EXPECT_GE(transport.mostBytes(), 65536U);
  EXPECT_EQ(transport.mostRequests(), 100U);
}

TEST_F(SgTransportTest, ReturnsWhatWasWritten) {
  Bytes data = randomBytes(1, 8 * sectorBytes);
  EXPECT_EQ(run(write(100, data)).status, scsi_status::good);
  Bytes found(data.size());
  const ScsiReply reply = run(read(100, found));
  EXPECT_EQ(reply.status, scsi_status::good);
  EXPECT_EQ(reply.bytesMoved, data.size());
  EXPECT_EQ(found, data);
}

TEST_F(SgTransportTest, CarriesAsMuchAtOnceAsItSays) {
  Bytes data = randomBytes(2, transport.mostBytes());
  EXPECT_EQ(run(write(0, data)).status, scsi_status::good);
  Bytes found(data.size());
  EXPECT_EQ(run(read(0, found)).status, scsi_status::good);
  EXPECT_EQ(found, data);
}

TEST_F(SgTransportTest, SaysHowLittleAnAnswerBrought) {
  ScsiRequest inquiry;
  Bytes data(200);
  inquiry.cdbBytes = 6;
  inquiry.cdb[0] = 0x12;
  inquiry.cdb[4] = static_cast<uint8_t>(data.size());
  inquiry.direction = Data::fromUnit;
  inquiry.data = data.data();
  inquiry.bytes = data.size();
  const ScsiReply reply = run(inquiry);
  EXPECT_EQ(reply.status, scsi_status::good);
  EXPECT_EQ(reply.bytesMoved, uint64_t{data[4]} + 5);
  EXPECT_LT(reply.bytesMoved, data.size());
}

TEST_F(SgTransportTest, CarriesMoreRequestsThanOneOpeningOfTheDeviceTakes) {
  // One after the other they would take 40 seconds.
  const auto begin = std::chrono::steady_clock::now();
  std::vector<Bytes> data;
  for (uint32_t i = 0; i < transport.mostRequests(); ++i) {
    data.push_back(randomBytes(100 + i, sectorBytes));
  }
  std::set<uint32_t> slots;
  {
    const Setting slow("delay", "100");
    for (uint32_t i = 0; i < transport.mostRequests(); ++i) {
      ScsiRequest sent = write(2 * i, data[i]);
      sent.slot = i;
      transport.submit(sent);
    }
    ScsiReply reply;
    while (transport.poll(reply, true)) {
      EXPECT_EQ(reply.status, scsi_status::good);
      EXPECT_TRUE(slots.insert(reply.slot).second);
    }
  }
  EXPECT_EQ(slots.size(), transport.mostRequests());
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
  for (uint32_t i = 0; i < transport.mostRequests(); ++i) {
    Bytes found(sectorBytes);
    EXPECT_EQ(run(read(2 * i, found)).status, scsi_status::good);
    EXPECT_EQ(found, data[i]) << "request " << i;
  }
}

TEST_F(SgTransportTest, WithNothingOutstandingThereIsNothingToWaitFor) {
  ScsiReply reply;
  EXPECT_FALSE(transport.poll(reply, false));
  EXPECT_FALSE(transport.poll(reply, true));
}

TEST_F(SgTransportTest, OneCanSleepUntilAnAnswerComes) {
  const Setting slow("delay", "40");
  Bytes data(sectorBytes);
  ScsiReply reply;
  EXPECT_FALSE(transport.waitUpTo(60'000'000));
  transport.submit(read(0, data));
  const auto began = std::chrono::steady_clock::now();
  EXPECT_TRUE(transport.waitUpTo(5'000));
  EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(5));
  EXPECT_FALSE(transport.poll(reply, false));
  uint32_t sleeps = 0;
  while (!transport.poll(reply, false)) {
    EXPECT_TRUE(transport.waitUpTo(60'000'000));
    ++sleeps;
  }
  EXPECT_EQ(sleeps, 1U);
  EXPECT_EQ(reply.status, scsi_status::good);
}

TEST_F(SgTransportTest, AMediumErrorComesWithItsSenseData) {
  constexpr uint32_t badLba = 0x1234;  // where scsi_debug has its bad blocks
  const Setting bad("opts", "2");
  Bytes data(4 * sectorBytes);
  const ScsiReply reply = run(read(badLba, data));
  EXPECT_EQ(reply.status, scsi_status::checkCondition);
  ASSERT_GE(reply.senseBytes, 18U);
  EXPECT_EQ(reply.sense[0], 0xF0);
  EXPECT_EQ(reply.sense[2] & 0x0F, sense_key::mediumError);
  EXPECT_EQ(reply.sense[12], 0x11);
  std::array<uint8_t, 4> information{};
  putBigEndian(information.data(), badLba);
  EXPECT_TRUE(std::equal(information.begin(), information.end(), &reply.sense[3]));
}

TEST_F(SgTransportTest, AnIllegalRequestIsTheUnitsAnswer) {
  Bytes data(sectorBytes);
  const ScsiReply reply = run(read(0xFFFFFFF0, data));
  EXPECT_EQ(reply.status, scsi_status::checkCondition);
  EXPECT_EQ(reply.sense[2] & 0x0F, sense_key::illegalRequest);
  EXPECT_EQ(reply.sense[12], 0x21);
}

TEST_F(SgTransportTest, AResetLeavesNothingOutstanding) {
  const Setting slow("delay", "40");
  std::vector<Bytes> data(20, Bytes(sectorBytes, 0x5A));
  for (uint32_t i = 0; i < data.size(); ++i) {
    transport.submit(write(300 + i, data[i]));
  }
  transport.resetUnit();
  ScsiReply reply;
  EXPECT_FALSE(transport.poll(reply, true));
  Bytes found(sectorBytes);
  const ScsiReply attention = run(read(300, found));
  EXPECT_EQ(attention.status, scsi_status::checkCondition);
  EXPECT_EQ(attention.sense[2] & 0x0F, 0x6) << "a unit attention tells of the reset";
  settle(transport);
  EXPECT_EQ(run(read(300, found)).status, scsi_status::good);
}

class SgTransportTimeoutTest : public SgTransportTest {
 protected:
  SgTransportTimeoutTest() : SgTransportTest(1) {}
};

TEST_F(SgTransportTimeoutTest, AWriteThatIsNotAnsweredIsAbortedAndAReadBusy) {
  Bytes data(sectorBytes);
  std::map<uint32_t, uint32_t> statuses;
  {
    // In this order: the first of each count of two is not answered.
    const Setting deaf("opts", "4");
    const Setting every("every_nth", "1");
    ScsiRequest sent = write(10, data);
    sent.slot = 1;
    transport.submit(sent);
    sent = read(10, data);
    sent.slot = 2;
    transport.submit(sent);
    ScsiReply reply;
    while (transport.poll(reply, true)) {
      statuses[reply.slot] = reply.status;
    }
  }
  EXPECT_EQ(statuses, (std::map<uint32_t, uint32_t>{{1, scsi_status::aborted}, {2, scsi_status::busy}}));
  settle(transport);
}

/// Paths of all SCSI generic devices.
std::set<std::string> genericDevices() {
  std::set<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator("/sys/class/scsi_generic")) {
    paths.insert("/dev/" + entry.path().filename().string());
  }
  return paths;
}

TEST(SgTransportLostTest, AUnitThatWasTakenAwayIsLostAndCannotBeReset) {
  const std::set<std::string> before = genericDevices();
  std::ofstream("/sys/bus/pseudo/drivers/scsi_debug/add_host") << "1" << std::flush;
  std::set<std::string> added;
  // The kernel looks for units when it likes to.
  for (int tries = 0; added.empty() && tries < 200; ++tries) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    added = genericDevices();
    for (const std::string& path : before) {
      added.erase(path);
    }
  }
  ASSERT_EQ(added.size(), 1U);
  const std::string path = *added.begin();
  SgTransport transport({.path = path, .timeoutSeconds = 5}, 4);
  std::ofstream("/sys/bus/pseudo/drivers/scsi_debug/add_host") << "-1" << std::flush;

  ScsiRequest testUnitReady;
  testUnitReady.cdbBytes = 6;
  EXPECT_THROW(
      {
        transport.submit(testUnitReady);
        ScsiReply reply;
        transport.poll(reply, true);
      },
      DriveConnectionLost);
  EXPECT_THROW(transport.submit(testUnitReady), DriveConnectionLost);
  ScsiReply reply;
  EXPECT_FALSE(transport.poll(reply, true));
  try {
    transport.resetUnit();
    FAIL() << "it was reset";
  } catch (const DriveError& error) {
    EXPECT_THAT(error.what(), HasSubstr("SCSI device '" + path + "' is gone"));
  }
}

}  // namespace
}  // namespace corvane::host
