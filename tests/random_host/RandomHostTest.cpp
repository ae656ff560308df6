#include "RandomHost.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "Corvane.h"
#include "Texts.h"
#include "tests/support/TempFolder.h"

namespace randomhost {
namespace {

using ::testing::HasSubstr;
using vdl::Corvane;

vdl::AgentTable linkedAgent() {
  vdl::AgentTable agent{};
  initAgent(&agent);
  return agent;
}

/// The agent falls back to the current folder for files that it cannot write.
struct RandomHostTest : ::testing::Test {
  RandomHostTest() {
    std::filesystem::current_path(folder.path());
    std::filesystem::create_directory("files");
  }
  ~RandomHostTest() override { std::filesystem::current_path(before); }
  RandomHostTest(const RandomHostTest&) = delete;
  RandomHostTest& operator=(const RandomHostTest&) = delete;

  Report run(const vdl::AgentTable& agent, uint64_t calls, uint64_t seed) {
    return RandomHost(agent, folder / "files").run(calls, seed);
  }

  const std::filesystem::path before = std::filesystem::current_path();
  const corvane::tests::TempFolder folder;
};

TEST_F(RandomHostTest, AgentKeepsItsRulesOnAnyHost) {
  const Report report = run(linkedAgent(), 20000, 1);
  EXPECT_EQ(report.failure, "");
  EXPECT_EQ(report.calls, 20000U);
  EXPECT_GT(report.lawful, 1000U);
  // What hosts of all kinds bring about; a run without one of these did not reach far.
  for (const int result : {0, -1003, -1022, -1046, -1050, -1057, -1062, -1200}) {
    EXPECT_GT(report.results.count(result), 0U) << result;
  }
}

TEST_F(RandomHostTest, BuiltAgentKeepsItsRulesOnAnyHost) {
  void* library = dlopen(CORVANE_AGENT_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  const auto entry = reinterpret_cast<int (*)(vdl::AgentTable*)>(dlsym(library, "initAgent"));
  ASSERT_NE(entry, nullptr);
  vdl::AgentTable agent{};
  ASSERT_EQ(entry(&agent), 0);
  ASSERT_NE(agent.execute, &Corvane::execute) << "the linked agent was found, not the built one";
  const Report report = run(agent, 20000, 5000);
  EXPECT_EQ(report.failure, "");
  EXPECT_EQ(report.calls, 20000U);
  dlclose(library);
}

TEST_F(RandomHostTest, SeedRepeatsARun) {
  const Report first = run(linkedAgent(), 2000, 77);
  const Report second = run(linkedAgent(), 2000, 77);
  EXPECT_EQ(first.results, second.results);
  EXPECT_EQ(first.issued, second.issued);
  EXPECT_EQ(first.episodes, second.episodes);
  EXPECT_NE(first.issued, run(linkedAgent(), 2000, 977).issued);
}

/// An agent that does one thing wrong, now and then.
struct Spoiler {
  const char* name;
  int (*execute)(vdl::DriveThread*, const void*, void*);
  const char* complaint;  ///< what the host must say of it
};

int calls = 0;

bool isTheDay() { return ++calls % 97 == 0; }

Corvane::DriveData& dataOf(void* driveData) { return *static_cast<Corvane::DriveData*>(driveData); }

constexpr Spoiler spoilers[] = {
    {"DropsAReferenceTwice",
     [](vdl::DriveThread* drive, const void* config, void* driveData) {
       const int result = Corvane::execute(drive, config, driveData);
       vdl::AtomicHash& table = dataOf(driveData).atomicHash;
       for (const auto& [lba, record] : table.records()) {
         if (record.ref_count > 1 && isTheDay()) {
           table.readSkip(lba);
           break;
         }
       }
       return result;
     },
     "the table counts"},
    {"MissesADroppedRecord",
     [](vdl::DriveThread* drive, const void* config, void* driveData) {
       const int result = Corvane::execute(drive, config, driveData);
       if (isTheDay()) {
         dataOf(driveData).atomicHash.saveHash(1, 123456, 0, true);
       }
       return result;
     },
     "the table holds"},
    {"LosesAWriteInFlight",
     [](vdl::DriveThread* drive, const void* config, void* driveData) {
       const int result = Corvane::execute(drive, config, driveData);
       auto& writes = dataOf(driveData).writeSent;
       if (!writes.empty() && isTheDay()) {
         writes.pop_front();
       }
       return result;
     },
     "writeSent holds"},
    {"AnswersAnotherDocumentedStatus",
     [](vdl::DriveThread* drive, const void* config, void* driveData) {
       const int result = Corvane::execute(drive, config, driveData);
       return result == 0 && isTheDay() ? -1003 : result;
     },
     "-1003"},
    {"AnswersAStatusOfItsOwn",
     [](vdl::DriveThread* drive, const void* config, void* driveData) {
       const int result = Corvane::execute(drive, config, driveData);
       return result == 0 && isTheDay() ? -1004 : result;
     },
     "which it never may"},
    {"SaysWhatNobodyKnows",
     [](vdl::DriveThread* drive, const void* config, void* driveData) {
       const int result = Corvane::execute(drive, config, driveData);
       if (isTheDay()) {
         drive->eventLog->logf(0, "execute(): fine");
       }
       return result;
     },
     "said: execute(): fine"},
    {"LeavesAConditionSet",
     [](vdl::DriveThread* drive, const void* config, void* driveData) {
       const int result = Corvane::execute(drive, config, driveData);
       drive->conditions ^= isTheDay() ? bit::write : 0;
       return result;
     },
     "the conditions are"},
    {"TracesACommandThatIsNone",
     [](vdl::DriveThread* drive, const void* config, void* driveData) {
       const int result = Corvane::execute(drive, config, driveData);
       if (isTheDay()) {
         dataOf(driveData).trace->tracePowerOn();
       }
       return result;
     },
     "for nothing"},
};

struct SpoiltAgentTest : RandomHostTest, ::testing::WithParamInterface<Spoiler> {};

TEST_P(SpoiltAgentTest, IsFoundWithinAThousandCalls) {
  calls = 0;
  vdl::AgentTable agent = linkedAgent();
  agent.execute = GetParam().execute;
  const Report report = run(agent, 1000, 1);
  EXPECT_THAT(report.failure, HasSubstr(GetParam().complaint));
  EXPECT_THAT(report.failure, HasSubstr("repeat with: random_host --seed "));
}

INSTANTIATE_TEST_SUITE_P(RandomHost, SpoiltAgentTest, ::testing::ValuesIn(spoilers),
                         [](const auto& spoiler) { return spoiler.param.name; });

TEST(RandomHostLimits, ATagThatTheTraceDoesNotKnowAbortsTheProcess) {
  vdl::CommandTrace trace(16);
  EXPECT_DEATH(trace.traceTrimIssued(0, 1, 1, 1024), "tag_id < 1024 && tag_id >= 0");
}

TEST(Texts, FormatMatchesWhatItMakes) {
  EXPECT_TRUE(matches("recvRead(): recv read %lu out of order before write %lu",
                      "recvRead(): recv read 50 out of order before write 41"));
  EXPECT_TRUE(matches("at LBA 0x%016llX Transfer", "at LBA 0x00000000000001DB Transfer"));
  EXPECT_TRUE(matches("saved to '%s'", "saved to './a'b'"));
  EXPECT_TRUE(matches("%s(): status %d (%d)", "execute(): status -1046 (-1046)"));
}

TEST(Texts, FormatRefusesAnotherText) {
  EXPECT_FALSE(matches("need=%u, max=%u", "need=, max=5"));
  EXPECT_FALSE(matches("0x%lx", "0xABC"));
  EXPECT_FALSE(matches("read %lu", "read 5 "));
  EXPECT_FALSE(matches("'%s' is", "'a' was"));
  EXPECT_FALSE(isDocumented({Channel::warning, "No write command selected"}));
  EXPECT_TRUE(isDocumented({Channel::error, "No write command selected"}));
}

}  // namespace
}  // namespace randomhost
