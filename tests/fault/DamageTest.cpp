#include "host/fault/Damage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "tests/drive/CommandMaker.h"
#include "tests/support/CommandOf.h"

namespace corvane::host {
namespace {

constexpr uint64_t seeds = 200;
constexpr uint32_t tornBytes = 512;  ///< a write tears between two of these, whatever the drive's blocks
const DriveGeometry plain{.blocks = 1000, .blockSize = 512};
const DriveGeometry large{.blocks = 1000, .blockSize = 4096};
const DriveGeometry guarded{.blocks = 1000, .blockSize = 512, .protectionBytes = 8};

/// One struck command by hand: what lay around it, what an honest drive leaves, and what the fault does.
struct Scene {
  FaultClass what = FaultClass::lostWrite;
  DriveGeometry geometry = plain;
  DriveCommand command;
  Bytes otherData;
  RecentCommands recent;
  Sectors before;
  Sectors after;

  Scene(FaultClass fault, CommandKind kind, uint64_t lba, uint32_t blocks, const DriveGeometry& of = plain,
        uint32_t step = 1)
      : what(fault), geometry(of) {
    command.kind = kind;
    command.lba = lba;
    command.blocks = blocks;
    command.lbaStep = step;
    const Neighbourhood around = neighbourhoodOf(what, command, geometry);
    before = Sectors(around.first, around.end - around.first, geometry.sectorBytes());
    for (uint64_t at = around.first; at < around.end; ++at) {
      std::ranges::copy(randomBytes(at, geometry.sectorBytes()), before.at(at).begin());
    }
    after = before;
    for (uint32_t block = 0; block < blocks; ++block) {
      const Bytes data = dataOf(block);
      std::ranges::copy(data, after.at(lbaOf(block)).begin());
    }
    otherData = randomBytes(77'777, geometry.sectorBytes());
  }

  uint64_t lbaOf(uint32_t block) const { return command.lba + uint64_t{block} * command.lbaStep; }

  Bytes dataOf(uint32_t block) const {
    switch (command.kind) {
      case CommandKind::trim:
      case CommandKind::zoneReset:
      case CommandKind::invalidate:
        return Bytes(geometry.sectorBytes());
      case CommandKind::writeSame:
        return randomBytes(50'000, geometry.sectorBytes());
      default:
        return randomBytes(50'000 + block, geometry.sectorBytes());
    }
  }

  std::optional<Damage> strike(uint64_t seed) const {
    Random random(seed);
    return damageOf({.what = what,
                     .command = command,
                     .geometry = geometry,
                     .before = before,
                     .after = after,
                     .otherData = otherData,
                     .recent = recent},
                    random);
  }

  /// The blocks that are not what an honest drive leaves.
  std::vector<uint64_t> changed(const Damage& damage) const {
    std::vector<uint64_t> lbas;
    for (uint64_t lba = after.first(); lba < after.end(); ++lba) {
      if (!std::ranges::equal(damage.content.at(lba), after.at(lba))) {
        lbas.push_back(lba);
      }
    }
    return lbas;
  }

  bool isOld(const Damage& damage, uint64_t lba) const {
    return std::ranges::equal(damage.content.at(lba), before.at(lba));
  }
};

/// Lets a scene happen with many seeds; each time something is damaged, and the neighbourhood keeps its extent.
void withManySeeds(const Scene& scene, const std::function<void(const Damage&)>& check) {
  for (uint64_t seed = 1; seed <= seeds; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const std::optional<Damage> damage = scene.strike(seed);
    ASSERT_TRUE(damage);
    ASSERT_EQ(damage->content.first(), scene.after.first());
    ASSERT_EQ(damage->content.blocks(), scene.after.blocks());
    check(*damage);
    if (testing::Test::HasFatalFailure()) {
      return;
    }
  }
}

/// The differing bits of two sectors, as numbers.
std::vector<size_t> differingBits(std::span<const uint8_t> one, std::span<const uint8_t> other) {
  std::vector<size_t> bits;
  for (size_t byte = 0; byte < one.size(); ++byte) {
    for (size_t bit = 0; bit < 8; ++bit) {
      if (((one[byte] ^ other[byte]) >> bit & 1) != 0) {
        bits.push_back(byte * 8 + bit);
      }
    }
  }
  return bits;
}

bool belongs(const Scene& scene, uint64_t lba) {
  return lba >= scene.command.lba && lba < scene.command.endLba() &&
         (lba - scene.command.lba) % scene.command.lbaStep == 0;
}

std::vector<Scene> writesOfEverySort(FaultClass what, CommandKind kind = CommandKind::write) {
  return {Scene(what, kind, 100, 8),        Scene(what, kind, 100, 8, plain, 2), Scene(what, kind, 100, 1),
          Scene(what, kind, 0, 8),          Scene(what, kind, 992, 8),           Scene(what, kind, 999, 1),
          Scene(what, kind, 0, 5, guarded), Scene(what, kind, 20, 3, large),     Scene(what, kind, 991, 5, large, 2)};
}

TEST(Neighbourhood, IsTheCommandsOwnBlocks) {
  for (const FaultClassInfo& info : faultClasses()) {
    if (info.what == FaultClass::misdirectedWrite || info.what == FaultClass::misdirectedRead ||
        info.what == FaultClass::trimTooFar) {
      continue;
    }
    const Scene scene(info.what, CommandKind::write, 100, 4, plain, 2);
    EXPECT_EQ(scene.after.first(), 100U) << info.name;
    EXPECT_EQ(scene.after.end(), 107U) << info.name;
  }
}

TEST(Neighbourhood, OfMisdirectedCommandsReachesBothWaysWithinTheDrive) {
  for (const FaultClass what : {FaultClass::misdirectedWrite, FaultClass::misdirectedRead}) {
    EXPECT_EQ(Scene(what, CommandKind::write, 100, 8).after.first(), 68U);
    EXPECT_EQ(Scene(what, CommandKind::write, 100, 8).after.end(), 140U);
    EXPECT_EQ(Scene(what, CommandKind::write, 5, 8).after.first(), 0U);
    EXPECT_EQ(Scene(what, CommandKind::write, 990, 8).after.end(), 1000U);
  }
}

TEST(Neighbourhood, OfTrimsThatGoTooFarReachesBehindTheirEnd) {
  const Scene scene(FaultClass::trimTooFar, CommandKind::trim, 100, 8);
  EXPECT_EQ(scene.after.first(), 100U);
  EXPECT_EQ(scene.after.end(), 112U);
  EXPECT_EQ(Scene(FaultClass::trimTooFar, CommandKind::trim, 990, 8).after.end(), 1000U);
  EXPECT_EQ(Scene(FaultClass::trimTooFar, CommandKind::trim, 992, 8).after.end(), 1000U);
}

TEST(Damage, AFlippedBitIsOneOfTheWholeSector) {
  for (const FaultClass what : {FaultClass::bitFlipRest, FaultClass::bitFlipWrite, FaultClass::verifyAlwaysEqual}) {
    for (const Scene& scene : writesOfEverySort(what)) {
      withManySeeds(scene, [&](const Damage& damage) {
        const std::vector<uint64_t> changed = scene.changed(damage);
        ASSERT_EQ(changed.size(), 1U);
        EXPECT_TRUE(belongs(scene, changed[0]));
        EXPECT_EQ(differingBits(damage.content.at(changed[0]), scene.after.at(changed[0])).size(), 1U);
        EXPECT_TRUE(damage.unreadable.empty());
      });
    }
  }
}

TEST(Damage, AFlippedBitMayBeAnywhere) {
  const Scene scene(FaultClass::bitFlipRest, CommandKind::write, 100, 4, guarded);
  std::set<uint64_t> blocks;
  size_t first = SIZE_MAX;
  size_t last = 0;
  withManySeeds(scene, [&](const Damage& damage) {
    const uint64_t lba = scene.changed(damage).at(0);
    const size_t bit = differingBits(damage.content.at(lba), scene.after.at(lba)).at(0);
    blocks.insert(lba);
    first = std::min(first, bit);
    last = std::max(last, bit);
  });
  EXPECT_THAT(blocks, testing::ElementsAre(100, 101, 102, 103));
  EXPECT_LT(first, 50U * 8);
  EXPECT_GT(last, 470U * 8);
}

TEST(Damage, ProtectionDamageKeepsTheData) {
  for (const uint32_t step : {1U, 2U}) {
    const Scene scene(FaultClass::protectionDamage, CommandKind::write, 100, 4, guarded, step);
    std::set<size_t> bytes;
    withManySeeds(scene, [&](const Damage& damage) {
      const std::vector<uint64_t> changed = scene.changed(damage);
      ASSERT_EQ(changed.size(), 1U);
      EXPECT_TRUE(belongs(scene, changed[0]));
      const std::vector<size_t> bits = differingBits(damage.content.at(changed[0]), scene.after.at(changed[0]));
      ASSERT_EQ(bits.size(), 1U);
      bytes.insert(bits[0] / 8);
    });
    EXPECT_THAT(bytes, testing::ElementsAre(512, 513, 514, 515, 516, 517, 518, 519));
  }
}

TEST(Damage, AZeroedBlockIsZeroWithItsProtectionBytes) {
  for (const Scene& scene : writesOfEverySort(FaultClass::zeroedBlock)) {
    withManySeeds(scene, [&](const Damage& damage) {
      const std::vector<uint64_t> changed = scene.changed(damage);
      ASSERT_EQ(changed.size(), 1U);
      EXPECT_TRUE(belongs(scene, changed[0]));
      EXPECT_TRUE(std::ranges::all_of(damage.content.at(changed[0]), [](uint8_t byte) { return byte == 0; }));
    });
  }
}

TEST(Damage, AnIgnoredCommandLeavesEveryBlockAsItWas) {
  std::vector<Scene> scenes = writesOfEverySort(FaultClass::lostWrite);
  for (const auto& [what, kind] :
       {std::pair(FaultClass::lostWrite, CommandKind::writeSame), std::pair(FaultClass::trimIgnored, CommandKind::trim),
        std::pair(FaultClass::zoneResetIgnored, CommandKind::zoneReset),
        std::pair(FaultClass::invalidateIgnored, CommandKind::invalidate)}) {
    for (const Scene& scene : writesOfEverySort(what, kind)) {
      scenes.push_back(scene);
    }
  }
  for (const Scene& scene : scenes) {
    withManySeeds(scene, [&](const Damage& damage) {
      EXPECT_EQ(scene.changed(damage).size(), scene.command.blocks);
      for (uint64_t lba = scene.before.first(); lba < scene.before.end(); ++lba) {
        EXPECT_TRUE(scene.isOld(damage, lba)) << lba;
      }
    });
  }
}

TEST(Damage, AShortWriteSameLeavesItsLastBlockOut) {
  for (const Scene& scene : {Scene(FaultClass::writeSameShort, CommandKind::writeSame, 100, 8),
                             Scene(FaultClass::writeSameShort, CommandKind::writeSame, 998, 2),
                             Scene(FaultClass::writeSameShort, CommandKind::writeSame, 100, 4, guarded, 2)}) {
    withManySeeds(scene, [&](const Damage& damage) {
      EXPECT_THAT(scene.changed(damage), testing::ElementsAre(scene.command.endLba() - 1));
      EXPECT_TRUE(scene.isOld(damage, scene.command.endLba() - 1));
    });
  }
}

TEST(Damage, AWriteThatFailedHalfWayStopsInsideABlock) {
  for (const Scene& scene : writesOfEverySort(FaultClass::wrongStatus)) {
    std::set<uint64_t> failing;
    withManySeeds(scene, [&](const Damage& damage) {
      const std::vector<uint64_t> changed = scene.changed(damage);
      ASSERT_FALSE(changed.empty());
      // Up to the end, and all but the first as they were.
      EXPECT_EQ(changed.back(), scene.command.endLba() - 1);
      EXPECT_EQ(changed.size() - 1, (changed.back() - changed.front()) / scene.command.lbaStep);
      for (size_t i = 1; i < changed.size(); ++i) {
        EXPECT_TRUE(scene.isOld(damage, changed[i]));
      }
      const size_t half = scene.geometry.sectorBytes() / 2;
      const auto torn = damage.content.at(changed[0]);
      EXPECT_TRUE(std::ranges::equal(torn.first(half), scene.after.at(changed[0]).first(half)));
      EXPECT_TRUE(std::ranges::equal(torn.subspan(half), scene.before.at(changed[0]).subspan(half)));
      failing.insert(changed[0]);
    });
    EXPECT_EQ(failing.size(), scene.command.blocks);
  }
}

/// Where a torn write stops, in sectors of 512 bytes from its beginning; checks that all before is new and all behind
/// old.
void tornAt(const Scene& scene, const Damage& damage, uint64_t& kept) {
  const uint64_t perBlock = scene.geometry.blockSize / tornBytes;
  const std::vector<uint64_t> changed = scene.changed(damage);
  ASSERT_FALSE(changed.empty());
  EXPECT_EQ(changed.back(), scene.command.endLba() - 1);
  EXPECT_EQ(changed.size() - 1, (changed.back() - changed.front()) / scene.command.lbaStep);
  for (size_t i = 1; i < changed.size(); ++i) {
    EXPECT_TRUE(scene.isOld(damage, changed[i]));
  }
  const auto torn = damage.content.at(changed[0]);
  const auto fresh = scene.after.at(changed[0]);
  const auto old = scene.before.at(changed[0]);
  size_t cut = 0;
  while (cut < perBlock &&
         std::ranges::equal(torn.subspan(cut * tornBytes, tornBytes), fresh.subspan(cut * tornBytes, tornBytes))) {
    ++cut;
  }
  ASSERT_LT(cut, perBlock);
  EXPECT_TRUE(std::ranges::equal(torn.subspan(cut * tornBytes), old.subspan(cut * tornBytes)));
  kept = (changed[0] - scene.command.lba) / scene.command.lbaStep * perBlock + cut;
}

TEST(Damage, ATornWriteStopsBetweenTwoSectorsOf512Bytes) {
  const DriveGeometry guardedLarge{.blocks = 1000, .blockSize = 4096, .protectionBytes = 8};
  for (const Scene& scene : {Scene(FaultClass::tornWrite, CommandKind::write, 100, 8),
                             Scene(FaultClass::tornWrite, CommandKind::write, 998, 2),
                             Scene(FaultClass::tornWrite, CommandKind::writeAtomic, 100, 8, plain, 2),
                             Scene(FaultClass::tornWrite, CommandKind::write, 100, 4, guarded),
                             Scene(FaultClass::tornWrite, CommandKind::write, 100, 1, large),
                             Scene(FaultClass::tornWrite, CommandKind::write, 999, 1, large),
                             Scene(FaultClass::tornWrite, CommandKind::write, 100, 2, guardedLarge, 2)}) {
    const uint64_t sectors = uint64_t{scene.command.blocks} * (scene.geometry.blockSize / tornBytes);
    std::set<uint64_t> seen;
    withManySeeds(scene, [&](const Damage& damage) {
      uint64_t kept = 0;
      tornAt(scene, damage, kept);
      seen.insert(kept);
    });
    // The first sector always arrives, the last one never, and between them a tear is everywhere.
    EXPECT_EQ(seen.size(), sectors - 1);
    EXPECT_EQ(*seen.begin(), 1U);
    EXPECT_EQ(*seen.rbegin(), sectors - 1);
  }
}

/// The first blocks that tears of a scene leave old.
std::set<uint64_t> cutsAt4k(const Scene& scene) {
  std::set<uint64_t> cuts;
  withManySeeds(scene, [&](const Damage& damage) {
    const std::vector<uint64_t> changed = scene.changed(damage);
    ASSERT_FALSE(changed.empty());
    EXPECT_EQ(changed.back(), scene.command.endLba() - 1);
    EXPECT_EQ(changed.size() - 1, (changed.back() - changed.front()) / scene.command.lbaStep);
    for (const uint64_t lba : changed) {
      EXPECT_TRUE(scene.isOld(damage, lba));
    }
    cuts.insert(changed.front());
  });
  return cuts;
}

TEST(Damage, ATearAt4kKeepsThePartBeforeABoundary) {
  const FaultClass what = FaultClass::tornWrite4k;
  EXPECT_THAT(cutsAt4k(Scene(what, CommandKind::write, 100, 24)), testing::ElementsAre(104, 112, 120));
  EXPECT_THAT(cutsAt4k(Scene(what, CommandKind::write, 7, 2)), testing::ElementsAre(8));
  EXPECT_THAT(cutsAt4k(Scene(what, CommandKind::write, 101, 10, plain, 2)), testing::ElementsAre(105, 113));
  EXPECT_THAT(cutsAt4k(Scene(what, CommandKind::writeAtomic, 20, 4, large)), testing::ElementsAre(21, 22, 23));
  EXPECT_THAT(cutsAt4k(Scene(what, CommandKind::write, 20, 5, guarded)), testing::ElementsAre(24));
}

TEST(Damage, WithoutABoundaryOf4kThereIsNoTear) {
  EXPECT_FALSE(Scene(FaultClass::tornWrite4k, CommandKind::write, 8, 8).strike(1));
  EXPECT_FALSE(Scene(FaultClass::tornWrite4k, CommandKind::write, 20, 1, large).strike(1));
}

/// Which segments of an atomic write tears leave half done; in each of them both the beginning and the end must have
/// come out old with some seed.
std::set<uint32_t> tornSegments(const Scene& scene) {
  std::set<uint32_t> segments;
  std::set<std::pair<uint32_t, bool>> sides;
  withManySeeds(scene, [&](const Damage& damage) {
    const std::vector<uint64_t> changed = scene.changed(damage);
    ASSERT_FALSE(changed.empty());
    const uint32_t bound = scene.command.atomicBound;
    const auto blockOf = [&](uint64_t lba) {
      return static_cast<uint32_t>((lba - scene.command.lba) / scene.command.lbaStep);
    };
    const uint32_t segment = blockOf(changed.front()) / bound;
    const uint32_t begin = segment * bound;
    const uint32_t end = std::min(begin + bound, scene.command.blocks);
    for (const uint64_t lba : changed) {
      EXPECT_EQ(blockOf(lba) / bound, segment);
      EXPECT_TRUE(scene.isOld(damage, lba));
    }
    // A part only, and one that begins or ends with the segment.
    EXPECT_LT(changed.size(), end - begin);
    EXPECT_EQ(changed.size() - 1, blockOf(changed.back()) - blockOf(changed.front()));
    EXPECT_TRUE(blockOf(changed.front()) == begin || blockOf(changed.back()) == end - 1);
    segments.insert(segment);
    sides.insert({segment, blockOf(changed.front()) == begin});
  });
  EXPECT_EQ(sides.size(), 2 * segments.size());
  return segments;
}

Scene atomicScene(uint32_t blocks, uint32_t bound, uint32_t step = 1) {
  Scene scene(FaultClass::atomicTear, CommandKind::writeAtomic, 100, blocks, plain, step);
  scene.command.atomicBound = bound;
  return scene;
}

TEST(Damage, AnAtomicTearLeavesOneSegmentHalfDone) {
  EXPECT_THAT(tornSegments(atomicScene(8, 4)), testing::ElementsAre(0, 1));
  EXPECT_THAT(tornSegments(atomicScene(2, 2)), testing::ElementsAre(0));
  EXPECT_THAT(tornSegments(atomicScene(9, 3, 2)), testing::ElementsAre(0, 1, 2));
}

TEST(Damage, AnAtomicTearMayBeInAShortLastSegment) {
  EXPECT_THAT(tornSegments(atomicScene(10, 4)), testing::ElementsAre(0, 1, 2));
  EXPECT_THAT(tornSegments(atomicScene(5, 64)), testing::ElementsAre(0));
}

TEST(Damage, ALastSegmentOfOneBlockCannotBeTorn) {
  EXPECT_THAT(tornSegments(atomicScene(9, 4)), testing::ElementsAre(0, 1));
  EXPECT_FALSE(atomicScene(1, 4).strike(1));
}

TEST(Damage, ASpliceLosesABlockAndAllBehindIt) {
  std::vector<Scene> scenes = writesOfEverySort(FaultClass::writeSplice);
  scenes.emplace_back(FaultClass::writeSplice, CommandKind::writeSame, 100, 4);
  for (const Scene& scene : scenes) {
    std::set<uint64_t> lost;
    withManySeeds(scene, [&](const Damage& damage) {
      ASSERT_EQ(damage.unreadable.size(), 1U);
      const uint64_t failing = *damage.unreadable.begin();
      EXPECT_TRUE(belongs(scene, failing));
      const std::vector<uint64_t> changed = scene.changed(damage);
      ASSERT_EQ(changed.size(), (scene.command.endLba() - 1 - failing) / scene.command.lbaStep + 1);
      EXPECT_EQ(changed.front(), failing);
      for (const uint64_t lba : changed) {
        EXPECT_TRUE(scene.isOld(damage, lba));
      }
      lost.insert(failing);
    });
    EXPECT_EQ(lost.size(), scene.command.blocks);
  }
}

TEST(Damage, AnInversionBringsTheSharedBlocksBack) {
  Scene scene(FaultClass::orderInversion, CommandKind::write, 100, 8);
  scene.recent.add(commandOf(CommandKind::write, 104, 20));
  withManySeeds(scene, [&](const Damage& damage) {
    EXPECT_THAT(scene.changed(damage), testing::ElementsAre(104, 105, 106, 107));
    for (uint64_t lba = 104; lba < 108; ++lba) {
      EXPECT_TRUE(scene.isOld(damage, lba));
    }
  });
}

TEST(Damage, AnInversionKnowsTheBlocksBetweenTheSteps) {
  Scene stepped(FaultClass::orderInversion, CommandKind::write, 100, 4, plain, 2);
  stepped.recent.add(commandOf(CommandKind::writeSame, 97, 6));
  EXPECT_THAT(stepped.changed(*stepped.strike(1)), testing::ElementsAre(100, 102));
  Scene whole(FaultClass::orderInversion, CommandKind::write, 100, 8);
  whole.recent.add(commandOf(CommandKind::write, 101, 3, 2));
  EXPECT_THAT(whole.changed(*whole.strike(1)), testing::ElementsAre(101, 103, 105));
}

TEST(Damage, AnInversionNeedsAnEarlierWriteOfTheSameBlocks) {
  Scene scene(FaultClass::orderInversion, CommandKind::write, 100, 4, plain, 2);
  EXPECT_FALSE(scene.strike(1));
  scene.recent.add(commandOf(CommandKind::write, 107, 20));
  EXPECT_FALSE(scene.strike(1));
  scene.recent.add(commandOf(CommandKind::write, 101, 3, 2));
  EXPECT_FALSE(scene.strike(1));
  scene.recent.add(commandOf(CommandKind::write, 100, 1));
  EXPECT_TRUE(scene.strike(1));
  scene.recent.add(commandOf(CommandKind::trim, 100, 1));
  EXPECT_FALSE(scene.strike(1));
}

/// Where misdirected writes of a scene went, with the deed checked.
std::set<uint64_t> targets(const Scene& scene) {
  std::set<uint64_t> found;
  for (uint64_t seed = 1; seed <= 10 * seeds; ++seed) {
    const std::optional<Damage> damage = scene.strike(seed);
    if (!damage) {
      continue;  // it went home
    }
    const uint64_t target = std::stoull(damage->note.substr(std::string("went to LBA ").size()));
    EXPECT_EQ(damage->note, "went to LBA " + std::to_string(target));
    Sectors expected = scene.before;
    for (uint32_t block = 0; block < scene.command.blocks; ++block) {
      std::ranges::copy(scene.dataOf(block), expected.at(target + uint64_t{block} * scene.command.lbaStep).begin());
    }
    for (uint64_t lba = expected.first(); lba < expected.end(); ++lba) {
      EXPECT_TRUE(std::ranges::equal(damage->content.at(lba), expected.at(lba))) << "LBA " << lba << ", seed " << seed;
    }
    found.insert(target);
  }
  return found;
}

TEST(Damage, AMisdirectedWriteGoesToEveryPlaceNearByButItsOwn) {
  std::set<uint64_t> around = targets(Scene(FaultClass::misdirectedWrite, CommandKind::write, 100, 8));
  EXPECT_EQ(*around.begin(), 68U);
  EXPECT_EQ(*around.rbegin(), 132U);
  EXPECT_EQ(around.size(), 64U);
  EXPECT_FALSE(around.contains(100));
}

TEST(Damage, AMisdirectedWriteStaysOnTheDrive) {
  const std::set<uint64_t> low = targets(Scene(FaultClass::misdirectedWrite, CommandKind::write, 3, 8));
  EXPECT_EQ(*low.begin(), 0U);
  EXPECT_EQ(*low.rbegin(), 35U);
  const std::set<uint64_t> high = targets(Scene(FaultClass::misdirectedWrite, CommandKind::write, 992, 8, guarded));
  EXPECT_EQ(*high.begin(), 960U);
  EXPECT_EQ(*high.rbegin(), 991U);
  const std::set<uint64_t> last = targets(Scene(FaultClass::misdirectedWrite, CommandKind::writeSame, 999, 1));
  EXPECT_EQ(*last.begin(), 967U);
  EXPECT_EQ(*last.rbegin(), 998U);
}

TEST(Damage, AMisdirectedWriteKeepsItsStep) {
  const std::set<uint64_t> found = targets(Scene(FaultClass::misdirectedWrite, CommandKind::write, 100, 4, plain, 2));
  EXPECT_EQ(*found.begin(), 68U);
  EXPECT_EQ(*found.rbegin(), 132U);
}

TEST(Damage, ATrimTooFarZeroesUpToFourBlocksBehindItsEnd) {
  const auto further = [](const Scene& scene) {
    std::set<size_t> blocks;
    withManySeeds(scene, [&](const Damage& damage) {
      const std::vector<uint64_t> changed = scene.changed(damage);
      ASSERT_FALSE(changed.empty());
      EXPECT_EQ(changed.front(), scene.command.endLba());
      EXPECT_EQ(changed.back() - changed.front() + 1, changed.size());
      for (const uint64_t lba : changed) {
        EXPECT_TRUE(std::ranges::all_of(damage.content.at(lba), [](uint8_t byte) { return byte == 0; }));
      }
      blocks.insert(changed.size());
    });
    return blocks;
  };
  EXPECT_THAT(further(Scene(FaultClass::trimTooFar, CommandKind::trim, 100, 8)), testing::ElementsAre(1, 2, 3, 4));
  EXPECT_THAT(further(Scene(FaultClass::trimTooFar, CommandKind::trim, 100, 3, guarded, 2)),
              testing::ElementsAre(1, 2, 3, 4));
  EXPECT_THAT(further(Scene(FaultClass::trimTooFar, CommandKind::trim, 990, 8)), testing::ElementsAre(1, 2));
}

TEST(Damage, ATrimOfTheLastBlockCannotGoFurther) {
  EXPECT_FALSE(Scene(FaultClass::trimTooFar, CommandKind::trim, 992, 8).strike(1));
}

TEST(Damage, TwoNeighboursOfAWriteChangePlaces) {
  for (const Scene& scene : {Scene(FaultClass::swappedBlock, CommandKind::write, 100, 8),
                             Scene(FaultClass::swappedBlock, CommandKind::write, 998, 2),
                             Scene(FaultClass::swappedBlock, CommandKind::writeAtomic, 100, 4, guarded, 2)}) {
    std::set<uint64_t> first;
    withManySeeds(scene, [&](const Damage& damage) {
      const std::vector<uint64_t> changed = scene.changed(damage);
      ASSERT_EQ(changed.size(), 2U);
      EXPECT_EQ(changed[1], changed[0] + scene.command.lbaStep);
      EXPECT_TRUE(std::ranges::equal(damage.content.at(changed[0]), scene.after.at(changed[1])));
      EXPECT_TRUE(std::ranges::equal(damage.content.at(changed[1]), scene.after.at(changed[0])));
      first.insert(changed[0]);
    });
    EXPECT_EQ(first.size(), scene.command.blocks - 1);
  }
}

TEST(Damage, CrossTalkBringsAWholeForeignBlock) {
  for (const Scene& scene : writesOfEverySort(FaultClass::crossTalk)) {
    withManySeeds(scene, [&](const Damage& damage) {
      const std::vector<uint64_t> changed = scene.changed(damage);
      ASSERT_EQ(changed.size(), 1U);
      EXPECT_TRUE(belongs(scene, changed[0]));
      EXPECT_TRUE(std::ranges::equal(damage.content.at(changed[0]), scene.otherData));
    });
  }
}

TEST(Damage, AMixedBlockHasTheBeginningOrTheRestOfAnother) {
  constexpr size_t stamp = 32;
  for (const Scene& scene : writesOfEverySort(FaultClass::mixedCommands)) {
    std::set<bool> sides;
    withManySeeds(scene, [&](const Damage& damage) {
      const std::vector<uint64_t> changed = scene.changed(damage);
      ASSERT_EQ(changed.size(), 1U);
      EXPECT_TRUE(belongs(scene, changed[0]));
      const auto mixed = damage.content.at(changed[0]);
      const auto own = scene.after.at(changed[0]);
      const bool beginningIsForeign = mixed[0] == scene.otherData[0] && mixed[1] == scene.otherData[1];
      const auto beginning = beginningIsForeign ? std::span<const uint8_t>(scene.otherData) : own;
      const auto rest = beginningIsForeign ? own : std::span<const uint8_t>(scene.otherData);
      const auto cut = static_cast<size_t>(std::ranges::mismatch(mixed, beginning).in1 - mixed.begin());
      EXPECT_GE(cut, stamp);
      EXPECT_TRUE(std::ranges::equal(mixed.subspan(cut), rest.subspan(cut)));
      EXPECT_TRUE(std::ranges::equal(mixed.last(stamp), rest.last(stamp)));
      sides.insert(beginningIsForeign);
    });
    EXPECT_EQ(sides.size(), 2U);
  }
}

TEST(Damage, WithoutForeignDataNothingIsMixed) {
  for (const FaultClass what : {FaultClass::crossTalk, FaultClass::mixedCommands}) {
    Scene scene(what, CommandKind::write, 100, 8);
    scene.otherData.clear();
    EXPECT_FALSE(scene.strike(1));
    // A sector of a drive with other sectors would not fit.
    scene.otherData = randomBytes(1, guarded.sectorBytes());
    EXPECT_FALSE(scene.strike(1));
  }
}

TEST(Damage, FaultsThatLeaveTheMediumAloneDoNoDamage) {
  for (const FaultClass what : {FaultClass::bitFlipRead, FaultClass::staleRead, FaultClass::misdirectedRead,
                                FaultClass::readOvertakes, FaultClass::lyingFlush, FaultClass::verifyFalseAlarm}) {
    EXPECT_FALSE(Scene(what, CommandKind::write, 100, 8).strike(1)) << faultClassInfo(what).name;
  }
}

TEST(Damage, ASeedRepeatsIt) {
  for (const FaultClass what : {FaultClass::bitFlipRest, FaultClass::tornWrite, FaultClass::misdirectedWrite}) {
    const Scene scene(what, CommandKind::write, 100, 8);
    std::set<std::vector<uint64_t>> outcomes;
    for (uint64_t seed = 2; seed < 12; ++seed) {
      const std::optional<Damage> once = scene.strike(seed);
      const std::optional<Damage> again = scene.strike(seed);
      ASSERT_EQ(once.has_value(), again.has_value());
      if (once) {
        for (uint64_t lba = scene.after.first(); lba < scene.after.end(); ++lba) {
          ASSERT_TRUE(std::ranges::equal(once->content.at(lba), again->content.at(lba)));
        }
        outcomes.insert(scene.changed(*once));
      }
    }
    EXPECT_GT(outcomes.size(), 1U) << faultClassInfo(what).name;
  }
}

}  // namespace
}  // namespace corvane::host
