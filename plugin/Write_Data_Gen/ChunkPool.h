#pragma once

#include <cstddef>
#include <new>
#include <type_traits>

namespace vdl {

/// Objects linked through their own `next`, carved out of chunks of one mebibyte that stay until the pool goes.
///
/// Nothing here throws: a chunk that cannot be had makes `take` answer null.
template <typename T>
class ChunkPool {
  static_assert(std::is_trivially_destructible_v<T>);

 public:
  static constexpr std::size_t objectsPerChunk = (std::size_t{1} << 20) / sizeof(T);

  ChunkPool() = default;
  ChunkPool(const ChunkPool&) = delete;
  ChunkPool& operator=(const ChunkPool&) = delete;
  ~ChunkPool() {
    while (chunks_ != nullptr) {
      Chunk* older = chunks_->older;
      ::operator delete(chunks_);
      chunks_ = older;
    }
  }

  /// A default object, or null without memory. It goes back through `give`.
  T* take() noexcept {
    T* object = takeUnset();
    if (object != nullptr) {
      *object = T{};
    }
    return object;
  }

  /// The same for those who set all of it: it holds what it held when it went back.
  T* takeUnset() noexcept {
    T* object = free_;
    if (object == nullptr) {
      return carve();
    }
    free_ = object->next;
    return object;
  }

  /// Touches nothing of the object but its `next`: what goes back after a long time is in no cache.
  void give(T* object) noexcept {
    object->next = free_;
    free_ = object;
  }

  /// Lists of objects that go back together when this ends. They are taken again in the order in which they came
  /// here, so that what is walked together once lies together ever after. The pool must be left alone meanwhile.
  class Returns {
   public:
    explicit Returns(ChunkPool& pool) : pool_(pool) {}
    Returns(const Returns&) = delete;
    Returns& operator=(const Returns&) = delete;
    ~Returns() {
      *end_ = pool_.free_;
      pool_.free_ = first_;
    }

    void add(T* object) { addList(object, object); }
    /// `first` and what follows it, up to `last`.
    void addList(T* first, T* last) {
      *end_ = first;
      end_ = &last->next;
    }

   private:
    ChunkPool& pool_;
    T* first_ = nullptr;
    T** end_ = &first_;
  };

  /// What the chunks take, bytes.
  std::size_t bytes() const { return chunkCount_ * chunkBytes; }

 private:
  /// Stands before a chunk's objects.
  struct Chunk {
    Chunk* older;
  };
  static_assert(alignof(T) <= sizeof(Chunk));
  static constexpr std::size_t chunkBytes = sizeof(Chunk) + objectsPerChunk * sizeof(T);

  /// An object that was never taken before.
  [[gnu::noinline]] T* carve() noexcept {
    if (fresh_ == freshEnd_ && !grow()) {
      return nullptr;
    }
    return new (fresh_++) T;
  }

  bool grow() noexcept {
    void* memory = ::operator new(chunkBytes, std::nothrow);
    if (memory == nullptr) {
      return false;
    }
    chunks_ = new (memory) Chunk{chunks_};
    ++chunkCount_;
    fresh_ = reinterpret_cast<T*>(chunks_ + 1);
    freshEnd_ = fresh_ + objectsPerChunk;
    return true;
  }

  T* free_ = nullptr;
  T* fresh_ = nullptr;  ///< of the newest chunk, what nobody has taken yet
  T* freshEnd_ = nullptr;
  Chunk* chunks_ = nullptr;
  std::size_t chunkCount_ = 0;
};

}  // namespace vdl
