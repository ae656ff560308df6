#pragma once

#include <cstddef>
#include <new>

namespace vdl {

/// Objects linked through their own `next`, carved out of chunks of one mebibyte that stay until the pool goes.
///
/// Nothing here throws: a chunk that cannot be had makes `take` answer null.
template <typename T>
class ChunkPool {
 public:
  static constexpr std::size_t objectsPerChunk = (std::size_t{1} << 20) / sizeof(T);

  ChunkPool() = default;
  ChunkPool(const ChunkPool&) = delete;
  ChunkPool& operator=(const ChunkPool&) = delete;
  ~ChunkPool() {
    while (chunks_ != nullptr) {
      Chunk* older = chunks_->older;
      delete chunks_;
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
    if (free_ == nullptr && !grow()) {
      return nullptr;
    }
    T* object = free_;
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
  std::size_t bytes() const { return chunkCount_ * sizeof(Chunk); }

 private:
  struct Chunk {
    Chunk* older = nullptr;
    T objects[objectsPerChunk];
  };

  bool grow() noexcept {
    auto* chunk = new (std::nothrow) Chunk;
    if (chunk == nullptr) {
      return false;
    }
    chunk->older = chunks_;
    chunks_ = chunk;
    ++chunkCount_;
    for (std::size_t i = objectsPerChunk; i-- > 0;) {
      chunk->objects[i].next = free_;
      free_ = &chunk->objects[i];
    }
    return true;
  }

  T* free_ = nullptr;
  Chunk* chunks_ = nullptr;
  std::size_t chunkCount_ = 0;
};

}  // namespace vdl
