#include "allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

static std::atomic<std::size_t> count{0};

std::size_t allocationCount() {
  return count;
}

void* operator new(std::size_t size) {
  ++count;
  if (void* const memory = std::malloc(size)) {
    return memory;
  }
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
