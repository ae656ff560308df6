#include "tests/tidy/SourceTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/tidy/Rules.h"

namespace corvane::tidy {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<SourceFile>& tree() {
  static const std::vector<SourceFile> files = sourceTree(CORVANE_SOURCE_DIR);
  return files;
}

bool holds(const std::string& path) {
  return std::any_of(tree().begin(), tree().end(), [&path](const SourceFile& file) { return file.path == path; });
}

TEST(SourceTree, IsReadWhole) {
  EXPECT_GT(tree().size(), 150U);
  EXPECT_TRUE(holds("platform/include/vdl/Agent.h"));
  EXPECT_TRUE(holds("plugin/Write_Data_Gen/exports.map"));
  EXPECT_TRUE(holds("README.md"));
  EXPECT_TRUE(holds("run"));
  EXPECT_TRUE(std::none_of(tree().begin(), tree().end(),
                           [](const SourceFile& file) { return file.path.rfind("build/", 0) == 0; }));
}

TEST(SourceTree, IncludesPointOneWay) { EXPECT_THAT(wrongIncludes(tree()), IsEmpty()); }
TEST(SourceTree, NoFileIsTooLong) { EXPECT_THAT(longFiles(tree()), IsEmpty()); }
TEST(SourceTree, EveryHeaderIsGuarded) { EXPECT_THAT(unguardedHeaders(tree()), IsEmpty()); }
TEST(SourceTree, EveryTestIsRegistered) { EXPECT_THAT(unregisteredTests(tree()), IsEmpty()); }
TEST(SourceTree, NothingUnfinishedAndNobodysMachine) { EXPECT_THAT(forbiddenWords(tree()), IsEmpty()); }

// ---- the rules themselves ----

TEST(Rules, FindIncludesThatPointTheWrongWay) {
  const std::vector<SourceFile> files{
      {"plugin/Write_Data_Gen/Event.h", ""},
      {"platform/include/vdl/A.h", "#include \"host/run/B.h\"\n"},
      {"plugin/Write_Data_Gen/C.cpp", "#include <vector>\n  #  include \"host/drive/Drive.h\"\n#include \"Event.h\"\n"},
      {"host/drive/D.cpp", "#include \"host/run/B.h\"\n#include \"host/base/Random.h\"\n#include \"vdl/Buffer.h\"\n"},
      {"host/framework/E.cpp", "#include \"host/ostra/DeviceTable.h\"\n"},
      {"host/cli/F.cpp", "#include \"Event.h\"\n#include \"host/run/B.h\"\n"},
      {"host/drive/sim/H.cpp", "#include \"host/drive/file/I.h\"\n#include \"host/drive/Drive.h\"\n"},
      {"host/drive/file/J.h", "#include \"host/drive/engine/K.h\"\n#include \"host/drive/file/I.h\"\n"},
      {"host/drive/engine/L.h", "#include \"host/drive/file/I.h\"\n"},
      {"host/drive/Drive.cpp", "#include \"host/drive/sim/M.h\"\n"},
      {"host/drive/DriveFactory.cpp", "#include \"host/drive/sim/M.h\"\n"},
      {"tests/run/G.cpp", "#include \"host/run/B.h\"\n#include \"Event.h\"\n"}};
  EXPECT_THAT(wrongIncludes(files), ElementsAre("platform/include/vdl/A.h: must not include host/run/B.h",
                                                "plugin/Write_Data_Gen/C.cpp: must not include host/drive/Drive.h",
                                                "host/drive/D.cpp: must not include host/run/B.h",
                                                "host/framework/E.cpp: must not include host/ostra/DeviceTable.h",
                                                "host/cli/F.cpp: must not include Event.h",
                                                "host/drive/sim/H.cpp: must not include host/drive/file/I.h",
                                                "host/drive/engine/L.h: must not include host/drive/file/I.h",
                                                "host/drive/Drive.cpp: must not include host/drive/sim/M.h"));
}

TEST(Rules, CountLines) {
  const std::vector<SourceFile> files{
      {"a.cpp", std::string(800, '\n')}, {"b.cpp", std::string(801, '\n')}, {"c.md", std::string(2000, '\n')}};
  EXPECT_THAT(longFiles(files), ElementsAre("b.cpp: 801 lines"));
}

TEST(Rules, WantGuards) {
  EXPECT_THAT(unguardedHeaders({{"a.h", "int a;\n"}, {"b.h", "#pragma once\n"}, {"c.cpp", ""}}),
              ElementsAre("a.h: no #pragma once"));
}

TEST(Rules, WantTestsRegistered) {
  const std::vector<SourceFile> files{{"tests/x/CMakeLists.txt", "corvane_test(x SOURCES NamedTest.cpp)"},
                                      {"tests/x/NamedTest.cpp", ""},
                                      {"tests/x/ForgottenTest.cpp", ""},
                                      {"tests/y/Units.cmake", "foreach(unit One Two)\n x(${unit}Test.cpp)"},
                                      {"tests/y/TwoTest.cpp", ""},
                                      {"tests/y/ThreeTest.cpp", ""}};
  EXPECT_THAT(unregisteredTests(files), ElementsAre("tests/x/ForgottenTest.cpp: in no CMake file of its folder",
                                                    "tests/y/ThreeTest.cpp: in no CMake file of its folder"));
}

TEST(Rules, FindForbiddenWords) {
  EXPECT_THAT(forbiddenWords({{"a.cpp",
                               "// TO"
                               "DO: later"},
                              {"b.md",
                               "/ho"
                               "me/me/drive.img"},
                              {"c.cpp", "fine"},
                              {"d.cpp",
                               "GTEST_"
                               "SKIP();"},
                              {"e.cpp", "GTEST_SKIP() << what;"}}),
              ElementsAre("a.cpp: TO"
                          "DO",
                          "b.md: /ho"
                          "me/",
                          "d.cpp: GTEST_"
                          "SKIP();"));
}

}  // namespace
}  // namespace corvane::tidy
