#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <vector>

#include "host/base/Random.h"
#include "host/drive/Drive.h"

namespace corvane::host {

using Bytes = std::vector<uint8_t>;

/// Data that no two calls with other seeds share.
inline Bytes randomBytes(uint64_t seed, uint64_t count) {
  Random random(seed);
  Bytes bytes(count);
  for (uint8_t& byte : bytes) {
    byte = static_cast<uint8_t>(random.next());
  }
  return bytes;
}

/// Sends commands to a drive one by one and waits for each.
class CommandMaker {
 public:
  explicit CommandMaker(Drive& drive) : drive_(drive) {}

  DriveCommand make(CommandKind kind, uint64_t lba, uint32_t blocks, Bytes* data = nullptr) {
    DriveCommand command;
    command.kind = kind;
    command.tag = 3;
    command.id = ++lastId_;
    command.lba = lba;
    command.blocks = blocks;
    if (data != nullptr) {
      command.data = data->data();
      command.dataBytes = data->size();
    }
    return command;
  }

  DriveCompletion run(const DriveCommand& command) {
    drive_.submit(command);
    DriveCompletion completion;
    if (!drive_.poll(completion, true)) {
      throw std::logic_error("a command was outstanding, but nothing was waited for");
    }
    return completion;
  }

  DriveCompletion run(CommandKind kind, uint64_t lba, uint32_t blocks, Bytes* data = nullptr) {
    return run(make(kind, lba, blocks, data));
  }

  Bytes read(uint64_t lba, uint32_t blocks) {
    Bytes data(uint64_t{blocks} * drive_.geometry().sectorBytes(), 0xEE);
    if (run(CommandKind::read, lba, blocks, &data).status != scsi_status::good) {
      throw std::runtime_error("a read failed");
    }
    return data;
  }

 private:
  Drive& drive_;
  uint64_t lastId_ = 1000;
};

/// Sense key, additional sense code and qualifier of fixed-format sense data, as one number; 0 without any.
inline uint32_t senseNumber(const DriveCompletion& completion) {
  return completion.senseBytes == 0
             ? 0
             : static_cast<uint32_t>(completion.sense[2] << 16 | completion.sense[12] << 8 | completion.sense[13]);
}

/// The information of fixed-format sense data; all ones when the valid bit is clear.
inline uint64_t senseInformation(const DriveCompletion& completion) {
  if ((completion.sense[0] & 0x80) == 0) {
    return ~uint64_t{0};
  }
  uint64_t value = 0;
  for (size_t i = 3; i < 7; ++i) {
    value = value << 8 | completion.sense[i];
  }
  return value;
}

}  // namespace corvane::host
