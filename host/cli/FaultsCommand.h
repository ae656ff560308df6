#pragma once

#include "host/cli/Console.h"

namespace corvane::host {

/// `corvane faults`: lists the classes of faults that `--fault` and the self-test know. Returns the exit status.
int showFaultClasses(Console& out);

}  // namespace corvane::host
