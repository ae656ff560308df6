#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace corvane::host {

/// A queue with two ends that keeps its memory: once it has been as long as it gets, nothing is allocated any more.
template <typename T>
class Ring {
 public:
  Ring() = default;
  /// @param room for so many elements nothing is allocated later
  explicit Ring(size_t room) : slots_(room) {}

  bool empty() const { return count_ == 0; }
  size_t size() const { return count_; }

  /// The element at a place counted from the front, which must be there.
  T& operator[](size_t place) { return slots_[wrapped(first_ + place)]; }
  const T& operator[](size_t place) const { return slots_[wrapped(first_ + place)]; }
  T& front() { return (*this)[0]; }
  const T& front() const { return (*this)[0]; }

  void pushBack(const T& element) {
    makeRoom();
    ++count_;
    (*this)[count_ - 1] = element;
  }

  void pushFront(const T& element) {
    makeRoom();
    first_ = wrapped(first_ + slots_.size() - 1);
    ++count_;
    front() = element;
  }

  void popFront() {
    first_ = wrapped(first_ + 1);
    --count_;
  }

  /// Takes every element out of which `test` is true; the others keep their order.
  template <typename Test>
  void eraseIf(Test test) {
    size_t kept = 0;
    for (size_t place = 0; place < count_; ++place) {
      if (!test((*this)[place])) {
        (*this)[kept++] = (*this)[place];
      }
    }
    count_ = kept;
  }

  void clear() { count_ = 0; }

 private:
  /// Without a division, which costs more than the rest together.
  size_t wrapped(size_t index) const { return index < slots_.size() ? index : index - slots_.size(); }

  void makeRoom() {
    if (count_ == slots_.size()) {
      std::rotate(slots_.begin(), slots_.begin() + static_cast<std::ptrdiff_t>(first_), slots_.end());
      first_ = 0;
      slots_.resize(std::max<size_t>(firstSlots, 2 * slots_.size()));
    }
  }

  static constexpr size_t firstSlots = 16;

  std::vector<T> slots_;
  size_t first_ = 0;
  size_t count_ = 0;
};

}  // namespace corvane::host
