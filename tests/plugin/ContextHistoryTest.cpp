#include <gtest/gtest.h>

#include <list>
#include <sstream>
#include <string>
#include <vector>

#include "AtomicContext.h"
#include "AtomicHash.h"
#include "support_model/CapturedStderr.h"

namespace vdl {
namespace {

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> found;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    found.push_back(line);
  }
  return found;
}

const std::string header =
    "EventType   CmdID       BlockType  BlockNum  EmbedCmdID    EmbedLBA          HashValue       \n";
const std::string rule =
    "---------------------------------------------------------------------------------------------\n";

TEST(ContextHistory, ABlockOutsideTheContextHasNone) {
  const AtomicContext context;
  EXPECT_EQ(context.getHistory(1), "");
}

TEST(ContextHistory, EveryKindOfEvent) {
  const modeltest::CapturedStderr quiet;
  AtomicHash table;
  table.saveHash(5, 0x1f, 0x653fcc6ee4f45deb, true);
  table.writeIssued(17, 0x1f, 0x1a2b, {true, 17, 0x1f});
  table.writeIssued(18, 0x1f, 0xFF0000, {});
  table.atomicWriteIssued(300, 0x1f, 0x7ffff, {true, 300, 0x1f}, {0, 1, 0});
  table.invalidate(0x1f, 0x1f, AtomicHash::InvalidateKeepPrior);
  table.invalidate(0x1f, 0x1f, AtomicHash::InvalidateReplace);
  table.readIssued(301, 0x1f, true);
  const std::string history = table.getContext(0x1f, 0x1f, 301).getHistory(0x1f);
  EXPECT_EQ(history, "Context History for lba 0x1f:\n" + header + rule +
                         "invalidate  0           unknown    INVALID   ---           ---               ---             \n"
                         "?           0           unknown    INVALID   ---           ---               ---             \n"
                         "atomic      300         atomic     7ffff     12c           1f                ---             \n"
                         "write       18          normal     ZERO      ---           ---               ---             \n"
                         "write       17          normal     1a2b      11            1f                ---             \n"
                         "hash        5           hash       INVALID   ---           ---               653fcc6ee4f45deb\n");
  const std::vector<std::string> all = lines(history);
  ASSERT_EQ(all.size(), 9U);
  for (std::size_t i = 1; i < all.size(); ++i) {
    EXPECT_EQ(all[i].size(), 93U) << all[i];
  }
}

TEST(ContextHistory, MarksTheObservedEvent) {
  std::list<Event> events(4);
  auto e = events.begin();
  Event& atomic = *e++;
  Event& write = *e++;
  Event& hash = *e++;
  Event& marker = *e;
  atomic.next = &write;
  write.next = &hash;
  hash.next = &marker;
  atomic.type = EventType::Atomic;
  atomic.cmd_id = 300;
  atomic.block_type = BlockType::Atomic;
  atomic.block_num = 0x123;
  atomic.embed = {true, 300, 0x1000};
  write.type = EventType::Write;
  write.cmd_id = 5;
  write.block_type = BlockType::Normal;
  write.block_num = 0xFF0000;
  hash.type = EventType::Hash;
  hash.cmd_id = 4;
  hash.block_type = BlockType::Hash;
  hash.hash = 0x9e3779b9;
  marker.type = EventType::InvalidateMarker;
  AtomicContext context;
  context.copyHistory(0x1000, &atomic);
  LazyHasher unused(nullptr, nullptr);
  ASSERT_EQ(context.observe(0x1000, {0x123, {true, 300, 0x1000}}, unused), 0);
  EXPECT_EQ(context.getHistory(0x1000),
            "Context History for lba 0x1000:\n" + header + rule +
                "atomic      300         atomic     123       12c           1000              ---               "
                "*observed*\n"
                "write       5           normal     ZERO      ---           ---               ---             \n"
                "hash        4           hash       INVALID   ---           ---               9e3779b9        \n"
                "?           0           unknown    INVALID   ---           ---               ---             \n");
}

TEST(ContextHistory, WideValuesAreNotCut) {
  Event e;
  e.type = static_cast<EventType>(9);
  e.cmd_id = 12345678901;
  e.block_type = static_cast<BlockType>(7);
  e.block_num = 0x80000;
  e.embed = {true, 0xffffffffffff0, ~uint64_t{0}};
  e.hash = 0xabcdef;
  AtomicContext context;
  context.copyHistory(1, &e);
  const std::vector<std::string> all = lines(context.getHistory(1));
  ASSERT_EQ(all.size(), 4U);
  EXPECT_EQ(all[3], "?           12345678901  ?          INVALID   ffffffffffff0  ffffffffffffffff  abcdef          ");
  EXPECT_EQ(all[3].size(), 95U);
}

TEST(ContextHistory, AnUnknownBlocksReadIsNone) {
  const Event e;
  AtomicContext context;
  context.copyHistory(0xABC, &e);
  EXPECT_EQ(context.getHistory(0xABC),
            "Context History for lba 0xabc:\n" + header + rule +
                "none        0           unknown    INVALID   ---           ---               ---             \n");
}

TEST(ContextHistory, BlockNumbersAtTheLimits) {
  const std::pair<BlockNum, const char*> cases[] = {{0, "  0         "},        {0x7FFFF, "  7ffff     "},
                                                    {0x80000, "  INVALID   "},  {0x80001, "  INVALID   "},
                                                    {0xFF0000, "  ZERO      "}, {0xFF0001, "  INVALID   "},
                                                    {0xFFFFFF, "  INVALID   "}, {0xFFFFFFFF, "  INVALID   "}};
  for (const auto& [block, text] : cases) {
    Event e;
    e.block_num = block;
    AtomicContext context;
    context.copyHistory(1, &e);
    EXPECT_EQ(lines(context.getHistory(1)).at(3).substr(33, 12), text) << block;
  }
}

}  // namespace
}  // namespace vdl
