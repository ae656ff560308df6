#include "host/drive/file/FileDrive.h"

#include <cerrno>
#include <system_error>

#include "host/drive/DriveError.h"
#include "host/drive/GeometryKeys.h"
#include "host/drive/engine/EngineDrive.h"
#include "host/drive/file/TestFile.h"

namespace corvane::host {
namespace {

/// What an EngineDrive has to know of a file.
class FileTarget final : public EngineTarget {
 public:
  /// @param geometry the number of blocks is the file's affair
  FileTarget(const TestFileSettings& settings, const DriveGeometry& geometry)
      : file_(settings),
        geometry_(geometry),
        capabilities_{.atomicWrite = true,
                      .writeSame = true,
                      .trim = file_.punchesHoles(),
                      .verify = true,
                      .syncCache = true,
                      .powerToggle = true,
                      .deviceReset = true,
                      .volatileCache = false} {
    geometry_.blocks = file_.sizeBytes() / geometry_.sectorBytes();
  }

  int fd() const override { return file_.fd(); }
  std::string name() const override { return "file '" + file_.path() + "'"; }
  std::string description(const std::string& engine) const override;
  const DriveGeometry& geometry() const override { return geometry_; }
  const DriveCapabilities& capabilities() const override { return capabilities_; }
  TransferLimits limits() const override { return {.memoryAlignment = file_.memoryAlignment()}; }
  EngineRequest::Operation trimOperation() const override { return EngineRequest::Operation::punchHole; }
  void answerFailure(const FailedOperation& failed, DriveCompletion& out) const override;

 private:
  TestFile file_;
  DriveGeometry geometry_;
  DriveCapabilities capabilities_;
};

std::string FileTarget::description(const std::string& engine) const {
  std::string text = "file " + file_.path() + ", " + describeGeometry(geometry_) + ", " + engine;
  text += file_.direct() ? ", O_DIRECT" : ", buffered";
  if (!file_.whyBuffered().empty()) {
    text += " (" + file_.whyBuffered() + ")";
  }
  return text;
}

void FileTarget::answerFailure(const FailedOperation& failed, DriveCompletion& out) const {
  if (failed.error == 0) {
    throw DriveError(name() + " has become shorter during the test; see who cut it off");
  }
  if (failed.error != EIO) {
    throw DriveError(name() + ": a " + commandKindName(failed.command) + " at LBA " + std::to_string(failed.lba) +
                     " failed: " + std::generic_category().message(failed.error) +
                     (failed.error == ENOSPC ? "; make room or use a smaller file" : "; check the file system"));
  }
  setMediumError(failed, out);
}

/// What an address says.
struct FileDriveSettings {
  TestFileSettings file;
  DriveGeometry geometry;
  EngineChoice engine = EngineChoice::wherePossible;
};

FileDriveSettings takeSettings(DriveAddress& address) {
  using Direct = TestFileSettings::Direct;
  FileDriveSettings settings;
  settings.geometry = takeGeometry(address);
  TestFileSettings& file = settings.file;
  file.path = address.target();
  file.sectorBytes = settings.geometry.sectorBytes();
  file.createBytes = address.sizeBytes("size");
  const std::string direct = address.word("direct", {"auto", "on", "off"});
  file.direct = direct == "on" ? Direct::always : direct == "off" ? Direct::never : Direct::wherePossible;
  settings.engine = takeEngine(address);
  address.checkAllTaken();
  if (file.path.empty()) {
    address.refuse("it names no file; write 'file:PATH'");
  }
  if (file.createBytes) {
    blocksOf(address, *file.createBytes, settings.geometry);
  }
  return settings;
}

}  // namespace

std::unique_ptr<Drive> openFileDrive(DriveAddress& address, uint32_t maxOutstanding) {
  const FileDriveSettings settings = takeSettings(address);
  return makeEngineDrive(std::make_unique<FileTarget>(settings.file, settings.geometry), maxOutstanding,
                         settings.engine);
}

void checkFileAddress(DriveAddress& address) { takeSettings(address); }

std::string fileDriveHelp() {
  return "file:PATH[,key=value]...\n"
         "  a regular file; its content is overwritten. PATH has no comma\n"
         "  size=BYTES       creates the file with this size when it does not exist: 4096, 64k, 256m, 1g\n" +
         geometryKeysHelp() +
         "  direct=auto      O_DIRECT where the file system takes it; on: or fail; off: through the page cache\n" +
         engineKeyHelp();
}

}  // namespace corvane::host
