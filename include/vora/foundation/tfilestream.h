// Foundation: TfileStream, an input stream over a file (binary, so
// that carriage returns reach the readers, whose formats care about them).
#pragma once

#include <cstdint>
#include <fstream>

#include <vora/export.h>

class VORA_API TfileStream : public std::ifstream {
 public:
  TfileStream() = default;
  explicit TfileStream(const char* path) : std::ifstream(path, std::ios::binary) {}
  bool isOpen() const { return is_open(); }
  // Seconds since the epoch of the file's last change, or -1.
  static int64_t modificationTime(const char* path);
};
