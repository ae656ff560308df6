#include "support_model/ModelFramework.h"

#include <cstdarg>
#include <cstdio>
#include <ostream>
#include <utility>

#include "ostra/Ostra.h"
#include "vdl/SeedEntropy.h"

namespace modeltest {

SenseScript senseScript;
OstraScript ostraScript;

void PrintTo(const LogLine& line, std::ostream* out) { *out << "(" << line.level << ", \"" << line.text << "\")"; }

void PrintTo(const MapCall& call, std::ostream* out) {
  *out << call.kind << " \"" << call.name << "\" " << call.mode << " " << call.dflt;
}

Drive::Drive() {
  log.impl = &logState;
  tags.impl = &tagState;
  thread.eventLog = &log;
  thread.freeTags = &tags;
  thread.impl = &threadState;
  thread.blockSize = 512;
  thread.name = "d0";
}

}  // namespace modeltest

namespace vdl {

uint32_t seed_entropy = 0;

void EventLog::logf(int level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  std::string text(static_cast<std::size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  va_end(arguments);
  impl->lines.push_back({level, std::move(text)});
}

const char* EventLog::errStr(int status) const {
  static std::map<int, std::string> texts;
  std::string& text = texts[status];
  text = "E(" + std::to_string(status) + ")";
  return text.c_str();
}

uint8_t* TaggedBuffer::getData(uint32_t tag, uint64_t* size) {
  const auto found = impl->bytes.find(tag);
  *size = found == impl->bytes.end() ? 0 : found->second.size();
  return found == impl->bytes.end() ? nullptr : found->second.data();
}

void TaggedBuffer::unlock(uint32_t /*tag*/) {}

uint32_t FreeTagQueue::peekNextFreeTag() { return impl->free.empty() ? 0xFFFFFFFF : impl->free.front(); }
int32_t FreeTagQueue::getNotFreeTag(uint32_t first, bool flag) {
  impl->calls.push_back("get " + std::to_string(first) + (flag ? " true" : " false"));
  if (impl->outstanding.empty()) {
    return -1;
  }
  const uint32_t tag = impl->outstanding.front();
  impl->outstanding.pop_front();
  return static_cast<int32_t>(tag);
}
void FreeTagQueue::pushFreeTag(uint32_t tag, uint32_t second) {
  impl->calls.push_back("push " + std::to_string(tag) + ' ' + std::to_string(second));
  impl->free.push_back(tag);
}

void LBARangeQueue::push(LBARange range) { impl->ranges.push_back(range); }
bool LBARangeQueue::empty() { return impl->ranges.empty(); }
bool LBARangeQueue::tryPop(LBARange& out) {
  if (impl->ranges.empty()) {
    return false;
  }
  out = impl->ranges.front();
  impl->ranges.pop_front();
  return true;
}

namespace {

/// Takes a map call down; false when it is scripted to fail.
bool record(DriveThread::Impl& state, modeltest::MapCall call, int* err) {
  state.maps.push_back(std::move(call));
  state.errorCells.push_back(err);
  const auto failure = state.failures.find(static_cast<int>(state.maps.size()));
  if (failure == state.failures.end()) {
    return true;
  }
  *err = failure->second;
  return false;
}

}  // namespace

uint32_t* DriveThread::mapU32(const char* variable, uint32_t mode, int* err, uint32_t dflt) {
  return record(*impl, {"u32", variable, mode, dflt}, err) ? &impl->u32.try_emplace(variable, dflt).first->second
                                                           : nullptr;
}

uint64_t* DriveThread::mapU64(const char* variable, uint32_t mode, int* err, uint64_t dflt) {
  return record(*impl, {"u64", variable, mode, dflt}, err) ? &impl->u64.try_emplace(variable, dflt).first->second
                                                           : nullptr;
}

bool* DriveThread::mapBool(const char* variable, uint32_t mode, int* err, bool dflt) {
  return record(*impl, {"bool", variable, mode, dflt ? 1U : 0U}, err)
             ? &impl->flags.try_emplace(variable, dflt).first->second
             : nullptr;
}

Buffer* DriveThread::mapBuffer(const char* variable, uint32_t mode, int* err) {
  return record(*impl, {"buffer", variable, mode, 0}, err) ? &impl->buffers[variable] : nullptr;
}

TaggedBuffer* DriveThread::mapTaggedBuffer(const char* variable, uint32_t mode, int* err) {
  return record(*impl, {"tagged", variable, mode, 0}, err) ? &impl->tagged[variable].buffer : nullptr;
}

LBARangeQueue* DriveThread::mapLBARangeQueue(const char* variable, uint32_t mode, int* err) {
  return record(*impl, {"queue", variable, mode, 0}, err) ? &impl->queues[variable].queue : nullptr;
}

int DriveThread::registerDriveData(void* data) {
  impl->registered.push_back(data);
  return impl->registrationStatus;
}

uint32_t DriveThread::countVarWriters(const char* variable) {
  const auto found = impl->writers.find(variable);
  return found == impl->writers.end() ? 0 : found->second;
}

namespace {

int answer(ConfigManager::Impl& state, modeltest::OptionCall call) {
  state.calls.push_back(std::move(call));
  return static_cast<int>(state.calls.size()) == state.failingCall ? state.failure : 0;
}

std::string text(const Condition& c) {
  return std::to_string(c.anyMask) + "/" + std::to_string(c.allMask) + "/" + std::to_string(c.noneMask) + "/" +
         (c.replace ? "replace" : "keep");
}

std::string text(const Buffer& b) {
  return std::string(b.data == nullptr ? "null" : "data") + "/" + std::to_string(b.capacity) + "/" +
         std::to_string(b.size) + "/" + (b.owned ? "owned" : "not owned");
}

}  // namespace

int ConfigManager::registerConfigData(void* data, uint64_t sizeBytes) {
  return answer(*impl, {"record", "", "", data, 0, sizeBytes, ""});
}

int ConfigManager::addU32(const char* name, uint32_t* target, uint32_t min, uint32_t max, const char* help) {
  return answer(*impl, {"u32", name, help, target, min, max, std::to_string(*target)});
}

int ConfigManager::addBool(const char* name, bool* target, const char* help) {
  return answer(*impl, {"bool", name, help, target, 0, 0, *target ? "true" : "false"});
}

int ConfigManager::addString(const char* name, std::string* target, const char* help) {
  return answer(*impl, {"string", name, help, target, 0, 0, *target});
}

int ConfigManager::addBuffer(const char* name, Buffer* target, const char* help) {
  return answer(*impl, {"buffer", name, help, target, 0, 0, text(*target)});
}

int ConfigManager::addCondition(const char* name, Condition* target, const char* help) {
  return answer(*impl, {"condition", name, help, target, 0, 0, text(*target)});
}

int ConfigManager::deprecate(const char* name, const char* deprecation) {
  return answer(*impl, {"deprecate", name, deprecation, nullptr, 0, 0, ""});
}

int SenseParser::getKey(const uint8_t* /*sense*/, Kcq& out) {
  modeltest::senseScript.calls.emplace_back("key");
  if (modeltest::senseScript.keyStatus == 0) {
    out.key = modeltest::senseScript.kcq.key;
  }
  return modeltest::senseScript.keyStatus;
}

int SenseParser::getCode(const uint8_t* /*sense*/, Kcq& out) {
  modeltest::senseScript.calls.emplace_back("code");
  out.code = modeltest::senseScript.kcq.code;
  return 0;
}

int SenseParser::getQual(const uint8_t* /*sense*/, Kcq& out) {
  modeltest::senseScript.calls.emplace_back("qual");
  out.qual = modeltest::senseScript.kcq.qual;
  return 0;
}

int SenseParser::getUec(const uint8_t* /*sense*/, Uec& out) {
  modeltest::senseScript.calls.emplace_back("uec");
  out = modeltest::senseScript.uec;
  return 0;
}

int SenseParser::getValidBit(const uint8_t* /*sense*/, uint8_t* valid) {
  modeltest::senseScript.calls.emplace_back("valid");
  *valid = modeltest::senseScript.valid;
  return 0;
}

int SenseParser::getInformationBytes(const uint8_t* /*sense*/, uint8_t* eightBytes) {
  modeltest::senseScript.calls.emplace_back("information");
  for (const uint8_t byte : modeltest::senseScript.information) {
    *eightBytes++ = byte;
  }
  return 0;
}

}  // namespace vdl

namespace Ostra {

uint32_t getCurrentDeviceIndex() {
  ++modeltest::ostraScript.deviceIndexCalls;
  return modeltest::ostraScript.deviceIndex;
}

int ioctl(int device, uint32_t request, uint32_t /*count*/, ...) {
  modeltest::ostraScript.requests.push_back("ioctl " + std::to_string(device) + ' ' + std::to_string(request));
  return 1;
}

int send(int device, uint8_t* /*commandBlock*/) {
  modeltest::ostraScript.requests.push_back("send " + std::to_string(device));
  return 1;
}

}  // namespace Ostra
