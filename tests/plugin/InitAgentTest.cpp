#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "Corvane.h"
#include "support_model/Allocations.h"
#include "vdl/Agent.h"

namespace vdl {
namespace {

struct GuardedTable {
  AgentTable table;
  uint64_t guard;
};

GuardedTable filledWithRubbish() {
  GuardedTable guarded;
  std::memset(static_cast<void*>(&guarded), 0xA5, sizeof(guarded));
  return guarded;
}

TEST(InitAgent, FillsTheNineSlotsAndNoMore) {
  GuardedTable guarded = filledWithRubbish();
  EXPECT_EQ(initAgent(&guarded.table), 0);
  EXPECT_EQ(guarded.table.startTest, &Corvane::startTest);
  EXPECT_EQ(guarded.table.stopTest, &Corvane::stopTest);
  EXPECT_EQ(guarded.table.execute, &Corvane::execute);
  EXPECT_EQ(guarded.table.deviceReset, &Corvane::deviceReset);
  EXPECT_EQ(guarded.table.initConfigData, &Corvane::initConfigData);
  EXPECT_EQ(guarded.table.freeConfigData, &Corvane::freeConfigData);
  EXPECT_EQ(guarded.table.initDriveData, &Corvane::initDriveData);
  EXPECT_EQ(guarded.table.freeDriveData, &Corvane::freeDriveData);
  EXPECT_EQ(guarded.table.getHelpStr, &Corvane::getHelpStr);
  EXPECT_EQ(guarded.guard, 0xA5A5A5A5A5A5A5A5U);
}

TEST(InitAgent, AllocatesNothing) {
  AgentTable table;
  const uint64_t before = modeltest::allocations();
  initAgent(&table);
  EXPECT_EQ(modeltest::allocations(), before);
}

TEST(InitAgent, ChangesNoStateSoThatItMayBeCalledAgain) {
  AgentTable first;
  AgentTable second;
  initAgent(&first);
  initAgent(&second);
  EXPECT_EQ(std::memcmp(&first, &second, sizeof(AgentTable)), 0);
}

TEST(InitAgent, IsFoundInTheBuiltAgentByItsPlainName) {
  void* library = dlopen(CORVANE_AGENT_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  using Entry = int (*)(AgentTable*);
  const auto entry = reinterpret_cast<Entry>(dlsym(library, "initAgent"));
  ASSERT_NE(entry, nullptr);
  GuardedTable guarded = filledWithRubbish();
  EXPECT_EQ(entry(&guarded.table), 0);
  EXPECT_EQ(guarded.guard, 0xA5A5A5A5A5A5A5A5U);
  std::array<uint64_t, 9> slots{};
  std::memcpy(slots.data(), &guarded.table, sizeof(slots));
  for (size_t i = 0; i < slots.size(); ++i) {
    EXPECT_NE(slots[i], 0xA5A5A5A5A5A5A5A5U);
    for (size_t j = 0; j < i; ++j) {
      EXPECT_NE(slots[i], slots[j]);
    }
  }
  EXPECT_STREQ(guarded.table.getHelpStr(), Corvane::getHelpStr());
  dlclose(library);
}

}  // namespace
}  // namespace vdl
