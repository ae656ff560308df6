#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "vdl/ConfigManager.h"
#include "vdl/DriveThread.h"
#include "vdl/SenseParser.h"

/// A framework for the tests of the agent's values and models: it records what the agent asks of it, answers what the
/// test scripted, and does nothing by itself.
namespace modeltest {

/// One line that went to the event log, after formatting.
struct LogLine {
  int level;
  std::string text;
  bool operator==(const LogLine&) const = default;
};

void PrintTo(const LogLine& line, std::ostream* out);

/// One `map…` call of a drive thread.
struct MapCall {
  std::string kind;  ///< "u32", "u64", "bool", "buffer", "tagged" or "queue"
  std::string name;
  uint32_t mode;
  uint64_t dflt;
  bool operator==(const MapCall&) const = default;
};

void PrintTo(const MapCall& call, std::ostream* out);

/// One call on the configuration manager.
struct OptionCall {
  std::string kind;  ///< "record", "u32", "bool", "string", "buffer", "condition" or "deprecate"
  std::string name;
  std::string help;
  void* target;
  uint64_t min;
  uint64_t max;  ///< also the size of a "record"
  std::string valueAtRegistration;
};

}  // namespace modeltest

namespace vdl {

struct EventLog::Impl {
  std::vector<modeltest::LogLine> lines;
};

struct TaggedBuffer::Impl {
  std::map<uint32_t, std::vector<uint8_t>> bytes;
};

struct FreeTagQueue::Impl {
  std::deque<uint32_t> free;
  std::deque<uint32_t> outstanding;
  std::vector<std::string> calls;  ///< that take tags back, with all that the agent passed
};

struct LBARangeQueue::Impl {
  std::deque<LBARange> ranges;
};

struct ConfigManager::Impl {
  std::vector<modeltest::OptionCall> calls;
  int failingCall = 0;  ///< number of the call that fails, counted from 1 at the record's registration; 0: none
  int failure = 0;
};

struct DriveThread::Impl {
  std::vector<modeltest::MapCall> maps;
  std::vector<int*> errorCells;
  std::map<int, int> failures;  ///< number of a map call, from 1, to the status that it stores
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
  std::map<std::string, uint32_t> writers;
  std::vector<void*> registered;
  int registrationStatus = 0;
};

}  // namespace vdl

namespace modeltest {

/// A drive thread with its log and tags, ready for the agent's callbacks.
class Drive {
 public:
  Drive();
  Drive(const Drive&) = delete;
  Drive& operator=(const Drive&) = delete;

  vdl::DriveThread thread;
  vdl::DriveThread::Impl threadState;
  vdl::EventLog log;
  vdl::EventLog::Impl logState;
  vdl::FreeTagQueue tags;
  vdl::FreeTagQueue::Impl tagState;

  const std::vector<LogLine>& lines() const { return logState.lines; }
  uint32_t& u32(const std::string& name) { return threadState.u32.at(name); }
  uint64_t& u64(const std::string& name) { return threadState.u64.at(name); }
  vdl::Buffer& buffer(const std::string& name) { return threadState.buffers.at(name); }
};

/// What the sense parser answers, and which of its operations were called.
struct SenseScript {
  int keyStatus = 0;
  vdl::SenseParser::Kcq kcq;
  uint16_t uec = 0;
  uint8_t valid = 0;
  std::array<uint8_t, 8> information{};
  std::vector<std::string> calls;
};
extern SenseScript senseScript;

/// The device-interface library.
struct OstraScript {
  uint32_t deviceIndex = 0;
  int deviceIndexCalls = 0;
  std::vector<std::string> requests;  ///< "ioctl <device> <request>" and "send <device>"; all of them fail
};
extern OstraScript ostraScript;

}  // namespace modeltest
