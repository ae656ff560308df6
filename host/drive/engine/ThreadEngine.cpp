#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "host/drive/WorkerPool.h"
#include "host/drive/engine/Engine.h"
#include "host/drive/engine/KernelFlags.h"

namespace corvane::host {
namespace {

constexpr uint32_t mostThreads = 16;

int64_t allocate(int fd, int mode, const EngineRequest& request) {
  return fallocate(fd, mode | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(request.offset),
                   static_cast<off_t>(request.bytes));
}

int64_t carryOut(int fd, const EngineRequest& request) {
  int64_t result = 0;
  do {
    switch (request.operation) {
      case EngineRequest::Operation::read:
        result = pread(fd, request.data, request.bytes, static_cast<off_t>(request.offset));
        break;
      case EngineRequest::Operation::write: {
        const iovec piece{request.data, request.bytes};
        result = pwritev2(fd, &piece, 1, static_cast<off_t>(request.offset), writeFlags(request));
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

class ThreadEngine : public Engine {
 public:
  ThreadEngine(int fd, uint32_t depth)
      : pool_(std::min(depth, mostThreads), depth, [fd](const EngineRequest& request) {
          return EngineReply{request.slot, carryOut(fd, request)};
        }) {}

  std::string name() const override { return "thread pool"; }
  void submit(const EngineRequest& request) override { pool_.submit(request); }
  bool poll(EngineReply& out, bool wait) override { return pool_.poll(out, wait); }

 private:
  WorkerPool<EngineRequest, EngineReply> pool_;
};

}  // namespace

std::unique_ptr<Engine> makeThreadEngine(int fd, uint32_t depth) { return std::make_unique<ThreadEngine>(fd, depth); }

}  // namespace corvane::host
