#include "host/run/AgentConfig.h"

#include <algorithm>
#include <new>

#include "host/run/ConditionSet.h"
#include "host/run/ConfigurationError.h"
#include "vdl/Status.h"

namespace corvane::host {
namespace {

constexpr std::string_view seedOption = "Random Seed";
constexpr std::string_view outputOption = "Miscompare Output Path";
constexpr std::string_view outputBaseName = "datacompare";

void check(const std::string& complaint) {
  if (!complaint.empty()) {
    throw ConfigurationError(complaint);
  }
}

bool userSets(const TestDefinition& test, std::string_view name) {
  return std::any_of(test.agentOptions.begin(), test.agentOptions.end(),
                     [name](const auto& option) { return option.first == name; });
}

template <typename Value>
Value valueOf(const OptionRegistry& options, std::string_view name, OptionKind kind, Value absent) {
  const OptionInfo* info = options.find(name);
  return info != nullptr && info->kind == kind ? *static_cast<const Value*>(info->target) : absent;
}

}  // namespace

AgentConfig::AgentConfig(const vdl::AgentTable& agent) : agent_(agent) {
  const int status = agent_.initConfigData(&options_.platform());
  if (status != 0) {
    if (options_.record() != nullptr) {
      agent_.freeConfigData(options_.record());
    }
    if (status == vdl::status::outOfMemory) {
      throw std::bad_alloc();
    }
    throw ConfigurationError("the agent could not set up its options, initConfigData returned " +
                             std::to_string(status));
  }
}

AgentConfig::~AgentConfig() {
  if (options_.record() != nullptr) {
    agent_.freeConfigData(options_.record());
  }
}

std::vector<std::string> AgentConfig::apply(const TestDefinition& test, const ConditionSet& conditions) {
  std::vector<std::string> notices;
  for (const auto& [name, value] : test.agentOptions) {
    check(options_.set(name, value));
    if (const OptionInfo* info = options_.find(name); info != nullptr && !info->deprecation.empty()) {
      notices.push_back(info->deprecation);
    }
  }
  if (options_.find(seedOption) != nullptr && !userSets(test, seedOption)) {
    // 0 would ask the agent for a seed from the clock.
    const uint64_t seed = deriveSeed(test.seed, "agent", 0) & 0xFFFFFFFF;
    check(options_.set(seedOption, std::to_string(seed == 0 ? 1 : seed)));
  }
  if (options_.find(outputOption) != nullptr && !test.outputDirectory.empty() && !userSets(test, outputOption)) {
    const bool slash = test.outputDirectory.back() == '/';
    check(options_.set(outputOption, test.outputDirectory + (slash ? "" : "/") + std::string(outputBaseName)));
  }
  for (const auto& [name, condition] : conditions.options()) {
    check(options_.setCondition(name, condition));
  }
  return notices;
}

AgentOptionValues AgentOptionValues::of(const OptionRegistry& options) {
  const auto number = [&](std::string_view name, uint32_t absent) {
    return valueOf(options, name, OptionKind::u32, absent);
  };
  const auto flag = [&](std::string_view name, bool absent) {
    return valueOf(options, name, OptionKind::boolean, absent);
  };
  AgentOptionValues values;
  values.minQueueSize = number("Min Queue Size", values.minQueueSize);
  values.maxQueueSize = number("Max Queue Size", values.maxQueueSize);
  values.bucketCount = number("Bucket Count", values.bucketCount);
  values.powerToggleFreq = number("PowerToggle Freq", values.powerToggleFreq);
  values.embedData = flag("Embed Data", values.embedData) && flag("Embed LBA", true);
  values.randomSelection = flag("Random Selection", values.randomSelection);
  values.slideReads = flag("Slide Reads", values.slideReads);
  values.spliceDetection = flag("Write Splice Detection", values.spliceDetection);
  values.userDefinedData = flag("User Defined Data", values.userDefinedData);
  values.skipCommands = flag("Use Skip Commands", values.skipCommands);
  return values;
}

}  // namespace corvane::host
