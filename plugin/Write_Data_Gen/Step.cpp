#include "Step.h"

#include <sys/time.h>

namespace vdl::agent {

int32_t logFailure(const Step& step, const char* operation, int32_t status) {
  step.log().logf(2, "%s(): %s (%d)", operation, step.log().errStr(status), status);
  return status;
}

uint64_t wallClockUs() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_usec);
}

}  // namespace vdl::agent
