// The two passes of the zoom over lines of 4 elements per pixel. Built with vectorisation on
// (see CMakeLists.txt): the vertical pass is a weighted sum of whole lines, the horizontal one a
// weighted sum of neighbouring pixels.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "ilib/il_zoom.h"

namespace vora::il {

namespace {

// 32-bit sums suffice when both sides are at most 16 bits and one of them 8 (the narrow path,
// whose weights the binding keeps below 2^15 in magnitude summed).
template <typename In, typename Out>
using Acc = std::conditional_t<(sizeof(In) == 1 && sizeof(Out) == 2 && std::is_signed_v<Out>) ||
                                   (sizeof(Out) == 1 && sizeof(In) == 2 && std::is_signed_v<In>),
                               int32_t, int64_t>;

// Rounds a sum back to the sample range (maxv >= 0) or to the intermediate type.
template <typename Out, typename A>
inline Out settle(A acc, int shift, int maxv) {
  A v = (acc + (A(1) << (shift - 1))) >> shift;
  A lo = maxv >= 0 ? 0 : A(std::numeric_limits<Out>::min());
  A hi = maxv >= 0 ? A(maxv) : A(std::numeric_limits<Out>::max());
  return Out(std::min(std::max(v, lo), hi));
}

constexpr size_t kStrip = 1024;  // elements summed at once: the sums stay in the first-level cache

}  // namespace

template <typename In, typename Out>
void horizontalPass(const In* in, Out* out, const TapTable& t, int shift, int maxv) {
  using A = Acc<In, Out>;
  const size_t dst = t.first.size();
  for (size_t x = 0; x < dst; ++x) {
    const In* p = in + size_t(t.first[x]) * 4;
    const int32_t* w = t.pool.data() + t.offset[x];
    const int n = t.count[x];
    A a0 = 0, a1 = 0, a2 = 0, a3 = 0;
    for (int k = 0; k < n; ++k, p += 4) {
      A wk = w[k];
      a0 += wk * p[0];
      a1 += wk * p[1];
      a2 += wk * p[2];
      a3 += wk * p[3];
    }
    Out* o = out + x * 4;
    o[0] = settle<Out>(a0, shift, maxv);
    o[1] = settle<Out>(a1, shift, maxv);
    o[2] = settle<Out>(a2, shift, maxv);
    o[3] = settle<Out>(a3, shift, maxv);
  }
}

template <typename In, typename Out>
void verticalPass(const In* const* rows, const int32_t* weights, int taps, Out* out, size_t n, int shift,
                  int maxv) {
  using A = Acc<In, Out>;
  A acc[kStrip];
  for (size_t s = 0; s < n; s += kStrip) {
    const size_t len = std::min(kStrip, n - s);
    {
      const In* r = rows[0] + s;
      const A w = weights[0];
      for (size_t x = 0; x < len; ++x) acc[x] = w * r[x];
    }
    for (int k = 1; k < taps; ++k) {
      const In* r = rows[k] + s;
      const A w = weights[k];
      for (size_t x = 0; x < len; ++x) acc[x] += w * r[x];
    }
    for (size_t x = 0; x < len; ++x) out[s + x] = settle<Out>(acc[x], shift, maxv);
  }
}

#define VORA_ZOOM_PASSES(In, Out)                                                        \
  template void horizontalPass<In, Out>(const In*, Out*, const TapTable&, int, int);    \
  template void verticalPass<In, Out>(const In* const*, const int32_t*, int, Out*, size_t, int, int);

VORA_ZOOM_PASSES(uint8_t, int16_t)
VORA_ZOOM_PASSES(int16_t, uint8_t)
VORA_ZOOM_PASSES(uint8_t, int32_t)
VORA_ZOOM_PASSES(int32_t, uint8_t)
VORA_ZOOM_PASSES(uint16_t, int32_t)
VORA_ZOOM_PASSES(int32_t, uint16_t)

}  // namespace vora::il
