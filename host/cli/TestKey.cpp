#include "host/cli/TestKey.h"

#include <algorithm>

namespace corvane::host {
namespace {

template <typename Predicate>
const TestKey* firstKey(Predicate&& matches) {
  const std::vector<TestKey>& keys = testKeys();
  const auto found = std::find_if(keys.begin(), keys.end(), matches);
  return found == keys.end() ? nullptr : &*found;
}

}  // namespace

const std::vector<TestKey>& testKeys() {
  static const std::vector<TestKey> keys = [] {
    std::vector<TestKey> all;
    addLimitKeys(all);
    addCommandKeys(all);
    addConditionKeys(all);
    addStressKeys(all);
    addOutputKeys(all);
    return all;
  }();
  return keys;
}

const TestKey* testKeyNamed(std::string_view name) {
  return firstKey([name](const TestKey& key) { return name == key.name; });
}

const TestKey* testKeyInFile(std::string_view name) {
  return firstKey([name](const TestKey& key) { return name == key.nameInFile(); });
}

}  // namespace corvane::host
