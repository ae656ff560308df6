#pragma once

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/fault/FaultBench.h"

namespace corvane::host {

/// Checks the entry of a fault that struck command `command`, and that its altered blocks tell what the drive beneath
/// holds and what the faulty drive returns.
inline void expectHonestLedger(FaultBench& bench, uint64_t command, CommandKind kind, uint64_t lba, uint32_t blocks) {
  ASSERT_EQ(bench.injections(), 1U);
  const Injection injection = bench.only();
  EXPECT_EQ(injection.drive, bench.ledger.drive());
  EXPECT_EQ(injection.command, command);
  EXPECT_EQ(injection.kind, kind);
  EXPECT_EQ(injection.lba, lba);
  EXPECT_EQ(injection.blocks, blocks);
  EXPECT_EQ(injection.lbaStep, 1U);
  EXPECT_FALSE(injection.altered.empty());
  for (const AlteredBlock& block : injection.altered) {
    EXPECT_EQ(block.was, bench.honest(block.lba, 1)) << block.lba;
    EXPECT_NE(block.was, block.is) << block.lba;
  }
}

/// Checks that reads of these blocks return the altered ones as the ledger has them and all others as they are
/// beneath; then that a good write ends it.
inline void expectShownUntilOverwritten(FaultBench& bench, uint64_t lba, uint32_t blocks) {
  for (int look = 0; look < 2; ++look) {
    Bytes expected = bench.honest(lba, blocks);
    for (const AlteredBlock& block : bench.only().altered) {
      ASSERT_GE(block.lba, lba);
      ASSERT_LT(block.lba, lba + blocks);
      std::ranges::copy(block.is, expected.begin() + static_cast<std::ptrdiff_t>((block.lba - lba) * block.is.size()));
    }
    EXPECT_EQ(bench.read(lba, blocks), expected);
  }
  EXPECT_EQ(bench.only().overwritten, 0U);
  const Bytes data = bench.write(lba, blocks);
  EXPECT_EQ(bench.only().overwritten, bench.only().altered.size());
  EXPECT_EQ(bench.read(lba, blocks), data);
  EXPECT_EQ(bench.only().interrupted, 0U);
}

}  // namespace corvane::host
