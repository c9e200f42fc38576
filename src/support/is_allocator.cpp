// Processing support: the large-block allocator and the cached image's statistics.
#include <vora/allocator.h>
#include <vora/foundation/env.h>

#include <cstdio>
#include <cstdlib>

#include "platform/platform.h"

bool TisAllocator::fsUseMalloc = VoraGetEnv("VORA_USE_MALLOC") != nullptr;
uint32_t TisAllocator::fsPageSize = 0;
uint32_t TisAllocator::fsMask = 0;
int TisAllocator::fd = -1;

int TisAllocator::init(const char*) {
  if (!fsUseMalloc) fsPageSize = vora::platform::pageSize(), fsMask = fsPageSize - 1;
  return 0;
}

bool TisAllocator::useBuiltin(TisBlock& block) const { return fsUseMalloc || block.size < kMinMmapSize; }

void TisAllocator::pageAlign(TisBlock& block) {
  if (block.size & fsMask) block.size = (block.size & ~fsMask) + fsPageSize;
}

void TisAllocator::allocate(TisBlock& block) {
  if (useBuiltin(block)) {
    block.address = malloc(block.size);
    return;
  }
  pageAlign(block);  // the enlarged size is the caller's to free with
  block.address = vora::platform::reservePages(block.size);
  if (!block.address) perror("TisAllocator.cpp:  VirtualAlloc failed.");  // two blanks, as it stands
}

void TisAllocator::deallocate(TisBlock& block) {
  if (useBuiltin(block)) return free(block.address);
  // The mapping was whole pages: before init the size was not rounded, the system rounded it.
  const uint32_t page = vora::platform::pageSize();
  const size_t whole = (size_t(block.size) + page - 1) / page * page;
  if (block.address && !vora::platform::releasePages(block.address, whole)) perror("VirtualFree(..., MEM_RELEASE)");
}

TcachedImageBase::~TcachedImageBase() = default;

void TcachedImageBase::printError(const char* text) { fprintf(stderr, "%s\n", text); }

void TcachedImageBase::printError(const char* text, const char* more) { fprintf(stderr, "%s%s\n", text, more); }

void TcachedImageBase::printCacheStats(int bytesPerElement) const {
  const uint32_t bytes = elementsPerChunk * chunks * uint32_t(bytesPerElement);  // wraps, as it always did
  fprintf(stderr, "\nCreated cached image:\n");
  fprintf(stderr, "%20s%s\n", "Using temp file ", tempFileName.asChar());
  fprintf(stderr, "%20s%u x %u\n", "Resolution = ", width, height);
  fprintf(stderr, "%20s%u\n", "# chunks = ", chunks);
  fprintf(stderr, "%20s%ux%u\n", "chunk size = ", chunkSize, chunkSize);
  fprintf(stderr, "%20s%u\n", "# cache entries = ", cacheEntries);
  fprintf(stderr, "%20s%f MB \n", "full image size = ", double(bytes) * (1.0 / 1048576.0));
  fprintf(stderr, "%20s%f%%\n", "pct in memory = ", double(cacheEntries) * 100.0 / double(chunks));
  fprintf(stderr, "\n");
}

void TcachedImageBase::printAccessStats() const {
  fprintf(stderr, "\nDestroying TcachedImage.....\n");
  fprintf(stderr, "%20s%u\n", "Cache Accesses = ", accesses);
  fprintf(stderr, "%20s%u\n", "Cache Misses = ", misses);
  // No accesses divide 0 by 0 in float arithmetic: printed as it comes.
  fprintf(stderr, "%20s%f%%\n", "Hit pct = ", double(float(accesses - misses) * 100.0f / float(accesses)));
  fprintf(stderr, "\n");
}
