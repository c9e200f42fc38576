// Processing support: TisAllocator, the large-block allocator of pixel and depth buffers (blocks
// of 31744 bytes and more straight from virtual memory in whole pages, smaller ones from the heap),
// and TcachedImageBase, the base of disk-backed tiled images, with its diagnostic printing.
#pragma once

#include <cstdint>

#include <vora/export.h>
#include <vora/foundation/tstring.h>

struct TisBlock {
  void* address = nullptr;
  uint32_t size = 0;  // set by the caller; allocate may enlarge it to whole pages
};

class VORA_API TisAllocator {
 public:
  // Reads the page size (unless the heap is forced); always 0. The argument is not used.
  static int init(const char*);
  // A null address when virtual memory could not be had (reported with perror).
  void allocate(TisBlock& block);
  // By the block's size, which must be the one allocate left in it.
  void deallocate(TisBlock& block);

  static bool fsUseMalloc;  // VORA_USE_MALLOC set at load: every block from the heap
  static uint32_t fsPageSize, fsMask;
  static const uint32_t kMinMmapSize = 31744;
  static int fd;  // reserved

 private:
  bool useBuiltin(TisBlock& block) const;
  void pageAlign(TisBlock& block);
};

class VORA_API TcachedImageBase {
 public:
  virtual ~TcachedImageBase();
  static void printError(const char* text);
  static void printError(const char* text, const char* more);
  // What the cache holds and how it was used, to standard error.
  void printCacheStats(int bytesPerElement) const;
  void printAccessStats() const;

  uint32_t width = 0, height = 0, chunkSize = 0, elementsPerChunk = 0, chunks = 0, cacheEntries = 0;
  Tstring tempFileName;
  uint32_t accesses = 0, misses = 0;
};
