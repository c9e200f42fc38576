// Little-endian reading with every offset checked, for the plug-ins that parse their format
// themselves (TGA, BMP): a read past the end sets failed and gives 0, never touches memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vplug {

inline uint32_t le32(const uint8_t* b) { return uint32_t(b[0] | b[1] << 8 | b[2] << 16) | uint32_t(b[3]) << 24; }

struct BytesIn {
  const uint8_t* data;
  size_t size;
  bool failed = false;
  bool has(size_t at, size_t n) const { return at <= size && n <= size - at; }
  uint32_t u8(size_t at) { return has(at, 1) ? data[at] : (failed = true, 0); }
  uint32_t u16(size_t at) { return has(at, 2) ? uint32_t(data[at] | data[at + 1] << 8) : (failed = true, 0); }
  uint32_t u32(size_t at) { return has(at, 4) ? le32(data + at) : (failed = true, 0); }
};

inline void put16(std::vector<uint8_t>& b, uint32_t v) { b.push_back(uint8_t(v)), b.push_back(uint8_t(v >> 8)); }
inline void put32(std::vector<uint8_t>& b, uint32_t v) { put16(b, v & 0xFFFF), put16(b, v >> 16); }

}  // namespace vplug
