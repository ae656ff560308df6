#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "host/base/Random.h"
#include "host/drive/nvme/NvmePassthrough.h"

namespace corvane::host {

/// What a fake controller says of itself and its one namespace, in the fields of Identify as they stand there.
struct FakeNvmeSettings {
  uint64_t blocks = 16384;
  uint8_t blockExponent = 9;
  uint16_t metadataBytes = 0;
  bool metadataExtended = true;
  uint8_t protectionType = 0;
  uint16_t oncs = 0x0D;  ///< Compare, Dataset Management, Write Zeroes
  uint8_t dlfeat = 0x09;
  uint8_t nsfeat = 0;
  uint8_t mdts = 0;
  uint8_t wzsl = 0;
  uint8_t volatileCache = 1;
  uint32_t cacheFeature = 1;  ///< the result of Get Features
  uint16_t awupf = 7;
  uint16_t nawupf = 0;
  uint16_t nabspf = 0;
  uint16_t nabo = 0;
  uint16_t npwg = 0;
  uint8_t commandSet = 0;
  uint64_t zoneBlocks = 0;
  uint64_t zoneCapacity = 0;  ///< 0: the whole zone
  uint32_t mostActive = 0xFFFFFFFF;
  bool readsAcrossZones = false;
  uint64_t kernelBytes = 65536;
  uint64_t seed = 1;
};

/// A controller with a namespace in memory that takes commands apart by the bytes of their dwords, as a real one does.
///
/// Commands are carried out in a random order, each in the moment in which it is polled. Protection information that
/// the controller generates has the reference tag only, with its least significant byte first.
class FakeNvme : public NvmePassthrough {
 public:
  explicit FakeNvme(const FakeNvmeSettings& settings);

  std::string name() const override { return "fake controller"; }
  uint32_t nsid() const override { return 1; }
  uint64_t mostBytes() const override { return settings_.kernelBytes; }
  std::string whyNoReset() const override { return resetRefusal; }
  void submit(const NvmeRequest& request) override;
  bool poll(NvmeReply& out, bool wait) override;
  bool waitUpTo(uint64_t /*microseconds*/) override { return !waiting_.empty() || !cancelled_.empty(); }
  int32_t admin(const NvmeCommand& command, uint32_t* result) override;
  int32_t runAlone(const NvmeCommand& command) override;
  /// What is outstanding is carried out or not, by chance, and ends with -EINTR.
  void reset() override;

  std::string resetRefusal;
  std::vector<NvmeCommand> sent;           ///< I/O commands that came, in their order
  std::vector<NvmeCommand> adminCommands;  ///< those that are not of Identify and Get Features
  int32_t adminResult = 0;                 ///< how they end
  uint32_t resets = 0;

  /// The next commands of this operation code end so, one each, and are not carried out.
  void failNext(uint8_t opcode, int32_t result) { failures_.push_back({opcode, result}); }
  /// The block as it is on the medium, metadata behind the data.
  uint8_t* sector(uint64_t lba) { return &medium_[lba * sectorBytes()]; }
  uint64_t writePointer(uint64_t zone) const { return writePointers_[zone]; }

 private:
  struct Failure {
    uint8_t opcode;
    int32_t result;
  };

  uint64_t blockBytes() const { return uint64_t{1} << settings_.blockExponent; }
  uint64_t sectorBytes() const { return blockBytes() + settings_.metadataBytes; }
  int32_t identify(const NvmeCommand& command) const;
  void describeController(uint8_t* at) const;
  void describeNamespace(uint8_t* at) const;
  int32_t reportZones(const NvmeCommand& command) const;
  int32_t carryOut(const NvmeCommand& command);
  int32_t move(const NvmeCommand& command, uint64_t lba, uint64_t count);
  int32_t checkSizes(const NvmeCommand& command, uint64_t count) const;
  int32_t admitWrite(uint64_t lba, uint64_t count);
  /// The data of block `i` of the command, and its metadata; null for those that are not transferred.
  uint8_t* dataOf(const NvmeCommand& command, uint64_t i) const;
  uint8_t* metadataOf(const NvmeCommand& command, uint64_t i) const;

  FakeNvmeSettings settings_;
  Random random_;
  std::vector<uint8_t> medium_;
  std::vector<uint64_t> writePointers_;
  std::vector<NvmeRequest> waiting_;
  std::vector<NvmeReply> cancelled_;
  std::vector<Failure> failures_;
};

}  // namespace corvane::host
