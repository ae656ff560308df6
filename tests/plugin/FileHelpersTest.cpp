#include "FileHelpers.h"

#include <gtest/gtest.h>

#include <barrier>
#include <filesystem>
#include <set>
#include <thread>
#include <vector>

#include "support_model/TempDir.h"

namespace vdl::fs {
namespace {

constexpr int untouched = 77;

class OpenFile : public testing::Test {
 protected:
  /// Opens, writes a word and closes; true when a file was opened.
  bool open(const std::string& name, unsigned flags) {
    path = name;
    result = untouched;
    FILE* file = openFile(path, "w", result, flags);
    if (file == nullptr) {
      return false;
    }
    std::fputs("new", file);
    std::fclose(file);
    return true;
  }

  modeltest::TempDir folder;
  std::string path;
  int result = untouched;
};

TEST_F(OpenFile, OnThePlainRoadTheResultIsTheCallers) {
  EXPECT_TRUE(open(folder / "a.txt", 0));
  EXPECT_EQ(result, untouched);
  EXPECT_EQ(path, folder / "a.txt");
  EXPECT_EQ(modeltest::readFile(path), "new");
}

TEST_F(OpenFile, WithoutNumberingAnExistingFileIsOverwritten) {
  modeltest::writeFile(folder / "a.txt", "an old and longer text");
  EXPECT_TRUE(open(folder / "a.txt", fallBackToCurrentDirectory | createMissingParents));
  EXPECT_EQ(result, untouched);
  EXPECT_EQ(path, folder / "a.txt");
  EXPECT_EQ(modeltest::readFile(path), "new");
}

TEST_F(OpenFile, NumberingTakesTheFirstFreeName) {
  EXPECT_TRUE(open(folder / "r.txt", 7));
  EXPECT_EQ(path, folder / "r.txt");
  EXPECT_TRUE(open(folder / "r.txt", 7));
  EXPECT_EQ(path, folder / "r.txt.000");
  EXPECT_TRUE(open(folder / "r.txt", 7));
  EXPECT_EQ(path, folder / "r.txt.001");
  EXPECT_EQ(result, untouched);
}

TEST_F(OpenFile, NumbersAreLowerCaseHexadecimal) {
  modeltest::writeFile(folder / "r.txt", "");
  for (unsigned i = 0; i < 0xAB; ++i) {
    char suffix[8];
    std::snprintf(suffix, sizeof(suffix), ".%03x", i);
    modeltest::writeFile(folder / ("r.txt" + std::string(suffix)), "");
  }
  EXPECT_TRUE(open(folder / "r.txt", numberedName));
  EXPECT_EQ(path, folder / "r.txt.0ab");
}

TEST_F(OpenFile, WhenAllNumbersAreTakenThePlainNameIsOverwritten) {
  modeltest::writeFile(folder / "m.txt", "old");
  for (unsigned i = 0; i <= 0xFFF; ++i) {
    char suffix[8];
    std::snprintf(suffix, sizeof(suffix), ".%03x", i);
    modeltest::writeFile(folder / ("m.txt" + std::string(suffix)), "");
  }
  EXPECT_TRUE(open(folder / "m.txt", 7));
  EXPECT_EQ(result, 5);
  EXPECT_EQ(path, folder / "m.txt");
  EXPECT_EQ(modeltest::readFile(path), "new");

  std::filesystem::remove(folder / "m.txt.7ff");
  EXPECT_TRUE(open(folder / "m.txt", 7));
  EXPECT_EQ(result, untouched);
  EXPECT_EQ(path, folder / "m.txt.7ff");
}

TEST_F(OpenFile, MissingParentsAreMade) {
  EXPECT_TRUE(open(folder / "d/e/r.txt", createMissingParents));
  EXPECT_EQ(path, folder / "d/e/r.txt");
  EXPECT_EQ(modeltest::readFile(path), "new");
  EXPECT_EQ(result, untouched);
}

TEST_F(OpenFile, WithoutTheFlagMissingParentsAreNot) {
  EXPECT_FALSE(open(folder / "d/r.txt", 0));
  EXPECT_EQ(result, 3);
  EXPECT_EQ(path, folder / "d/r.txt");
  EXPECT_FALSE(std::filesystem::exists(folder / "d"));
}

TEST_F(OpenFile, AFolderOfThatNameGetsANumberedNeighbour) {
  std::filesystem::create_directory(folder / "dirpath");
  EXPECT_TRUE(open(folder / "dirpath", 7));
  EXPECT_EQ(result, untouched);
  EXPECT_EQ(path, folder / "dirpath.000");
}

TEST_F(OpenFile, AFolderInTheWayWithoutFallbackOpensNothing) {
  std::filesystem::create_directory(folder / "dirpath");
  EXPECT_FALSE(open(folder / "dirpath", createMissingParents));
  EXPECT_EQ(result, 3);
  EXPECT_EQ(path, folder / "dirpath");
}

TEST_F(OpenFile, FallsBackToTheCurrentFolder) {
  std::filesystem::create_directories(folder / "elsewhere/dirpath");
  EXPECT_TRUE(open(folder / "elsewhere/dirpath", fallBackToCurrentDirectory | createMissingParents));
  EXPECT_EQ(result, 6);
  EXPECT_EQ(path, folder / "dirpath");
  EXPECT_EQ(modeltest::readFile(path), "new");
}

TEST_F(OpenFile, TheFallbackIsNumberedToo) {
  modeltest::writeFile(folder / "r.txt", "old");
  modeltest::writeFile(folder / "blocked", "");
  EXPECT_TRUE(open(folder / "blocked/r.txt", fallBackToCurrentDirectory));
  EXPECT_EQ(result, 6);
  EXPECT_EQ(path, folder / "r.txt.000");
  EXPECT_EQ(modeltest::readFile(folder / "r.txt"), "old");
}

TEST_F(OpenFile, ALinkThatLeadsNowhereIsFollowed) {
  std::filesystem::create_symlink(folder / "target.txt", folder / "r.txt");
  EXPECT_TRUE(open(folder / "r.txt", 7));
  EXPECT_EQ(path, folder / "r.txt");
  EXPECT_EQ(modeltest::readFile(folder / "target.txt"), "new");
}

/// Everybody asks for the same name, again and again, and writes into what it got who it is.
TEST_F(OpenFile, NobodyGetsAFileThatAnotherThreadGot) {
  constexpr size_t threads = 8;
  constexpr size_t rounds = 50;
  std::barrier together(threads);
  std::vector<std::vector<std::string>> got(threads);
  {
    std::vector<std::jthread> everybody;
    for (size_t self = 0; self < threads; ++self) {
      everybody.emplace_back([&, self] {
        for (size_t round = 0; round < rounds; ++round) {
          together.arrive_and_wait();
          std::string name = folder / "new/r.txt";
          int ignored = untouched;
          FILE* file = openFile(name, "w", ignored, numberedName | createMissingParents);
          if (file != nullptr) {
            std::fprintf(file, "%zu %zu", self, round);
            std::fclose(file);
            got[self].push_back(name);
          }
        }
      });
    }
  }
  std::set<std::string> names;
  for (size_t self = 0; self < threads; ++self) {
    ASSERT_EQ(got[self].size(), rounds);
    for (size_t round = 0; round < rounds; ++round) {
      const std::string& name = got[self][round];
      EXPECT_TRUE(names.insert(name).second) << name << " was given out twice";
      EXPECT_EQ(modeltest::readFile(name), std::to_string(self) + " " + std::to_string(round)) << name;
    }
  }
}

TEST_F(OpenFile, AParentThatIsAFileOpensNothingWithoutFallback) {
  modeltest::writeFile(folder / "blocked", "");
  EXPECT_FALSE(open(folder / "blocked/r.txt", createMissingParents | numberedName));
  EXPECT_EQ(result, 3);
  EXPECT_EQ(path, folder / "blocked/r.txt");
}

}  // namespace
}  // namespace vdl::fs
