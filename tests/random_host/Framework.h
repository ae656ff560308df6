#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "vdl/ConfigManager.h"
#include "vdl/DriveThread.h"

/// A framework that lies when it is told to: every operation of the platform answers what the random host planned.
///
/// It is compiled into the program, so that an agent that is linked and one that is loaded both meet it. All memory
/// that it shows has exactly the size that it says, so that a sanitizer sees each byte read too many.
namespace randomhost {

/// Where a line was said. The first three are levels of the event log.
enum class Channel { information, warning, error, standardOutput, standardError };

struct Line {
  Channel channel;
  std::string text;
};

/// How the mapping of a drive's variables goes.
struct MapPlan {
  int failingMap = 0;  ///< number of the map call that fails, from 1; 0: none
  int failure = -1;
  bool withoutOptional = false;  ///< variables that only some tests provide are null
  int registrationStatus = 0;
  uint32_t zoneWriters = 1;
  uint32_t rangeWriters = 1;
};

}  // namespace randomhost

namespace vdl {

struct EventLog::Impl {
  std::vector<randomhost::Line> lines;
};

struct TaggedBuffer::Impl {
  struct Bytes {
    std::unique_ptr<uint8_t[]> data;
    uint64_t size = 0;
  };
  std::map<uint32_t, Bytes> bytes;
  uint64_t unlocks = 0;
};

struct FreeTagQueue::Impl {
  std::deque<uint32_t> free;
  std::deque<uint32_t> outstanding;
  uint32_t forcedPeek = 0;  ///< answered instead of the next free tag while `forced` stands
  bool forced = false;
};

struct LBARangeQueue::Impl {
  std::deque<LBARange> ranges;
  bool mutexFails = false;
};

struct ConfigManager::Impl {
  void* record = nullptr;
  int calls = 0;
  int failingCall = 0;  ///< number of the call that fails, from 1 at the record's registration; 0: none
  int failure = -1;
};

struct DriveThread::Impl {
  randomhost::MapPlan plan;
  int maps = 0;
  std::map<std::string, uint32_t> u32;
  std::map<std::string, uint64_t> u64;
  std::map<std::string, bool> flags;
  std::map<std::string, Buffer> buffers;
  struct Tagged {
    Tagged() { buffer.impl = &impl; }
    TaggedBuffer::Impl impl;
    TaggedBuffer buffer;
  };
  struct Queue {
    Queue() { queue.impl = &impl; }
    LBARangeQueue::Impl impl;
    LBARangeQueue queue;
  };
  std::map<std::string, Tagged> tagged;
  std::map<std::string, Queue> queues;
  void* driveData = nullptr;
};

}  // namespace vdl

namespace randomhost {

/// What the device-interface library answers to every drive.
struct OstraPlan {
  int ioctlResult = 0;
  int sendResult = 0;
  uint32_t value = 0;
};
extern OstraPlan ostraPlan;

/// The framework's side of one drive.
class Framework {
 public:
  explicit Framework(const MapPlan& plan);
  Framework(const Framework&) = delete;
  Framework& operator=(const Framework&) = delete;

  vdl::DriveThread thread;
  vdl::DriveThread::Impl state;
  vdl::EventLog log;
  vdl::EventLog::Impl said;
  vdl::FreeTagQueue tagQueue;
  vdl::FreeTagQueue::Impl tags;

  /// Storage of a variable, whether the agent mapped it or not.
  uint32_t& u32(const char* name);
  uint64_t& u64(const char* name);
  bool& flag(const char* name);
  vdl::Buffer& buffer(const char* name);
  vdl::TaggedBuffer::Impl& tagged(const char* name);
  vdl::LBARangeQueue::Impl& queue(const char* name);

  /// Shows bytes for a tag until `hide`; null data when `bytes` is null.
  void show(const char* name, uint32_t tag, const std::vector<uint8_t>& bytes);
  void hide(const char* name, uint32_t tag);
  /// Makes "LastErrSenseData" look at these bytes.
  void showSense(const std::vector<uint8_t>& bytes);

 private:
  std::unique_ptr<uint8_t[]> sense_;
};

/// Takes the standard streams away from the agent, so that what it says there can be judged.
class StandardStreams {
 public:
  StandardStreams();
  ~StandardStreams();
  StandardStreams(const StandardStreams&) = delete;
  StandardStreams& operator=(const StandardStreams&) = delete;

  /// Appends the lines since the last call.
  void take(std::vector<Line>& lines);
  /// What was said on the standard streams and not taken yet, for a process that dies.
  static std::string untaken();

 private:
  struct Taken;
  std::unique_ptr<Taken> taken_;
};

}  // namespace randomhost
