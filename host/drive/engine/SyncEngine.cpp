#include "host/base/Ring.h"
#include "host/drive/engine/Engine.h"
#include "host/drive/engine/SystemCalls.h"

namespace corvane::host {
namespace {

class SyncEngine : public Engine {
 public:
  SyncEngine(int fd, uint32_t depth) : fd_(fd), replies_(depth) {}

  std::string name() const override { return "synchronous calls"; }

  bool worksInCalls() const override { return true; }

  void submit(const EngineRequest& request) override { replies_.pushBack({request.slot, carryOut(fd_, request)}); }

  bool poll(EngineReply& out, bool /*wait*/) override { return replies_.takeFront(out); }

  /// Nothing is ever under way.
  bool waitUpTo(uint64_t /*microseconds*/) override { return true; }

 private:
  int fd_;
  Ring<EngineReply> replies_;  ///< of what was carried out and not asked for yet
};

}  // namespace

std::unique_ptr<Engine> makeSyncEngine(int fd, uint32_t depth) { return std::make_unique<SyncEngine>(fd, depth); }

}  // namespace corvane::host
