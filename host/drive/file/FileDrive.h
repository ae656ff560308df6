#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/drive/Drive.h"
#include "host/drive/DriveAddress.h"
#include "host/drive/TransferPlan.h"
#include "host/drive/file/FileEngine.h"
#include "host/drive/file/TestFile.h"

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
  /// A command in work: the runs of its plan, one after the other.
  struct Slot {
    TransferPlan plan;
    FileRequest::Operation operation = FileRequest::Operation::read;
    uint32_t run = 0;      ///< the one that is moved
    uint64_t runDone = 0;  ///< bytes of it that are moved
  };

  void dropEverything();
  void makeEngine(FileDriveSettings::Engine wanted);
  /// Hands what is left of the slot's run to the engine.
  void submitRest(uint32_t index);
  /// Takes note of what was moved; true when the run needs no more of it.
  bool runEnded(const FileReply& reply);
  /// Takes in what the engine answered; true when the command has ended and `out` says how.
  bool advance(const FileReply& reply, DriveCompletion& out);
  void failed(const Slot& slot, int error, DriveCompletion& out) const;
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
