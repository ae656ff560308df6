#include "host/run/TagMemory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "host/run/ConfigurationError.h"

namespace corvane::host {

TagMemory::TagMemory(uint32_t tags, uint64_t bytesPerTag) {
  const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  stride_ = (bytesPerTag + page - 1) / page * page;
  bytes_ = stride_ * tags;
  void* base = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (base == MAP_FAILED) {
    throw ConfigurationError("no memory for " + std::to_string(bytes_ >> 20) +
                             " MiB of read data; choose a smaller queue depth or transfer length");
  }
  base_ = static_cast<uint8_t*>(base);
}

TagMemory::~TagMemory() {
  if (drive_ != nullptr) {
    drive_->useMemory(nullptr, 0);
  }
  munmap(base_, bytes_);
}

void TagMemory::lendTo(Drive& drive) {
  drive_ = &drive;
  drive.useMemory(base_, bytes_);
}

}  // namespace corvane::host
