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
  T& operator[](size_t place) { return slots_[slotOf(place)]; }
  const T& operator[](size_t place) const { return slots_[slotOf(place)]; }
  T& front() { return slots_[first_]; }
  const T& front() const { return slots_[first_]; }

  void pushBack(const T& element) {
    makeRoom();
    ++count_;
    (*this)[count_ - 1] = element;
  }

  void pushFront(const T& element) {
    makeRoom();
    first_ = (first_ == 0 ? slots_.size() : first_) - 1;
    ++count_;
    front() = element;
  }

  void popFront() {
    first_ = slotOf(1);
    --count_;
  }

  /// @return false when there is none
  bool takeFront(T& out) {
    if (empty()) {
      return false;
    }
    out = front();
    popFront();
    return true;
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
  /// Without a division, which would take longer than all the rest.
  size_t slotOf(size_t place) const {
    const size_t slot = first_ + place;
    return slot < slots_.size() ? slot : slot - slots_.size();
  }

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
