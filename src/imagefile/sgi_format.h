// Facts of the SGI image file (the published SGI image format).
#pragma once

#include <cstdint>

#include <vora/foundation/fl.h>
#include <vora/ilib.h>
#include <vora/sgi.h>

namespace vora::sgi {

constexpr uint16_t kMagic = 474;      // 01 DA
constexpr uint32_t kHeaderBytes = 176;  // the in-memory record, written whole at offset 0
constexpr uint32_t kDataStart = 512;
constexpr uint32_t kNotWritten = 0xFFFFFFFFu;  // rowsize of a run-length row not written yet
constexpr uint16_t kRead = 1, kWrite = 2;

inline unsigned storage(const IMAGE* i) { return SGI_STORAGE(i); }
inline unsigned bpc(const IMAGE* i) { return SGI_BPC(i); }

// "SGI image: " + the formatted text, through theErrorHandler; the code (FL_E*, IL_E*) and the
// text are kept as the thread's last status.
void report(int code, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace vora::sgi

extern "C" {
// rle_compact's packets made value by value (obpp 1 or 2): the reference for the block packer,
// exported for the tests only.
VORA_API int rle_compact_plain(const unsigned short* in, unsigned char* rlebuf, int obpp, int cnt);
// rle_compact's byte packets of cnt byte values (the whole-picture writer's): at most
// cnt + cnt / 126 + 2 bytes, in a buffer with room for 64 more (literals are moved in blocks).
VORA_API int rle_compact_bytes(const uint8_t* in, unsigned char* rlebuf, int cnt);
// rle_expand of byte packets into bytes value by value: the reference for the block expander.
VORA_API int rle_expand_plain(const unsigned char* rlebuf, unsigned char* out, int cnt, int inlen);
}
