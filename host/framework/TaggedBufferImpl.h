#pragma once

#include <cstdint>
#include <vector>

#include "vdl/TaggedBuffer.h"

/// What each tag shows at the moment.
struct vdl::TaggedBuffer::Impl {
  struct View {
    uint8_t* data = nullptr;
    uint64_t bytes = 0;
  };
  std::vector<View> views;
};
