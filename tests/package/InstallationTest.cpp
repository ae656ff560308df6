#include <gmock/gmock.h>

#include "tests/package/Installation.h"

namespace corvane::package {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

class InstallationTest : public ::testing::TestWithParam<Kind> {
 protected:
  const Installation& installed = Installation::of(GetParam());
};

TEST_P(InstallationTest, runsATestWithItsOwnAgent) {
  const std::string said =
      mustRun("cd '" + installed.prefix() + "' && bin/corvane run --drive sim:16m --commands 2000" + " --output '" +
              installed.scratch("out") + "'");
  EXPECT_THAT(said, HasSubstr("Result: clean"));
  EXPECT_TRUE(std::filesystem::exists(installed.scratch("out/result.json")));
}

TEST_P(InstallationTest, hasItsLibrariesAndNoOthers) {
  for (const std::string file : {"bin/corvane", LIBRARY_FOLDER "/corvane/libcorvane.so"}) {
    const std::string libraries = mustRun("ldd '" + installed / file + "'");
    const std::string own = std::filesystem::canonical(installed / LIBRARY_FOLDER).string();
    EXPECT_THAT(libraries, Not(HasSubstr("not found")));
    EXPECT_THAT(libraries, Not(HasSubstr(BUILD_FOLDER)));
    for (const std::string name : {"libvendrel.so.0", "libostra.so.0"}) {
      const size_t at = libraries.find(name + " => ");
      ASSERT_NE(at, std::string::npos) << libraries;
      const std::string path = libraries.substr(at + name.size() + 4, libraries.find(" (", at) - at - name.size() - 4);
      EXPECT_EQ(std::filesystem::canonical(path).parent_path().string(), own);
    }
  }
}

TEST_P(InstallationTest, namesNoFolderOfTheBuild) {
  const tests::ShellEnd found = tests::runShell("grep -rlF '" BUILD_FOLDER "' '" + installed.prefix() + "'");
  EXPECT_EQ(found.out, "");
}

TEST_P(InstallationTest, hasAManualPageThatManShows) {
  const std::string page = mustRun("zcat '" + installed / "share/man/man1/corvane.1.gz" + "' | groff -man -Tascii");
  EXPECT_THAT(page, StartsWith("CORVANE(1)"));
}

TEST_P(InstallationTest, hasACompletionUnderTheProgramsName) {
  const std::string script = installed / "share/bash-completion/completions/corvane";
  EXPECT_THAT(mustRun("bash --norc -c \"source '" + script + "'; complete -p corvane\""), HasSubstr("corvane"));
}

TEST_P(InstallationTest, hasTheDocuments) {
  for (const std::string file : {"README.md", "copyright", "changelog.gz", "docs/installing.md"}) {
    EXPECT_TRUE(std::filesystem::exists(installed / "share/doc/corvane/" + file)) << file;
  }
  EXPECT_EQ(std::filesystem::exists(installed / "share/doc/corvane/examples"),
            std::filesystem::exists(SOURCE_FOLDER "/examples"));
}

TEST_P(InstallationTest, hasAServiceThatSystemdUnderstands) {
  const std::string unit = tests::readFile(installed / "lib/systemd/system/corvane@.service");
  EXPECT_THAT(unit, HasSubstr("\nExecStart=corvane run /etc/corvane/%i.toml --output /var/lib/corvane/%i"));
  if (tests::runShell("command -v systemd-analyze").status != 0) {
    return;  // the rest is systemd's own opinion
  }
  // The program is not where systemd looks for programs.
  const std::string name = "ExecStart=";
  std::string there = unit;
  there.insert(there.find(name) + name.size(), installed / "bin/");
  const std::string path = installed.scratch("corvane@check.service");
  tests::writeFile(path, there);
  EXPECT_EQ(mustRun("systemd-analyze verify --man=no --recursive-errors=no '" + path + "'"), "");
}

INSTANTIATE_TEST_SUITE_P(Of, InstallationTest, ::testing::Values(Kind::prefix, Kind::debianPackage),
                         ::testing::PrintToStringParamName());

TEST(DebianPackageTest, dependsOnWhatItsProgramsNeed) {
  const std::string& package = Installation::of(Kind::debianPackage).package();
  EXPECT_THAT(std::filesystem::path(package).filename().string(),
              MatchesRegex("corvane_" CORVANE_VERSION "_[a-z0-9]+\\.deb"));
  const std::string depends = mustRun("dpkg-deb -f '" + package + "' Depends");
  for (const char* library : {"libc6 (>= ", "libstdc++6 (>= ", "liburing2 (>= "}) {
    EXPECT_THAT(depends, HasSubstr(library));
  }
  EXPECT_THAT(mustRun("dpkg-deb -I '" + package + "' triggers"), HasSubstr("ldconfig"));
  EXPECT_THAT(mustRun("dpkg-deb -I '" + package + "' shlibs"),
              HasSubstr("libvendrel 0 corvane (= " CORVANE_VERSION ")"));
}

}  // namespace
}  // namespace corvane::package
