#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <type_traits>

namespace vdl {

/// Records in the order in which they were put in, in one ring of memory that only grows: adding and taking at either
/// end costs no allocation once the ring is large enough, and a walk reads memory in order.
///
/// Any change but `pop_front` ends the validity of iterators and references.
template <typename Record>
class RecordQueue {
  static_assert(std::is_trivially_copyable_v<Record> && std::is_trivially_destructible_v<Record>);

  template <typename Element>
  class Walk {
   public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = Record;
    using difference_type = std::ptrdiff_t;
    using pointer = Element*;
    using reference = Element&;

    Walk() = default;
    Walk(Element* ring, uint64_t mask, uint64_t place) : ring_(ring), mask_(mask), place_(place) {}
    /// A walk that may change records is also one that may not.
    operator Walk<const Record>() const { return {ring_, mask_, place_}; }

    reference operator*() const { return ring_[place_ & mask_]; }
    pointer operator->() const { return ring_ + (place_ & mask_); }
    Walk& operator++() {
      ++place_;
      return *this;
    }
    Walk operator++(int) {
      Walk before = *this;
      ++place_;
      return before;
    }
    Walk& operator--() {
      --place_;
      return *this;
    }
    Walk operator--(int) {
      Walk before = *this;
      --place_;
      return before;
    }
    bool operator==(const Walk& other) const { return place_ == other.place_; }

   private:
    friend class RecordQueue;
    Element* ring_ = nullptr;
    uint64_t mask_ = 0;
    uint64_t place_ = 0;
  };

 public:
  using value_type = Record;
  using reference = Record&;
  using const_reference = const Record&;
  using size_type = uint64_t;
  using iterator = Walk<Record>;
  using const_iterator = Walk<const Record>;

  bool empty() const { return first_ == end_; }
  uint64_t size() const { return end_ - first_; }
  /// Records that fit before memory is asked for again: 0 or a power of two.
  uint64_t capacity() const { return capacity_; }

  iterator begin() { return {ring_.get(), mask(), first_}; }
  iterator end() { return {ring_.get(), mask(), end_}; }
  const_iterator begin() const { return {ring_.get(), mask(), first_}; }
  const_iterator end() const { return {ring_.get(), mask(), end_}; }

  /// Only while there are records.
  Record& front() { return at(first_); }
  const Record& front() const { return at(first_); }
  Record& back() { return at(end_ - 1); }
  const Record& back() const { return at(end_ - 1); }

  /// Throws std::bad_alloc without memory; the queue is then as it was.
  void push_back(Record record) {
    makeRoom();
    at(end_++) = record;
  }
  void push_front(Record record) {
    makeRoom();
    at(--first_) = record;
  }

  void pop_front() { ++first_; }
  void clear() { first_ = end_; }

  /// Takes a record out; those on its shorter side move up.
  void erase(const_iterator record) {
    uint64_t place = record.place_;
    if (place - first_ < end_ - 1 - place) {
      for (; place != first_; --place) {
        at(place) = at(place - 1);
      }
      ++first_;
    } else {
      for (; place != end_ - 1; ++place) {
        at(place) = at(place + 1);
      }
      --end_;
    }
  }

  /// Takes every record out of which `gone`, asked once for each from the front, says so. It must not throw.
  template <typename Gone>
  void eraseIf(Gone gone) {
    uint64_t kept = first_;
    for (uint64_t place = first_; place != end_; ++place) {
      const Record record = at(place);
      if (!gone(record)) {
        at(kept++) = record;
      }
    }
    end_ = kept;
  }

 private:
  static constexpr uint64_t smallest = 16;

  uint64_t mask() const { return capacity_ - 1; }
  Record& at(uint64_t place) { return ring_[place & mask()]; }
  const Record& at(uint64_t place) const { return ring_[place & mask()]; }

  void makeRoom() {
    if (size() == capacity_) {
      grow();
    }
  }

  void grow() {
    const uint64_t larger = std::max(smallest, 2 * capacity_);
    auto ring = std::make_unique_for_overwrite<Record[]>(larger);
    std::copy(begin(), end(), ring.get());
    end_ = size();
    first_ = 0;
    ring_ = std::move(ring);
    capacity_ = larger;
  }

  // Places count on and on, through the wrap of 64 bits too; the low bits are the index.
  std::unique_ptr<Record[]> ring_;
  uint64_t capacity_ = 0;
  uint64_t first_ = 0;
  uint64_t end_ = 0;
};

}  // namespace vdl
