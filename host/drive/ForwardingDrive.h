#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "host/drive/Drive.h"

namespace corvane::host {

/// A drive in front of another one, which gets every call. The base of those that change or watch some of them.
///
/// A drive that keeps a command from the one behind it overrides `waitUpTo` too: the other one cannot know that
/// somebody waits for that command.
class ForwardingDrive : public Drive {
 public:
  explicit ForwardingDrive(std::unique_ptr<Drive> inner) : inner_(std::move(inner)) {}

  const DriveGeometry& geometry() const override { return inner_->geometry(); }
  const DriveCapabilities& capabilities() const override { return inner_->capabilities(); }
  std::string description() const override { return inner_->description(); }
  uint32_t maxOutstanding() const override { return inner_->maxOutstanding(); }
  void submit(const DriveCommand& command) override { inner_->submit(command); }
  bool poll(DriveCompletion& out, bool wait) override { return inner_->poll(out, wait); }
  bool waitUpTo(uint64_t microseconds) override { return inner_->waitUpTo(microseconds); }
  void reset() override { inner_->reset(); }
  void powerCycle() override { inner_->powerCycle(); }
  void useMemory(uint8_t* data, uint64_t bytes) noexcept override { inner_->useMemory(data, bytes); }
  void sendQueued() override { inner_->sendQueued(); }
  int sendVendorRequest(const uint8_t* block, uint32_t bytes) override {
    return inner_->sendVendorRequest(block, bytes);
  }

 protected:
  Drive& inner() { return *inner_; }
  const Drive& inner() const { return *inner_; }

 private:
  std::unique_ptr<Drive> inner_;
};

}  // namespace corvane::host
