#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "DriveData.h"
#include "host/framework/DriveThreadHost.h"
#include "host/framework/OptionRegistry.h"
#include "host/ostra/DeviceTable.h"
#include "support/SchedulingBench.h"
#include "support_model/FakeClock.h"
#include "vdl/SeedEntropy.h"

namespace benchtest {
namespace {

constexpr size_t drives = 8;
constexpr uint32_t blockBytes = 512;
constexpr uint32_t bucketCount = 64;

/// The options of a test, one record for all of its drives.
class SharedOptions {
 public:
  SharedOptions() {
    vdl::Corvane::initConfigData(&options_.platform());
    record().bucketCount = bucketCount;
    record().randomSeed = 1;
    record().minQueueSize = 1;
    record().maxQueueSize = 16;
    record().readCondition = onBit(bit::read);
    record().writeCondition = onBit(bit::write);
  }
  ~SharedOptions() { vdl::Corvane::freeConfigData(&record()); }
  SharedOptions(const SharedOptions&) = delete;
  SharedOptions& operator=(const SharedOptions&) = delete;

  vdl::Corvane::ConfigData& record() { return *static_cast<vdl::Corvane::ConfigData*>(options_.record()); }

 private:
  corvane::host::OptionRegistry options_;
};

/// One drive of the test, made, used and released on its own thread.
class SharingDrive {
 public:
  explicit SharingDrive(SharedOptions& options) : config_(options.record()) {
    corvane::host::DriveThreadHost::Settings settings;
    settings.queueDepth = 1;
    settings.log = [this](int, std::string_view text) { lines_.emplace_back(text); };
    host_ = std::make_unique<corvane::host::DriveThreadHost>(std::move(settings));
    host_->variables().u32("TestMaxXferLength") = 4;
    host_->variables().u64("MaxLBA") = 1000;
    host_->variables().u32("LastStatusByte") = vdl::agent::noStatus;
    vdl::Corvane::initDriveData(&host_->thread());
  }
  ~SharingDrive() { vdl::Corvane::freeDriveData(host_->driveData()); }
  SharingDrive(const SharingDrive&) = delete;
  SharingDrive& operator=(const SharingDrive&) = delete;

  int start() { return vdl::Corvane::startTest(&host_->thread(), &config_, &data(), 0); }

  /// A step in which the agent writes; what it would send.
  Bytes write(uint64_t lba) {
    *data().lba = lba;
    *data().xferLength = 1;
    host_->thread().conditions = bit::write;
    EXPECT_EQ(vdl::Corvane::execute(&host_->thread(), &config_, &data()), 0);
    return Bytes(data().writeData->data, data().writeData->data + data().writeData->size);
  }

  Bytes pool() { return Bytes(data().buckets, data().buckets + size_t{blockBytes} * bucketCount); }
  const std::vector<std::string>& lines() const { return lines_; }

 private:
  vdl::Corvane::DriveData& data() { return *static_cast<vdl::Corvane::DriveData*>(host_->driveData()); }

  vdl::Corvane::ConfigData& config_;
  std::vector<std::string> lines_;
  std::unique_ptr<corvane::host::DriveThreadHost> host_;
};

/// Lets a function run on the thread of each drive, all at once.
template <typename Work>
void onEveryDrive(const Work& work) {
  std::barrier together(drives);
  std::vector<std::jthread> threads;
  for (size_t drive = 0; drive < drives; ++drive) {
    threads.emplace_back([&, drive] {
      together.arrive_and_wait();
      work(drive);
    });
  }
}

TEST(SharedConfig, WhatOneDriveSwitchesOffIsOffForEveryDriveThatStarts) {
  for (int round = 0; round < 20; ++round) {
    SharedOptions options;
    options.record().embedLBA = false;
    std::vector<Bytes> sent(drives);
    std::vector<std::vector<std::string>> said(drives);
    onEveryDrive([&](size_t drive) {
      SharingDrive self(options);
      EXPECT_EQ(self.start(), 0);
      sent[drive] = self.write(0x1122334455667788);
      said[drive] = self.lines();
    });
    EXPECT_FALSE(options.record().embedData);
    const Bytes stamp{0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    for (size_t drive = 0; drive < drives; ++drive) {
      ASSERT_EQ(sent[drive].size(), blockBytes);
      EXPECT_FALSE(std::equal(stamp.begin(), stamp.end(), sent[drive].begin() + 8)) << "drive " << drive;
      ASSERT_EQ(said[drive].size(), 1U) << "each drive's own log says so";
      EXPECT_EQ(said[drive][0], "Corvane: Use of DEPRECATED Embed LBA option, forcing Embed Data option to disabled");
    }
  }
}

/// Gives the options other user data again and again, longer and shorter, as nobody does but under the lock.
class ChangingUserData {
 public:
  explicit ChangingUserData(vdl::Corvane::ConfigData& config) : config_(config) {
    give(0);
    thread_ = std::jthread([this](const std::stop_token& stop) {
      for (unsigned version = 0; !stop.stop_requested(); ++version) {
        give(version);
      }
    });
  }

  /// Whether a pool was made of one version alone.
  static bool isOfOneVersion(const Bytes& pool) {
    return std::all_of(pool.begin(), pool.end(), [&](uint8_t byte) { return byte == pool.front(); });
  }

 private:
  void give(unsigned version) {
    const std::lock_guard lock(config_.dataMutex);
    config_.dataBuffer.release();
    const uint64_t bytes = version % 2 == 0 ? 3 : 700;
    config_.dataBuffer.reserve(bytes);
    std::fill_n(config_.dataBuffer.data, bytes, static_cast<uint8_t>('a' + version % 26));
    config_.dataBuffer.size = bytes;
  }

  vdl::Corvane::ConfigData& config_;
  std::jthread thread_;
};

TEST(SharedConfig, UserDataThatChangeMeanwhileAreTakenWhole) {
  SharedOptions options;
  options.record().userDefinedData = true;
  {
    const ChangingUserData changing(options.record());
    onEveryDrive([&](size_t drive) {
      for (int round = 0; round < 20; ++round) {
        SharingDrive self(options);
        ASSERT_EQ(self.start(), 0);
        EXPECT_TRUE(ChangingUserData::isOfOneVersion(self.pool())) << "drive " << drive << ", start " << round;
      }
    });
  }
}

TEST(SharedConfig, DrivesThatStartInTheSameMillisecondHaveDataOfTheirOwn) {
  constexpr uint32_t rounds = 25;
  const modeltest::FakeClock standingStill(1700000000, 0);
  SharedOptions options;
  options.record().randomSeed = 0;
  const uint32_t before = std::atomic_ref<uint32_t>(vdl::seed_entropy).load();
  std::vector<std::vector<Bytes>> pools(drives);
  onEveryDrive([&](size_t drive) {
    for (uint32_t round = 0; round < rounds; ++round) {
      SharingDrive self(options);
      ASSERT_EQ(self.start(), 0);
      pools[drive].push_back(self.pool());
    }
  });
  EXPECT_EQ(std::atomic_ref<uint32_t>(vdl::seed_entropy).load() - before, drives * rounds);
  std::set<Bytes> different;
  for (const std::vector<Bytes>& ofDrive : pools) {
    different.insert(ofDrive.begin(), ofDrive.end());
  }
  EXPECT_EQ(different.size(), drives * rounds);
}

}  // namespace
}  // namespace benchtest
