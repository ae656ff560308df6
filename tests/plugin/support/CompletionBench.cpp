#include "support/CompletionBench.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "Scheduling.h"

namespace benchtest {

namespace {

constexpr uint64_t readBit = 1;
constexpr uint64_t writeBit = 2;
constexpr uint64_t verifyBit = 4;
constexpr uint64_t atomicBit = 8;
constexpr uint64_t sameBit = 16;
constexpr uint64_t trimBit = 32;

vdl::Condition onBit(uint64_t bit) { return vdl::Condition{bit, 0, 0, false}; }

void require(int status, const char* what) {
  if (status != 0) {
    throw std::runtime_error(std::string(what) + " failed with " + std::to_string(status));
  }
}

}  // namespace

void PrintTo(const LogLine& line, std::ostream* out) { *out << "(" << line.level << ", \"" << line.text << "\")"; }

void PrintTo(const Traced& traced, std::ostream* out) {
  *out << vdl::traceTypeName(traced.type) << " lba " << traced.lba << " length " << traced.xferLength << " id "
       << traced.cmdId << " tag " << traced.tag;
}

int RecordingDevice::readShowstopSetting(uint32_t& value) {
  calls.emplace_back("read setting");
  if (settingStatus == 0) {
    value = showstopSetting;
  }
  return settingStatus;
}

int RecordingDevice::writeShowstopSetting(uint32_t value) {
  calls.push_back("write setting " + std::to_string(value));
  showstopSetting = value;
  return 0;
}

int RecordingDevice::reportMiscompare(uint32_t status, uint64_t lba) {
  calls.push_back("miscompare " + std::to_string(status) + " at " + std::to_string(lba));
  return 0;
}

int RecordingDevice::readDeviceParameter(uint32_t& value) {
  calls.emplace_back("read parameter");
  value = parameter;
  return parameterStatus;
}

int RecordingDevice::sendRequest(const uint8_t* block, uint32_t bytes) {
  calls.emplace_back("send");
  request.assign(block, block + bytes);
  return sendStatus;
}

CompletionBench::CompletionBench(Setup setup) {
  if (setup.device != nullptr) {
    device_ = corvane::host::attachDevice(*setup.device);
  }
  corvane::host::DriveThreadHost::Settings settings;
  settings.name = std::move(setup.name);
  settings.blockSize = setup.blockSize;
  settings.protectionEnabled = setup.protectionEnabled;
  settings.protectionBytes = setup.protectionBytes;
  settings.physicalExponent = setup.physicalExponent;
  settings.queueDepth = setup.queueDepth;
  settings.ostraDevice = device_;
  settings.log = [this](int level, std::string_view text) { lines_.push_back({level, std::string(text)}); };
  host_ = std::make_unique<corvane::host::DriveThreadHost>(std::move(settings));

  require(vdl::Corvane::initConfigData(&options_.platform()), "initConfigData");
  config_ = static_cast<vdl::Corvane::ConfigData*>(options_.record());
  config_->bucketCount = 64;
  config_->randomSeed = 1;
  config_->minQueueSize = 1;
  config_->maxQueueSize = 16;
  config_->readCondition = onBit(readBit);
  config_->writeCondition = onBit(writeBit);

  variables().u32("TestMaxXferLength") = 16;
  variables().u64("MaxLBA") = 1000;
  variables().u32("LastStatusByte") = vdl::agent::noStatus;
  require(vdl::Corvane::initDriveData(&thread()), "initDriveData");
  data_ = static_cast<vdl::Corvane::DriveData*>(host_->driveData());
}

CompletionBench::~CompletionBench() {
  vdl::Corvane::freeDriveData(data_);
  vdl::Corvane::freeConfigData(config_);
  if (device_ >= 0) {
    corvane::host::detachDevice(device_);
  }
}

int CompletionBench::startTest() { return vdl::Corvane::startTest(&thread(), config_, data_, 0); }
int CompletionBench::stopTest() { return vdl::Corvane::stopTest(&thread(), config_, data_, 0); }
int CompletionBench::deviceReset() { return vdl::Corvane::deviceReset(&thread(), config_, data_); }
int CompletionBench::execute() { return vdl::Corvane::execute(&thread(), config_, data_); }

CompletionBench& CompletionBench::start() {
  require(startTest(), "startTest");
  holdTags();
  require(execute(), "the first step");
  return *this;
}

void CompletionBench::holdTags() {
  while (host_->tags().take() != corvane::host::TagPool::none) {
  }
}

void CompletionBench::keepSent(uint32_t tag, WriteKind kind) {
  const vdl::Buffer& shown = *data_->writeData;
  Sent& sent = sent_[tag];
  sent = Sent{*data_->lba, *data_->xferLength, config_->useSkipCommands ? 2U : 1U, kind, {}};
  if (kind != WriteKind::trim && shown.data != nullptr) {
    sent.bytes.assign(shown.data, shown.data + shown.size);
  }
}

uint64_t CompletionBench::write(uint64_t lba, uint32_t xferLength, uint32_t tag, WriteKind kind) {
  if (kind == WriteKind::same) {
    config_->writeSameCondition = onBit(sameBit);
  } else if (kind == WriteKind::trim) {
    config_->trimCondition = onBit(trimBit);
  }
  vdl::agent::ActiveConditions active;
  active.write = kind == WriteKind::plain;
  active.writeSame = kind == WriteKind::same;
  active.trim = kind == WriteKind::trim;
  *data_->lba = lba;
  *data_->xferLength = xferLength;
  vdl::agent::Step now = step();
  require(vdl::agent::doAWrite(now, tag, active), "doAWrite");
  keepSent(tag, kind);
  return data_->nextCmdId - 1;
}

uint64_t CompletionBench::atomicWrite(uint64_t lba, uint32_t xferLength, uint32_t bound, uint32_t tag) {
  config_->writeAtomicCondition = onBit(atomicBit);
  *data_->lba = lba;
  *data_->xferLength = xferLength;
  *data_->atomicBound = bound;
  vdl::agent::Step now = step();
  require(vdl::agent::doAWriteAtomic(now, tag), "doAWriteAtomic");
  keepSent(tag, WriteKind::plain);
  return data_->nextCmdId - 1;
}

uint64_t CompletionBench::issueReadOrVerify(uint32_t tag, bool verify) {
  if (verify) {
    config_->verifyCondition = onBit(verifyBit);
  }
  vdl::agent::ActiveConditions active;
  active.read = !verify;
  active.verify = verify;
  vdl::agent::Step now = step();
  require(vdl::agent::doAReadOrVerify(now, tag, active), "doAReadOrVerify");
  return data_->nextCmdId - 1;
}

uint64_t CompletionBench::readBack(uint32_t tag) { return issueReadOrVerify(tag, false); }
uint64_t CompletionBench::verifyBack(uint32_t tag) { return issueReadOrVerify(tag, true); }

uint64_t CompletionBench::finishedWrite(uint64_t lba, uint32_t xferLength, uint32_t tag, WriteKind kind) {
  const uint64_t id = write(lba, xferLength, tag, kind);
  store(tag);
  require(complete(tag), "completion of a write");
  return id;
}

uint64_t CompletionBench::finishedAtomicWrite(uint64_t lba, uint32_t xferLength, uint32_t bound, uint32_t tag) {
  const uint64_t id = atomicWrite(lba, xferLength, bound, tag);
  store(tag);
  require(complete(tag), "completion of an atomic write");
  return id;
}

void CompletionBench::store(uint32_t tag, uint32_t blocks) {
  const Sent& sent = sent_.at(tag);
  const size_t sector = sectorBytes();
  for (uint32_t i = 0; i < std::min(sent.xferLength, blocks); ++i) {
    Bytes& target = medium_[sent.lba + uint64_t{i} * sent.step];
    target.assign(sector, 0);
    if (sent.kind != WriteKind::trim) {
      const size_t offset = sent.kind == WriteKind::same ? 0 : i * sector;
      std::copy_n(sent.bytes.begin() + static_cast<std::ptrdiff_t>(offset), sector, target.begin());
    }
  }
}

Bytes CompletionBench::media(uint64_t lba, uint32_t xferLength) {
  const size_t sector = sectorBytes();
  Bytes bytes;
  for (uint32_t i = 0; i < xferLength; ++i) {
    const auto found = medium_.find(lba + uint64_t{i} * (config_->useSkipCommands ? 2 : 1));
    if (found == medium_.end()) {
      bytes.resize(bytes.size() + sector, 0);
    } else {
      bytes.insert(bytes.end(), found->second.begin(), found->second.end());
    }
  }
  return bytes;
}

int CompletionBench::complete(uint32_t tag, uint32_t status) {
  *data_->lastTagID = tag;
  *data_->lastStatusByte = status;
  const int result = execute();
  *data_->lastStatusByte = vdl::agent::noStatus;
  *data_->readDataIsValid = 0;
  variables().tagged("ReadDataPtr[TagID]").clear(tag);
  return result;
}

void CompletionBench::setSense(const Sense& sense) {
  sense_.assign(22, 0);
  sense_[0] = static_cast<uint8_t>(0x70 | (sense.information ? 0x80 : 0));
  sense_[2] = sense.key;
  if (sense.information) {
    for (unsigned i = 0; i < 4; ++i) {
      sense_[3 + i] = static_cast<uint8_t>(*sense.information >> (24 - 8 * i));
    }
  }
  sense_[7] = 14;
  sense_[12] = sense.asc;
  sense_[13] = sense.ascq;
  sense_[20] = static_cast<uint8_t>(sense.uec >> 8);
  sense_[21] = static_cast<uint8_t>(sense.uec);
  data_->lastErrSenseData->view(sense_.data(), sense_.size());
}

int CompletionBench::completeWithSense(uint32_t tag, const Sense& sense) {
  setSense(sense);
  return complete(tag, checkCondition);
}

void CompletionBench::setReadData(uint32_t tag, Bytes bytes) {
  Bytes& kept = readBytes_[tag];
  kept = std::move(bytes);
  variables().tagged("ReadDataPtr[TagID]").set(tag, kept.data(), kept.size());
  *data_->readDataIsValid = 1;
}

void CompletionBench::setCdb(uint32_t tag, Bytes cdb) {
  Bytes& kept = cdbs_[tag];
  kept = std::move(cdb);
  variables().tagged("RecvCDB[TagID]").set(tag, kept.data(), kept.size());
}

int CompletionBench::completeRead(uint32_t tag, Bytes bytes, uint32_t status) {
  setReadData(tag, std::move(bytes));
  return complete(tag, status);
}

int CompletionBench::completeRead(uint32_t tag) {
  const vdl::CommandTrace::TagSlot issued = trace().slot(tag);
  return completeRead(tag, media(issued.lba, issued.xfer_len));
}

int CompletionBench::idle() {
  *data_->lastStatusByte = vdl::agent::noStatus;
  return execute();
}

std::vector<LogLine> CompletionBench::takeLog() { return std::exchange(lines_, {}); }

LogLine CompletionBench::failure(const char* operation, int status) {
  const char* text = thread().eventLog->errStr(status);
  return {2, std::string(operation) + "(): " + text + " (" + std::to_string(status) + ")"};
}

std::vector<Traced> CompletionBench::takeTrace() {
  std::vector<Traced> entries;
  for (; tracedBefore_ < trace().count(); ++tracedBefore_) {
    const vdl::CommandTrace::TraceInfo& entry = trace().entry(tracedBefore_ % trace().size());
    entries.push_back({entry.type, entry.lba, entry.xfer_len, entry.cmd_id, entry.tag});
  }
  return entries;
}

vdl::CommandTrace::TraceInfo CompletionBench::lastEntry() {
  return trace().entry((trace().count() - 1) % trace().size());
}

uint64_t CompletionBench::refCount(uint64_t lba) {
  const auto record = table().records().find(lba);
  return record == table().records().end() ? 0 : record->second.ref_count;
}

uint32_t CompletionBench::waitingReads(uint64_t lba) {
  const auto record = table().records().find(lba);
  uint32_t count = 0;
  if (record != table().records().end()) {
    for (const vdl::WaitRead* wait = record->second.wait_read; wait != nullptr; wait = wait->next) {
      ++count;
    }
  }
  return count;
}

}  // namespace benchtest
