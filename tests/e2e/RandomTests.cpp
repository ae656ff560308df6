#include "tests/e2e/RandomTests.h"

#include <algorithm>
#include <array>

#include "host/base/Random.h"
#include "host/drive/GeometryKeys.h"

namespace corvane::host::e2e {
namespace {

/// Draws one test, from the drive to the options.
class Dice {
 public:
  explicit Dice(uint64_t number) : random_(deriveSeed(number, "random test", 0)) {
    geometry_.blockSize = oneIn(3) ? 4096 : 512;
    geometry_.protectionBytes = oneIn(4) ? 8 : 0;
    geometry_.blocks = random_.between(100, 3000);
  }

  const DriveGeometry& geometry() const { return geometry_; }
  uint64_t driveBytes() const { return geometry_.blocks * geometry_.sectorBytes(); }

  TestDefinition draw(bool simulated) {
    test_.seed = random_.between(1, 1'000'000);
    test_.commandLimit = random_.between(100, 400);
    test_.queueDepth = static_cast<uint32_t>(oneIn(20) ? 1023 : random_.between(1, 40));
    test_.lbaAgent = lbaAgents.at(random_.below(lbaAgents.size()));
    test_.maxBlocks = static_cast<uint32_t>(random_.between(1, 24));
    test_.minBlocks = static_cast<uint32_t>(random_.between(1, test_.maxBlocks));
    test_.maxAtomicBound = static_cast<uint32_t>(random_.between(1, 12));
    drawRange();
    drawOptions();
    drawMix();
    simulated ? drawSimulatedDrive() : leaveOutWhatNoFileHas();
    return test_;
  }

 private:
  static constexpr std::array<const char*, 3> lbaAgents{"mixed", "sequential", "cachestress"};

  bool oneIn(uint64_t chances) { return random_.below(chances) == 0; }
  uint32_t weight() { return static_cast<uint32_t>(random_.below(3)); }
  void set(const char* option, const char* value) { test_.agentOptions.emplace_back(option, value); }

  void drawRange() {
    const uint64_t blocks = geometry_.blocks;
    test_.firstLba = oneIn(4) ? 0 : random_.below(blocks);
    const uint64_t left = blocks - test_.firstLba;
    switch (random_.below(4)) {
      case 0:
        test_.endLba = test_.firstLba + random_.between(1, left);
        break;
      case 1:
        test_.size.bytes = random_.between(1, left * geometry_.blockSize);
        break;
      case 2:
        test_.size.milliPercent = static_cast<uint32_t>(random_.between(1, left * 100'000 / blocks));
        break;
      default:
        break;
    }
  }

  void drawOptions() {
    test_.agentOptions = {{"Min Queue Size", oneIn(3) ? "1" : "40"}, {"Max Queue Size", "80"}, {"Bucket Count", "256"}};
    skip_ = oneIn(5);
    set("Use Skip Commands", skip_ ? "true" : "false");
    set("Embed Data", skip_ || oneIn(6) ? "false" : "true");
    set("Slide Reads", oneIn(3) ? "true" : "false");
    set("Write Splice Detection", oneIn(2) ? "true" : "false");
    set("Random Selection", oneIn(3) ? "false" : "true");
  }

  void drawMix() {
    test_.mix = {.write = 1 + weight(), .read = 1 + weight()};
    if (!skip_) {
      test_.mix.trim = weight();
      test_.mix.writeSame = weight();
      test_.mix.writeAtomic = weight();
      test_.mix.verify = weight();
    }
    test_.e2ePercent = oneIn(4) ? 50 : 0;
    test_.forceUnitAccess = oneIn(6);
  }

  void drawSimulatedDrive() {
    std::string address = "sim:" + std::to_string(driveBytes()) + geometryKeys();
    if (oneIn(5)) {
      address += ",cache=volatile";
      test_.powerToggle = PowerToggle::withSync;
      set("PowerToggle Freq", "1");
    }
    if (oneIn(4)) {
      address += ",abort=0.05,write-error=0.03,recovered=0.05";
    }
    if (test_.mix.writeAtomic != 0 && oneIn(2)) {
      address += ",atomic-most=8";
    }
    if (oneIn(3)) {
      address += zoneKeys();
    } else if (oneIn(3)) {
      test_.invalidateEveryCommands = random_.between(1, 20);
      test_.mix.writeAtomic = test_.mix.verify = 0;
    }
    test_.resetEveryCommands = oneIn(4) ? random_.between(20, 90) : 0;
    test_.driveAddresses = {address};
  }

  std::string zoneKeys() {
    const uint64_t blocks = random_.between(1, geometry_.blocks / 4);
    test_.zoneResetEveryCommands = random_.between(1, 30);
    std::string keys = ",zones=" + std::to_string(blocks * geometry_.sectorBytes());
    if (!skip_ && oneIn(2)) {
      keys += ",zonemodel=managed";
      test_.mix.writeAtomic = test_.mix.writeSame = test_.mix.trim = 0;
      test_.maxBlocks = static_cast<uint32_t>(std::min<uint64_t>(test_.maxBlocks, blocks));
      test_.minBlocks = std::min(test_.minBlocks, test_.maxBlocks);
    }
    return keys;
  }

  std::string geometryKeys() const {
    return ",block=" + std::to_string(geometry_.blockSize) + ",pi=" + std::to_string(geometry_.protectionBytes);
  }

  void leaveOutWhatNoFileHas() { test_.powerToggle = PowerToggle::off; }

  Random random_;
  DriveGeometry geometry_;
  TestDefinition test_;
  bool skip_ = false;
};

}  // namespace

TestDefinition randomTest(uint64_t number) { return Dice(number).draw(true); }

TestDefinition randomTestOnFile(uint64_t number, const std::string& path) {
  Dice dice(number);
  TestDefinition test = dice.draw(false);
  test.driveAddresses = {"file:" + path + ",size=" + std::to_string(dice.driveBytes()) +
                         ",block=" + std::to_string(dice.geometry().blockSize) +
                         ",pi=" + std::to_string(dice.geometry().protectionBytes)};
  return test;
}

uint64_t driveBytesOfRandomTest(uint64_t number) { return Dice(number).driveBytes(); }

std::string describe(const TestDefinition& test) {
  std::string text =
      test.driveAddresses.front() + ", LBAs " + std::to_string(test.firstLba) + ".." + std::to_string(test.endLba) +
      ", size " + std::to_string(test.size.bytes) + " bytes or " + std::to_string(test.size.milliPercent) +
      " thousandths of a percent, " + std::to_string(test.minBlocks) + ".." + std::to_string(test.maxBlocks) +
      " blocks, " + test.lbaAgent + ", depth " + std::to_string(test.queueDepth) + ", zone resets " +
      std::to_string(test.zoneResetEveryCommands) + ", invalidations " + std::to_string(test.invalidateEveryCommands);
  for (const auto& [name, value] : test.agentOptions) {
    text += ", " + name + "=" + value;
  }
  return text;
}

}  // namespace corvane::host::e2e
