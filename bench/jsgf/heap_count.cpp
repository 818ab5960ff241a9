#include "heap_count.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

size_t heapBytes = 0;
size_t heapBytesAtMost = 0;

void *operator new(size_t size) {
  void *memory = std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  heapBytes += malloc_usable_size(memory);
  heapBytesAtMost = std::max(heapBytesAtMost, heapBytes);
  return memory;
}

void operator delete(void *memory) noexcept {
  heapBytes -= memory == nullptr ? 0 : malloc_usable_size(memory);
  std::free(memory);
}

void operator delete(void *memory, size_t) noexcept {
  operator delete(memory);
}
