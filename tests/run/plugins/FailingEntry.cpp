#include "vdl/Agent.h"

extern "C" int initAgent(vdl::AgentTable*) { return -77; }
