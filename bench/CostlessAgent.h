#pragma once

#include <cstdint>
#include <vector>

#include "host/base/Ring.h"
#include "host/framework/DriveThreadHost.h"
#include "host/run/ConditionSet.h"
#include "vdl/Agent.h"

namespace corvane::bench {

/// An agent that does next to nothing, so that what a step costs is the host's: it writes where the host says, and once
/// so many writes wait it reads the one back that ended first. It compares nothing and allocates nothing in a step.
class CostlessAgent {
 public:
  /// @param host    outlives the object
  /// @param writes  kinds that take turns
  /// @param waiting writes that wait for their read-back
  CostlessAgent(host::DriveThreadHost& host, std::vector<host::CommandKind> writes, uint32_t maxBlocks,
                uint32_t waiting)
      : lba_(host.variables().u64("LBA")),
        blocks_(host.variables().u32("XferLength")),
        lastTag_(host.variables().u32("LastTagID", nothing)),
        writeData_(host.variables().buffer("WriteData")),
        kinds_(std::move(writes)),
        sectorBytes_(host.sectorBytes()),
        waiting_(waiting),
        finished_(waiting + host.tags().size() + 1),
        byTag_(host.tags().size()),
        data_(uint64_t{maxBlocks} * sectorBytes_, 0x5A) {
    host.thread().registerDriveData(this);
  }

  static vdl::AgentTable table() {
    vdl::AgentTable table{};
    table.execute = [](vdl::DriveThread* thread, const void*, void* self) {
      static_cast<CostlessAgent*>(self)->execute(*thread);
      return 0;
    };
    return table;
  }

 private:
  static constexpr uint32_t nothing = 0xFFFFFFFF;
  struct Command {
    uint64_t lba = 0;
    uint32_t blocks = 0;
    bool write = false;
  };

  void execute(vdl::DriveThread& thread) {
    if (lastTag_ != nothing && byTag_[lastTag_].write) {
      finished_.pushBack(byTag_[lastTag_]);
    }
    thread.conditions &= ~host::ConditionSet::allBits;
    const uint32_t tag = thread.freeTags->peekNextFreeTag();
    if (tag != nothing) {
      thread.conditions |= host::ConditionSet::bitOf(finished_.size() > waiting_ ? readBack(tag) : write(tag));
    }
  }

  host::CommandKind readBack(uint32_t tag) {
    const Command write = finished_.front();
    finished_.popFront();
    lba_ = write.lba;
    blocks_ = write.blocks;
    byTag_[tag].write = false;
    return host::CommandKind::read;
  }

  host::CommandKind write(uint32_t tag) {
    byTag_[tag] = {.lba = lba_, .blocks = blocks_, .write = true};
    const host::CommandKind kind = kinds_[next_];
    next_ = next_ + 1 < kinds_.size() ? next_ + 1 : 0;
    const uint32_t sent = kind == host::CommandKind::writeSame ? 1 : blocks_;
    if (kind != host::CommandKind::trim) {
      writeData_.view(data_.data(), sent * sectorBytes_);
    }
    return kind;
  }

  uint64_t& lba_;
  uint32_t& blocks_;
  uint32_t& lastTag_;
  vdl::Buffer& writeData_;
  const std::vector<host::CommandKind> kinds_;
  const uint64_t sectorBytes_;
  const uint32_t waiting_;
  host::Ring<Command> finished_;
  std::vector<Command> byTag_;
  std::vector<uint8_t> data_;
  size_t next_ = 0;
};

}  // namespace corvane::bench
