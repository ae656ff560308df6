#include <gmock/gmock.h>

#include <tuple>

#include "tests/package/Installation.h"

namespace corvane::package {
namespace {

using ::testing::HasSubstr;

/// Builds the project of somebody else's, in `outside_agent/`, when it is first asked for. @return its build folder
std::string builtOutside(const Installation& installed, const std::string& findWith) {
  const std::string build = installed.scratch("build_with_" + findWith);
  if (!std::filesystem::exists(build)) {
    const std::string environment =
        "CMAKE_PREFIX_PATH='" + installed.prefix() + "' PKG_CONFIG_PATH='" + installed / LIBRARY_FOLDER "/pkgconfig' ";
    mustRun(environment + CMAKE_PROGRAM " -G Ninja -S '" SOURCE_FOLDER "/tests/package/outside_agent' -B '" + build +
            "' -D CMAKE_CXX_COMPILER='" COMPILER "' -D FIND_CORVANE_WITH=" + findWith);
    mustRun(CMAKE_PROGRAM " --build '" + build + "'");
  }
  return build;
}

class OutsideProjectTest : public ::testing::TestWithParam<std::tuple<Kind, std::string>> {
 protected:
  const Installation& installed = Installation::of(std::get<Kind>(GetParam()));
  const std::string build = builtOutside(installed, std::get<std::string>(GetParam()));
};

TEST_P(OutsideProjectTest, itsAgentRunsInTheInstalledProgram) {
  const std::string output = build + "/out";
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
  const Installation& installed = Installation::of(Kind::prefix);
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
