#include "tests/drive/ConformanceKinds.h"

namespace corvane::host {

std::vector<Kind> simKinds() {
  return {addressKind("Sim", "sim:8m"), addressKind("SimVolatile", "sim:8m,cache=volatile"),
          addressKind("SimProtection", "sim:8519680,pi=8"), addressKind("Sim4096", "sim:32m,block=4096")};
}

}  // namespace corvane::host
