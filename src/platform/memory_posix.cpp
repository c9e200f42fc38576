// Large buffers in mappings of their own, in 2 MiB pages where the kernel offers them: a fresh
// buffer then costs one fault per 2 MiB instead of one per 4 KiB.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "platform/platform.h"

// Under AddressSanitizer every buffer comes from the heap, where overruns are caught.
#if defined(__SANITIZE_ADDRESS__)
#define VORA_HEAP_ONLY 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VORA_HEAP_ONLY 1
#endif
#endif
#ifndef VORA_HEAP_ONLY
#define VORA_HEAP_ONLY 0
#endif

namespace vora::platform {

namespace {
constexpr size_t kLargePage = size_t(2) << 20;
// below this, the heap (a Photoshop channel of 2048 x 2048 run-length bytes is 2 to 4 MiB)
constexpr size_t kThreshold = VORA_HEAP_ONLY ? SIZE_MAX : size_t(2) << 20;

// The mapping's size: whole large pages when that wastes at most a quarter of the buffer, else
// whole small pages (the part past the last large-page boundary then faults page by page).
size_t rounded(size_t bytes) {
  const size_t large = (bytes + kLargePage - 1) & ~(kLargePage - 1);
  return large - bytes <= bytes / 4 ? large : (bytes + 4095) & ~size_t(4095);
}
}  // namespace

void* allocateLarge(size_t bytes) {
  if (bytes < kThreshold) return malloc(bytes ? bytes : 1);
  const size_t size = rounded(bytes);
  // one large page more than needed, so that the buffer can start on a large-page boundary
  void* base = mmap(nullptr, size + kLargePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (base == MAP_FAILED) return nullptr;
  uintptr_t start = (uintptr_t(base) + kLargePage - 1) & ~uintptr_t(kLargePage - 1);
  if (start > uintptr_t(base)) munmap(base, start - uintptr_t(base));
  const uintptr_t end = uintptr_t(base) + size + kLargePage;
  if (end > start + size) munmap(reinterpret_cast<void*>(start + size), end - (start + size));
#ifdef MADV_HUGEPAGE
  madvise(reinterpret_cast<void*>(start), size, MADV_HUGEPAGE);
#endif
  return reinterpret_cast<void*>(start);
}

void releaseLarge(void* p, size_t bytes) {
  if (!p) return;
  if (bytes < kThreshold) free(p);
  else munmap(p, rounded(bytes));
}

}  // namespace vora::platform

namespace vora::platform {

uint32_t pageSize() {
  long n = sysconf(_SC_PAGESIZE);
  return n > 0 ? uint32_t(n) : 4096u;
}

void* reservePages(size_t bytes) {
  void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return p == MAP_FAILED ? nullptr : p;
}

bool releasePages(void* p, size_t bytes) { return munmap(p, bytes) == 0; }

}  // namespace vora::platform
