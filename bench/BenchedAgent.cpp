#include "bench/BenchedAgent.h"

#include <cstring>
#include <stdexcept>
#include <string>

namespace corvane::bench {
namespace {

constexpr uint64_t readBit = 1;
constexpr uint64_t writeBit = 2;
constexpr uint32_t nothing = 0xFFFFFFFF;

host::DriveThreadHost::Settings threadSettings(const BenchedAgent::Settings& settings) {
  host::DriveThreadHost::Settings thread;
  thread.name = "bench";
  thread.blockSize = settings.blockSize;
  thread.queueDepth = settings.queueDepth;
  return thread;
}

void require(int status, const char* what) {
  if (status != 0) {
    throw std::runtime_error(std::string(what) + " returned " + std::to_string(status));
  }
}

}  // namespace

BenchedAgent::BenchedAgent(const Settings& settings)
    : settings_(settings), host_(threadSettings(settings)), medium_(settings.rangeBlocks * settings.blockSize) {
  require(vdl::Corvane::initConfigData(&options_.platform()), "initConfigData");
  config_ = static_cast<vdl::Corvane::ConfigData*>(options_.record());
  config_->randomSeed = 1;
  config_->bucketCount = settings.buckets;
  config_->readCondition.anyMask = readBit;
  config_->writeCondition.anyMask = writeBit;
  config_->minQueueSize = settings.minQueueSize;
  config_->maxQueueSize = settings.maxQueueSize;

  host_.variables().u32("TestMaxXferLength") = settings.xferBlocks;
  host_.variables().u64("MaxLBA") = settings.rangeBlocks - 1;
  host_.variables().u32("LastTagID", nothing);
  host_.variables().u32("LastStatusByte", nothing);
  require(vdl::Corvane::initDriveData(&host_.thread()), "initDriveData");
  data_ = static_cast<vdl::Corvane::DriveData*>(host_.driveData());
  readData_.assign(settings.queueDepth, std::vector<uint8_t>(uint64_t{settings.xferBlocks} * settings.blockSize));
  require(vdl::Corvane::startTest(&host_.thread(), config_, data_, 0), "startTest");
}

BenchedAgent::~BenchedAgent() {
  vdl::Corvane::freeDriveData(data_);
  vdl::Corvane::freeConfigData(config_);
}

double BenchedAgent::cycle() {
  publishRange();
  if (outstanding_.size() == settings_.queueDepth) {
    publishCompletion();
  }
  host_.thread().conditions = readBit | writeBit;
  const auto began = std::chrono::steady_clock::now();
  const int status = vdl::Corvane::execute(&host_.thread(), config_, data_);
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - began;
  require(status, "execute");
  withdrawCompletion();
  carryOut();
  return spent.count();
}

void BenchedAgent::publishRange() {
  *data_->lba = random_.below(settings_.rangeBlocks - settings_.xferBlocks + 1);
  *data_->xferLength = settings_.xferBlocks;
}

void BenchedAgent::publishCompletion() {
  const Outstanding done = outstanding_.front();
  outstanding_.pop_front();
  if (done.read) {
    host_.variables().tagged("ReadDataPtr[TagID]").set(done.tag, readData_[done.tag].data(), done.bytes);
  }
  *data_->readDataIsValid = done.read ? 1 : 0;
  *data_->lastTagID = done.tag;
  *data_->lastStatusByte = 0;
  host_.tags().release(done.tag);
  published_ = done.tag;
}

void BenchedAgent::withdrawCompletion() {
  if (published_ != nothing) {
    host_.variables().tagged("ReadDataPtr[TagID]").clear(published_);
    published_ = nothing;
    *data_->lastTagID = nothing;
    *data_->lastStatusByte = nothing;
  }
}

void BenchedAgent::carryOut() {
  const uint64_t applied = host_.thread().conditions & (readBit | writeBit);
  if (applied == 0) {
    return;
  }
  const uint32_t tag = host_.tags().take();
  const uint64_t bytes = uint64_t{*data_->xferLength} * settings_.blockSize;
  uint8_t* place = medium_.data() + *data_->lba * settings_.blockSize;
  if (applied == writeBit) {
    std::memcpy(place, data_->writeData->data, bytes);
  } else {
    std::memcpy(readData_[tag].data(), place, bytes);
  }
  outstanding_.push_back({tag, applied == readBit, bytes});
  ++commands_;
}

}  // namespace corvane::bench
