#include "vdl/TaggedBuffer.h"

#include <memory>

#include "host/framework/SharedVariables.h"
#include "host/framework/TaggedBufferImpl.h"

namespace vdl {

uint8_t* TaggedBuffer::getData(uint32_t tag, uint64_t* size) {
  const bool known = impl != nullptr && tag < impl->views.size() && impl->views[tag].data != nullptr;
  *size = known ? impl->views[tag].bytes : 0;
  return known ? impl->views[tag].data : nullptr;
}

void TaggedBuffer::unlock(uint32_t tag) {
  if (impl != nullptr && tag < impl->views.size()) {
    impl->views[tag] = {};
  }
}

}  // namespace vdl

namespace corvane::host {

TaggedViews::TaggedViews(uint32_t tags) : views_(nullptr) {
  auto views = std::make_unique<vdl::TaggedBuffer::Impl>();
  views->views.resize(tags);
  views_ = views.release();
  platform_.impl = views_;
}

TaggedViews::~TaggedViews() { delete views_; }

vdl::TaggedBuffer& TaggedViews::platform() { return platform_; }

}  // namespace corvane::host
