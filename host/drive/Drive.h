#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace corvane::host {

/// SCSI status codes (SAM) that a drive reports, and the host's own code for a command that it took back.
namespace scsi_status {
inline constexpr uint32_t good = 0x00;
inline constexpr uint32_t checkCondition = 0x02;
inline constexpr uint32_t busy = 0x08;
inline constexpr uint32_t reservationConflict = 0x18;
inline constexpr uint32_t taskSetFull = 0x28;
inline constexpr uint32_t aborted = 0x40;
}  // namespace scsi_status

/// What a command does. The first seven are those that an agent may ask for; the last two act on ranges and are the
/// host's own.
enum class CommandKind : uint8_t {
  write,
  writeAtomic,
  writeSame,
  trim,
  read,
  verify,
  syncCache,
  zoneReset,  ///< of whole zones (ZBC RESET WRITE POINTER, ZNS zone reset): their content is gone
  invalidate  ///< the old content of the blocks must never be read again, as after a change of the key they are under
};

/// "write", "atomic", "writesame", "trim", "read", "verify", "sync", "zonereset", "invalidate".
const char* commandKindName(CommandKind kind);

/// Whether the command changes the medium.
inline bool changesMedium(CommandKind kind) {
  return kind != CommandKind::read && kind != CommandKind::verify && kind != CommandKind::syncCache;
}

/// What a drive is, in the units of its commands.
struct DriveGeometry {
  uint64_t blocks = 0;            ///< capacity, logical blocks
  uint32_t blockSize = 512;       ///< logical block, bytes
  uint32_t protectionBytes = 0;   ///< transferred behind every block; 0: none
  uint32_t physicalExponent = 0;  ///< physical block = blockSize << physicalExponent
  uint64_t zoneBlocks = 0;        ///< blocks of a zone, the last one may be shorter; 0: a drive without zones

  uint32_t sectorBytes() const { return blockSize + protectionBytes; }
};

/// Which segments of an atomic write a drive writes wholly or not at all.
///
/// Where there are limits, a segment's length is a power of two within them and its first LBA a multiple of its length;
/// that satisfies the alignments, granularities and boundaries of SBC, NVMe and the kernel's atomic writes alike.
struct AtomicSegments {
  uint32_t leastBlocks = 1;
  uint32_t mostBlocks = 0;  ///< 0: no limits at all

  bool limited() const { return mostBlocks != 0; }
};

/// Which command kinds a drive carries out, and how.
struct DriveCapabilities {
  bool atomicWrite = false;
  AtomicSegments atomicSegments{};
  bool writeSame = false;
  bool trim = false;
  bool verify = false;  ///< with byte check against data that is sent along
  bool syncCache = false;
  bool powerToggle = false;
  bool deviceReset = false;
  bool volatileCache = false;  ///< acknowledged writes need a flush to survive a power cut
  bool zoneReset = false;      ///< a reset empties whole zones
  bool hostManaged = false;    ///< a write must begin at its zone's write pointer, in the order of submission
  bool invalidate = false;
  bool connectionCanBreak = false;  ///< `submit` and `poll` may throw DriveConnectionLost
  bool worksInCalls = false;        ///< nothing goes on in it outside `submit` and `poll`
};

/// One command as the drive gets it.
///
/// Block k of the transfer belongs to LBA `lba + k * lbaStep`. Data of a transfer stands sector after sector in
/// `data`, each `DriveGeometry::sectorBytes()` long plus `trailerBytes` that the drive keeps or ignores as the
/// transport needs; a write-same sends one block. The memory belongs to the caller and stays untouched until the
/// command's completion was taken from `poll`, or `reset` or `powerCut` has returned.
struct DriveCommand {
  CommandKind kind = CommandKind::read;
  uint32_t tag = 0;
  uint64_t id = 0;  ///< unique for the life of the drive; completions carry it
  uint64_t lba = 0;
  uint32_t blocks = 0;
  uint32_t lbaStep = 1;          ///< 2 with an alternating skip mask
  uint32_t atomicBound = 0;      ///< blocks per atomic segment, counted from `lba`; 0: none
  uint32_t trailerBytes = 0;     ///< end-to-end bytes behind each sector of the data
  bool forceUnitAccess = false;  ///< the medium holds the data before the completion
  uint8_t* data = nullptr;       ///< source of a write or verify, destination of a read
  uint64_t dataBytes = 0;

  /// The LBA of a block of the transfer.
  uint64_t lbaOf(uint32_t block) const { return lba + uint64_t{block} * lbaStep; }
  /// Bytes from one block's data to the next one's.
  uint64_t unitBytes(const DriveGeometry& geometry) const { return uint64_t{geometry.sectorBytes()} + trailerBytes; }
  /// One past the last LBA that the command touches.
  uint64_t endLba() const { return blocks == 0 ? lba : lba + static_cast<uint64_t>(blocks - 1) * lbaStep + 1; }
};

/// How a command ended.
///
/// A drive sets every member but the sense data, of which it sets the first `senseBytes`; what stands behind them means
/// nothing and may be another command's.
struct DriveCompletion {
  uint32_t tag = 0;
  uint64_t id = 0;
  uint32_t status = scsi_status::good;
  uint64_t bytesTransferred = 0;    ///< of a read: valid bytes in the command's data
  uint32_t senseBytes = 0;          ///< 0: no sense data
  std::array<uint8_t, 64> sense{};  ///< SPC sense data, any format, that do not announce more than `senseBytes`
};

/// A drive, or something that behaves like one.
///
/// One thread uses an object. A drive accepts as many commands at once as `maxOutstanding` says and answers them
/// in any order, but the caller never has two commands outstanding that overlap when one of them changes the
/// medium, nor any other command beside a cache flush: ordering is the caller's.
///
/// Failures of the transport itself (as against a command's status) are thrown as `DriveError`. `submit` and `poll` may
/// throw its kind `DriveConnectionLost`: every outstanding command is lost, each wholly, partly or not at all carried
/// out, and none will complete; `reset` then reaches the drive again or throws.
class Drive {
 public:
  virtual ~Drive() = default;

  virtual const DriveGeometry& geometry() const = 0;
  virtual const DriveCapabilities& capabilities() const = 0;
  /// One line for people: what it is and how it is reached, e.g. "file /tmp/x.img, 64 MiB, io_uring, O_DIRECT".
  virtual std::string description() const = 0;
  virtual uint32_t maxOutstanding() const = 0;

  /// Starts a command. An impossible command (range, data size) completes with a check condition.
  virtual void submit(const DriveCommand& command) = 0;

  /// Takes the next completion.
  ///
  /// @param wait block until there is one; returns false at once when nothing is outstanding
  virtual bool poll(DriveCompletion& out, bool wait) = 0;

  /// Sleeps until `poll` may find something, for a caller that has a command outstanding and nothing else to do.
  ///
  /// It sends what is queued and may return early. Throws as `poll`.
  ///
  /// @param microseconds the longest sleep, which the caller uses to look after a drive that hangs
  /// @return false at once by a drive that cannot sleep: the caller polls again, after a pause of its own
  virtual bool waitUpTo(uint64_t microseconds);

  /// Resets the device: every outstanding command is dropped without a completion. Each of them may have been
  /// carried out wholly, partly (an atomic write segment by segment) or not at all.
  virtual void reset() = 0;

  /// Cuts and restores power: as `reset`, and a volatile cache is lost.
  virtual void powerCycle() = 0;

  /// Tells the drive where most reads will put their data, so that a transport can settle with the kernel once what it
  /// would settle for every command. A drive may do nothing about it, and what it cannot have it goes without. Only for
  /// memory that stays what it is: not for what an allocator may give back to the system and get again at the same
  /// address, with other pages behind it.
  ///
  /// @param data  begins on a page and stays mapped until the next call; null: no memory any more
  /// @param bytes a whole number of pages; 0 with null
  virtual void useMemory(uint8_t* data, uint64_t bytes) noexcept;

  /// Hands over what was submitted and still waits to be sent together with more. For a caller that will not poll for a
  /// while: a poll that finds nothing to take leaves nothing unsent. Throws DriveError.
  virtual void sendQueued();

  /// Passes a request block of the device interface on to the drive and waits for its answer. Commands may be
  /// outstanding.
  ///
  /// @param block the whole block, `bytes` long as its own first word says
  /// @return 0, or an error number of the device interface; a drive that has no way for it answers `unsupported`
  virtual int sendVendorRequest(const uint8_t* block, uint32_t bytes);
};

}  // namespace corvane::host
