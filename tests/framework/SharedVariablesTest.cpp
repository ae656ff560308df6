#include "host/framework/SharedVariables.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "host/framework/DriveThreadHost.h"

namespace corvane::host {
namespace {

TEST(SharedVariables, ComeToLifeWithTheirFirstDefault) {
  SharedVariables variables(4);
  EXPECT_EQ(variables.u32("Count", 7), 7U);
  EXPECT_EQ(variables.u32("Count", 9), 7U);
  EXPECT_EQ(variables.u64("LBA"), 0U);
  EXPECT_TRUE(variables.flag("Flag", true));
  EXPECT_EQ(variables.buffer("Data").data, nullptr);
  EXPECT_TRUE(variables.ranges("Ranges").empty());
}

TEST(SharedVariables, KeepTheirAddressWhileOthersAreAdded) {
  SharedVariables variables(4);
  uint32_t* first = &variables.u32("First", 1);
  for (int i = 0; i < 1000; ++i) {
    variables.u32("Other " + std::to_string(i));
  }
  EXPECT_EQ(&variables.u32("First"), first);
  EXPECT_EQ(*first, 1U);
}

TEST(SharedVariables, ANameHasOneKind) {
  SharedVariables variables(4);
  variables.u32("Name");
  EXPECT_THROW(variables.u64("Name"), std::logic_error);
  EXPECT_THROW(variables.tagged("Name"), std::logic_error);
}

TEST(SharedVariables, KnowTheirWriters) {
  SharedVariables variables(4);
  EXPECT_EQ(variables.writers("CSZoneReset"), 0U);
  variables.setWriters("CSZoneReset", 2);
  EXPECT_EQ(variables.writers("CSZoneReset"), 2U);
}

TEST(TaggedViews, AnswerWhatWasSetWithItsExactSize) {
  SharedVariables variables(4);
  TaggedViews& views = variables.tagged("ReadDataPtr[TagID]");
  uint8_t bytes[16] = {};
  views.set(3, bytes, 10);
  uint64_t size = 99;
  EXPECT_EQ(views.platform().getData(3, &size), bytes);
  EXPECT_EQ(size, 10U);
  EXPECT_EQ(views.platform().getData(2, &size), nullptr);
  EXPECT_EQ(size, 0U);
}

TEST(TaggedViews, ATagThatDoesNotExistHasNoBuffer) {
  SharedVariables variables(4);
  TaggedViews& views = variables.tagged("CDB[TagID]");
  uint64_t size = 99;
  EXPECT_EQ(views.platform().getData(4, &size), nullptr);
  EXPECT_EQ(size, 0U);
  size = 99;
  EXPECT_EQ(views.platform().getData(0xFFFFFFFF, &size), nullptr);
  EXPECT_EQ(size, 0U);
  views.platform().unlock(4);
  EXPECT_THROW(views.set(4, nullptr, 0), std::out_of_range);
}

TEST(TaggedViews, UnlockingGivesTheBufferBackAndIsHarmlessAgain) {
  SharedVariables variables(4);
  TaggedViews& views = variables.tagged("CDB[TagID]");
  uint8_t byte = 1;
  views.set(0, &byte, 1);
  views.platform().unlock(0);
  views.platform().unlock(0);
  uint64_t size = 99;
  EXPECT_EQ(views.platform().getData(0, &size), nullptr);
  views.set(0, &byte, 1);
  views.clear(0);
  EXPECT_EQ(views.platform().getData(0, &size), nullptr);
}

}  // namespace
}  // namespace corvane::host
