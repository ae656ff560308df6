#include "host/drive/scsi/iscsi/IscsiTransport.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

#include "host/drive/DriveError.h"
#include "tests/drive/CommandMaker.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TgtTarget.h"

namespace corvane::host {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using tests::TgtTarget;
using Clock = std::chrono::steady_clock;

constexpr uint64_t fileBytes = uint64_t{32} << 20;
constexpr uint8_t read16 = 0x88;
constexpr uint8_t write16 = 0x8A;

ScsiRequest bare(uint8_t code, uint32_t cdbBytes) {
  ScsiRequest request;
  request.cdb[0] = code;
  request.cdbBytes = cdbBytes;
  return request;
}

ScsiRequest transfer(uint8_t code, uint32_t slot, uint64_t lba, uint32_t blocks, Bytes& data) {
  ScsiRequest request = bare(code, 16);
  request.slot = slot;
  for (uint32_t i = 0; i < 8; ++i) {
    request.cdb[2 + i] = static_cast<uint8_t>(lba >> (56 - 8 * i));
  }
  for (uint32_t i = 0; i < 4; ++i) {
    request.cdb[10 + i] = static_cast<uint8_t>(blocks >> (24 - 8 * i));
  }
  request.direction = code == read16 ? ScsiRequest::Data::fromUnit : ScsiRequest::Data::toUnit;
  request.data = data.data();
  request.bytes = data.size();
  return request;
}

class IscsiTransportTest : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = TgtTarget::missing(); !missing.empty()) {
      GTEST_SKIP() << missing;
    }
    std::ofstream(file()).close();
    std::filesystem::resize_file(file(), fileBytes);
  }

  std::string file() const { return folder_ / "unit.img"; }

  void startTarget(tests::TgtUnit unit = {}, const std::string& user = "", const std::string& password = "") {
    unit.file = file();
    target_.emplace(std::vector{unit}, user, password);
  }

  IscsiSettings settings(const std::string& address) const {
    IscsiSettings settings;
    settings.url = parseIscsiUrl(DriveAddress(address));
    return settings;
  }
  IscsiSettings settings() const { return settings(target_->address()); }

  void open(const IscsiSettings& settings) { transport_ = std::make_unique<IscsiTransport>(settings); }

  std::string refusal(const IscsiSettings& settings) {
    try {
      open(settings);
    } catch (const DriveError& error) {
      return error.what();
    }
    return "opened";
  }

  ScsiReply run(const ScsiRequest& request) {
    transport_->submit(request);
    ScsiReply reply;
    EXPECT_TRUE(transport_->poll(reply, true));
    return reply;
  }

  /// As `run`, after whatever the unit has to say about its past.
  ScsiReply runAfterAttentions(const ScsiRequest& request) {
    ScsiReply reply = run(request);
    for (int i = 0; i < 4 && reply.status == scsi_status::checkCondition && (reply.sense[2] & 0xF) == 6; ++i) {
      reply = run(request);
    }
    return reply;
  }

  void submitWrites(uint32_t count, std::vector<Bytes>& data) {
    for (uint32_t i = 0; i < count; ++i) {
      data.push_back(randomBytes(i + 1, 8192));
    }
    for (uint32_t i = 0; i < count; ++i) {
      transport_->submit(transfer(write16, i, uint64_t{i} * 16, 16, data[i]));
    }
  }

  /// Polls until the connection is lost. The replies that came before.
  uint32_t repliesUntilLost(Clock::duration most) {
    uint32_t replies = 0;
    const Clock::time_point end = Clock::now() + most;
    try {
      while (Clock::now() < end) {
        ScsiReply reply;
        replies += transport_->poll(reply, false) ? 1U : 0U;
      }
    } catch (const DriveConnectionLost&) {
      return replies;
    }
    ADD_FAILURE() << "the connection stands";
    return replies;
  }

  tests::TempFolder folder_;
  std::optional<TgtTarget> target_;
  std::unique_ptr<IscsiTransport> transport_;
};

TEST_F(IscsiTransportTest, AnswersToInquiryAndReadCapacity) {
  for (const uint32_t blockSize : {512U, 4096U}) {
    startTarget({.file = file(), .blockSize = blockSize});
    open(settings());
    EXPECT_THAT(transport_->description(), AllOf(HasSubstr("127.0.0.1:"), HasSubstr(target_->name() + " LUN 1")));
    Bytes data(96);
    ScsiRequest inquiry = bare(0x12, 6);
    inquiry.cdb[4] = 96;
    inquiry.direction = ScsiRequest::Data::fromUnit;
    inquiry.data = data.data();
    inquiry.bytes = data.size();
    const ScsiReply identity = run(inquiry);
    EXPECT_EQ(identity.status, scsi_status::good);
    EXPECT_EQ(data[0], 0) << "a disk";
    EXPECT_GE(identity.bytesMoved, 36U);
    EXPECT_LE(identity.bytesMoved, 96U);

    Bytes capacity(32);
    ScsiRequest readCapacity = bare(0x9E, 16);
    readCapacity.cdb[1] = 0x10;
    readCapacity.cdb[13] = 32;
    readCapacity.direction = ScsiRequest::Data::fromUnit;
    readCapacity.data = capacity.data();
    readCapacity.bytes = capacity.size();
    EXPECT_EQ(runAfterAttentions(readCapacity).status, scsi_status::good);
    const uint64_t last =
        (uint64_t{capacity[4]} << 24) + (uint64_t{capacity[5]} << 16) + (uint64_t{capacity[6]} << 8) + capacity[7];
    EXPECT_EQ(last, fileBytes / blockSize - 1);
    EXPECT_EQ(capacity[10] << 8 | capacity[11], static_cast<int>(blockSize));
  }
}

TEST_F(IscsiTransportTest, WritesReachTheFileAndReadsBringThem) {
  startTarget();
  open(settings());
  runAfterAttentions(bare(0, 6));
  Bytes data = randomBytes(1, 4096);
  const ScsiReply written = run(transfer(write16, 9, 100, 8, data));
  EXPECT_EQ(written.status, scsi_status::good);
  EXPECT_EQ(written.slot, 9U);
  Bytes found(4096);
  const ScsiReply read = run(transfer(read16, 2, 100, 8, found));
  EXPECT_EQ(read.bytesMoved, 4096U);
  EXPECT_EQ(found, data);
  Bytes onFile(4096);
  std::ifstream stream(file(), std::ios::binary);
  stream.seekg(100 * 512);
  stream.read(reinterpret_cast<char*>(onFile.data()), 4096);
  EXPECT_EQ(onFile, data);
}

TEST_F(IscsiTransportTest, TheLargestTransferGoesThrough) {
  startTarget();
  open(settings());
  runAfterAttentions(bare(0, 6));
  Bytes data = randomBytes(1, transport_->mostBytes());
  Bytes found(data.size());
  const auto blocks = static_cast<uint32_t>(data.size() / 512);
  EXPECT_EQ(run(transfer(write16, 0, 3, blocks, data)).status, scsi_status::good);
  EXPECT_EQ(run(transfer(read16, 0, 3, blocks, found)).status, scsi_status::good);
  EXPECT_EQ(found, data);
}

TEST_F(IscsiTransportTest, MoreThanTheTargetsWindowIsAnsweredOnceEach) {
  startTarget();
  IscsiSettings deep = settings();
  deep.depth = 512;
  open(deep);
  runAfterAttentions(bare(0, 6));
  std::vector<Bytes> data;
  submitWrites(deep.depth, data);
  std::vector<int> seen(deep.depth);
  ScsiReply reply;
  while (transport_->poll(reply, true)) {
    EXPECT_EQ(reply.status, scsi_status::good);
    ++seen[reply.slot];
  }
  EXPECT_EQ(seen, std::vector<int>(deep.depth, 1));
  Bytes found(8192);
  run(transfer(read16, 0, 511 * 16, 16, found));
  EXPECT_EQ(found, data[511]);
}

TEST_F(IscsiTransportTest, SenseDataComeWithACheckCondition) {
  startTarget();
  open(settings());
  runAfterAttentions(bare(0, 6));
  Bytes data(1024);
  const ScsiReply reply = run(transfer(read16, 0, fileBytes / 512 - 1, 2, data));
  EXPECT_EQ(reply.status, scsi_status::checkCondition);
  ASSERT_GE(reply.senseBytes, 14U);
  EXPECT_EQ(reply.sense[2] & 0xF, 5);
  EXPECT_EQ(reply.sense[12], 0x21);
}

TEST_F(IscsiTransportTest, AUnitAttentionIsAnAnswerLikeAnyOther) {
  startTarget();
  open(settings());
  const ScsiReply first = run(bare(0, 6));
  EXPECT_EQ(first.status, scsi_status::checkCondition);
  EXPECT_EQ(first.sense[2] & 0xF, 6);
  EXPECT_EQ(run(bare(0, 6)).status, scsi_status::good);
}

TEST_F(IscsiTransportTest, WithNothingOutstandingThereIsNothingToWaitFor) {
  startTarget();
  open(settings());
  ScsiReply reply;
  EXPECT_FALSE(transport_->poll(reply, true));
  EXPECT_FALSE(transport_->poll(reply, false));
  EXPECT_FALSE(transport_->waitUpTo(60'000'000));
}

TEST_F(IscsiTransportTest, OneCanSleepUntilAnAnswerComes) {
  startTarget();
  open(settings());
  runAfterAttentions(bare(0, 6));
  target_->stop();
  transport_->submit(bare(0, 6));
  transport_->waitUpTo(20'000);  // the first sleep may end with the sending of it
  ScsiReply reply;
  for (int i = 0; i < 3; ++i) {
    const Clock::time_point began = Clock::now();
    EXPECT_TRUE(transport_->waitUpTo(20'000));
    EXPECT_GE(Clock::now() - began, 20ms);
    EXPECT_FALSE(transport_->poll(reply, false));
  }
  target_->go();
  while (!transport_->poll(reply, false)) {
    EXPECT_TRUE(transport_->waitUpTo(60'000'000));
  }
  EXPECT_EQ(reply.status, scsi_status::good);
}

TEST_F(IscsiTransportTest, AResetDropsWhatIsOutstanding) {
  startTarget();
  open(settings());
  runAfterAttentions(bare(0, 6));
  std::vector<Bytes> data;
  submitWrites(32, data);
  transport_->resetUnit();
  ScsiReply reply;
  EXPECT_FALSE(transport_->poll(reply, true));
  Bytes again = randomBytes(99, 8192);
  EXPECT_EQ(runAfterAttentions(transfer(write16, 0, 0, 16, again)).status, scsi_status::good);
  Bytes found(8192);
  run(transfer(read16, 0, 0, 16, found));
  EXPECT_EQ(found, again);
}

TEST_F(IscsiTransportTest, NobodyAtThePortIsSaid) {
  startTarget();
  const IscsiSettings gone = settings();
  target_.reset();
  EXPECT_THAT(refusal(gone),
              AllOf(HasSubstr("127.0.0.1:"), HasSubstr("cannot be reached: Connection refused; check host")));
}

TEST_F(IscsiTransportTest, APortThatAnswersNothingIsGivenUpInTime) {
  startTarget();
  IscsiSettings hanging = settings();
  hanging.connectMs = 1000;
  target_->stop();
  const Clock::time_point began = Clock::now();
  EXPECT_THAT(refusal(hanging), AllOf(HasSubstr("within 1 s"), HasSubstr("connect=")));
  EXPECT_LT(Clock::now() - began, 3s);
}

TEST_F(IscsiTransportTest, AnUnknownTargetIsNamed) {
  startTarget();
  EXPECT_THAT(refusal(settings("iscsi://127.0.0.1:" + std::to_string(target_->port()) + "/iqn.2026-01.nowhere:x/1")),
              HasSubstr("has no target 'iqn.2026-01.nowhere:x'; correct its name"));
}

TEST_F(IscsiTransportTest, AMissingUnitIsNamed) {
  startTarget();
  EXPECT_THAT(refusal(settings(target_->address(7))), AllOf(HasSubstr(target_->name()), HasSubstr("has no LUN 7;")));
}

TEST_F(IscsiTransportTest, WithUserAndPasswordOneGetsIn) {
  startTarget({}, "somebody", "longsecret12");
  const auto as = [&](const std::string& who) {
    return settings("iscsi://" + who + "127.0.0.1:" + std::to_string(target_->port()) + "/" + target_->name() + "/1");
  };
  EXPECT_EQ(refusal(as("somebody%longsecret12@")), "opened");
  EXPECT_THAT(transport_->description(), Not(HasSubstr("longsecret12")));
  EXPECT_THAT(refusal(as("somebody%wrongsecret12@")),
              AllOf(HasSubstr("does not accept user 'somebody'"), Not(HasSubstr("wrongsecret12"))));
  EXPECT_THAT(refusal(as("nobody%longsecret12@")),
              AllOf(HasSubstr("does not accept user 'nobody'"), Not(HasSubstr("longsecret12"))));
  EXPECT_THAT(refusal(as("")), HasSubstr("put user%password@ in front of the host"));
}

TEST_F(IscsiTransportTest, ALostConnectionLosesWhatIsOutstandingAndAResetFindsBack) {
  startTarget();
  open(settings());
  runAfterAttentions(bare(0, 6));
  target_->stop();
  std::vector<Bytes> data;
  submitWrites(16, data);
  target_->kill();
  EXPECT_EQ(repliesUntilLost(5s), 0U);
  EXPECT_THROW(transport_->submit(bare(0, 6)), DriveConnectionLost);
  // The target has to be started by this thread, with which it ends.
  std::thread meanwhile([&] { EXPECT_NO_THROW(transport_->resetUnit()); });
  std::this_thread::sleep_for(500ms);
  target_->start();
  meanwhile.join();
  ScsiReply reply;
  EXPECT_FALSE(transport_->poll(reply, true));
  EXPECT_EQ(runAfterAttentions(transfer(write16, 5, 0, 16, data[0])).status, scsi_status::good);
}

TEST_F(IscsiTransportTest, AConnectionThatIsLostWhileNothingIsOutstandingIsNoticed) {
  startTarget();
  open(settings());
  target_->kill();
  EXPECT_EQ(repliesUntilLost(5s), 0U);
}

TEST_F(IscsiTransportTest, ATargetThatStaysAwayIsGivenUpInTime) {
  startTarget();
  IscsiSettings impatient = settings();
  impatient.reconnectMs = 1000;
  open(impatient);
  target_->kill();
  repliesUntilLost(5s);
  const Clock::time_point began = Clock::now();
  try {
    transport_->resetUnit();
    FAIL() << "reached nobody";
  } catch (const DriveConnectionLost&) {
    FAIL() << "a caller would try again";
  } catch (const DriveError& error) {
    EXPECT_THAT(error.what(), AllOf(HasSubstr("within 1 s"), HasSubstr("cannot be reached"), HasSubstr("reconnect=")));
  }
  EXPECT_LT(Clock::now() - began, 4s);
}

TEST_F(IscsiTransportTest, AResetThatIsNotAnsweredTakesANewConnection) {
  startTarget();
  IscsiSettings impatient = settings();
  impatient.resetMs = 1000;
  open(impatient);
  runAfterAttentions(bare(0, 6));
  target_->stop();
  std::vector<Bytes> data;
  submitWrites(8, data);
  std::thread later([&] {
    std::this_thread::sleep_for(1500ms);
    target_->go();
  });
  const Clock::time_point began = Clock::now();
  EXPECT_NO_THROW(transport_->resetUnit());
  later.join();
  EXPECT_GT(Clock::now() - began, 1s);
  EXPECT_EQ(runAfterAttentions(bare(0, 6)).status, scsi_status::good);
}

TEST_F(IscsiTransportTest, AWaitForAStoppedTargetEnds) {
  startTarget();
  IscsiSettings impatient = settings();
  impatient.silentMs = 1000;
  open(impatient);
  runAfterAttentions(bare(0, 6));
  target_->stop();
  transport_->submit(bare(0, 6));
  ScsiReply reply;
  const Clock::time_point began = Clock::now();
  EXPECT_THROW(transport_->poll(reply, true), DriveConnectionLost);
  EXPECT_LT(Clock::now() - began, 3s);
}

TEST_F(IscsiTransportTest, TheEndOfAnObjectWaitsForNoStoppedTarget) {
  for (const bool outstanding : {false, true}) {
    startTarget();
    open(settings());
    runAfterAttentions(bare(0, 6));
    target_->stop();
    std::vector<Bytes> data;
    submitWrites(outstanding ? 16 : 0, data);
    const Clock::time_point began = Clock::now();
    transport_.reset();
    EXPECT_LT(Clock::now() - began, 2s);
  }
}

TEST_F(IscsiTransportTest, ACommandThatCanNotBeAbortedCostsTheConnection) {
  startTarget();
  IscsiSettings impatient = settings();
  impatient.timeoutMs = 1000;
  impatient.resetMs = 1000;
  open(impatient);
  runAfterAttentions(bare(0, 6));
  target_->stop();
  std::vector<Bytes> data;
  submitWrites(4, data);
  const Clock::time_point began = Clock::now();
  EXPECT_EQ(repliesUntilLost(5s), 0U);
  EXPECT_GT(Clock::now() - began, 1900ms);
  EXPECT_LT(Clock::now() - began, 4s);
}

/// This target lets a command that it has begun end, and answers to it and then to the abort.
TEST_F(IscsiTransportTest, AnAnswerThatComesBeforeTheAbortsStands) {
  startTarget();
  IscsiSettings impatient = settings();
  impatient.timeoutMs = 500;
  open(impatient);
  runAfterAttentions(bare(0, 6));
  target_->stopWorkers();
  std::vector<Bytes> data;
  submitWrites(4, data);
  ScsiReply reply;
  const Clock::time_point began = Clock::now();
  while (Clock::now() - began < 1s) {
    ASSERT_FALSE(transport_->poll(reply, false));
  }
  target_->goWorkers();
  for (uint32_t i = 0; i < 4; ++i) {
    ASSERT_TRUE(transport_->poll(reply, true));
    EXPECT_EQ(reply.status, scsi_status::good);
  }
  Bytes found(8192);
  EXPECT_EQ(run(transfer(read16, 4, 16, 16, found)).status, scsi_status::good);
  EXPECT_EQ(found, data[1]);
}

}  // namespace
}  // namespace corvane::host
