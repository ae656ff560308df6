#include "vdl/SeedEntropy.h"

namespace vdl {

uint32_t seed_entropy = 0;

}  // namespace vdl
