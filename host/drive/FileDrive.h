#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/base/AlignedMemory.h"
#include "host/drive/Drive.h"
#include "host/drive/DriveAddress.h"
#include "host/drive/FileEngine.h"
#include "host/drive/TestFile.h"

namespace corvane::host {

/// How a file drive reaches its file.
struct FileDriveSettings {
  enum class Engine : uint8_t { wherePossible, uring, threads };

  TestFileSettings file;
  DriveGeometry geometry;  ///< the number of blocks is the file's affair
  Engine engine = Engine::wherePossible;
  uint32_t depth = 32;  ///< most commands at once
};

/// A regular file as a drive: block n is sector n of the file.
///
/// A trim punches a hole, a flush is fdatasync, forced unit access a write with data sync. What a file cannot do this
/// class does: a write-same becomes a write of the repeated block, a verify a read and a compare. Data go straight
/// from and to the command's memory; they are copied once where the file system wants other memory (O_DIRECT with
/// memory that is not aligned), where end-to-end bytes are to be left out, and where a read leaves blocks out.
///
/// A reset and a power cut let the operation that runs for a command end, and drop what the command still had to do;
/// the file has no volatile cache that they could empty.
class FileDrive : public Drive {
 public:
  /// Throws DriveError for a file that cannot be opened, or an engine that the kernel refuses.
  explicit FileDrive(const FileDriveSettings& settings);
  ~FileDrive() override;

  const DriveGeometry& geometry() const override { return geometry_; }
  const DriveCapabilities& capabilities() const override { return capabilities_; }
  std::string description() const override;
  uint32_t maxOutstanding() const override { return static_cast<uint32_t>(slots_.size()); }

  void submit(const DriveCommand& command) override;
  bool poll(DriveCompletion& out, bool wait) override;
  void reset() override { dropEverything(); }
  void powerCycle() override { dropEverything(); }

 private:
  /// A command in work: `pieces` transfers of `pieceBytes`, one after the other.
  struct Slot {
    DriveCommand command;
    FileRequest::Operation operation = FileRequest::Operation::read;
    uint32_t pieces = 0;
    uint32_t piece = 0;  ///< the one that runs
    uint64_t pieceBytes = 0;
    uint64_t pieceDone = 0;     ///< bytes of it that are moved
    uint8_t* memory = nullptr;  ///< of the first piece: the command's own, or the slot's
    uint64_t memoryStep = 0;    ///< from one piece to the next, bytes
    AlignedMemory own;
  };

  void dropEverything();
  void makeEngine(FileDriveSettings::Engine wanted);
  void plan(Slot& slot);
  void planWrite(Slot& slot);
  void planRead(Slot& slot);
  bool movable(const DriveCommand& command) const;
  /// Hands what is left of the slot's piece to the engine.
  void submitRest(uint32_t index);
  /// Takes note of what was moved; true when the piece needs no more of it.
  bool pieceEnded(const FileReply& reply);
  /// Takes in what the engine answered; true when the command has ended and `out` says how.
  bool advance(const FileReply& reply, DriveCompletion& out);
  void failed(const Slot& slot, int error, DriveCompletion& out) const;
  void finish(Slot& slot, DriveCompletion& out) const;
  void gather(const Slot& slot) const;
  void judgeVerify(const Slot& slot, DriveCompletion& out) const;
  void answerAtOnce(const DriveCommand& command, DriveCompletion completion);

  TestFile file_;
  DriveGeometry geometry_;
  DriveCapabilities capabilities_;
  std::string whyThreads_;
  std::vector<Slot> slots_;
  std::vector<uint32_t> freeSlots_;
  std::vector<DriveCompletion> ready_;  ///< answers that needed no file operation
  uint32_t running_ = 0;                ///< requests that the engine has
  // The last member, so that it is gone before the memory that its requests point to.
  std::unique_ptr<FileEngine> engine_;
};

/// Opens `file:PATH[,key=value]…`.
std::unique_ptr<Drive> openFileDrive(DriveAddress& address, uint32_t maxOutstanding);

/// The keys of `file:`, for `--help`.
std::string fileDriveHelp();

}  // namespace corvane::host
