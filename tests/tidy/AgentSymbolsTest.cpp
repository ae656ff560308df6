#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <set>
#include <sstream>
#include <string>

namespace corvane::tidy {
namespace {

using testing::IsEmpty;

/// The last word of each line that a command prints: the names in a list of symbols.
std::set<std::string> namesFrom(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  EXPECT_NE(pipe, nullptr) << command;
  std::string text;
  std::array<char, 4096> piece{};
  for (size_t read = 0; (read = std::fread(piece.data(), 1, piece.size(), pipe)) != 0;) {
    text.append(piece.data(), read);
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  std::set<std::string> names;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::string name = line.substr(line.rfind(' ') + 1);
    names.insert(name.substr(0, name.find('@')));
  }
  return names;
}

std::set<std::string> defined(const std::string& library) {
  return namesFrom("nm -D --defined-only '" + library + "'");
}
std::set<std::string> wanted(const std::string& library) {
  return namesFrom("nm -D --undefined-only '" + library + "'");
}

bool ofTheSanitizers(const std::string& name) {
  return name.rfind("__asan", 0) == 0 || name.rfind("__ubsan", 0) == 0 || name.rfind("__tsan", 0) == 0 ||
         name.rfind("__odr_asan", 0) == 0 || name.rfind("_ZTI", 0) == 0 || name.rfind("_ZTS", 0) == 0;
}

/// Mangled names of what stands in the platform's namespaces.
bool ofThePlatform(const std::string& name) {
  return name.find("3vdl") != std::string::npos || name.find("5Ostra") != std::string::npos;
}

TEST(AgentSymbols, TheAgentShowsItsEntryAndNothingElse) {
  std::set<std::string> shown;
  for (const std::string& name : defined(CORVANE_AGENT_PATH)) {
    if (!ofTheSanitizers(name)) {
      shown.insert(name);
    }
  }
  EXPECT_EQ(shown, std::set<std::string>{"initAgent"});
}

TEST(AgentSymbols, TheAgentWantsOfThePlatformOnlyWhatTheLibrariesOffer) {
  std::set<std::string> offered = defined(VENDREL_PATH);
  offered.merge(defined(OSTRA_PATH));
  std::set<std::string> missing;
  std::set<std::string> found;
  for (const std::string& name : wanted(CORVANE_AGENT_PATH)) {
    if (ofThePlatform(name)) {
      (offered.contains(name) ? found : missing).insert(name);
    }
  }
  EXPECT_THAT(missing, IsEmpty());
  EXPECT_GT(found.size(), 20U);
}

}  // namespace
}  // namespace corvane::tidy
