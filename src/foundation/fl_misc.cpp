// Foundation: the allocation limit, growing buffers, lists, the bit-count table.
#include <atomic>
#include <cstdint>
#include <cstdlib>

#include <vora/foundation/env.h>
#include <vora/foundation/fl.h>

#include "foundation/status.h"

extern "C" {

const unsigned char flbitset[256] = {
#define B2(n) n, n + 1, n + 1, n + 2
#define B4(n) B2(n), B2(n + 1), B2(n + 1), B2(n + 2)
#define B6(n) B4(n), B4(n + 1), B4(n + 1), B4(n + 2)
    B6(0), B6(1), B6(1), B6(2)
#undef B2
#undef B4
#undef B6
};

namespace {
std::atomic<uint64_t> allocLimit{0};  // 0: not decided yet

uint64_t defaultLimit() {
  const char* v = VoraGetEnv("VORA_MAX_ALLOC_MB");
  unsigned long long mb = v && *v ? strtoull(v, nullptr, 10) : 0;
  return uint64_t(mb ? mb : 4096) << 20;
}
}  // namespace

int FLallocok(uint64_t bytes) {
  uint64_t limit = allocLimit.load(std::memory_order_relaxed);
  if (!limit) allocLimit.store(limit = defaultLimit(), std::memory_order_relaxed);
  return bytes <= limit;
}

void FLsetalloclimit(uint64_t bytes) { allocLimit.store(bytes ? bytes : defaultLimit()); }

int FLdecodeok(uint64_t decoded, int64_t stored, uint32_t ratio) {
  if (!FLallocok(decoded)) return 0;
  if (stored < 0) return 1;
  const uint64_t headroom = 1u << 20;
  return decoded <= uint64_t(stored) * ratio + headroom;
}

void* FLgrow(void** buffer, size_t* size, size_t need) {
  if (!buffer || !size) return nullptr;
  if (*buffer && *size >= need) return *buffer;
  size_t cap = *size ? *size : 64;
  while (cap < need) cap = cap > (SIZE_MAX / 2) ? need : cap * 2;
  void* p = realloc(*buffer, cap);
  if (!p) {
    vora::toFlerrno(FL_ENOMEM);
    return nullptr;
  }
  *buffer = p;
  *size = cap;
  return p;
}

void FLinitlist(FLlist* list) {
  if (list) list->head = list->tail = nullptr;
}

void FLaddtail(FLlist* list, FLnode* node) {
  node->next = nullptr;
  node->prev = list->tail;
  if (list->tail) list->tail->next = node;
  else list->head = node;
  list->tail = node;
}

void FLremove(FLlist* list, FLnode* node) {
  if (node->prev) node->prev->next = node->next;
  else list->head = node->next;
  if (node->next) node->next->prev = node->prev;
  else list->tail = node->prev;
  node->next = node->prev = nullptr;
}

}  // extern "C"
