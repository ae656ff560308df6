#include "host/drive/ForwardingDrive.h"

#include <gtest/gtest.h>

#include <vector>

namespace corvane::host {
namespace {

using Calls = std::vector<std::string>;

/// Answers every call with something that no other drive would, and writes it down.
class Callee : public Drive {
 public:
  explicit Callee(Calls& calls) : calls_(calls) {
    geometry_.blocks = 77;
    capabilities_.trim = true;
    capabilities_.worksInCalls = true;
  }

  const DriveGeometry& geometry() const override { return geometry_; }
  const DriveCapabilities& capabilities() const override { return capabilities_; }
  std::string description() const override { return "callee"; }
  uint32_t maxOutstanding() const override { return 7; }
  void submit(const DriveCommand& command) override { note("submit", command.tag); }
  bool poll(DriveCompletion& out, bool wait) override {
    note("poll", static_cast<uint64_t>(wait));
    out.tag = 8;
    return true;
  }
  bool waitUpTo(uint64_t microseconds) override {
    note("waitUpTo", microseconds);
    return true;
  }
  void reset() override { note("reset", 0); }
  void powerCycle() override { note("powerCycle", 0); }
  void useMemory(uint8_t* /*data*/, uint64_t bytes) noexcept override { note("useMemory", bytes); }
  void sendQueued() override { note("sendQueued", 0); }
  int sendVendorRequest(const uint8_t* block, uint32_t bytes) override {
    note("sendVendorRequest", block[0] + bytes);
    return 9;
  }

 private:
  void note(const std::string& call, uint64_t with) { calls_.push_back(call + " " + std::to_string(with)); }

  Calls& calls_;
  DriveGeometry geometry_;
  DriveCapabilities capabilities_;
};

TEST(ForwardingDrive, PassesEveryCallOn) {
  Calls calls;
  ForwardingDrive drive(std::make_unique<Callee>(calls));
  DriveCompletion out;
  const uint8_t block = 1;

  EXPECT_EQ(drive.geometry().blocks, 77U);
  EXPECT_TRUE(drive.capabilities().trim);
  EXPECT_TRUE(drive.capabilities().worksInCalls);
  EXPECT_EQ(drive.description(), "callee");
  EXPECT_EQ(drive.maxOutstanding(), 7U);
  drive.submit({.tag = 3});
  EXPECT_TRUE(drive.poll(out, true));
  EXPECT_EQ(out.tag, 8U);
  EXPECT_TRUE(drive.waitUpTo(5));
  drive.reset();
  drive.powerCycle();
  drive.useMemory(nullptr, 4096);
  drive.sendQueued();
  EXPECT_EQ(drive.sendVendorRequest(&block, 1), 9);

  EXPECT_EQ(calls, (Calls{"submit 3", "poll 1", "waitUpTo 5", "reset 0", "powerCycle 0", "useMemory 4096",
                          "sendQueued 0", "sendVendorRequest 2"}));
}

}  // namespace
}  // namespace corvane::host
