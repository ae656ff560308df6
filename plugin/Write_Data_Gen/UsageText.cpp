#include "Corvane.h"

namespace vdl {

namespace {

// Users and scripts know this text by heart: its slips stay as they are.
constexpr const char* usageText =
    "Usage:\n"
    "\n"
    "A method of data compare that uses precaculated random 'sector-buckets' for write data and read "
    "data compare.  The use of ths plugin in a test dictates much of the structure of the rest of "
    "the test.  The basic structure of a correct test is as follows (order is important)\n"
    "\n"
    "  1) A LBA/XferLength agent, such as Mixed or CacheStress\n"
    "  2) The Corvane plugin\n"
    "  3) A write command, conditioned on 'write'\n"
    "  4) A read command, conditioned on 'read'\n"
    "  5) GetStatus\n"
    "\n"
    "During the test flow, the Corvane agent will first create some read-write command distance by "
    "issuing a number of writes and no reads After this, read and writes will be chosen based on the "
    "configured workload model with the goal of keeping a minimum distance between reads and writes "
    "enforced.\n"
    "\n"
    "Athough every attempt is made to make this plugin fast, its use will have a negative impact on "
    "performance.";

}  // namespace

const char* Corvane::getHelpStr() noexcept { return usageText; }

}  // namespace vdl
