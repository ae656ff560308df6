#include "host/drive/sim/SimErrors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"
#include "host/drive/sim/SimDrive.h"
#include "tests/drive/CommandMaker.h"

namespace corvane::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;

constexpr uint32_t sector = 512;
constexpr uint32_t length = 8;
constexpr uint64_t noInformation = ~uint64_t{0};

constexpr uint32_t recoveredRead = 0x011701;
constexpr uint32_t recoveredWrite = 0x010C01;

DriveCommand commandOf(CommandKind kind, uint32_t blocks = length) {
  DriveCommand command;
  command.kind = kind;
  command.lba = 100;
  command.blocks = blocks;
  return command;
}

TEST(SimErrors, HappenToTheKindsThatTheyCanHappenTo) {
  const auto kindWith = [](const SimErrorRates& rates, CommandKind kind) {
    return SimErrors(rates, 1).next(commandOf(kind)).kind;
  };
  using Kind = SimAccident::Kind;
  for (const CommandKind kind :
       {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame, CommandKind::trim, CommandKind::read,
        CommandKind::verify, CommandKind::syncCache, CommandKind::zoneReset, CommandKind::invalidate}) {
    const bool writes = kind <= CommandKind::trim;
    const bool hasData = kind <= CommandKind::verify && kind != CommandKind::trim;
    EXPECT_EQ(kindWith({.abort = 1}, kind), writes ? Kind::aborted : Kind::none) << commandKindName(kind);
    EXPECT_EQ(kindWith({.writeError = 1}, kind), writes ? Kind::writeError : Kind::none) << commandKindName(kind);
    EXPECT_EQ(kindWith({.readError = 1}, kind), kind == CommandKind::read ? Kind::readError : Kind::none)
        << commandKindName(kind);
    EXPECT_EQ(kindWith({.recovered = 1}, kind), hasData ? Kind::recovered : Kind::none) << commandKindName(kind);
    EXPECT_EQ(kindWith({}, kind), Kind::none);
  }
}

TEST(SimErrors, NothingHappensToACommandWithoutBlocks) {
  SimErrors errors({.abort = 1, .writeError = 1, .readError = 1, .recovered = 1}, 1);
  for (const CommandKind kind : {CommandKind::write, CommandKind::read, CommandKind::verify}) {
    EXPECT_EQ(errors.next(commandOf(kind, 0)).kind, SimAccident::Kind::none);
  }
}

TEST(SimErrors, ARateIsTheShareOfCommands) {
  SimErrors errors({.abort = 0.25}, 1);
  int aborted = 0;
  for (int i = 0; i < 10'000; ++i) {
    aborted += errors.next(commandOf(CommandKind::write)).kind == SimAccident::Kind::aborted ? 1 : 0;
  }
  EXPECT_GT(aborted, 2300);
  EXPECT_LT(aborted, 2700);
}

TEST(SimErrors, ASeedGivesTheSameAccidents) {
  const auto run = [](uint64_t seed) {
    SimErrors errors({.abort = 0.2, .writeError = 0.2, .recovered = 0.2}, seed);
    std::string text;
    for (int i = 0; i < 200; ++i) {
      const SimAccident accident = errors.next(commandOf(CommandKind::write));
      text += static_cast<char>('0' + static_cast<int>(accident.kind));
      text += std::to_string(accident.failing.value_or(99));
    }
    return text;
  };
  EXPECT_EQ(run(5), run(5));
  EXPECT_NE(run(5), run(6));
}

/// How a command ended, and what it left.
struct Outcome {
  DriveCompletion completion;
  std::string blocks;  ///< a letter a block: o old, n new, ? neither
};

class FailingSimDrive : public testing::Test {
 protected:
  /// Runs a command again and again over known content.
  ///
  /// @param adapt changes the command before it is sent
  std::vector<Outcome> repeat(
      const std::string& keys, CommandKind kind, int rounds,
      const std::function<void(DriveCommand&)>& adapt = [](DriveCommand&) {}) {
    drive = openDrive("sim:8m," + keys, 32);
    CommandMaker commands(*drive);
    Bytes old = randomBytes(1, 32 * sector);
    Bytes fresh = randomBytes(2, uint64_t{kind == CommandKind::writeSame ? 1 : length} * sector);
    std::vector<Outcome> outcomes;
    for (int round = 0; round < rounds; ++round) {
      setOld(old);
      DriveCommand command = commands.make(kind, base, length, kind == CommandKind::trim ? nullptr : &fresh);
      adapt(command);
      Outcome outcome{commands.run(command), ""};
      for (uint64_t i = 0; i < 32; ++i) {
        outcome.blocks += letterOf(command, base + i, &old[i * sector]);
      }
      outcomes.push_back(outcome);
    }
    return outcomes;
  }

  static constexpr uint64_t base = 1000;
  std::unique_ptr<Drive> drive;

 private:
  SimMedium& medium() { return dynamic_cast<SimDrive&>(*drive).medium(); }
  void setOld(const Bytes& old) { medium().write(base, 32, old.data()); }

  char letterOf(const DriveCommand& command, uint64_t lba, const uint8_t* old) {
    const uint8_t* found = medium().sector(lba);
    if (std::memcmp(found, old, sector) == 0) {
      return 'o';
    }
    const Bytes zeros(sector, 0);
    const uint64_t index = (lba - command.lba) / command.lbaStep;
    if ((lba - command.lba) % command.lbaStep != 0 || index >= command.blocks) {
      return '?';
    }
    const uint8_t* fresh = command.kind == CommandKind::trim        ? zeros.data()
                           : command.kind == CommandKind::writeSame ? command.data
                                                                    : command.data + index * sector;
    return std::memcmp(found, fresh, sector) == 0 ? 'n' : '?';
  }
};

std::set<std::string> distinctBlocks(const std::vector<Outcome>& outcomes) {
  std::set<std::string> seen;
  for (const Outcome& outcome : outcomes) {
    EXPECT_EQ(outcome.blocks.find('?'), std::string::npos) << outcome.blocks;
    seen.insert(outcome.blocks.substr(0, length));
  }
  return seen;
}

TEST_F(FailingSimDrive, AnAbortedCommandHasChangedNothingAnySubsetOrAll) {
  for (const CommandKind kind : {CommandKind::write, CommandKind::writeSame, CommandKind::trim}) {
    const std::vector<Outcome> outcomes = repeat("abort=1", kind, 200);
    for (const Outcome& outcome : outcomes) {
      ASSERT_EQ(outcome.completion.status, scsi_status::aborted);
      ASSERT_EQ(outcome.completion.senseBytes, 0U);
      ASSERT_EQ(outcome.completion.bytesTransferred, 0U);
    }
    const std::set<std::string> seen = distinctBlocks(outcomes);
    EXPECT_TRUE(seen.contains("oooooooo") && seen.contains("nnnnnnnn")) << commandKindName(kind);
    EXPECT_GT(seen.size(), 30U) << commandKindName(kind);
  }
}

TEST_F(FailingSimDrive, AFailedAtomicWriteIsWholeInEverySegmentAndNamesNoBlock) {
  const auto bound = [](DriveCommand& command) { command.atomicBound = 5; };
  for (const char* keys : {"abort=1", "write-error=1"}) {
    const std::vector<Outcome> outcomes = repeat(keys, CommandKind::writeAtomic, 150, bound);
    EXPECT_THAT(distinctBlocks(outcomes), testing::ElementsAre("nnnnnnnn", "nnnnnooo", "ooooonnn", "oooooooo")) << keys;
    for (const Outcome& outcome : outcomes) {
      ASSERT_NE(outcome.completion.status, scsi_status::good);
      ASSERT_TRUE(outcome.completion.senseBytes == 0 || senseInformation(outcome.completion) == noInformation);
    }
  }
}

TEST_F(FailingSimDrive, ReadsAndVerifiesAreNeverAborted) {
  for (const CommandKind kind : {CommandKind::read, CommandKind::syncCache, CommandKind::invalidate}) {
    for (const Outcome& outcome : repeat("abort=1,write-error=1", kind, 20)) {
      ASSERT_EQ(outcome.completion.status, scsi_status::good) << commandKindName(kind);
    }
  }
}

TEST_F(FailingSimDrive, AWriteErrorNamesTheFirstBlockThatMayBeOldOrTellsNothing) {
  for (const CommandKind kind : {CommandKind::write, CommandKind::writeSame, CommandKind::trim}) {
    const std::vector<Outcome> outcomes = repeat("write-error=1", kind, 300);
    std::set<uint64_t> named;
    std::map<uint32_t, int> blind;
    bool newBehindTheNamed = false;
    for (const Outcome& outcome : outcomes) {
      ASSERT_EQ(outcome.completion.status, scsi_status::checkCondition);
      ASSERT_EQ(outcome.completion.bytesTransferred, 0U);
      const uint64_t information = senseInformation(outcome.completion);
      if (information == noInformation) {
        ++blind[senseNumber(outcome.completion)];
        continue;
      }
      ASSERT_EQ(senseNumber(outcome.completion), 0x030C00U);
      ASSERT_TRUE(information >= base && information < base + length);
      named.insert(information);
      const uint64_t written = information - base;
      ASSERT_EQ(outcome.blocks.substr(0, written), std::string(written, 'n'));
      newBehindTheNamed = newBehindTheNamed || outcome.blocks.find('n', written) != std::string::npos;
    }
    EXPECT_EQ(named.size(), length);
    EXPECT_TRUE(newBehindTheNamed);
    EXPECT_THAT(blind, testing::UnorderedElementsAre(testing::Pair(0x030C00U, testing::Gt(20)),
                                                     testing::Pair(0x044400U, testing::Gt(20)),
                                                     testing::Pair(0x0B4700U, testing::Gt(20))));
    EXPECT_GT(distinctBlocks(outcomes).size(), 30U);
  }
}

TEST_F(FailingSimDrive, ANamedBlockIsOneOfTheCommandsOwn) {
  const auto skip = [](DriveCommand& command) { command.lbaStep = 2; };
  std::set<uint64_t> named;
  for (const Outcome& outcome : repeat("write-error=1", CommandKind::write, 200, skip)) {
    ASSERT_EQ(outcome.blocks.find('?'), std::string::npos) << outcome.blocks;
    const uint64_t information = senseInformation(outcome.completion);
    if (information != noInformation) {
      named.insert(information);
      for (uint64_t lba = base; lba < information; lba += 2) {
        ASSERT_EQ(outcome.blocks[lba - base], 'n');
      }
    }
  }
  EXPECT_THAT(named, testing::ElementsAre(1000, 1002, 1004, 1006, 1008, 1010, 1012, 1014));
}

TEST_F(FailingSimDrive, AReadErrorBringsNoDataAndSometimesNamesItsBlock) {
  Bytes target(length * sector, 0xEE);
  std::set<uint32_t> senses;
  std::set<uint64_t> named;
  const auto into = [&target](DriveCommand& command) { command.data = target.data(); };
  for (const Outcome& outcome : repeat("read-error=1", CommandKind::read, 100, into)) {
    ASSERT_EQ(outcome.completion.status, scsi_status::checkCondition);
    ASSERT_EQ(outcome.completion.bytesTransferred, 0U);
    const uint32_t sense = senseNumber(outcome.completion);
    const uint64_t information = senseInformation(outcome.completion);
    ASSERT_EQ(information != noInformation, sense == 0x031100U);
    senses.insert(sense);
    if (information != noInformation) {
      named.insert(information - base);
    }
  }
  EXPECT_EQ(target, Bytes(length * sector, 0xEE));
  EXPECT_THAT(senses, testing::ElementsAre(0x031100U, 0x044400U, 0x0B4400U));
  EXPECT_THAT(named, testing::ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

TEST_F(FailingSimDrive, OnlyReadsHaveReadErrors) {
  for (const CommandKind kind : {CommandKind::write, CommandKind::trim, CommandKind::writeAtomic}) {
    for (const Outcome& outcome : repeat("read-error=1", kind, 10)) {
      ASSERT_EQ(outcome.completion.status, scsi_status::good);
      ASSERT_EQ(outcome.blocks.substr(0, length), std::string(length, 'n'));
    }
  }
}

TEST_F(FailingSimDrive, ARecoveredReadHasItsData) {
  Bytes target(length * sector);
  const auto into = [&target](DriveCommand& command) { command.data = target.data(); };
  int named = 0;
  for (const Outcome& outcome : repeat("recovered=1", CommandKind::read, 100, into)) {
    ASSERT_EQ(outcome.completion.status, scsi_status::checkCondition);
    ASSERT_EQ(senseNumber(outcome.completion), recoveredRead);
    ASSERT_EQ(outcome.completion.bytesTransferred, length * sector);
    const uint64_t information = senseInformation(outcome.completion);
    ASSERT_TRUE(information == noInformation || (information >= base && information < base + length));
    named += information == noInformation ? 0 : 1;
  }
  const Bytes old = randomBytes(1, length * sector);
  EXPECT_EQ(target, old);
  EXPECT_GT(named, 25);
  EXPECT_LT(named, 75);
}

TEST_F(FailingSimDrive, ARecoveredWriteIsWritten) {
  for (const CommandKind kind : {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame}) {
    for (const Outcome& outcome : repeat("recovered=1", kind, 20)) {
      ASSERT_EQ(senseNumber(outcome.completion), recoveredWrite) << commandKindName(kind);
      ASSERT_EQ(outcome.completion.bytesTransferred, 0U);
      ASSERT_EQ(outcome.blocks.substr(0, length), std::string(length, 'n')) << commandKindName(kind);
    }
  }
  for (const Outcome& outcome : repeat("recovered=1", CommandKind::trim, 20)) {
    ASSERT_EQ(outcome.completion.status, scsi_status::good);
  }
}

TEST_F(FailingSimDrive, ARecoveredVerifyIsGoodAndAFailedOneStaysFailed) {
  Bytes data = randomBytes(1, length * sector);
  const auto with = [&data](DriveCommand& command) { command.data = data.data(); };
  for (const Outcome& outcome : repeat("recovered=1", CommandKind::verify, 10, with)) {
    ASSERT_EQ(senseNumber(outcome.completion), recoveredRead);
  }
  data[5 * sector] ^= 1;
  for (const Outcome& outcome : repeat("recovered=1", CommandKind::verify, 10, with)) {
    ASSERT_EQ(senseNumber(outcome.completion), 0x0E1D00U);
    ASSERT_EQ(senseInformation(outcome.completion), base + 5);
  }
}

TEST_F(FailingSimDrive, ARefusedCommandHasNoOtherAccident) {
  const auto beyond = [](DriveCommand& command) { command.lba = 16'384; };
  for (const Outcome& outcome : repeat("abort=1,write-error=1,recovered=1", CommandKind::write, 10, beyond)) {
    ASSERT_EQ(senseNumber(outcome.completion), 0x052100U);
  }
}

TEST(SimErrorKeys, AreProbabilities) {
  DriveAddress address("sim:1m,abort=0.25,write-error=1,read-error=1e-3,recovered=0");
  const SimErrorRates rates = takeErrorRates(address);
  EXPECT_EQ(rates.abort, 0.25);
  EXPECT_EQ(rates.writeError, 1);
  EXPECT_EQ(rates.readError, 0.001);
  EXPECT_EQ(rates.recovered, 0);
  EXPECT_NO_THROW(address.checkAllTaken());
}

TEST(SimErrorKeys, AreFoundAtTheBeginningAndNotInsideOthers) {
  DriveAddress first("sim:abort=0.5");
  EXPECT_EQ(first.probability("abort"), 0.5);
  DriveAddress other("sim:1m,read-error=0.5");
  EXPECT_EQ(other.probability("error"), 0);
  EXPECT_EQ(other.probability("read"), 0);
  EXPECT_THROW(other.checkAllTaken(), DriveAddressError);
}

TEST(SimErrorKeys, AnythingElseIsRefusedWithTheRemedy) {
  for (const char* value : {"", "2", "-0.1", "1.01", "nan", "inf", "0.5x", "often", " 0.5", "0,5"}) {
    const std::string text = value;
    try {
      openDrive("sim:1m,recovered=" + text, 4);
      FAIL() << "accepted " << text;
    } catch (const DriveAddressError& error) {
      if (text != "0,5") {
        EXPECT_THAT(error.what(), AllOf(HasSubstr("recovered=" + text + " is not a probability"),
                                        HasSubstr("write a number from 0 to 1, as in 0.01")));
      }
    }
  }
}

/// The order of answers and what a power cut leaves.
std::pair<std::vector<uint64_t>, Bytes> runOf(const std::string& address) {
  const std::unique_ptr<Drive> drive = openDrive(address, 32, 7);
  CommandMaker commands(*drive);
  std::vector<Bytes> data;
  for (uint64_t i = 0; i < 60; ++i) {
    data.push_back(randomBytes(i, length * sector));
  }
  std::vector<uint64_t> order;
  DriveCompletion completion;
  for (uint64_t i = 0; i < 60; ++i) {
    drive->submit(commands.make(CommandKind::write, i * length, length, &data[i]));
    if (drive->poll(completion, i >= drive->maxOutstanding() - 1)) {
      order.push_back(completion.id);
    }
  }
  drive->powerCycle();
  return {order, commands.read(0, 60 * length)};
}

TEST(SimErrorKeys, AccidentsRepeatWithTheSeedAndDoNotChangeTheOrderOfAnswers) {
  const std::string failing = "sim:1m,depth=16,cache=volatile,abort=0.3,write-error=0.3";
  EXPECT_EQ(runOf(failing), runOf(failing));
  EXPECT_NE(runOf(failing).second, runOf("sim:1m,depth=16,cache=volatile").second);
  EXPECT_EQ(runOf(failing).first, runOf("sim:1m,depth=16,cache=volatile").first);
  EXPECT_EQ(runOf("sim:1m,depth=16,cache=volatile,abort=0"), runOf("sim:1m,depth=16,cache=volatile"));
}

}  // namespace
}  // namespace corvane::host
