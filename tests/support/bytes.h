// Test helper: big-endian byte building, shared by the tests, the PSD builder and its benchmark.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vt {

using Bytes = std::vector<uint8_t>;

inline void be16(Bytes& b, uint32_t v) { b.push_back(uint8_t(v >> 8)), b.push_back(uint8_t(v)); }
inline void be32(Bytes& b, uint32_t v) { be16(b, v >> 16), be16(b, v & 0xFFFF); }
inline void text(Bytes& b, const std::string& s) { b.insert(b.end(), s.begin(), s.end()); }
inline void append(Bytes& b, const Bytes& more) { b.insert(b.end(), more.begin(), more.end()); }
inline void setBe32(Bytes& b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + size_t(i)] = uint8_t(v >> (24 - 8 * i));
}

}  // namespace vt
