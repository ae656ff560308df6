#include "host/drive/engine/SystemCalls.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "host/drive/engine/KernelFlags.h"

namespace corvane::host {
namespace {

int64_t allocate(int fd, int mode, const EngineRequest& request) {
  return fallocate(fd, mode | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(request.offset),
                   static_cast<off_t>(request.bytes));
}

}  // namespace

int64_t carryOut(int fd, const EngineRequest& request) {
  int64_t result = 0;
  do {
    switch (request.operation) {
      case EngineRequest::Operation::read:
        result = pread(fd, request.data, request.bytes, static_cast<off_t>(request.offset));
        break;
      case EngineRequest::Operation::write: {
        const iovec piece{request.data, request.bytes};
        const int flags = writeFlags(request);
        result = flags == 0 ? pwrite(fd, request.data, request.bytes, static_cast<off_t>(request.offset))
                            : pwritev2(fd, &piece, 1, static_cast<off_t>(request.offset), flags);
        break;
      }
      case EngineRequest::Operation::punchHole:
        result = allocate(fd, FALLOC_FL_PUNCH_HOLE, request);
        break;
      case EngineRequest::Operation::writeZeros:
        result = allocate(fd, FALLOC_FL_ZERO_RANGE, request);
        break;
      case EngineRequest::Operation::discard: {
        const std::array<uint64_t, 2> range{request.offset, request.bytes};
        result = ioctl(fd, BLKDISCARD, range.data());
        break;
      }
      case EngineRequest::Operation::flush:
        result = fdatasync(fd);
        break;
    }
  } while (result < 0 && errno == EINTR);
  return result < 0 ? -errno : result;
}

}  // namespace corvane::host
