#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/cli/RunningProgram.h"

namespace corvane::host {
namespace {

using nlohmann::json;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using testing::ProgramEnd;
using testing::runCorvane;
using testing::RunningProgram;
using tests::readFile;
using tests::TempFolder;

/// Enough commands to read back, in little memory.
std::vector<std::string> smallRun(std::vector<std::string> more) {
  std::vector<std::string> arguments{"run",   "--commands",        "2000", "--seed", "7", "--set", "Min Queue Size=100",
                                     "--set", "Max Queue Size=200"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

std::string repeatLine(const std::string& out) {
  const std::string before = "Repeat with:\n  corvane ";
  const size_t at = out.find(before);
  return at == std::string::npos
             ? ""
             : out.substr(at + before.size(), out.find('\n', at + before.size()) - at - before.size());
}

TEST(RunCommandTest, saysWhatIsTestedAndThatNothingWasFound) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(folder, smallRun({"--drive", "sim:64m", "--output", "out/"}));
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_EQ(end.err, "");
  EXPECT_THAT(end.out, HasSubstr("seed 7\n"));
  EXPECT_THAT(end.out, HasSubstr("Drive sim0: clean\n"));
  EXPECT_THAT(end.out, HasSubstr("Output: reports and dumps in out/, result in out/result.json\n"));
  EXPECT_THAT(end.out, EndsWith("Result: clean, nothing found\n"));
  EXPECT_THAT(folder.content(), ElementsAre("out", "out/result.json"));
}

TEST(RunCommandTest, writesTheDocumentWhereItIsTold) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(folder, smallRun({"--drive", "sim:64m", "--json", "my.json"}));
  EXPECT_EQ(end.status, 0) << end.err;
  // The usual output folder goes again when there is nothing in it.
  EXPECT_THAT(folder.content(), ElementsAre("my.json"));
  const json document = json::parse(readFile(folder / "my.json"));
  EXPECT_EQ(document["status"], "clean");
  const json& issued = document["drives"][0]["commands"]["issued"];
  EXPECT_EQ(issued["write"].get<uint64_t>() + issued["read"].get<uint64_t>(), 2000U);
  EXPECT_GT(document["drives"][0]["bytes"]["compared"].get<uint64_t>(), 0U);
}

TEST(RunCommandTest, quietSaysNothingWhenNothingIsFound) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(folder, smallRun({"--drive", "sim:64m", "--output", "out", "--quiet"}));
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.out + end.err, "");
  EXPECT_THAT(folder.content(), ElementsAre("out", "out/result.json"));
}

TEST(RunCommandTest, quietStillNamesTheUsualFolder) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(folder, smallRun({"--drive", "sim:64m", "--quiet"}));
  EXPECT_EQ(end.out, "Output: reports and dumps in corvane-out/, result in corvane-out/result.json\n");
  EXPECT_THAT(folder.content(), ElementsAre("corvane-out", "corvane-out/result.json"));
}

TEST(RunCommandTest, drawsAndPrintsASeed) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(folder, {"run", "--drive", "sim:64m", "--commands", "10"});
  EXPECT_EQ(end.status, 0) << end.err;
  const json document = json::parse(readFile(folder / "corvane-out/result.json"));
  EXPECT_EQ(document["seedDrawn"], true);
  const std::string seed = std::to_string(document["seed"].get<uint64_t>());
  EXPECT_THAT(end.out, HasSubstr("seed " + seed + " (drawn; --seed " + seed + " repeats it)"));
  EXPECT_THAT(end.out, HasSubstr("nothing was read back yet"));
}

TEST(RunCommandTest, theRepeatingCommandRepeatsTheRun) {
  const TempFolder folder;
  const std::vector<std::string> flags{"--drive", "sim:64m", "--commands-of", "write=2,atomic,read=3,verify",
                                       "--xfer",  "2..16"};
  const ProgramEnd first = runCorvane(folder, smallRun(flags));
  ASSERT_EQ(first.status, 0) << first.err;
  const json before = json::parse(readFile(folder / "corvane-out/result.json"));
  std::vector<std::string> words;
  for (const json& word : before["repeat"]) {
    words.push_back(word.get<std::string>());
  }
  ASSERT_EQ(words.front(), "corvane");
  words.erase(words.begin());
  const ProgramEnd second = runCorvane(folder, words);
  ASSERT_EQ(second.status, 0) << second.err;
  const json after = json::parse(readFile(folder / "corvane-out/result.json"));
  EXPECT_EQ(before["drives"][0]["commands"]["issued"], after["drives"][0]["commands"]["issued"]);
  EXPECT_EQ(before["drives"][0]["bytes"], after["drives"][0]["bytes"]);
  EXPECT_EQ(repeatLine(first.out), repeatLine(second.out));
  EXPECT_THAT(repeatLine(first.out), HasSubstr("--set 'Min Queue Size=100'"));
}

TEST(RunCommandTest, aFailedDriveFileIsDocumentedWhenAskedFor) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(folder, {"run", "--drive", "file:none.img", "--json", "x.json"});
  EXPECT_EQ(end.status, 3);
  const json document = json::parse(readFile(folder / "x.json"));
  EXPECT_EQ(document["status"], "drive error");
  EXPECT_THAT(document["error"].get<std::string>(), HasSubstr("none.img"));
  EXPECT_THAT(folder.content(), ElementsAre("x.json"));
}

/// Changes one byte behind the program's back as soon as it has been written, long before it is read back.
class FlippedByteTest : public ::testing::Test {
 protected:
  static constexpr long flippedBlock = 500;

  std::vector<std::string> arguments() const {
    return {"run",
            "--drive",
            "file:drive.img,size=16m,direct=off",
            "--commands",
            "5000",
            "--queue-depth",
            "8",
            "--xfer",
            "64",
            "--lba-agent",
            "sequential",
            "--rate",
            "300",
            "--seed",
            "1",
            "--range",
            "0..",
            "--set",
            "Min Queue Size=400",
            "--set",
            "Max Queue Size=450",
            "--output",
            "out"};
  }

  /// A written block carries its LBA in bytes 8 to 15.
  void flipOnceWritten(const RunningProgram& program) const {
    const std::string path = folder_ / "drive.img";
    while (!program.ended()) {
      if (std::FILE* file = std::fopen(path.c_str(), "r+b"); file != nullptr) {
        const bool done = flip(file);
        std::fclose(file);
        if (done) {
          return;
        }
      }
      std::this_thread::yield();
    }
  }

  static bool flip(std::FILE* file) {
    constexpr long at = flippedBlock * 512;
    if (std::fseek(file, at + 15, SEEK_SET) != 0 || std::fgetc(file) != (flippedBlock & 0xFF)) {
      return false;
    }
    std::fseek(file, at + 100, SEEK_SET);
    const int byte = std::fgetc(file);
    std::fseek(file, at + 100, SEEK_SET);
    return std::fputc(byte ^ 1, file) != EOF;
  }

  TempFolder folder_;
};

TEST_F(FlippedByteTest, isFoundReportedAndDocumented) {
  RunningProgram program(folder_, arguments());
  flipOnceWritten(program);
  const ProgramEnd end = program.wait();
  EXPECT_EQ(end.status, 1) << end.err;
  EXPECT_THAT(folder_.content(), Contains("drive.img")) << "what was tested stays for whoever looks into it";
  EXPECT_THAT(end.out, HasSubstr("*** DATA FAILURE *** drive.img: Miscompare Detected at LBA 0x00000000000001F4"));
  EXPECT_THAT(end.out, HasSubstr("Drive drive.img: DATA FAILURE: Miscompare Detected at LBA 0x00000000000001F4"));
  EXPECT_THAT(end.out, EndsWith("Result: data failure (exit status 1)\n"));
  const json document = json::parse(readFile(folder_ / "out/result.json"));
  EXPECT_EQ(document["exitStatus"], 1);
  ASSERT_EQ(document["findings"].size(), 1U);
  ASSERT_EQ(document["findings"][0]["files"].size(), 3U);
  for (const json& file : document["findings"][0]["files"]) {
    EXPECT_THAT(end.out, HasSubstr("\n    " + file.get<std::string>() + "\n"));
    EXPECT_THAT(folder_.content(), Contains(file.get<std::string>()));
  }
}

}  // namespace
}  // namespace corvane::host
