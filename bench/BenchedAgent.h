#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "DriveData.h"
#include "Step.h"
#include "host/base/Random.h"
#include "host/framework/DriveThreadHost.h"
#include "host/framework/OptionRegistry.h"

namespace corvane::bench {

/// The agent's objects in this process, on our framework, and an empty drive: an array that carries a command out
/// when it is issued and answers it, in order, once the queue is full.
class BenchedAgent {
 public:
  struct Settings {
    uint32_t blockSize = 512;
    uint32_t queueDepth = 32;
    uint32_t minQueueSize = 2048;  ///< writes that await their read-back: at least so many before a read
    uint32_t maxQueueSize = 4096;  ///< and so many at most
    uint32_t xferBlocks = 8;       ///< of every command
    uint64_t rangeBlocks = 65536;  ///< size of the drive
    uint32_t buckets = 65536;      ///< sectors in the pool
  };

  /// Throws std::runtime_error when the agent does not start.
  explicit BenchedAgent(const Settings& settings);
  ~BenchedAgent();
  BenchedAgent(const BenchedAgent&) = delete;
  BenchedAgent& operator=(const BenchedAgent&) = delete;

  vdl::agent::Step step() { return {host_.thread(), *data_, *config_}; }
  const Settings& settings() const { return settings_; }

  /// One step of a host: publish a range and the oldest completion, call the agent, carry its command out.
  ///
  /// @return seconds spent inside the agent
  double cycle();

  /// Commands issued by `cycle`.
  uint64_t commands() const { return commands_; }

 private:
  struct Outstanding {
    uint32_t tag = 0;
    bool read = false;
    uint64_t bytes = 0;
  };

  void publishRange();
  void publishCompletion();
  void withdrawCompletion();
  void carryOut();

  Settings settings_;
  host::DriveThreadHost host_;
  host::OptionRegistry options_;
  vdl::Corvane::ConfigData* config_ = nullptr;
  vdl::Corvane::DriveData* data_ = nullptr;
  host::Random random_{1};
  std::vector<uint8_t> medium_;
  std::vector<std::vector<uint8_t>> readData_;  ///< by tag
  std::deque<Outstanding> outstanding_;
  uint32_t published_ = 0xFFFFFFFF;
  uint64_t commands_ = 0;
};

}  // namespace corvane::bench
