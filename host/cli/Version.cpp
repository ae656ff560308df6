#include "host/cli/Version.h"

namespace corvane::host {

const char* programVersion() { return CORVANE_VERSION; }

}  // namespace corvane::host
