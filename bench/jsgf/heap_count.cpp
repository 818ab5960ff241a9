#include "heap_count.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

size_t heap_bytes = 0;
size_t heap_bytes_at_most = 0;

void *operator new(size_t size) {
  void *memory = std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  heap_bytes += malloc_usable_size(memory);
  heap_bytes_at_most = std::max(heap_bytes_at_most, heap_bytes);
  return memory;
}

void operator delete(void *memory) noexcept {
  heap_bytes -= memory == nullptr ? 0 : malloc_usable_size(memory);
  std::free(memory);
}

void operator delete(void *memory, size_t) noexcept {
  operator delete(memory);
}
