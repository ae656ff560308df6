#include "host/cli/TestKey.h"

#include <algorithm>

namespace corvane::host {

const std::vector<TestKey>& testKeys() {
  static const std::vector<TestKey> keys = [] {
    std::vector<TestKey> all;
    addLimitKeys(all);
    addCommandKeys(all);
    addStressKeys(all);
    addOutputKeys(all);
    return all;
  }();
  return keys;
}

const TestKey* testKeyNamed(std::string_view name) {
  const std::vector<TestKey>& keys = testKeys();
  const auto found = std::find_if(keys.begin(), keys.end(), [name](const TestKey& key) { return key.name == name; });
  return found == keys.end() ? nullptr : &*found;
}

}  // namespace corvane::host
