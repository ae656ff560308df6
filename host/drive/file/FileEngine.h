#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace corvane::host {

/// One operation on a file.
struct FileRequest {
  enum class Operation : uint8_t { read, write, punchHole, flush };

  Operation operation = Operation::read;
  bool dataSync = false;  ///< of a write: on the medium before it ends
  uint32_t slot = 0;      ///< the caller's number for it
  uint64_t offset = 0;    ///< in the file, bytes
  uint64_t bytes = 0;
  uint8_t* data = nullptr;  ///< of a read or write; untouched by the caller until the reply
};

struct FileReply {
  uint32_t slot = 0;
  int64_t result = 0;  ///< bytes moved; a negated errno when it failed
};

/// Carries out file operations in the background, in any order. One thread uses an object.
class FileEngine {
 public:
  virtual ~FileEngine() = default;

  /// "io_uring" or "thread pool".
  virtual std::string name() const = 0;

  /// Never more requests at once than the engine was made for.
  virtual void submit(const FileRequest& request) = 0;

  /// Takes a reply.
  ///
  /// @param wait until there is one; the caller has a request outstanding
  virtual bool poll(FileReply& out, bool wait) = 0;
};

/// Through the kernel's submission and completion rings; null, with the cause in `refusal`, where the kernel does not
/// let us have them.
std::unique_ptr<FileEngine> makeUringEngine(int fd, uint32_t depth, std::string& refusal);

/// With pread and pwrite on threads of its own.
std::unique_ptr<FileEngine> makeThreadEngine(int fd, uint32_t depth);

}  // namespace corvane::host
