// What the built agent says on drives whose connection breaks and comes back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>

#include "host/base/Random.h"
#include "host/drive/ForwardingDrive.h"
#include "host/run/PluginLoader.h"
#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/LosingDrive.h"

namespace corvane::host::e2e {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

using Options = std::vector<std::pair<std::string, std::string>>;

constexpr CommandMix readWrite{.write = 1, .read = 1};
constexpr CommandMix readVerify{.write = 1, .read = 1, .verify = 1};
constexpr CommandMix everyKind{.write = 1, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1, .verify = 1};
constexpr CommandMix withoutAtomic{.write = 1, .writeSame = 1, .trim = 1, .read = 1};
constexpr CommandMix atomicOnly{.write = 0, .writeAtomic = 1, .read = 1};

/// A legal test on a drive that may lose its connection.
struct Profile {
  std::string name;
  std::string address;
  CommandMix mix;
  std::function<void(TestDefinition&)> change = [](TestDefinition&) {};
};

void PrintTo(const Profile& profile, std::ostream* out) { *out << profile.name; }

std::vector<Profile> profiles() {
  return {
      {"EveryKind", "sim:4m", everyKind},
      {"Verify", "sim:4m", readVerify},
      {"AtomicOnly", "sim:4m", atomicOnly},
      {"SlidEveryKind", "sim:4m", everyKind, [](auto& test) { test.agentOptions.emplace_back("Slide Reads", "true"); }},
      {"Aborts", "sim:4m,abort=0.03", everyKind},
      {"TornSectors", "sim:4m,block=4096,tear=sector", readWrite},
      {"Resets", "sim:4m", everyKind, [](auto& test) { test.resetEveryCommands = 37; }},
      {"Flushes", "sim:4m,cache=volatile", everyKind,
       [](auto& test) {
         test.powerToggle = PowerToggle::withSync;
         test.agentOptions.emplace_back("PowerToggle Freq", "1");
       }},
      {"Invalidations", "sim:4m", withoutAtomic, [](auto& test) { test.invalidateEveryCommands = 9; }},
      {"ZoneResets", "sim:4m,zones=64k", everyKind, [](auto& test) { test.zoneResetEveryCommands = 11; }},
      {"HostManaged", "sim:4m,zones=64k,zonemodel=managed", readVerify,
       [](auto& test) { test.zoneResetEveryCommands = 13; }},
      {"Depth1", "sim:4m", everyKind, [](auto& test) { test.queueDepth = 1; }},
  };
}

TestDefinition testOf(const Profile& profile, const Workspace& workspace) {
  TestDefinition test = prepared({}, workspace);
  test.driveAddresses = {profile.address};
  test.mix = profile.mix;
  test.queueDepth = 8;
  test.journalDepth = 64;
  test.agentOptions = {
      {"Min Queue Size", "16"}, {"Max Queue Size", "64"}, {"Bucket Count", "64"}, {"Write Splice Detection", "true"}};
  profile.change(test);
  return test;
}

RunResult runOn(const TestDefinition& test, const LosingDrive::Judge& judge) {
  return runTest(test,
                 [&](std::unique_ptr<Drive> drive) { return std::make_unique<LosingDrive>(std::move(drive), judge); });
}

void expectSilence(const RunResult& result) {
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_EQ(result.drives.at(0).messages.warnings + result.drives.at(0).messages.errors, 0U) << agentLines(result);
}

class LostConnection : public testing::TestWithParam<Profile> {};

TEST_P(LostConnection, AtAnyPlaceOfAShortTestRaisesNothing) {
  const Workspace workspace;
  TestDefinition test = testOf(GetParam(), workspace);
  test.commandLimit = 120;
  for (const Break where : {Break::beforeSubmit, Break::afterSubmit, Break::instead}) {
    uint64_t places = 0;
    // Until the test has no such place any more.
    for (uint64_t at = 1; places + 1 >= at; ++at) {
      places = 0;
      const RunResult result =
          runOn(test, [&](Break here, const DriveCommand* /*command*/) { return here == where && ++places == at; });
      expectSilence(result);
      ASSERT_EQ(result.totals().connectionsLost, places >= at ? 1U : 0U);
      ASSERT_FALSE(HasFailure()) << "place " << at << " of kind " << static_cast<int>(where);
    }
    EXPECT_GE(places, 80U);
  }
}

TEST_P(LostConnection, AgainAndAgainRaisesNothing) {
  const Workspace workspace;
  TestDefinition test = testOf(GetParam(), workspace);
  test.commandLimit = 20'000;
  for (uint64_t seed = 1; seed <= 3; ++seed) {
    test.seed = seed;
    Random random(seed);
    const RunResult result =
        runOn(test, [&random](Break /*where*/, const DriveCommand* /*command*/) { return random.below(150) == 0; });
    expectSilence(result);
    EXPECT_GT(result.totals().connectionsLost, 100U);
    EXPECT_GT(result.totals().blocksCompared, 1000U);
  }
}

TEST_P(LostConnection, OfEachKindOfCommandRaisesNothing) {
  const Workspace workspace;
  TestDefinition test = testOf(GetParam(), workspace);
  test.commandLimit = 3'000;
  for (const CommandKind kind :
       {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame, CommandKind::trim, CommandKind::read,
        CommandKind::verify, CommandKind::syncCache, CommandKind::zoneReset, CommandKind::invalidate}) {
    Random random(7);
    const uint64_t oneIn = kind >= CommandKind::syncCache ? 6 : 20;  // the last ones are rare
    uint64_t places = 0;
    const RunResult result = runOn(test, [&](Break /*where*/, const DriveCommand* command) {
      if (command == nullptr || command->kind != kind) {
        return false;
      }
      ++places;
      return random.below(oneIn) == 0;
    });
    expectSilence(result);
    EXPECT_TRUE(places < 40 || result.totals().connectionsLost > 0) << commandKindName(kind);
  }
}

INSTANTIATE_TEST_SUITE_P(Every, LostConnection, testing::ValuesIn(profiles()),
                         [](const auto& test) { return test.param.name; });

class LostConnectionOf : public testing::Test {
 protected:
  LostConnectionOf() {
    test = testOf({"", "sim:4m", readWrite}, workspace);
    test.commandLimit = 5'000;
  }

  /// Breaks the connection once in so many places.
  static LosingDrive::Judge oneIn(uint64_t places) {
    return [random = Random(5), places](Break, const DriveCommand*) mutable { return random.below(places) == 0; };
  }

  Workspace workspace;
  TestDefinition test;
};

/// Forgets an acknowledged write when the connection breaks.
class ForgetfulDrive : public ForwardingDrive {
 public:
  explicit ForgetfulDrive(std::unique_ptr<Drive> drive) : ForwardingDrive(std::move(drive)) {}

  void submit(const DriveCommand& command) override {
    if (command.kind == CommandKind::write) {
      writes_[command.id] = command;
    }
    inner().submit(command);
  }
  bool poll(DriveCompletion& out, bool wait) override {
    // Who polls again has got what came before.
    acknowledged_ = latest_;
    const bool came = inner().poll(out, wait);
    if (came && writes_.contains(out.id)) {
      if (out.status == scsi_status::good) {
        latest_ = writes_[out.id];
      }
      writes_.erase(out.id);
    }
    return came;
  }
  void reset() override {
    inner().reset();
    writes_.clear();
    if (!acknowledged_ || forgotten) {
      return;
    }
    // It was only in a cache that did not survive: zeros are what was there.
    forgotten = acknowledged_->lba;
    std::vector<uint8_t> zeros(uint64_t{acknowledged_->blocks} * geometry().sectorBytes());
    DriveCommand undo;
    undo.kind = CommandKind::write;
    undo.lba = acknowledged_->lba;
    undo.blocks = acknowledged_->blocks;
    undo.data = zeros.data();
    undo.dataBytes = zeros.size();
    inner().submit(undo);
    DriveCompletion done;
    inner().poll(done, true);
  }

  inline static std::optional<uint64_t> forgotten;

 private:
  std::map<uint64_t, DriveCommand> writes_;
  std::optional<DriveCommand> latest_;
  std::optional<DriveCommand> acknowledged_;
};

TEST_F(LostConnectionOf, ADriveThatForgetsAnAcknowledgedWriteInItIsFound) {
  ForgetfulDrive::forgotten.reset();
  uint32_t places = 0;
  const RunResult result = runTest(test, [&](std::unique_ptr<Drive> drive) {
    return std::make_unique<LosingDrive>(
        std::make_unique<ForgetfulDrive>(std::move(drive)),
        [&places](Break where, const DriveCommand*) { return where == Break::instead && ++places == 1000; });
  });
  ASSERT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  EXPECT_EQ(result.drives[0].agentStatus, -1046);
  EXPECT_EQ(result.totals().connectionsLost, 1U);
  ASSERT_TRUE(ForgetfulDrive::forgotten);
  EXPECT_EQ(result.drives[0].findingLba, *ForgetfulDrive::forgotten);
  EXPECT_TRUE(result.drives[0].journal->has(Incident::What::connectionLost));
}

TEST_F(LostConnectionOf, AFaultThatIsInjectedAmongLossesIsFound) {
  for (const char* fault : {"lost-write:at=command:1000", "torn-write:at=command:1000", "stale-read:at=command:1000"}) {
    test.faults = {parseFaultSpec(fault)};
    const RunResult result = runOn(test, oneIn(500));
    EXPECT_EQ(result.status, RunStatus::dataFailure) << fault << "\n" << agentLines(result);
    EXPECT_GT(result.totals().connectionsLost, 1U) << fault;
    ASSERT_NE(result.drives[0].evidence, nullptr) << fault;
    EXPECT_FALSE(result.drives[0].evidence->reread.empty()) << fault;
  }
}

TEST_F(LostConnectionOf, ATestThatCannotBearItEndsAsADriveError) {
  test.mix = {.write = 1, .writeAtomic = 1, .read = 1};
  test.agentOptions.emplace_back("User Defined Data", "true");
  test.agentOptions.emplace_back("Data Buffer", "user data");
  const RunResult result = runOn(test, oneIn(500));
  EXPECT_EQ(result.status, RunStatus::drive) << agentLines(result);
  EXPECT_EQ(result.drives[0].agentStatus, 0);
  EXPECT_THAT(result.drives[0].error,
              AllOf(StartsWith("the connection to the drive was lost ("), HasSubstr("\"User Defined Data\" off")));
  EXPECT_EQ(result.totals().connectionsLost, 1U);
}

TEST_F(LostConnectionOf, ADriveThatIsGoneForGoodEndsAsADriveError) {
  const RunResult result = runOn(test, [places = 0](Break, const DriveCommand*) mutable { return ++places > 2000; });
  EXPECT_EQ(result.status, RunStatus::drive) << agentLines(result);
  EXPECT_THAT(result.drives[0].error, HasSubstr("lost 16 times and no command ended in between"));
}

TEST_F(LostConnectionOf, ADriveThatComesBackOnlyAfterSomeResetsIsTestedOn) {
  LosingDrive* losing = nullptr;
  const RunResult result = runTest(test, [&](std::unique_ptr<Drive> drive) {
    auto far =
        std::make_unique<LosingDrive>(std::move(drive), [&losing, places = 0](Break, const DriveCommand*) mutable {
          const bool breaks = ++places % 700 == 0;
          losing->resetsThatFail = breaks ? 2 : 0;
          return breaks;
        });
    losing = far.get();
    return far;
  });
  expectSilence(result);
  EXPECT_GT(result.totals().connectionsLost, 5U);
}

TEST_F(LostConnectionOf, ADriveThatNoResetReachesEndsAsADriveError) {
  LosingDrive* losing = nullptr;
  const RunResult result = runTest(test, [&](std::unique_ptr<Drive> drive) {
    auto far =
        std::make_unique<LosingDrive>(std::move(drive), [&losing, places = 0](Break, const DriveCommand*) mutable {
          const bool breaks = ++places == 700;
          losing->resetsThatFail = breaks ? 1000 : losing->resetsThatFail;
          return breaks;
        });
    losing = far.get();
    return far;
  });
  EXPECT_EQ(result.status, RunStatus::drive) << agentLines(result);
  EXPECT_THAT(result.drives[0].error, HasSubstr("lost again in each of 5 resets"));
}

TEST_F(LostConnectionOf, AFindingKeepsItsPlaceWhenTheDriveIsGoneAfterIt) {
  LosingDrive* losing = nullptr;
  bool gone = false;
  test.faults = {parseFaultSpec("lost-write:at=command:1000")};
  TestDefinition shown = test;
  const AgentPlugin plugin(agentPath());
  vdl::AgentTable table = plugin.table();
  static decltype(table.execute) execute;
  static bool* goneNow;
  execute = table.execute;
  goneNow = &gone;
  table.execute = [](vdl::DriveThread* thread, const void* config, void* data) {
    const int status = execute(thread, config, data);
    *goneNow = status != 0;
    return status;
  };
  const RunResult result = runTest(
      shown,
      [&](std::unique_ptr<Drive> drive) {
        auto far = std::make_unique<LosingDrive>(std::move(drive), [&](Break, const DriveCommand*) {
          losing->resetsThatFail = gone ? 1000 : 0;
          return gone;
        });
        losing = far.get();
        return far;
      },
      &table);
  EXPECT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  EXPECT_EQ(result.drives[0].agentStatus, -1046);
  ASSERT_NE(result.drives[0].evidence, nullptr);
  EXPECT_TRUE(result.drives[0].evidence->reread.empty());
  EXPECT_FALSE(result.drives[0].evidence->driveBlock.empty());
}

}  // namespace
}  // namespace corvane::host::e2e
