#include "host/run/PluginLoader.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

using ::testing::HasSubstr;

std::string complaintAbout(const std::string& path) {
  try {
    const AgentPlugin plugin(path);
  } catch (const ConfigurationError& error) {
    return error.what();
  }
  return "loaded";
}

bool isLoaded(const char* path) {
  void* handle = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) {
    dlclose(handle);
  }
  return handle != nullptr;
}

TEST(PluginLoader, GivesTheFilledTableAndUnloadsAtTheEnd) {
  {
    const AgentPlugin plugin(PLUGIN_CompleteAgent);
    EXPECT_STREQ(plugin.table().getHelpStr(), "an agent that does nothing");
    EXPECT_EQ(plugin.table().execute(nullptr, nullptr, nullptr), 0);
    EXPECT_TRUE(isLoaded(PLUGIN_CompleteAgent));
  }
  EXPECT_FALSE(isLoaded(PLUGIN_CompleteAgent));
}

TEST(PluginLoader, AFileThatIsNotThereIsNamed) {
  const std::string complaint = complaintAbout("/nowhere/agent.so");
  EXPECT_THAT(complaint, HasSubstr("'/nowhere/agent.so' cannot be loaded"));
  EXPECT_THAT(complaint, HasSubstr("No such file"));
  EXPECT_EQ(complaint.find('\n'), std::string::npos);
}

TEST(PluginLoader, ALibraryWithoutEntryIsNoAgent) {
  EXPECT_THAT(complaintAbout(PLUGIN_NoEntry), HasSubstr("'" PLUGIN_NoEntry "' has no initAgent entry"));
  EXPECT_FALSE(isLoaded(PLUGIN_NoEntry));
}

TEST(PluginLoader, AFailingEntryIsReportedWithItsStatus) {
  EXPECT_THAT(complaintAbout(PLUGIN_FailingEntry), HasSubstr("its initAgent returned -77"));
  EXPECT_FALSE(isLoaded(PLUGIN_FailingEntry));
}

TEST(PluginLoader, AnEmptySlotIsNamedAndTheTableBeganZeroed) {
  EXPECT_THAT(complaintAbout(PLUGIN_MissingSlot), HasSubstr("left the callback getHelpStr empty"));
  EXPECT_FALSE(isLoaded(PLUGIN_MissingSlot));
}

}  // namespace
}  // namespace corvane::host
