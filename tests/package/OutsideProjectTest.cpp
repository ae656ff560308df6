#include <gmock/gmock.h>

#include <tuple>

#include "tests/package/Installation.h"

namespace corvane::package {
namespace {

using ::testing::HasSubstr;

/// A project of somebody else's, in `outside_agent/`, built against an installation.
class OutsideProjectTest : public ::testing::TestWithParam<std::tuple<Kind, std::string>> {
 protected:
  OutsideProjectTest() : installed(std::get<Kind>(GetParam())), build(installed.scratch("build")) {
    mustRun("CMAKE_PREFIX_PATH='" + installed.prefix() + "' PKG_CONFIG_PATH='" +
            installed / LIBRARY_FOLDER "/pkgconfig' " CMAKE_PROGRAM " -G Ninja -S '" SOURCE_FOLDER
                                       "/tests/package/outside_agent' -B '" +
            build + "' -D CMAKE_CXX_COMPILER='" COMPILER "' -D FIND_CORVANE_WITH=" + std::get<std::string>(GetParam()));
    mustRun(CMAKE_PROGRAM " --build '" + build + "'");
  }

  const Installation installed;
  const std::string build;
};

TEST_P(OutsideProjectTest, itsAgentRunsInTheInstalledProgram) {
  const std::string output = installed.scratch("out");
  const std::string said =
      mustRun("'" + installed / "bin/corvane' run --plugin '" + build + "/liboutside_agent.so' --drive sim:16m " +
              "--commands 100 --output '" + output + "'");
  EXPECT_THAT(said, HasSubstr("Result: clean"));
  EXPECT_THAT(tests::readFile(output + "/result.json"), HasSubstr("\"write\": 100"));
  EXPECT_THAT(mustRun("'" + installed / "bin/corvane' usage --plugin '" + build + "/liboutside_agent.so'"),
              HasSubstr("Writes a pattern"));
}

TEST_P(OutsideProjectTest, itsHostRunsItsAgentAndOurs) {
  EXPECT_EQ(mustRun("'" + build + "/outside_host' '" + build + "/liboutside_agent.so'"),
            "outside agent: 100 writes finished\noutside host: 100 writes\n");
  const std::string said =
      mustRun("'" + build + "/outside_host' '" + installed / LIBRARY_FOLDER "/corvane/libcorvane.so'");
  EXPECT_THAT(said, HasSubstr("outside host: 100 writes\n"));
}

INSTANTIATE_TEST_SUITE_P(Every, OutsideProjectTest,
                         ::testing::Combine(::testing::Values(Kind::prefix, Kind::debianPackage),
                                            ::testing::Values("find_package", "pkg_config")));

TEST(InstalledHeaderTest, eachCompilesAlone) {
  const Installation installed(Kind::prefix);
  const std::string include = installed / "include";
  const std::string flags = " -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I'" + include + "' -I'" +
                            include + "/corvane' -x c++ ";
  size_t compiled = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(include)) {
    if (entry.path().extension() == ".h") {
      // Included, because a main file with "#pragma once" has a warning of its own.
      mustRun("echo '#include \"" + entry.path().string() + "\"' | '" COMPILER "'" + flags + "-");
      ++compiled;
    }
  }
  EXPECT_GE(compiled, 18U);
}

}  // namespace
}  // namespace corvane::package
