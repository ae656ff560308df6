#include "host/cli/FlagChoices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "host/cli/Program.h"

namespace corvane::host {
namespace {

using Kind = FlagChoices::Kind;
using ::testing::Contains;
using ::testing::ElementsAre;

/// The choices of a flag of a command, or of its word without a flag.
FlagChoices choices(const std::string& command, const std::string& flag) {
  FlagChoices found;
  describeProgram([&](const CLI::App& app) { found = choicesOf(*app.get_subcommand(command)->get_option(flag)); });
  return found;
}

TEST(FlagChoicesTest, areTheNamesThatTheParsersKnow) {
  EXPECT_THAT(choices("run", "--commands-of").words,
              ElementsAre("write", "atomic", "writesame", "trim", "read", "verify"));
  EXPECT_THAT(choices("run", "--step").words, ElementsAre("read", "verify", "write", "atomic", "writesame", "trim",
                                                          "e2e", "power", "sync", "reset", "zone-reset", "invalidate"));
  EXPECT_THAT(choices("run", "--lba-agent").words, Contains("sequential"));
  EXPECT_THAT(choices("run", "--power-toggle").words, ElementsAre("off", "nosync", "sync"));
  EXPECT_THAT(choices("run", "--fault").words, Contains("lost-write"));
  EXPECT_THAT(choices("selftest", "--class").words, Contains("lost-write"));
}

TEST(FlagChoicesTest, followFromTheNameOfTheValue) {
  EXPECT_EQ(choices("run", "--json").kind, Kind::files);
  EXPECT_EQ(choices("usage", "--plugin").kind, Kind::files);
  EXPECT_EQ(choices("run", "--output").kind, Kind::folders);
  EXPECT_EQ(choices("run", "--seed").kind, Kind::nothing);
  for (const FlagChoices& one : {choices("run", "--drive"), choices("drives", "ADDRESS")}) {
    EXPECT_EQ(one.kind, Kind::addresses);
    EXPECT_THAT(one.words, Contains("sim:"));
    EXPECT_THAT(one.words, Contains("file:PATH"));
  }
}

TEST(FlagChoicesTest, areOnlyAboutFlagsThatThereAre) {
  describeProgram([](const CLI::App& app) {
    const std::vector<const CLI::App*> commands = app.get_subcommands([](const CLI::App*) { return true; });
    for (const std::string& flag : flagsWithChoices()) {
      EXPECT_TRUE(std::any_of(commands.begin(), commands.end(), [&flag](const CLI::App* command) {
        return command->get_option_no_throw(flag) != nullptr;
      })) << flag;
    }
  });
}

}  // namespace
}  // namespace corvane::host
