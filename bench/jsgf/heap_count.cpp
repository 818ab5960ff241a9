#include "heap_count.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>

size_t heap_bytes = 0;
size_t heap_bytes_at_most = 0;

namespace {

// Ahead of each block stands its size: what the allocator adds to small ones differs from one to the other.
constexpr size_t kHead = alignof(std::max_align_t);

}  // namespace

void *operator new(size_t size) {
  void *block = std::malloc(kHead + size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  *static_cast<size_t *>(block) = size;
  heap_bytes += size;
  heap_bytes_at_most = std::max(heap_bytes_at_most, heap_bytes);
  return static_cast<char *>(block) + kHead;
}

void operator delete(void *memory) noexcept {
  if (memory != nullptr) {
    void *block = static_cast<char *>(memory) - kHead;
    heap_bytes -= *static_cast<size_t *>(block);
    std::free(block);
  }
}

void operator delete(void *memory, size_t) noexcept {
  operator delete(memory);
}
