#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "DriveData.h"
#include "Step.h"
#include "host/framework/DriveThreadHost.h"
#include "host/framework/OptionRegistry.h"
#include "host/ostra/DeviceTable.h"

/// The agent inside the real framework, with every tag in the test's hand: a step absorbs the completion that the
/// test reports and compares what became comparable, but never issues a command by itself. The test issues commands
/// through the agent's own preparation, so the expected-state table always holds what a test run would have put there.
namespace benchtest {

using Bytes = std::vector<uint8_t>;

struct LogLine {
  int level;
  std::string text;
  bool operator==(const LogLine&) const = default;
};
void PrintTo(const LogLine& line, std::ostream* out);

/// Fixed-format sense data.
struct Sense {
  uint8_t key = 0;
  uint8_t asc = 0;
  uint8_t ascq = 0;
  std::optional<uint32_t> information;  ///< set: the valid bit stands, too
  uint16_t uec = 0;
};

/// One entry of the trace ring, as far as the tests look at it.
struct Traced {
  vdl::TraceType type;
  uint64_t lba;
  uint32_t xferLength;
  uint64_t cmdId;
  uint32_t tag;
  bool operator==(const Traced&) const = default;
};
void PrintTo(const Traced& traced, std::ostream* out);

/// Takes down every request in order and answers what the test scripted.
class RecordingDevice : public corvane::host::VendorDevice {
 public:
  int readShowstopSetting(uint32_t& value) override;
  int writeShowstopSetting(uint32_t value) override;
  int reportMiscompare(uint32_t status, uint64_t lba) override;
  int readDeviceParameter(uint32_t& value) override;
  int sendRequest(const uint8_t* block, uint32_t bytes) override;

  std::vector<std::string> calls;
  Bytes request;  ///< block of the last sendRequest
  uint32_t showstopSetting = 0;
  int settingStatus = 0;  ///< of reading the setting, whose value is left alone when it is not 0
  int sendStatus = 0;
  uint32_t parameter = 0;
  int parameterStatus = 0;
};

struct Setup {
  uint32_t blockSize = 512;
  bool protectionEnabled = false;
  uint32_t protectionBytes = 0;
  uint32_t physicalExponent = 0;
  uint32_t queueDepth = 8;
  std::string name = "d0";
  RecordingDevice* device = nullptr;
};

enum class WriteKind { plain, same, trim };

class CompletionBench {
 public:
  static constexpr uint32_t aborted = 64;
  static constexpr uint32_t checkCondition = 2;

  /// Registers options and drive record; 64 buckets, seed 1, a read and a write condition.
  explicit CompletionBench(Setup setup = {});
  ~CompletionBench();
  CompletionBench(const CompletionBench&) = delete;
  CompletionBench& operator=(const CompletionBench&) = delete;

  /// Starts the test, runs the first step, and takes every tag. Throws std::runtime_error when it does not start.
  CompletionBench& start();
  /// Only the callback.
  int startTest();
  int stopTest();
  int deviceReset();

  vdl::Corvane::ConfigData& config() { return *config_; }
  vdl::Corvane::DriveData& data() { return *data_; }
  vdl::AtomicHash& table() { return data_->atomicHash; }
  vdl::CommandTrace& trace() { return *data_->trace; }
  vdl::DriveThread& thread() { return host_->thread(); }
  corvane::host::DriveThreadHost& host() { return *host_; }
  corvane::host::SharedVariables& variables() { return host_->variables(); }
  vdl::agent::Step step() { return vdl::agent::Step{thread(), data(), config()}; }
  uint32_t sectorBytes() const { return host_->sectorBytes(); }

  /// Issues a write and returns its command id; what it would send stays with the tag until `store`.
  uint64_t write(uint64_t lba, uint32_t xferLength, uint32_t tag, WriteKind kind = WriteKind::plain);
  /// Issues an atomic write, or a pre-read when the content is not known.
  uint64_t atomicWrite(uint64_t lba, uint32_t xferLength, uint32_t bound, uint32_t tag);
  /// Issues the read-back of the oldest finished write, else of the oldest outstanding one, which it links.
  uint64_t readBack(uint32_t tag);
  /// Issues the verify of it.
  uint64_t verifyBack(uint32_t tag);
  /// A good write, from issue to completion, stored.
  uint64_t finishedWrite(uint64_t lba, uint32_t xferLength, uint32_t tag, WriteKind kind = WriteKind::plain);
  uint64_t finishedAtomicWrite(uint64_t lba, uint32_t xferLength, uint32_t bound, uint32_t tag);

  /// Puts the tag's write data on the medium; `blocks` limits it to the first ones.
  void store(uint32_t tag, uint32_t blocks = ~uint32_t{0});
  Bytes& block(uint64_t lba) { return medium_[lba]; }
  /// What a read of the tag's command returns; blocks never stored are zero.
  Bytes media(uint64_t lba, uint32_t xferLength);

  /// One step with a completion.
  int complete(uint32_t tag, uint32_t status = 0);
  int completeWithSense(uint32_t tag, const Sense& sense);
  /// A read's or pre-read's good completion, with its data, or with what stands on the medium now.
  int completeRead(uint32_t tag, Bytes bytes, uint32_t status = 0);
  int completeRead(uint32_t tag);
  /// One step without a completion.
  int idle();
  void setSense(const Sense& sense);
  void setReadData(uint32_t tag, Bytes bytes);
  void setCdb(uint32_t tag, Bytes cdb);
  /// Takes every free tag, so that the agent issues nothing.
  void holdTags();

  /// The lines since the last call.
  std::vector<LogLine> takeLog();
  /// "<operation>(): <text> (<status>)" at level 2.
  LogLine failure(const char* operation, int status);
  /// The entries since the last call.
  std::vector<Traced> takeTrace();
  vdl::CommandTrace::TraceInfo lastEntry();

  /// The bucket of the newest event of a block.
  vdl::BlockNum bucketOf(uint64_t lba) { return table().peek(lba).block_num; }
  uint64_t refCount(uint64_t lba);
  bool hasRecord(uint64_t lba) { return table().records().find(lba) != table().records().end(); }
  uint32_t waitingReads(uint64_t lba);

 private:
  struct Sent {
    uint64_t lba = 0;
    uint32_t xferLength = 0;
    uint32_t step = 1;
    WriteKind kind = WriteKind::plain;
    Bytes bytes;
  };

  int execute();
  void keepSent(uint32_t tag, WriteKind kind);
  uint64_t issueReadOrVerify(uint32_t tag, bool verify);

  std::vector<LogLine> lines_;
  int device_ = -1;
  std::unique_ptr<corvane::host::DriveThreadHost> host_;
  corvane::host::OptionRegistry options_;
  vdl::Corvane::ConfigData* config_ = nullptr;
  vdl::Corvane::DriveData* data_ = nullptr;
  std::map<uint64_t, Bytes> medium_;
  std::map<uint32_t, Sent> sent_;
  std::map<uint32_t, Bytes> readBytes_;
  std::map<uint32_t, Bytes> cdbs_;
  Bytes sense_;
  uint64_t tracedBefore_ = 0;
};

}  // namespace benchtest
