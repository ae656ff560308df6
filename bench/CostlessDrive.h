#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "host/base/Ring.h"
#include "host/drive/Drive.h"

namespace corvane::bench {

/// A drive that costs no more than the copy of the data: an array, in which every command is carried out as it is
/// submitted. Completions come in the order of the commands.
class CostlessDrive final : public host::Drive {
 public:
  CostlessDrive(uint64_t blocks, uint32_t depth) : depth_(depth), done_(depth) {
    geometry_.blocks = blocks;
    medium_.resize(blocks * geometry_.blockSize);
  }

  const host::DriveGeometry& geometry() const override { return geometry_; }
  const host::DriveCapabilities& capabilities() const override { return capabilities_; }
  std::string description() const override { return "array"; }
  uint32_t maxOutstanding() const override { return depth_; }

  void submit(const host::DriveCommand& command) override {
    uint8_t* place = medium_.data() + command.lba * geometry_.blockSize;
    if (command.kind == host::CommandKind::read) {
      std::memcpy(command.data, place, command.dataBytes);
    } else if (command.kind == host::CommandKind::write) {
      std::memcpy(place, command.data, command.dataBytes);
    }
    done_.pushBack({.tag = command.tag, .id = command.id, .bytes = command.dataBytes});
  }

  bool poll(host::DriveCompletion& out, bool /*wait*/) override {
    if (done_.empty()) {
      return false;
    }
    out.tag = done_.front().tag;
    out.id = done_.front().id;
    out.status = host::scsi_status::good;
    out.bytesTransferred = done_.front().bytes;
    out.senseBytes = 0;
    done_.popFront();
    return true;
  }

  void reset() override {
    while (!done_.empty()) {
      done_.popFront();
    }
  }
  void powerCycle() override { reset(); }

 private:
  struct Done {
    uint32_t tag = 0;
    uint64_t id = 0;
    uint64_t bytes = 0;
  };

  host::DriveGeometry geometry_;
  host::DriveCapabilities capabilities_;
  const uint32_t depth_;
  host::Ring<Done> done_;
  std::vector<uint8_t> medium_;
};

}  // namespace corvane::bench
