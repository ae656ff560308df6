#include "host/drive/KernelRing.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "host/drive/DriveError.h"

namespace corvane::host {
namespace {

constexpr std::chrono::milliseconds memoryPause{1};
constexpr std::chrono::seconds memoryPatience{30};

std::string textOf(int error) { return std::generic_category().message(error); }

/// Otherwise the kernel's own threads interrupt ours for each answer, on whatever processor that runs, so that it takes
/// the answer in; with these it does so when it calls the kernel anyway, and the ring says that there is one.
constexpr unsigned withoutInterrupts = IORING_SETUP_COOP_TASKRUN | IORING_SETUP_TASKRUN_FLAG;

int openRing(uint32_t depth, io_uring& ring, unsigned flags) {
  const unsigned entries = std::bit_ceil(depth);
  const int error = io_uring_queue_init(entries, &ring, flags | withoutInterrupts);
  // Linux before 5.19 does not know them.
  return error == -EINVAL ? io_uring_queue_init(entries, &ring, flags) : error;
}

void failUnlessInterrupted(int error) {
  if (error != 0 && error != -EINTR) {
    throw DriveError("waiting for the kernel's ring failed: " + textOf(-error) + "; use engine=threads");
  }
}

}  // namespace

KernelRing::KernelRing(uint32_t depth, unsigned flags)
    : error_(-openRing(depth, ring_, flags)), mostUnsent_(std::max(depth / 2, 1U)) {}

KernelRing::~KernelRing() {
  if (error_ != 0) {
    return;
  }
  // Closing the rings does not wait: what the kernel has goes on behind our back.
  io_uring_cqe* answer = nullptr;
  while (atKernel_ != 0) {
    const int error = io_uring_wait_cqe(&ring_, &answer);
    if (error == 0) {
      io_uring_cqe_seen(&ring_, answer);
      --atKernel_;
    } else if (error != -EINTR && error != -EAGAIN) {
      break;
    }
  }
  // The end of the rings gives a registered file up some time later only: until then it would stay open and locked.
  if (hasFile_) {
    io_uring_unregister_files(&ring_);
  }
  io_uring_queue_exit(&ring_);
}

bool KernelRing::knows(std::initializer_list<int> operations) {
  io_uring_probe* probe = io_uring_get_probe_ring(&ring_);
  if (probe == nullptr) {
    return false;
  }
  const bool all = std::all_of(operations.begin(), operations.end(),
                               [probe](int operation) { return io_uring_opcode_supported(probe, operation) != 0; });
  io_uring_free_probe(probe);
  return all;
}

int KernelRing::limitWorkers(unsigned most) {
  std::array<unsigned, 2> kinds{most, most};  // for regular files, and for everything else
  return -io_uring_register_iowq_max_workers(&ring_, kinds.data());
}

bool KernelRing::registerFile(int fd) {
  hasFile_ = io_uring_register_files(&ring_, &fd, 1) == 0;
  return hasFile_;
}

bool KernelRing::registerMemory(uint8_t* data, uint64_t bytes) {
  if (hasMemory_) {
    io_uring_unregister_buffers(&ring_);
  }
  const iovec memory{data, bytes};
  hasMemory_ = bytes != 0 && io_uring_register_buffers(&ring_, &memory, 1) == 0;
  return hasMemory_;
}

io_uring_sqe* KernelRing::entry() {
  io_uring_sqe* entry = io_uring_get_sqe(&ring_);
  if (entry == nullptr) {
    throw std::logic_error("more requests than the ring was made for");
  }
  return entry;
}

void KernelRing::queue(io_uring_sqe* entry, uint32_t slot) {
  io_uring_sqe_set_data64(entry, slot);
  ++unsent_;
}

void KernelRing::send() {
  while (unsent_ != 0 && wereTaken(io_uring_submit(&ring_))) {
  }
}

bool KernelRing::wereTaken(int sent) {
  if (sent > 0) {
    atKernel_ += static_cast<uint32_t>(sent);
    unsent_ -= static_cast<uint32_t>(sent);
    return true;
  }
  if (sent == 0 || sent == -EAGAIN || sent == -EBUSY) {
    return false;
  }
  if (sent != -EINTR) {
    throw DriveError("the kernel's ring takes no requests: " + textOf(-sent) + "; use engine=threads");
  }
  return true;
}

void KernelRing::sendOneAtLeast() {
  const auto end = std::chrono::steady_clock::now() + memoryPatience;
  while (atKernel_ == 0 && unsent_ != 0) {
    if (std::chrono::steady_clock::now() > end) {
      throw DriveError("the kernel has no memory for a request; close other programs, or use engine=threads");
    }
    std::this_thread::sleep_for(memoryPause);
    send();
  }
}

bool KernelRing::poll(Answer& out, bool wait) {
  // Before anything is taken, so that no answer is lost when the kernel takes nothing any more.
  const unsigned ready = io_uring_cq_ready(&ring_);
  if (ready == 0 && wait) {
    waitForAnswer();
  } else if (ready <= 1 || unsent_ >= mostUnsent_) {
    send();
  }
  return take(out);
}

bool KernelRing::waitUpTo(uint64_t microseconds) {
  if (io_uring_cq_ready(&ring_) != 0) {
    return true;
  }
  if ((ring_.features & IORING_FEAT_EXT_ARG) == 0 || atKernel_ + unsent_ == 0) {
    return false;
  }
  constexpr uint64_t second = 1'000'000;
  __kernel_timespec time{static_cast<int64_t>(microseconds / second),
                         static_cast<long long>(microseconds % second * 1000)};
  io_uring_cqe* answer = nullptr;
  const int error = io_uring_submit_and_wait_timeout(&ring_, &answer, 1, &time, nullptr);
  // What it returns says how the waiting ended; what the kernel took is what stands in the ring no more.
  const uint32_t left = io_uring_sq_ready(&ring_);
  atKernel_ += unsent_ - left;
  unsent_ = left;
  failUnlessInterrupted(error == -ETIME || error == -EAGAIN || error == -EBUSY || error > 0 ? 0 : error);
  return atKernel_ != 0;
}

bool KernelRing::take(Answer& out) {
  io_uring_cqe* answer = nullptr;
  if (const int error = io_uring_peek_cqe(&ring_, &answer); error != 0) {
    failUnlessInterrupted(error == -EAGAIN ? 0 : error);
    return false;
  }
  out.slot = static_cast<uint32_t>(io_uring_cqe_get_data64(answer));
  out.result = answer->res;
  io_uring_cqe_seen(&ring_, answer);
  --atKernel_;
  return true;
}

void KernelRing::waitForAnswer() {
  while (io_uring_cq_ready(&ring_) == 0) {
    if (unsent_ != 0 && wereTaken(io_uring_submit_and_wait(&ring_, 1))) {
      continue;
    }
    if (atKernel_ == 0) {
      sendOneAtLeast();
    }
    io_uring_cqe* answer = nullptr;
    failUnlessInterrupted(io_uring_wait_cqe(&ring_, &answer));
  }
}

}  // namespace corvane::host
