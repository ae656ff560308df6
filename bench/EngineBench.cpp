// A command through a drive that is a file: what the engines cost, and beside them the bare calls that they stand on.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <liburing.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "host/base/AlignedMemory.h"
#include "host/drive/DriveFactory.h"

namespace corvane::bench {
namespace {

constexpr uint64_t fileBytes = 64 << 20;
constexpr uint64_t blockBytes = 512;

enum Place : int64_t { memory, disk };
enum How : int64_t { sync, uring, threads };

std::string placeName(int64_t place) {
  const char* temporary = std::getenv("TMPDIR");
  return (place == memory        ? "/dev/shm"
          : temporary == nullptr ? "/tmp"
                                 : temporary) +
         std::string("/corvane-bench-") + std::to_string(getpid());
}

/// A file that is wholly allocated, and gone at the end.
class BenchFile {
 public:
  explicit BenchFile(int64_t place) : path_(placeName(place)) {
    const int fd = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_TRUNC, 0600);
    const std::vector<uint8_t> piece(1 << 20, 1);
    for (uint64_t done = 0; done < fileBytes; done += piece.size()) {
      good_ = fd >= 0 && write(fd, piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()) && good_;
    }
    close(fd);
  }
  ~BenchFile() { unlink(path_.c_str()); }
  BenchFile(const BenchFile&) = delete;
  BenchFile& operator=(const BenchFile&) = delete;

  bool good() const { return good_; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  bool good_ = true;
};

/// Where the next command goes: everywhere, writes and reads by turns, never two at once on the same block.
class Course {
 public:
  explicit Course(uint64_t blocks) : blocks_(blocks), places_(fileBytes / blockBytes / blocks) {}

  uint64_t next() {
    constexpr uint64_t stride = 7919;  // a prime, so that every place has its turn before the first comes again
    ++turn_;
    return turn_ * stride % places_ * blocks_;
  }
  bool writes() const { return turn_ % 2 == 0; }

 private:
  uint64_t blocks_;
  uint64_t places_;
  uint64_t turn_ = 0;
};

/// A piece of memory for each command that is outstanding.
class Pieces {
 public:
  Pieces(uint64_t count, uint64_t bytes)
      : bytes_((bytes + AlignedMemory::alignment - 1) & ~(AlignedMemory::alignment - 1)) {
    base_ = memory_.atLeast(count * bytes_);
    std::fill_n(base_, count * bytes_, uint8_t{1});
  }
  uint8_t* of(uint64_t index) { return base_ + index * bytes_; }
  uint8_t* base() { return base_; }

 private:
  using AlignedMemory = host::AlignedMemory;
  uint64_t bytes_;
  AlignedMemory memory_;
  uint8_t* base_ = nullptr;
};

/// As the step loop works: a command, and at most one completion; waiting when nothing more may be outstanding.
class Issuer {
 public:
  Issuer(host::Drive& drive, uint32_t depth, uint32_t blocks)
      : drive_(drive), blocks_(blocks), course_(blocks), pieces_(depth, blocks * blockBytes) {
    for (uint32_t tag = depth; tag-- > 0;) {
      freeTags_.push_back(tag);
    }
  }

  bool step() {
    const uint32_t tag = freeTags_.back();
    freeTags_.pop_back();
    host::DriveCommand command;
    command.tag = tag;
    command.id = ++id_;
    command.lba = course_.next();
    command.kind = course_.writes() ? host::CommandKind::write : host::CommandKind::read;
    command.blocks = blocks_;
    command.data = pieces_.of(tag);
    command.dataBytes = blocks_ * blockBytes;
    drive_.submit(command);
    return take(freeTags_.empty());
  }

  bool take(bool wait) {
    host::DriveCompletion completion;
    if (!drive_.poll(completion, wait)) {
      return !wait;
    }
    freeTags_.push_back(completion.tag);
    return completion.status == host::scsi_status::good;
  }

 private:
  host::Drive& drive_;
  uint32_t blocks_;
  Course course_;
  Pieces pieces_;
  std::vector<uint32_t> freeTags_;
  uint64_t id_ = 0;
};

/// Arguments: where the file is, how it is reached, blocks of a command, commands outstanding.
void throughDrive(benchmark::State& state) {
  const BenchFile file(state.range(0));
  const char* engine = state.range(1) == sync ? "sync" : state.range(1) == uring ? "uring" : "threads";
  const auto depth = static_cast<uint32_t>(state.range(3));
  const auto drive = host::openDrive("file:" + file.path() + ",engine=" + engine, depth);
  Issuer issuer(*drive, depth, static_cast<uint32_t>(state.range(2)));
  state.SetLabel(drive->description().substr(drive->description().rfind("blocks, ") + 8));
  bool good = file.good();
  for (auto _ : state) {
    good = issuer.step() && good;
  }
  drive->reset();  // until then the kernel may use the memory
  if (!good) {
    state.SkipWithError("a command failed");
  }
  state.SetItemsProcessed(state.iterations());
}

/// The file as the drive opens it; -1 when it cannot be.
int openAsDrive(const std::string& path) {
  const int direct = open(path.c_str(), O_RDWR | O_CLOEXEC | O_DIRECT);
  return direct >= 0 ? direct : open(path.c_str(), O_RDWR | O_CLOEXEC);
}

/// Arguments: where the file is, blocks of a transfer.
void bareCalls(benchmark::State& state) {
  const BenchFile file(state.range(0));
  const int fd = openAsDrive(file.path());
  const auto bytes = static_cast<uint64_t>(state.range(1)) * blockBytes;
  Course course(static_cast<uint64_t>(state.range(1)));
  Pieces pieces(1, bytes);
  bool good = file.good();
  for (auto _ : state) {
    const auto offset = static_cast<off_t>(course.next() * blockBytes);
    const ssize_t moved =
        course.writes() ? pwrite(fd, pieces.base(), bytes, offset) : pread(fd, pieces.base(), bytes, offset);
    good = moved == static_cast<ssize_t>(bytes) && good;
  }
  close(fd);
  if (!good) {
    state.SkipWithError("a transfer failed");
  }
  state.SetItemsProcessed(state.iterations());
}

/// Arguments: where the file is, blocks of a transfer, transfers outstanding.
void bareRing(benchmark::State& state) {
  const BenchFile file(state.range(0));
  const int fd = openAsDrive(file.path());
  const auto bytes = static_cast<unsigned>(static_cast<uint64_t>(state.range(1)) * blockBytes);
  const auto depth = static_cast<uint64_t>(state.range(2));
  Course course(static_cast<uint64_t>(state.range(1)));
  Pieces pieces(depth, bytes);
  io_uring ring;
  bool good = file.good() && io_uring_queue_init(static_cast<unsigned>(depth), &ring, 0) == 0;
  if (!good) {
    state.SkipWithError("no file, or no ring");
    return;
  }
  const auto start = [&](uint64_t slot) {
    io_uring_sqe* entry = io_uring_get_sqe(&ring);
    const uint64_t offset = course.next() * blockBytes;
    if (course.writes()) {
      io_uring_prep_write(entry, fd, pieces.of(slot), bytes, offset);
    } else {
      io_uring_prep_read(entry, fd, pieces.of(slot), bytes, offset);
    }
    io_uring_sqe_set_data64(entry, slot);
  };
  const auto end = [&](io_uring_cqe* answer) {
    good = answer->res == static_cast<int>(bytes) && good;
    const uint64_t slot = io_uring_cqe_get_data64(answer);
    io_uring_cqe_seen(&ring, answer);
    return slot;
  };
  for (uint64_t slot = 0; slot < depth; ++slot) {
    start(slot);
  }
  io_uring_cqe* answer = nullptr;
  for (auto _ : state) {
    if (io_uring_cq_ready(&ring) == 0) {
      io_uring_submit_and_wait(&ring, 1);
    }
    io_uring_wait_cqe(&ring, &answer);
    start(end(answer));
  }
  io_uring_submit(&ring);
  for (uint64_t slot = 0; slot < depth; ++slot) {
    io_uring_wait_cqe(&ring, &answer);
    end(answer);
  }
  io_uring_queue_exit(&ring);
  close(fd);
  if (!good) {
    state.SkipWithError("a transfer failed");
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(bareCalls)
    ->ArgNames({"disk", "blocks"})
    ->ArgsProduct({{memory, disk}, {1, 8, 256}})
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(bareRing)
    ->ArgNames({"disk", "blocks", "depth"})
    ->ArgsProduct({{memory, disk}, {1, 8, 256}, {1, 32}})
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(throughDrive)
    ->ArgNames({"disk", "engine", "blocks", "depth"})
    ->ArgsProduct({{memory, disk}, {sync, uring, threads}, {1, 8, 256}, {1, 32}})
    ->MeasureProcessCPUTime()
    ->UseRealTime();

}  // namespace
}  // namespace corvane::bench

BENCHMARK_MAIN();
