#pragma once

#include <atomic>
#include <cstdint>

namespace corvane::host {

/// Tells whoever waits for a drive's thread whether that is inside a call of the drive that may never return: a reset,
/// a power cut, the closing of the drive. No thread can be taken back from such a call.
class DriveCalls {
 public:
  /// The calling thread is inside such a call while the object lives.
  ///
  /// When it was given up meanwhile, the destructor never returns: everything that the thread would go on with may be
  /// gone.
  class Inside {
   public:
    /// @param calls null: nobody waits
    /// @param what  the call, as "a reset of the drive"; a literal
    Inside(DriveCalls* calls, const char* what);
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

   private:
    DriveCalls* calls_;
  };

  /// The number of the call that the thread is inside of; 0: of none. Any thread.
  uint64_t current() const { return current_.load(std::memory_order_acquire); }
  /// What it is. After `current` has shown one.
  const char* what() const { return what_.load(std::memory_order_relaxed); }

  /// Gives the thread up, if it is still inside a call. What it wrote before the call can be read from then on, and the
  /// thread touches nothing any more.
  ///
  /// @param call its number
  /// @return whether it was
  bool giveUp(uint64_t call);

 private:
  static constexpr uint64_t givenUp = UINT64_MAX;

  std::atomic<uint64_t> current_{0};
  std::atomic<const char*> what_{nullptr};
  uint64_t entered_ = 0;  ///< of the drive's thread
};

}  // namespace corvane::host
