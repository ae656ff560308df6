#pragma once

#include <algorithm>
#include <cstddef>
#include <new>

namespace vdl {

/// Storage for the nodes of one container: freed nodes are used again, chunks stay until the store goes.
///
/// All nodes of a store have one size, that of the first request.
class NodeStore {
 public:
  NodeStore() = default;
  NodeStore(const NodeStore&) = delete;
  NodeStore& operator=(const NodeStore&) = delete;
  ~NodeStore() {
    while (chunks_ != nullptr) {
      Chunk* older = chunks_->older;
      ::operator delete(chunks_);
      chunks_ = older;
    }
  }

  /// Throws std::bad_alloc without memory.
  void* take(std::size_t bytes) {
    if (free_ == nullptr) {
      grow(std::max(bytes, sizeof(Free)));
    }
    Free* node = free_;
    free_ = node->next;
    return node;
  }

  void give(void* node) noexcept { free_ = new (node) Free{free_}; }

 private:
  static constexpr std::size_t nodesPerChunk = 4096;
  struct Free {
    Free* next;
  };
  struct alignas(std::max_align_t) Chunk {
    Chunk* older;
  };

  void grow(std::size_t bytes) {
    constexpr std::size_t alignment = alignof(std::max_align_t);
    const std::size_t stride = (bytes + alignment - 1) / alignment * alignment;
    void* memory = ::operator new(sizeof(Chunk) + stride * nodesPerChunk, std::nothrow);
    if (memory == nullptr) {
      throw std::bad_alloc();
    }
    chunks_ = new (memory) Chunk{chunks_};
    auto* first = static_cast<std::byte*>(memory) + sizeof(Chunk);
    for (std::size_t i = nodesPerChunk; i-- > 0;) {
      give(first + i * stride);
    }
  }

  Free* free_ = nullptr;
  Chunk* chunks_ = nullptr;
};

/// Lets a node container of the standard library take its nodes from a NodeStore, which must outlive it.
template <typename T>
class NodeAllocator {
 public:
  using value_type = T;

  explicit NodeAllocator(NodeStore& store) noexcept : store_(&store) {}
  template <typename U>
  NodeAllocator(const NodeAllocator<U>& other) noexcept : store_(other.store()) {}

  T* allocate(std::size_t count) {
    static_assert(alignof(T) <= alignof(std::max_align_t));
    if (count != 1) {
      throw std::bad_alloc();
    }
    return static_cast<T*>(store_->take(sizeof(T)));
  }
  void deallocate(T* node, std::size_t) noexcept { store_->give(node); }

  NodeStore* store() const noexcept { return store_; }
  template <typename U>
  bool operator==(const NodeAllocator<U>& other) const noexcept {
    return store_ == other.store();
  }

 private:
  NodeStore* store_;
};

}  // namespace vdl
