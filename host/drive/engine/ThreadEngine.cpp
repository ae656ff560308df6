#include <algorithm>

#include "host/drive/WorkerPool.h"
#include "host/drive/engine/Engine.h"
#include "host/drive/engine/SystemCalls.h"

namespace corvane::host {
namespace {

constexpr uint32_t mostThreads = 16;

class ThreadEngine : public Engine {
 public:
  ThreadEngine(int fd, uint32_t depth)
      : pool_(std::min(depth, mostThreads), depth, [fd](const EngineRequest& request) {
          return EngineReply{request.slot, carryOut(fd, request)};
        }) {}

  std::string name() const override { return "thread pool"; }
  void submit(const EngineRequest& request) override { pool_.submit(request); }
  bool poll(EngineReply& out, bool wait) override { return pool_.poll(out, wait); }
  bool waitUpTo(uint64_t microseconds) override { return pool_.waitUpTo(microseconds); }

 private:
  WorkerPool<EngineRequest, EngineReply> pool_;
};

}  // namespace

std::unique_ptr<Engine> makeThreadEngine(int fd, uint32_t depth) { return std::make_unique<ThreadEngine>(fd, depth); }

}  // namespace corvane::host
