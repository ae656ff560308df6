#include "host/base/CpuList.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <charconv>
#include <memory>

namespace corvane::host {
namespace {

/// Room for every processor that there may be, where a plain cpu_set_t ends at 1024.
struct CpuSet {
  struct Free {
    void operator()(cpu_set_t* set) const { CPU_FREE(set); }
  };

  CpuSet() : set(CPU_ALLOC(mostCpus)), bytes(CPU_ALLOC_SIZE(mostCpus)) { CPU_ZERO_S(bytes, set.get()); }

  std::unique_ptr<cpu_set_t, Free> set;
  size_t bytes;
};

std::optional<uint32_t> parseCpu(std::string_view text) {
  uint32_t cpu = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), cpu);
  const bool whole = error == std::errc() && end == text.data() + text.size();
  return whole && cpu < mostCpus ? std::optional(cpu) : std::nullopt;
}

bool addPart(std::vector<uint32_t>& cpus, std::string_view part) {
  const size_t dash = part.find('-');
  const std::optional<uint32_t> first = parseCpu(part.substr(0, dash));
  const std::optional<uint32_t> last = dash == std::string_view::npos ? first : parseCpu(part.substr(dash + 1));
  if (!first || !last || *last < *first) {
    return false;
  }
  for (uint32_t cpu = *first; cpu <= *last; ++cpu) {
    if (std::find(cpus.begin(), cpus.end(), cpu) != cpus.end()) {
      return false;
    }
    cpus.push_back(cpu);
  }
  return true;
}

}  // namespace

std::optional<std::vector<uint32_t>> parseCpuList(std::string_view text) {
  std::vector<uint32_t> cpus;
  for (;;) {
    const size_t comma = text.find(',');
    if (!addPart(cpus, text.substr(0, comma))) {
      return std::nullopt;
    }
    if (comma == std::string_view::npos) {
      return cpus;
    }
    text.remove_prefix(comma + 1);
  }
}

std::string cpuListText(const std::vector<uint32_t>& cpus) {
  std::string text;
  for (size_t i = 0; i < cpus.size();) {
    size_t last = i;
    while (last + 1 < cpus.size() && cpus[last + 1] == cpus[last] + 1) {
      ++last;
    }
    text += (text.empty() ? "" : ",") + std::to_string(cpus[i]);
    if (last != i) {
      text += "-" + std::to_string(cpus[last]);
    }
    i = last + 1;
  }
  return text;
}

std::vector<uint32_t> allowedCpus() {
  const CpuSet allowed;
  std::vector<uint32_t> cpus;
  if (sched_getaffinity(0, allowed.bytes, allowed.set.get()) != 0) {
    return cpus;
  }
  for (uint32_t cpu = 0; cpu < mostCpus; ++cpu) {
    if (CPU_ISSET_S(cpu, allowed.bytes, allowed.set.get())) {
      cpus.push_back(cpu);
    }
  }
  return cpus;
}

bool pinThisThread(uint32_t cpu) {
  const CpuSet one;
  CPU_SET_S(cpu, one.bytes, one.set.get());
  return pthread_setaffinity_np(pthread_self(), one.bytes, one.set.get()) == 0;
}

}  // namespace corvane::host
