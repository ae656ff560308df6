#include "host/drive/CommandCheck.h"

#include <gtest/gtest.h>

#include <vector>

namespace corvane::host {
namespace {

class CommandCheck : public testing::Test {
 protected:
  CommandCheck() {
    geometry.blocks = 100;
    command.kind = CommandKind::write;
    command.lba = 90;
    command.blocks = 10;
    command.data = data.data();
    command.dataBytes = 10 * 512;
  }

  std::optional<Sense> check() const { return refuse(command, geometry, offers); }

  std::vector<uint8_t> data = std::vector<uint8_t>(100 * 520);
  DriveGeometry geometry;
  DriveCapabilities offers;
  DriveCommand command;
};

TEST_F(CommandCheck, TakesACommandUpToTheLastBlock) { EXPECT_EQ(check(), std::nullopt); }

TEST_F(CommandCheck, RefusesOneBlockMore) {
  command.blocks = 11;
  command.dataBytes += 512;
  EXPECT_EQ(check(), sense::lbaOutOfRange);
  command.blocks = 1;
  command.dataBytes = 512;
  command.lba = 100;
  EXPECT_EQ(check(), sense::lbaOutOfRange);
}

TEST_F(CommandCheck, AStepReachesFurther) {
  command.lbaStep = 2;
  command.lba = 81;
  EXPECT_EQ(check(), std::nullopt);
  command.lba = 82;
  EXPECT_EQ(check(), sense::lbaOutOfRange);
}

TEST_F(CommandCheck, TheEndDoesNotWrapAround) {
  command.lba = ~uint64_t{0} - 3;
  EXPECT_EQ(check(), sense::lbaOutOfRange);
  geometry.blocks = ~uint64_t{0};
  command.lba = ~uint64_t{0} - 10;
  EXPECT_EQ(check(), std::nullopt);
}

TEST_F(CommandCheck, AStepOfZeroIsAnInvalidField) {
  command.lbaStep = 0;
  EXPECT_EQ(check(), sense::invalidField);
}

TEST_F(CommandCheck, DataMustBeThereAndFit) {
  command.dataBytes -= 1;
  EXPECT_EQ(check(), sense::invalidField);
  command.dataBytes += 2;
  EXPECT_EQ(check(), sense::invalidField);
  command.dataBytes -= 1;
  command.data = nullptr;
  EXPECT_EQ(check(), sense::invalidField);
}

TEST_F(CommandCheck, ProtectionAndEndToEndBytesCount) {
  geometry.protectionBytes = 8;
  EXPECT_EQ(check(), sense::invalidField);
  command.dataBytes = 10 * 520;
  EXPECT_EQ(check(), std::nullopt);
  command.trailerBytes = 8;
  command.dataBytes = 10 * 528;
  EXPECT_EQ(check(), std::nullopt);
}

TEST_F(CommandCheck, APlainTransferIsOneThatHasBlocksAndIsNotRefused) {
  offers = {.atomicWrite = true, .writeSame = true, .trim = true, .verify = true, .syncCache = true};
  const auto ofTheKind = [this] { return command.kind == CommandKind::read || command.kind == CommandKind::write; };
  uint32_t plain = 0;
  uint32_t refused = 0;
  for (const CommandKind kind : {CommandKind::read, CommandKind::write, CommandKind::writeSame, CommandKind::verify}) {
    for (const uint64_t lba : {uint64_t{0}, uint64_t{90}, uint64_t{99}, uint64_t{100}, ~uint64_t{0}}) {
      for (const uint32_t blocks : {0U, 1U, 10U, 100U, 101U}) {
        for (const uint64_t bytes : {uint64_t{0}, uint64_t{512}, uint64_t{blocks} * 512, uint64_t{blocks} * 520}) {
          for (uint8_t* memory : {data.data(), static_cast<uint8_t*>(nullptr)}) {
            command.kind = kind;
            command.lba = lba;
            command.blocks = blocks;
            command.dataBytes = bytes;
            command.data = memory;
            EXPECT_EQ(isPlainTransfer(command, geometry), ofTheKind() && blocks != 0 && check() == std::nullopt);
            plain += isPlainTransfer(command, geometry) ? 1U : 0U;
            refused += check() != std::nullopt ? 1U : 0U;
          }
        }
      }
    }
  }
  EXPECT_GT(plain, 10U);
  EXPECT_GT(refused, 100U);
  command = {.kind = CommandKind::read, .lba = 1, .blocks = 2, .lbaStep = 2, .data = data.data(), .dataBytes = 1024};
  EXPECT_EQ(check(), std::nullopt);
  EXPECT_FALSE(isPlainTransfer(command, geometry)) << "its blocks are no neighbours";
}

TEST_F(CommandCheck, AWriteSameSendsOneBlock) {
  offers.writeSame = true;
  command.kind = CommandKind::writeSame;
  EXPECT_EQ(check(), sense::invalidField);
  command.dataBytes = 512;
  EXPECT_EQ(check(), std::nullopt);
}

TEST_F(CommandCheck, ATrimAndAFlushSendNothing) {
  offers.trim = offers.syncCache = true;
  command.data = nullptr;
  command.dataBytes = 0;
  command.kind = CommandKind::trim;
  EXPECT_EQ(check(), std::nullopt);
  command.kind = CommandKind::syncCache;
  command.lba = 5000;
  EXPECT_EQ(check(), std::nullopt);
}

TEST_F(CommandCheck, WhatADriveDoesNotOfferIsAnInvalidOperation) {
  for (const CommandKind kind : {CommandKind::writeAtomic, CommandKind::writeSame, CommandKind::trim,
                                 CommandKind::verify, CommandKind::syncCache}) {
    command.kind = kind;
    EXPECT_EQ(check(), sense::invalidOperation) << commandKindName(kind);
  }
}

TEST_F(CommandCheck, AnAtomicWriteHasSegmentsThatTheDriveTakes) {
  command.kind = CommandKind::writeAtomic;
  offers.atomicWrite = true;
  const auto isLegal = [this](uint64_t lba, uint32_t blocks, uint32_t bound) {
    command.lba = lba;
    command.blocks = blocks;
    command.atomicBound = bound;
    command.dataBytes = uint64_t{blocks} * 512;
    return check() == std::nullopt;
  };
  EXPECT_TRUE(isLegal(7, 5, 3)) << "there are no limits";
  offers.atomicSegments = {.leastBlocks = 2, .mostBlocks = 8};
  EXPECT_TRUE(isLegal(8, 8, 8));
  EXPECT_TRUE(isLegal(16, 24, 4));
  EXPECT_TRUE(isLegal(8, 12, 8)) << "the last segment is shorter and legal by itself";
  EXPECT_TRUE(isLegal(24, 4, 0)) << "without a bound it is one segment";
  EXPECT_FALSE(isLegal(24, 3, 0));
  EXPECT_FALSE(isLegal(4, 8, 8)) << "not at a multiple of its length";
  EXPECT_FALSE(isLegal(12, 9, 3));
  EXPECT_FALSE(isLegal(8, 9, 8)) << "the last segment is too short";
  EXPECT_FALSE(isLegal(8, 14, 8)) << "the last segment is no power of two";
  EXPECT_FALSE(isLegal(16, 16, 16)) << "too long";
  EXPECT_FALSE(isLegal(16, 16, 1)) << "too short";
  EXPECT_FALSE(isLegal(8, 1, 8)) << "shorter than its bound, and too short";
  EXPECT_TRUE(isLegal(8, 4, 8)) << "shorter than its bound, and legal by itself";
  command.lbaStep = 2;
  EXPECT_FALSE(isLegal(8, 8, 8)) << "with blocks left out";
  command.lbaStep = 1;
  isLegal(4, 8, 8);
  EXPECT_EQ(check(), sense::invalidField);
  command.kind = CommandKind::write;
  EXPECT_EQ(check(), std::nullopt) << "other writes go anywhere";
}

TEST(CommandKinds, HaveNamesAndChangeTheMediumOrNot) {
  EXPECT_STREQ(commandKindName(CommandKind::write), "write");
  EXPECT_STREQ(commandKindName(CommandKind::writeAtomic), "atomic");
  EXPECT_STREQ(commandKindName(CommandKind::writeSame), "writesame");
  EXPECT_STREQ(commandKindName(CommandKind::trim), "trim");
  EXPECT_STREQ(commandKindName(CommandKind::read), "read");
  EXPECT_STREQ(commandKindName(CommandKind::verify), "verify");
  EXPECT_STREQ(commandKindName(CommandKind::syncCache), "sync");
  for (const CommandKind kind :
       {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame, CommandKind::trim}) {
    EXPECT_TRUE(changesMedium(kind));
  }
  for (const CommandKind kind : {CommandKind::read, CommandKind::verify, CommandKind::syncCache}) {
    EXPECT_FALSE(changesMedium(kind));
  }
}

}  // namespace
}  // namespace corvane::host
