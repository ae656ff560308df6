#include <gtest/gtest.h>

#include <iostream>

#include "AtomicHash.h"
#include "support_model/AtomicHashFixture.h"

namespace vdl {
namespace {

using AtomicHashRefusalTest = modeltest::AtomicHashFixture;

TEST_F(AtomicHashRefusalTest, ReadOfNothingExpectingAWriteIsRefused) {
  EXPECT_EQ(table.readIssued(0x2A, 0x1F, true), -1003);
  EXPECT_EQ(errors.take(), "<E> readIssued !record && expect lba:1f cmd_id:2a\n");
  EXPECT_TRUE(table.records().empty());
  EXPECT_EQ(table.readIssued(3, 0x64, true), -1003);
  EXPECT_EQ(errors.take(), "<E> readIssued !record && expect lba:64 cmd_id:3\n");
  EXPECT_EQ(table.readIssued(26, 0x64, true), -1003);
  EXPECT_EQ(errors.take(), "<E> readIssued !record && expect lba:64 cmd_id:1a\n");
}

TEST_F(AtomicHashRefusalTest, TheErrorStreamStaysInHexadecimal) {
  std::cerr << std::dec << 26 << '\n';
  EXPECT_EQ(errors.take(), "26\n");
  table.readSkip(1);
  errors.take();
  std::cerr << 26 << '\n';
  EXPECT_EQ(errors.take(), "1a\n");
}

TEST_F(AtomicHashRefusalTest, OperationsWithoutARecordAreRefusedEachInItsWords) {
  const PeekResult r = table.readFinished(0x2A, 0x1F, true);
  EXPECT_EQ(r.status, -1003);
  EXPECT_EQ(r.block_num, 0x80001U);
  EXPECT_EQ(errors.take(), "<E> readFinished couldn't find record lba:1f cmd_id:2a\n");
  EXPECT_EQ(table.readSkip(0x1F), -1003);
  EXPECT_EQ(errors.take(), "<E> readSkip couldn't find record lba:1f\n");
  EXPECT_EQ(table.dropHash(0x2A, 0x1F), -1003);
  EXPECT_EQ(errors.take(), "<E> dropHash couldn't find record lba:1f\n");
  table.writeFinished(0x2A, 0x1F);
  table.hardWriteError(0x2A, 0x1F);
  table.hashClean(0x1F);
  table.invalidate(0, ~uint64_t{0}, AtomicHash::InvalidateReplace);
  EXPECT_EQ(errors.take(), "");
  EXPECT_TRUE(table.records().empty());
}

TEST_F(AtomicHashRefusalTest, RefusalsOnARecordAndItsEnd) {
  EXPECT_EQ(table.writeIssued(3, 0x1F, 9, {}), 0);
  EXPECT_EQ(table.dropHash(0x2A, 0x1F), -1003);
  EXPECT_EQ(errors.take(), "<E> dropHash no hash event found. lba:1f cmd_id:2a\n");
  EXPECT_EQ(table.readFinished(0x2A, 0x1F, false).status, -1003);
  EXPECT_EQ(errors.take(), "<E> readFinished couldn't find wait_read lba:1f cmd_id:2a\n");
  EXPECT_EQ(references(0x1F), 1U);
  EXPECT_EQ(table.readIssued(4, 0x1F, true), 0);
  EXPECT_EQ(references(0x1F), 0U);
  EXPECT_EQ(table.readIssued(5, 0x1F, true), -1200);
  EXPECT_EQ(errors.take(), "<E> SANITY_CHECK readIssued expect=1 ref_count=0 lba:1f cmd_id:5\n");
  ASSERT_NE(record(0x1F)->wait_read, nullptr);
  EXPECT_EQ(record(0x1F)->wait_read->cmd_id, 4U) << "no wait for the refused read";
  EXPECT_EQ(record(0x1F)->wait_read->next, nullptr);
  EXPECT_EQ(table.dropHash(3, 0x1F), -1200);
  EXPECT_EQ(errors.take(), "<E> SANITY_CHECK dropHash ref_count=0 lba:1f cmd_id:3\n");
  EXPECT_EQ(table.readSkip(0x1F), 0);
  ASSERT_NE(record(0x1F), nullptr) << "the waiting read holds it";
  const PeekResult r = table.readFinished(4, 0x1F, false);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.block_type, BlockType::Normal);
  EXPECT_EQ(r.block_num, 9U);
  EXPECT_EQ(record(0x1F), nullptr);
  EXPECT_EQ(errors.take(), "");
}

}  // namespace
}  // namespace vdl
