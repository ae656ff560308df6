// What a run says of an iSCSI target that fails while it is tested.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>

#include "tests/cli/RunningProgram.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TgtTarget.h"

namespace corvane::host {
namespace {

using namespace std::chrono_literals;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::ProgramEnd;
using testing::RunningProgram;
using tests::TempFolder;
using tests::TgtTarget;

constexpr uint64_t fileBytes = uint64_t{16} << 20;
constexpr uint64_t testedBytes = uint64_t{1} << 20;

class FailingTargetTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = TgtTarget::missing(); !missing.empty()) {
      GTEST_SKIP() << missing;
    }
    std::ofstream(file()).close();
    std::filesystem::resize_file(file(), fileBytes);
    target.emplace(std::vector<tests::TgtUnit>{{.file = file()}});
  }

  std::string file() const { return files / "unit.img"; }

  /// Whether the test has written to most of its range.
  bool isWorking() const {
    struct stat info {};
    constexpr int64_t statBlock = 512;
    return stat(file().c_str(), &info) == 0 && info.st_blocks * statBlock > static_cast<int64_t>(testedBytes * 3 / 4);
  }

  /// Runs the program on the unit, with keys behind its address, and lets something happen to the target on the way.
  ///
  /// @param time     of the whole test, if nothing ends it
  /// @param watchdog how long one command may take
  void run(const std::string& keys, const std::string& time, const std::function<void()>& happens,
           const std::string& watchdog = "60s") {
    RunningProgram program(folder, {"run", "--drive", target->address() + keys, "--size", std::to_string(testedBytes),
                                    "--time", time, "--watchdog", watchdog, "--seed", "5", "--set", "Min Queue Size=64",
                                    "--set", "Max Queue Size=256", "--set", "Write Splice Detection=true"});
    const auto end = std::chrono::steady_clock::now() + 30s;
    while (!isWorking() && !program.ended() && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(10ms);
    }
    ended = program.ended() || !isWorking();
    happens();
    result = program.wait();
    ASSERT_FALSE(ended) << "the test was over before anything happened: " << result.out << result.err;
    EXPECT_EQ(result.err, "");
    document = nlohmann::json::parse(tests::readFile(folder / "corvane-out/result.json"));
    EXPECT_EQ(document["exitStatus"], result.status);
  }

  /// What the only finding was explained as.
  std::string kind() const {
    return document["findings"].size() == 1 ? document["findings"][0]["explanation"]["kind"].get<std::string>() : "";
  }

  /// The text without the breaks of its lines.
  std::string said() const {
    std::string text;
    for (const char c : result.out) {
      const char put = c == '\n' ? ' ' : c;
      if (put != ' ' || !text.ends_with(' ')) {
        text += put;
      }
    }
    return text;
  }

  TempFolder files;
  TempFolder folder;
  std::optional<TgtTarget> target;
  bool ended = false;
  ProgramEnd result;
  nlohmann::json document;
};

TEST_F(FailingTargetTest, ThatFlipsBitsIsAccusedOfThem) {
  run("", "60s", [&] {
    std::fstream bytes(file(), std::ios::in | std::ios::out | std::ios::binary);
    for (uint64_t place = 300; place < testedBytes; place += 512) {
      bytes.seekg(static_cast<std::streamoff>(place));
      const int byte = bytes.get();
      bytes.seekp(static_cast<std::streamoff>(place));
      bytes.put(static_cast<char>(byte ^ 1));
    }
  });
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(kind(), "bit-flips");
  EXPECT_THAT(said(), HasSubstr("It is the right data but for "));
  EXPECT_THAT(said(), HasSubstr("What fits best is bit-flip-"));
  EXPECT_THAT(said(), HasSubstr("Result: data failure (exit status 1)"));
  EXPECT_THAT(said(), Not(HasSubstr("Between the two")));
}

TEST_F(FailingTargetTest, WhoseFileIsCutShortIsAccusedOfZeros) {
  run("", "60s", [&] { std::filesystem::resize_file(file(), 0); });
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(kind(), "zeros");
  EXPECT_THAT(said(), HasSubstr("It is a block of zeros."));
  EXPECT_THAT(said(), HasSubstr("; it was acknowledged as good."));
}

TEST_F(FailingTargetTest, ThatIsKilledForGoodIsADriveErrorAndNoFinding) {
  run(",reconnect=1", "60s", [&] { target->kill(); });
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(document["findings"].size(), 0U);
  EXPECT_THAT(said(), HasSubstr("DRIVE ERROR: iSCSI 127.0.0.1:" + std::to_string(target->port())));
  EXPECT_THAT(said(), HasSubstr("the connection was lost and could not be made again within 1 s"));
  EXPECT_THAT(said(), HasSubstr("Connection refused; check host and port, and whether the target runs"));
  EXPECT_THAT(said(), HasSubstr("a longer time can be set with reconnect="));
  EXPECT_THAT(said(), HasSubstr("Result: drive error (exit status 3)"));
}

TEST_F(FailingTargetTest, ThatIsHeldStillIsADriveErrorInTime) {
  run(",timeout=1,reset=1,connect=1,reconnect=1", "60s", [&] { target->stop(); });
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(document["findings"].size(), 0U);
  EXPECT_THAT(said(), HasSubstr("takes the connection but does not answer to the login within 1 s"));
  EXPECT_THAT(said(), HasSubstr("check whether the target works, or wait longer with connect="));
}

TEST_F(FailingTargetTest, ThatHangsEndsTheProgramInTheWatchdogsTimeAndNamesItsCommands) {
  const auto began = std::chrono::steady_clock::now();
  run(
      ",reset=1,connect=1,reconnect=1", "60s", [&] { target->stop(); }, "1s");
  EXPECT_LT(std::chrono::steady_clock::now() - began, 30s);
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(document["findings"].size(), 0U);
  EXPECT_THAT(said(), HasSubstr("DRIVE ERROR: the drive hangs: "));
  EXPECT_THAT(said(), HasSubstr("unanswered for 1.0 s or longer: "));
  EXPECT_THAT(said(), ContainsRegex("of [0-9]+ blocks at LBA [0-9]+ [(]tag [0-9]+, [1-9][.][0-9] s[)]"));
  EXPECT_THAT(said(), HasSubstr("check the drive and its connection, or set the watchdog above 1.0 s"));
  EXPECT_THAT(said(), HasSubstr("Result: drive error (exit status 3)"));
}

TEST_F(FailingTargetTest, ThatComesBackIsTestedOn) {
  run(",reconnect=20", "6s", [&] { target->restart(); });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(said(), HasSubstr("events connections lost 1 findings 0"));
  EXPECT_THAT(said(), HasSubstr("Result: clean"));
}

TEST_F(FailingTargetTest, ThatComesBackWithoutItsDataIsAccusedAndTheLossIsTold) {
  run(",reconnect=20", "60s", [&] {
    target->kill();
    std::filesystem::resize_file(file(), 0);
    std::filesystem::resize_file(file(), fileBytes);
    target->start();
  });
  EXPECT_EQ(result.status, 1) << result.out;
  EXPECT_EQ(kind(), "zeros");
  EXPECT_THAT(said(), HasSubstr("Between the two the connection to the drive was lost once."));
}

}  // namespace
}  // namespace corvane::host
