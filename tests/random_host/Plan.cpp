#include "Plan.h"

#include <algorithm>

#include "Conditions.h"
#include "vdl/Status.h"

namespace randomhost {

namespace {

vdl::Condition on(uint64_t bits) { return vdl::Condition{bits, 0, 0, false}; }

/// A condition of any shape, seldom the plain one.
vdl::Condition oddCondition(Dice& dice, uint64_t bits) {
  vdl::Condition condition = on(bits);
  switch (dice.below(6)) {
    case 0:
      return vdl::Condition{0, bits, 0, false};
    case 1:
      condition.noneMask = dice.any() & 0x1FF;
      return condition;
    case 2:
      condition.replace = true;
      return condition;
    case 3:
      return vdl::Condition{0, 0, bits, dice.oneIn(2)};
    case 4:
      return vdl::Condition{dice.any() & 0x3FF, dice.any() & 0x3FF, dice.any() & 0x3FF, dice.oneIn(2)};
    default:
      return condition;
  }
}

void drawConditions(Dice& dice, const Plan& plan, vdl::Corvane::ConfigData& config) {
  const auto maybe = [&](vdl::Condition& condition, uint64_t bits, bool wanted) {
    condition = vdl::Condition{};
    if (wanted) {
      condition = plan.does(Misdeed::oddConditions) && dice.oneIn(3) ? oddCondition(dice, bits) : on(bits);
    }
  };
  const bool verifies = dice.oneIn(3);
  const bool forgetful = !plan.lawful && dice.oneIn(60);
  const uint64_t writes = forgetful ? dice.below(2) : 1 + dice.below(15);
  maybe(config.readCondition, bit::read, (!verifies || dice.oneIn(2)) && !forgetful);
  maybe(config.verifyCondition, bit::verify, verifies);
  maybe(config.writeCondition, bit::write, (writes & 1) != 0);
  maybe(config.writeAtomicCondition, bit::atomic, (writes & 2) != 0);
  maybe(config.writeSameCondition, bit::same, (writes & 4) != 0);
  maybe(config.trimCondition, bit::trim, (writes & 8) != 0);
  maybe(config.e2eCondition, bit::e2e, dice.oneIn(4));
  maybe(config.powerToggleCondition, bit::toggle, dice.oneIn(6));
  maybe(config.syncCacheCondition, bit::sync, dice.oneIn(3));
}

void drawOptions(Dice& dice, vdl::Corvane::ConfigData& config, const std::string& folder) {
  config.bucketCount = dice.of<uint32_t>({1, 2, 3, 16, 16, 64, 64, 200});
  config.minQueueSize = dice.of<uint32_t>({1, 1, 2, 4, 8, 16, 1000000});
  config.maxQueueSize = dice.of<uint32_t>({1, 2, 8, 16, 16, 40, 1000000});
  config.traceDepth = config.maxQueueSize > 1000 ? 1 : dice.of<uint32_t>({0, 0, 1, 600});
  config.randomSeed = dice.of<uint32_t>({1, 0xFFFFFFFF, static_cast<uint32_t>(dice.any() | 1)});
  config.powerToggleFreq = dice.of<uint32_t>({1000000, 1000000, 0});
  config.embedLBA = !dice.oneIn(8);
  config.embedData = !dice.oneIn(4);
  config.randomSelection = dice.oneIn(2);
  config.slideReads = dice.oneIn(3);
  config.writeSpliceDetection = dice.oneIn(3);
  config.useSkipCommands = dice.oneIn(8);
  config.showstopOnMiscompare = dice.oneIn(3);
  config.coldStorage = dice.oneIn(2);
  config.alwaysDumpSequence = dice.oneIn(4);
  config.userDefinedData = dice.oneIn(6);
  if (!dice.oneIn(4)) {
    config.dataBuffer.reserve(1 + dice.below(700));
    config.dataBuffer.size = config.dataBuffer.capacity;
    std::fill_n(config.dataBuffer.data, config.dataBuffer.size, static_cast<uint8_t>(dice.any()));
  }
  const std::string name = folder + "/out" + std::to_string(dice.below(3));
  config.miscompareOutputPath = dice.of<std::string>({name, name, folder + "/deep/er/out", "/proc/nowhere/out", ""});
}

/// Options and faults with which a good host of a good drive must find nothing.
void makeLawful(Dice& dice, Plan& plan, vdl::Corvane::ConfigData& config) {
  config.bucketCount = 64;
  config.minQueueSize = plan.queueDepth + static_cast<uint32_t>(dice.below(8));
  config.maxQueueSize = config.minQueueSize + 1 + static_cast<uint32_t>(dice.below(16));
  config.powerToggleFreq = 1000000;
  config.dataBuffer.reserve(100);
  config.dataBuffer.size = 100;
  std::fill_n(config.dataBuffer.data, 100, static_cast<uint8_t>(dice.any()));
  const bool atomic = config.writeAtomicCondition.anyMask != 0;
  if (atomic || (config.verifyCondition.anyMask == 0 && config.readCondition.anyMask == 0)) {
    config.readCondition = on(bit::read);
  }
  if (config.useSkipCommands) {
    config.embedData = false;
    config.verifyCondition = {};
    config.readCondition = on(bit::read);
    config.writeCondition = on(bit::write);
    config.writeAtomicCondition = {};
    config.writeSameCondition = {};
    config.trimCondition = {};
  }
  const bool verifies = config.verifyCondition.anyMask != 0;
  const bool cutsPower = config.powerToggleCondition.anyMask != 0;
  if (plan.does(Misdeed::resets) || cutsPower) {
    config.writeSpliceDetection = true;
    config.readCondition = on(bit::read);
  }
  if (config.writeSpliceDetection && config.readCondition.anyMask == 0) {
    config.writeSpliceDetection = false;
  }
  if (verifies || atomic) {
    plan.misdeeds.reset(static_cast<size_t>(Misdeed::invalidatesRanges));
  }
  if (config.userDefinedData && atomic) {
    config.userDefinedData = false;
  }
}

void drawMisdeeds(Dice& dice, Plan& plan) {
  if (plan.lawful) {
    for (const Misdeed allowed :
         {Misdeed::abortsWrites, Misdeed::resets, Misdeed::resetsZones, Misdeed::invalidatesRanges}) {
      plan.misdeeds[static_cast<size_t>(allowed)] = dice.oneIn(3);
    }
    return;
  }
  const uint64_t rarity = dice.of<uint64_t>({2, 5, 12});
  for (size_t i = 0; i < plan.misdeeds.size(); ++i) {
    plan.misdeeds[i] = dice.oneIn(rarity);
  }
}

void drawGeometry(Dice& dice, Plan& plan) {
  plan.blockSize = dice.of<uint32_t>({512, 512, 512, 520, 4096});
  plan.protection = dice.oneIn(5);
  plan.queueDepth = dice.of<uint32_t>({1, 2, 8, 8, 32});
  plan.longest = dice.of<uint32_t>({1, 3, 8, 16});
  plan.lbas = dice.of<uint64_t>({8, 64, 64, 400});
  plan.firstLba = dice.of<uint64_t>({0, 0, 60, 1000, uint64_t{1} << 40});
  plan.powerIsDue = dice.oneIn(2);
  plan.ostraDevice = dice.of<int>({-1, 0, 7});
}

}  // namespace

void redrawOptions(Dice& dice, const Plan& plan, vdl::Corvane::ConfigData& config, const std::string& folder) {
  drawOptions(dice, config, folder);
  drawConditions(dice, plan, config);
}

namespace {

/// Reads that come back before the writes under them, some with too little data, so that several wait and fail
/// together.
void overtakeWrites(Plan& plan, vdl::Corvane::ConfigData& config) {
  plan.misdeeds.reset();
  plan.misdeeds.set(static_cast<size_t>(Misdeed::completesOutOfOrder));
  plan.misdeeds.set(static_cast<size_t>(Misdeed::shortReadData));
  plan.lbas = 4;
  plan.longest = 4;
  plan.queueDepth = 32;
  config.minQueueSize = 1;
  config.maxQueueSize = 8;
  config.bucketCount = 64;
  config.useSkipCommands = config.writeSpliceDetection = false;
  config.readCondition = on(bit::read);
  config.verifyCondition = config.writeAtomicCondition = vdl::Condition{};
  config.powerToggleCondition = vdl::Condition{};
}

/// Few blocks, whose content is always known, under atomic writes of which some are torn and given up.
void tearAtomicWrites(Plan& plan, vdl::Corvane::ConfigData& config) {
  plan.misdeeds.reset();
  plan.misdeeds.set(static_cast<size_t>(Misdeed::tornData));
  plan.misdeeds.set(static_cast<size_t>(Misdeed::abortsWrites));
  plan.lbas = 6;
  plan.longest = 8;
  config.minQueueSize = plan.queueDepth;
  config.maxQueueSize = plan.queueDepth + 16;
  config.bucketCount = 64;
  config.useSkipCommands = false;
  config.userDefinedData = false;
  config.embedLBA = config.embedData = true;
  config.readCondition = on(bit::read);
  config.verifyCondition = config.writeSameCondition = config.trimCondition = vdl::Condition{};
  config.powerToggleCondition = config.e2eCondition = vdl::Condition{};
  config.writeCondition = on(bit::write);
  config.writeAtomicCondition = on(bit::atomic);
}

}  // namespace

Plan drawPlan(Dice& dice, vdl::Corvane::ConfigData& config, const std::string& folder) {
  Plan plan;
  plan.lawful = dice.oneIn(10);
  drawGeometry(dice, plan);
  drawMisdeeds(dice, plan);
  drawOptions(dice, config, folder);
  drawConditions(dice, plan, config);
  plan.minLba = plan.firstLba;
  plan.maxLba = plan.firstLba + plan.lbas * 2 + plan.longest * 2;
  if (plan.lawful) {
    // Blocks must come to rest now and then, or their histories only grow.
    plan.lbas = std::max<uint64_t>(plan.lbas, 64);
    plan.maxLba = plan.firstLba + plan.lbas * 2 + plan.longest * 2;
    makeLawful(dice, plan, config);
    return plan;
  }
  if (dice.oneIn(15)) {
    tearAtomicWrites(plan, config);
    return plan;
  }
  if (dice.oneIn(15)) {
    overtakeWrites(plan, config);
    return plan;
  }
  if (dice.oneIn(40)) {
    // The 32-bit size of the pool is 0, or wraps to a small number.
    config.bucketCount = 524288;
    plan.blockSize = dice.of<uint32_t>({8192, 8200});
    plan.protection = false;
  } else if (dice.oneIn(30)) {
    plan.blockSize = 0;
    plan.protection = false;
  }
  if (dice.oneIn(6)) {
    plan.minLba = dice.any() >> dice.below(64);
    plan.maxLba = dice.any() >> dice.below(64);
  }
  plan.maps.withoutOptional = dice.oneIn(10);
  plan.maps.zoneWriters = dice.oneIn(8) ? 0 : 1;
  plan.maps.rangeWriters = dice.oneIn(8) ? 0 : 1;
  if (dice.oneIn(40)) {
    plan.maps.failingMap = static_cast<int>(1 + dice.below(26));
    plan.maps.failure = -2000;
  } else if (dice.oneIn(60)) {
    plan.maps.registrationStatus = -2001;
  }
  return plan;
}

namespace {

/// The checks that come before anything is made.
int settingsResult(const vdl::Corvane::ConfigData& config) {
  using vdl::agent::configured;
  const bool reads = configured(config.readCondition) || configured(config.verifyCondition);
  const bool writes = configured(config.writeCondition) || configured(config.writeAtomicCondition) ||
                      configured(config.writeSameCondition) || configured(config.trimCondition);
  if (!reads || !writes || (config.userDefinedData && config.dataBuffer.size == 0)) {
    return vdl::status::missingSetting;
  }
  return config.minQueueSize > config.maxQueueSize ? static_cast<int>(vdl::status::badQueueRange) : 0;
}

}  // namespace

bool startMakesTrace(const vdl::Corvane::ConfigData& config) { return settingsResult(config) == 0; }

int startResult(const Plan& plan, const vdl::Corvane::ConfigData& config) {
  using vdl::agent::configured;
  int result = settingsResult(config);
  const uint64_t pool = uint64_t{plan.blockSize + (plan.protection ? 8U : 0U)} * config.bucketCount;
  if (result == 0 && static_cast<uint32_t>(pool) == 0) {
    result = vdl::status::missingSetting;
  } else if (result == 0 && pool > 0xFFFFFFFF) {
    result = vdl::status::outOfMemory;
  }
  const bool skip = config.useSkipCommands;
  if ((configured(config.writeSameCondition) && skip) || (configured(config.trimCondition) && skip) ||
      (config.writeSpliceDetection && !configured(config.readCondition))) {
    result = vdl::status::incompatibleOptions;
  }
  return result;
}

}  // namespace randomhost
