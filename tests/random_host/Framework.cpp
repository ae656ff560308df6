#include "Framework.h"

#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <streambuf>
#include <system_error>
#include <utility>

#include "ostra/Ostra.h"
#include "vdl/SeedEntropy.h"

namespace randomhost {

OstraPlan ostraPlan;

Framework::Framework(const MapPlan& plan) {
  state.plan = plan;
  log.impl = &said;
  tagQueue.impl = &tags;
  thread.eventLog = &log;
  thread.freeTags = &tagQueue;
  thread.impl = &state;
}

uint32_t& Framework::u32(const char* name) { return state.u32[name]; }
uint64_t& Framework::u64(const char* name) { return state.u64[name]; }
bool& Framework::flag(const char* name) { return state.flags[name]; }
vdl::Buffer& Framework::buffer(const char* name) { return state.buffers[name]; }

vdl::TaggedBuffer::Impl& Framework::tagged(const char* name) { return state.tagged[name].impl; }

vdl::LBARangeQueue::Impl& Framework::queue(const char* name) { return state.queues[name].impl; }

void Framework::show(const char* name, uint32_t tag, const std::vector<uint8_t>& bytes) {
  vdl::TaggedBuffer::Impl::Bytes& shown = tagged(name).bytes[tag];
  shown.data.reset(new uint8_t[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), shown.data.get());
  shown.size = bytes.size();
}

void Framework::hide(const char* name, uint32_t tag) { tagged(name).bytes.erase(tag); }

void Framework::showSense(const std::vector<uint8_t>& bytes) {
  sense_.reset(new uint8_t[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), sense_.get());
  buffer("LastErrSenseData").view(sense_.get(), bytes.size());
}

namespace {

/// Keeps what is written to it.
class Collector : public std::streambuf {
 public:
  std::string text;

 protected:
  int_type overflow(int_type character) override {
    text.push_back(traits_type::to_char_type(character));
    return character;
  }
  std::streamsize xsputn(const char* characters, std::streamsize count) override {
    text.append(characters, static_cast<size_t>(count));
    return count;
  }
};

ssize_t appendTo(void* cookie, const char* characters, size_t count) {
  static_cast<std::string*>(cookie)->append(characters, count);
  return static_cast<ssize_t>(count);
}

FILE* streamInto(std::string& text) {
  cookie_io_functions_t functions{};
  functions.write = appendTo;
  FILE* stream = fopencookie(&text, "w", functions);
  setvbuf(stream, nullptr, _IONBF, 0);
  return stream;
}

void split(Channel channel, std::string& text, std::vector<Line>& lines) {
  size_t begin = 0;
  for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
    lines.push_back({channel, text.substr(begin, end - begin)});
    begin = end + 1;
  }
  text.clear();
}

}  // namespace

struct StandardStreams::Taken {
  std::string output;
  std::string error;
  Collector collector;
  FILE* outputStream = streamInto(output);
  FILE* errorStream = streamInto(error);
  FILE* formerOutput = std::exchange(stdout, outputStream);
  FILE* formerError = std::exchange(stderr, errorStream);
  std::streambuf* formerBuffer = std::cerr.rdbuf(&collector);
};

namespace {

/// Of the object that lives; there is one at a time.
const std::string* saidLast = nullptr;

}  // namespace

StandardStreams::StandardStreams() : taken_(std::make_unique<Taken>()) { saidLast = &taken_->error; }

StandardStreams::~StandardStreams() {
  saidLast = nullptr;
  std::cerr.rdbuf(taken_->formerBuffer);
  stdout = taken_->formerOutput;
  stderr = taken_->formerError;
  std::fclose(taken_->outputStream);
  std::fclose(taken_->errorStream);
}

std::string StandardStreams::untaken() { return saidLast == nullptr ? std::string() : *saidLast; }

void StandardStreams::take(std::vector<Line>& lines) {
  split(Channel::standardOutput, taken_->output, lines);
  split(Channel::standardError, taken_->error, lines);
  split(Channel::standardError, taken_->collector.text, lines);
}

}  // namespace randomhost

namespace vdl {

uint32_t seed_entropy = 0;

void EventLog::logf(int level, const char* format, ...) {
  char text[4096];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  impl->lines.push_back({static_cast<randomhost::Channel>(level), text});
}

const char* EventLog::errStr(int status) const {
  static std::map<int, std::string> texts;
  std::string& text = texts[status];
  if (text.empty()) {
    text = "status " + std::to_string(status);
  }
  return text.c_str();
}

uint8_t* TaggedBuffer::getData(uint32_t tag, uint64_t* size) {
  const auto found = impl->bytes.find(tag);
  *size = found == impl->bytes.end() ? 0 : found->second.size;
  return found == impl->bytes.end() ? nullptr : found->second.data.get();
}

void TaggedBuffer::unlock(uint32_t /*tag*/) { ++impl->unlocks; }

uint32_t FreeTagQueue::peekNextFreeTag() {
  if (impl->forced) {
    return impl->forcedPeek;
  }
  return impl->free.empty() ? 0xFFFFFFFF : impl->free.front();
}

int32_t FreeTagQueue::getNotFreeTag(uint32_t, bool) {
  if (impl->outstanding.empty()) {
    return -1;
  }
  const uint32_t tag = impl->outstanding.front();
  impl->outstanding.pop_front();
  return static_cast<int32_t>(tag);
}

void FreeTagQueue::pushFreeTag(uint32_t tag, uint32_t) { impl->free.push_back(tag); }

void LBARangeQueue::push(LBARange range) { impl->ranges.push_back(range); }

bool LBARangeQueue::empty() {
  if (impl->mutexFails) {
    throw std::system_error(EDEADLK, std::system_category());
  }
  return impl->ranges.empty();
}

bool LBARangeQueue::tryPop(LBARange& out) {
  if (impl->ranges.empty()) {
    return false;
  }
  out = impl->ranges.front();
  impl->ranges.pop_front();
  return true;
}

namespace {

constexpr uint32_t optionalVariable = 5;

/// Whether a map call gets its variable.
bool granted(DriveThread::Impl& state, uint32_t mode, int* err) {
  if (++state.maps == state.plan.failingMap) {
    *err = state.plan.failure;
    return false;
  }
  return mode != optionalVariable || !state.plan.withoutOptional;
}

}  // namespace

uint32_t* DriveThread::mapU32(const char* variable, uint32_t mode, int* err, uint32_t initial) {
  return granted(*impl, mode, err) ? &impl->u32.try_emplace(variable, initial).first->second : nullptr;
}

uint64_t* DriveThread::mapU64(const char* variable, uint32_t mode, int* err, uint64_t initial) {
  return granted(*impl, mode, err) ? &impl->u64.try_emplace(variable, initial).first->second : nullptr;
}

bool* DriveThread::mapBool(const char* variable, uint32_t mode, int* err, bool initial) {
  return granted(*impl, mode, err) ? &impl->flags.try_emplace(variable, initial).first->second : nullptr;
}

Buffer* DriveThread::mapBuffer(const char* variable, uint32_t mode, int* err) {
  return granted(*impl, mode, err) ? &impl->buffers[variable] : nullptr;
}

TaggedBuffer* DriveThread::mapTaggedBuffer(const char* variable, uint32_t mode, int* err) {
  return granted(*impl, mode, err) ? &impl->tagged[variable].buffer : nullptr;
}

LBARangeQueue* DriveThread::mapLBARangeQueue(const char* variable, uint32_t mode, int* err) {
  return granted(*impl, mode, err) ? &impl->queues[variable].queue : nullptr;
}

int DriveThread::registerDriveData(void* data) {
  if (impl->plan.registrationStatus == 0) {
    impl->driveData = data;
  }
  return impl->plan.registrationStatus;
}

uint32_t DriveThread::countVarWriters(const char* variable) {
  return std::string("CSZoneReset") == variable ? impl->plan.zoneWriters : impl->plan.rangeWriters;
}

namespace {

int answer(ConfigManager::Impl& state) { return ++state.calls == state.failingCall ? state.failure : 0; }

}  // namespace

int ConfigManager::registerConfigData(void* record, uint64_t /*sizeBytes*/) {
  const int result = answer(*impl);
  impl->record = result == 0 ? record : nullptr;
  return result;
}

int ConfigManager::addU32(const char*, uint32_t*, uint32_t, uint32_t, const char*) { return answer(*impl); }
int ConfigManager::addBool(const char*, bool*, const char*) { return answer(*impl); }
int ConfigManager::addString(const char*, std::string*, const char*) { return answer(*impl); }
int ConfigManager::addBuffer(const char*, Buffer*, const char*) { return answer(*impl); }
int ConfigManager::addCondition(const char*, Condition*, const char*) { return answer(*impl); }
int ConfigManager::deprecate(const char*, const char*) { return answer(*impl); }

}  // namespace vdl

namespace Ostra {

uint32_t getCurrentDeviceIndex() { return 0; }

int ioctl(int /*device*/, uint32_t request, uint32_t count, ...) {
  constexpr uint32_t readsDeviceParameter = 4241;
  constexpr uint32_t readsShowstopSetting = 179;
  if (request == readsDeviceParameter || request == readsShowstopSetting) {
    va_list arguments;
    va_start(arguments, count);
    *va_arg(arguments, uint32_t*) = randomhost::ostraPlan.value;
    va_end(arguments);
  }
  return randomhost::ostraPlan.ioctlResult;
}

int send(int /*device*/, uint8_t* /*commandBlock*/) { return randomhost::ostraPlan.sendResult; }

}  // namespace Ostra
