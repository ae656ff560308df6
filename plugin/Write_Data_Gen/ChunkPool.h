#pragma once

#include <cstddef>
#include <new>
#include <type_traits>

#include "AlignedMemory.h"

namespace vdl {

/// Objects linked through their own `next`, carved out of chunks of one mebibyte that stay until the pool goes. When
/// there are some chunks already, they come two at once, in one large page.
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
    while (blocks_ != nullptr) {
      Block* older = blocks_->older;
      blocks_->huge ? deleteHugeBlock(blocks_) : ::operator delete(blocks_);
      blocks_ = older;
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
  /// Stands before the objects of one or two chunks.
  struct Block {
    Block* older;
    bool huge;
  };
  static constexpr std::size_t blockBytes(std::size_t chunks) {
    return sizeof(Block) + chunks * objectsPerChunk * sizeof(T);
  }
  static constexpr std::size_t chunkBytes = blockBytes(1);
  static constexpr std::size_t chunksPerHugeBlock = 2;
  static_assert(blockBytes(chunksPerHugeBlock) <= hugeBlockBytes);
  static_assert(alignof(T) <= sizeof(Block));
  /// Chunks that come one by one: a small test needs no more than it always did.
  static constexpr std::size_t loneChunks = 4;

  /// An object that was never taken before.
  [[gnu::noinline]] T* carve() noexcept {
    if (fresh_ == freshEnd_ && !grow()) {
      return nullptr;
    }
    return new (fresh_++) T;
  }

  bool grow() noexcept {
    const bool huge = chunkCount_ >= loneChunks;
    const std::size_t chunks = huge ? chunksPerHugeBlock : 1;
    void* memory = huge ? newHugeBlock() : ::operator new(blockBytes(1), std::nothrow);
    if (memory == nullptr) {
      return false;
    }
    blocks_ = new (memory) Block{blocks_, huge};
    chunkCount_ += chunks;
    fresh_ = reinterpret_cast<T*>(blocks_ + 1);
    freshEnd_ = fresh_ + chunks * objectsPerChunk;
    return true;
  }

  T* free_ = nullptr;
  T* fresh_ = nullptr;  ///< of the newest chunks, what nobody has taken yet
  T* freshEnd_ = nullptr;
  Block* blocks_ = nullptr;
  std::size_t chunkCount_ = 0;
};

}  // namespace vdl
