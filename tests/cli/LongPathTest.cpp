// Paths as no one types them: with spaces and line breaks, and as long as the system allows, and longer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/RunningProgram.h"

namespace corvane::host::testing {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using tests::TempFolder;

constexpr const char* tooLong = "File name too long";

/// A path below a folder that has so many bytes in all.
std::string pathOf(const std::string& folder, size_t bytes) {
  std::string path = folder;
  while (path.size() < bytes) {
    // No part is empty, and none longer than a file system takes.
    const size_t left = bytes - path.size() - 1;
    const size_t part = left > NAME_MAX && left <= NAME_MAX + 1 ? NAME_MAX - 1 : std::min<size_t>(left, NAME_MAX);
    path += "/" + std::string(part, 'd');
  }
  return path;
}

ProgramEnd runOn(const TempFolder& folder, const std::string& drive, const std::vector<std::string>& more) {
  std::vector<std::string> words{"run",
                                 "--drive",
                                 drive,
                                 "--commands",
                                 "2000",
                                 "--size",
                                 "1m",
                                 "--seed",
                                 "1",
                                 "--xfer",
                                 "1..16",
                                 "--queue-depth",
                                 "16",
                                 "--set",
                                 "Min Queue Size=64",
                                 "--set",
                                 "Max Queue Size=128"};
  words.insert(words.end(), more.begin(), more.end());
  return runCorvane(folder, words);
}

const std::vector<std::string> withFault{"--fault", "lost-write:at=command:500", "--lba-agent", "sequential"};

std::vector<std::string> withFaultAnd(std::vector<std::string> words) {
  words.insert(words.end(), withFault.begin(), withFault.end());
  return words;
}

void expectOneLine(const std::string& text) { EXPECT_EQ(std::ranges::count(text, '\n'), 1) << text; }

TEST(LongPath, WithSpacesAndLineBreaksHoldsEveryFileAndIsShownInOneLine) {
  const TempFolder folder;
  const std::string odd = "a b/c\nd";
  const ProgramEnd end = runOn(folder, "file:" + odd + " e.img,size=1m",
                               withFaultAnd({"--output", odd, "--junit", odd + "/j\n.xml", "--events", odd + "/e .x"}));
  // The folder of the drive's file is not made for it.
  EXPECT_EQ(end.status, 3) << end.out;
  EXPECT_THAT(end.err, AllOf(HasSubstr("'a b/c?d e.img' cannot be"), Not(HasSubstr("c\nd"))));
  expectOneLine(end.err);

  std::filesystem::create_directory(folder / "a b");
  const ProgramEnd found =
      runOn(folder, "file:" + odd + " e.img,size=1m",
            withFaultAnd({"--output", odd, "--junit", odd + "/j\n.xml", "--events", odd + "/e .x"}));
  EXPECT_EQ(found.status, 1) << found.err;
  EXPECT_EQ(found.err, "");
  EXPECT_THAT(found.out, HasSubstr("'a b/c?d/datacompare_trace"));
  for (const char* name : {"/result.json", "/j\n.xml", "/e .x"}) {
    EXPECT_GT(std::filesystem::file_size(folder / (odd + name)), 0U) << name;
  }
  const auto document = nlohmann::json::parse(tests::readFile(folder / (odd + "/result.json")));
  const std::string trace = document["drives"][0]["files"]["reports"][0];
  EXPECT_THAT(trace, HasSubstr(odd + "/datacompare_trace"));
  EXPECT_TRUE(std::filesystem::exists(folder / trace));
  ASSERT_EQ(runOn(folder, "sim:64m", withFaultAnd({"--output", odd})).status, 1);
  EXPECT_EQ(runCorvane(folder, {"replay", odd + "/result.json"}).status, 1);
  EXPECT_EQ(runCorvane(folder, {"report", odd, "--output", odd + "/p\n.html"}).status, 0);
  EXPECT_GT(std::filesystem::file_size(folder / (odd + "/p\n.html")), 0U);
}

TEST(LongPath, OfTheLongestNameIsTakenAndALongerOneRefused) {
  const std::string longest(NAME_MAX, 'n');
  const TempFolder folder;
  for (const char* flag : {"--json", "--junit", "--events", "--output"}) {
    const TempFolder taking;
    const ProgramEnd taken = runOn(taking, "sim:64m", {flag, longest});
    EXPECT_EQ(taken.status, 0) << flag << taken.err;
    EXPECT_THAT(taking.content(), Contains(longest)) << flag;
    const ProgramEnd refused = runOn(folder, "sim:64m", {flag, longest + "n"});
    EXPECT_EQ(refused.status, 2) << flag << refused.out;
    EXPECT_THAT(refused.err, AllOf(HasSubstr(std::string(flag) + " '" + longest + "n' cannot be"), HasSubstr(tooLong),
                                   HasSubstr("; name a ")));
    expectOneLine(refused.err);
  }
  EXPECT_THAT(folder.content(), IsEmpty()) << "what is refused leaves nothing behind";
}

TEST(LongPath, OfADriveIsTakenUpToTheLongestName) {
  const TempFolder folder;
  const std::string longest(NAME_MAX, 'n');
  const ProgramEnd taken = runOn(folder, "file:" + longest + ",size=1m", withFault);
  EXPECT_EQ(taken.status, 1) << taken.err;
  EXPECT_EQ(taken.err, "");
  EXPECT_THAT(taken.out, Not(HasSubstr("not complete")));
  for (const std::string scheme : {"file:", "block:"}) {
    const ProgramEnd refused = runOn(folder, scheme + longest + "n", {});
    EXPECT_EQ(refused.status, 3) << refused.out;
    EXPECT_THAT(refused.err, AllOf(HasSubstr(longest + "n' cannot be "), HasSubstr(tooLong), HasSubstr("; name a ")));
  }
}

TEST(LongPath, OfAllBytesIsTakenUpToWhatTheSystemTakes) {
  const TempFolder folder;
  // With room for the names of the files.
  const ProgramEnd taken =
      runOn(folder, "sim:64m", withFaultAnd({"--output", pathOf(folder.path(), PATH_MAX - 1 - 40)}));
  EXPECT_EQ(taken.status, 1) << taken.err;
  EXPECT_EQ(taken.err, "");
  EXPECT_THAT(taken.out, Not(HasSubstr("not complete")));
  for (const size_t bytes : {size_t{PATH_MAX} - 1 - 8, size_t{PATH_MAX} - 1, size_t{PATH_MAX}, size_t{PATH_MAX} * 2}) {
    const TempFolder other;
    const ProgramEnd refused = runOn(other, "sim:64m", {"--output", pathOf(other.path(), bytes)});
    EXPECT_EQ(refused.status, 2) << bytes << refused.out;
    EXPECT_THAT(refused.err, AllOf(HasSubstr("--output '"), HasSubstr(tooLong), HasSubstr("; name a folder"))) << bytes;
    expectOneLine(refused.err);
    EXPECT_THAT(other.content(), IsEmpty()) << bytes;
  }
}

TEST(LongPath, OfAPlugInThatIsNotThereIsNamed) {
  const TempFolder folder;
  for (const std::string& path : {std::string("no such\nfile"), std::string(NAME_MAX + 1, 'n'),
                                  pathOf(folder.path(), PATH_MAX), std::string("a/b c")}) {
    const ProgramEnd refused = runOn(folder, "sim:64m", {"--plugin", path});
    EXPECT_EQ(refused.status, 2) << refused.out;
    EXPECT_THAT(refused.err, AllOf(HasSubstr("--plugin '"), HasSubstr("cannot be loaded"),
                                   HasSubstr("give the path of an agent's library")));
    expectOneLine(refused.err);
  }
}

TEST(LongPath, OfAPlugInWithSpacesAndLineBreaksIsLoaded) {
  const TempFolder folder;
  std::filesystem::create_directory(folder / "a b");
  std::filesystem::create_symlink(CORVANE_AGENT, folder / "a b/c\nd.so");
  const ProgramEnd end = runOn(folder, "sim:64m", {"--plugin", "a b/c\nd.so"});
  EXPECT_EQ(end.status, 0) << end.err;
}

}  // namespace
}  // namespace corvane::host::testing
