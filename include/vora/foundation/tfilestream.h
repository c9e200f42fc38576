// Foundation: TfileStream, an input stream over a file (binary, so
// that carriage returns reach the readers, whose formats care about them).
#pragma once

#include <cstdint>
#include <fstream>

#include <vora/export.h>
#include <vora/foundation/ttime.h>

class VORA_API TfileStream : public std::ifstream {
 public:
  TfileStream() = default;
  explicit TfileStream(const char* path) : std::ifstream(path, std::ios::binary) {}
  bool isOpen() const { return is_open(); }
  // The file's last change, to the nanosecond where the file system keeps it; unknown (seconds -1)
  // when it cannot tell.
  static Ttime modificationTime(const char* path);
};
