#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/base/Random.h"
#include "host/drive/SenseData.h"
#include "host/drive/scsi/ScsiCdb.h"
#include "host/drive/scsi/ScsiPages.h"
#include "host/drive/scsi/ScsiTransport.h"

namespace corvane::tests {

/// What a fake unit is, promises and does. What it promises and what it does are apart, so that it can lie.
struct FakeUnitTraits {
  // What it is.
  uint64_t blocks = 4096;
  uint32_t blockBytes = 512;
  std::string vendor = "ACME";
  std::string product = "Spinning Rust";
  std::string serial = "SN42";
  uint64_t name = 0x5001020304050607;  ///< world wide
  uint8_t qualifier = 0;
  uint8_t deviceType = 0;
  uint8_t protectionType = 0;
  uint8_t intervalExponent = 0;
  uint8_t physicalExponent = 3;
  bool keepsApplicationTags = true;
  bool writeProtected = false;
  bool writeBackCache = true;
  bool forcesUnitAccess = true;

  // What it promises.
  bool provisioned = true;
  bool zerosByCapacity = true;  ///< LBPRZ of READ CAPACITY(16)
  host::ProvisioningData provisioning{.unmaps = true, .writeSameUnmaps = true, .readsZeros = true};
  host::BlockLimits limits{};
  std::set<uint8_t> pages{0x80, 0x83, 0xB0, 0xB2};
  bool answersSupport = true;    ///< REPORT SUPPORTED OPERATION CODES
  bool answersShortMode = true;  ///< MODE SENSE(6)
  bool hasCachingPage = true;

  // What it does.
  std::set<uint8_t> refused;  ///< operation codes, each with INVALID COMMAND OPERATION CODE
  bool takesUnmapBit = true;  ///< of WRITE SAME
  uint64_t granule = 1;       ///< parts of it are left alone by UNMAP
  bool descriptorSense = false;
  bool namesDifference = true;   ///< the LBA, in the sense data of a VERIFY
  uint32_t attentions = 0;       ///< that are pending at the start, and again after a reset
  uint32_t busyAnswers = 0;      ///< to the first commands
  uint32_t notReadyAnswers = 0;  ///< to the first commands but INQUIRY
  host::Sense notReady{0x02, 0x04, 0x01};

  // The way to it.
  uint64_t mostBytes = 1 << 20;
  uint32_t mostRequests = 64;
  uint64_t memoryAlignment = 1;
};

/// A SCSI disk in memory that understands command blocks byte by byte, and the transport to it.
///
/// Requests are carried out when they are answered, in an order of the unit's own. A request whose data do not have the
/// length that its command block says throws std::logic_error: no real transport would forgive it.
class FakeScsiUnit : public host::ScsiTransport {
 public:
  explicit FakeScsiUnit(const FakeUnitTraits& traits);

  std::string description() const override { return "fake unit"; }
  uint64_t mostBytes() const override { return traits.mostBytes; }
  uint32_t mostRequests() const override { return traits.mostRequests; }
  uint64_t memoryAlignment() const override { return traits.memoryAlignment; }
  void submit(const host::ScsiRequest& request) override;
  bool poll(host::ScsiReply& out, bool wait) override;
  bool waitUpTo(uint64_t /*microseconds*/) override { return !outstanding_.empty(); }
  void resetUnit() override;

  /// The sectors with the given LBAs, with protection information where the format has it.
  std::vector<uint8_t> content(uint64_t lba, uint64_t count) const;
  /// Command blocks of one operation code since `seen` was cleared.
  std::vector<host::Cdb> seenOf(uint8_t operation) const;

  FakeUnitTraits traits;
  std::vector<host::Cdb> seen;
  uint32_t lastCdbBytes = 0;
  uint64_t changes = 0;  ///< commands that wrote to the medium
  uint32_t resets = 0;

  /// An error in answer to the next command of an operation code that touches this LBA.
  struct Fault {
    uint8_t operation = 0;
    uint64_t lba = 0;
    host::Sense sense;
    uint32_t status = host::scsi_status::checkCondition;
    bool carriedOut = false;
    bool named = true;  ///< the LBA, in the sense data
  };
  std::optional<Fault> fault;
  uint64_t readsAtMost = ~uint64_t{0};    ///< bytes that one read brings
  uint64_t answersAtMost = ~uint64_t{0};  ///< from now on
  bool broken = false;                    ///< the connection; a reset mends it
  uint32_t breaksAfterReset = 0;          ///< times
  std::function<void()> whenReset = [] {};
  bool comparesNothing = false;  ///< a VERIFY finds everything equal

 private:
  uint32_t sectorBytes() const { return traits.blockBytes + (traits.protectionType != 0 ? 8U : 0U); }
  void answer(const host::ScsiRequest& request, host::ScsiReply& out);
  bool kept(const host::ScsiRequest& request, host::ScsiReply& out);
  void carryOut(const host::ScsiRequest& request, host::ScsiReply& out);
  void inquire(const host::ScsiRequest& request, host::ScsiReply& out);
  void reportCapacity(const host::ScsiRequest& request, host::ScsiReply& out);
  void reportSupport(const host::ScsiRequest& request, host::ScsiReply& out);
  void senseMode(const host::ScsiRequest& request, host::ScsiReply& out, bool shortForm);
  void transfer(const host::ScsiRequest& request, host::ScsiReply& out);
  void read(const host::ScsiRequest& request, host::ScsiReply& out, uint64_t lba, uint64_t count);
  void write(const host::ScsiRequest& request, uint64_t lba, uint64_t count);
  void verify(const host::ScsiRequest& request, host::ScsiReply& out, uint64_t lba, uint64_t count);
  void writeSame(const host::ScsiRequest& request, host::ScsiReply& out, uint64_t lba, uint64_t count);
  void unmap(const host::ScsiRequest& request, host::ScsiReply& out);
  bool isLegalAtomic(const host::ScsiRequest& request, uint64_t lba, uint64_t count) const;
  bool hasLegalBits(const host::ScsiRequest& request) const;
  void refuse(host::ScsiReply& out, const host::Sense& sense, std::optional<uint64_t> information = {}) const;
  static void reply(const host::ScsiRequest& request, host::ScsiReply& out, const std::vector<uint8_t>& bytes,
                    uint64_t allocation);

  std::vector<uint8_t> medium_;
  std::vector<host::ScsiRequest> outstanding_;
  host::Random random_{7};
  uint32_t attentions_ = 0;
};

}  // namespace corvane::tests
