#include "tests/support/CompiledHeaders.h"
