#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/framework/OptionRegistry.h"
#include "host/run/TestDefinition.h"
#include "vdl/Agent.h"

namespace corvane::host {

class ConditionSet;

/// The agent's configuration record and its options: `initConfigData` when constructed, `freeConfigData` when
/// destroyed.
class AgentConfig {
 public:
  /// @param agent must outlive the object
  ///
  /// Throws ConfigurationError when `initConfigData` fails.
  explicit AgentConfig(const vdl::AgentTable& agent);
  ~AgentConfig();
  AgentConfig(const AgentConfig&) = delete;
  AgentConfig& operator=(const AgentConfig&) = delete;

  OptionRegistry& options() { return options_; }
  const OptionRegistry& options() const { return options_; }
  /// What the drive callbacks take; null when the agent registered none.
  const void* record() const { return options_.record(); }

  /// Sets the agent's options from a test: the user's, the seed, the output path, and the conditions.
  ///
  /// Throws ConfigurationError for an unknown option, a value outside its range, or an agent that lacks an option
  /// that the test needs.
  ///
  /// @return one line for each deprecated option that the user set
  std::vector<std::string> apply(const TestDefinition& test, const ConditionSet& conditions);

 private:
  const vdl::AgentTable& agent_;
  OptionRegistry options_;
};

/// The options of the agent that the host's own behaviour and its checks depend on, as they stand.
///
/// An option that the agent does not have keeps the value given here.
struct AgentOptionValues {
  uint32_t minQueueSize = 0;
  uint32_t maxQueueSize = 0;
  uint32_t bucketCount = 0;  ///< 0: the agent does not say
  uint32_t powerToggleFreq = 300;
  bool embedData = false;  ///< "Embed Data", and not switched off by "Embed LBA"
  bool randomSelection = true;
  bool slideReads = false;
  bool spliceDetection = false;
  bool userDefinedData = false;
  bool skipCommands = false;

  static AgentOptionValues of(const OptionRegistry& options);
};

}  // namespace corvane::host
