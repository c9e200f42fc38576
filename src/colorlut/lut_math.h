// The arithmetic TccLut::convert and the batch path share, so their results stay equal
// bit for bit.
#pragma once

#include <cstddef>

namespace vora::lut {

// Clamp to [0, 1]; NaN, neither below 0 nor above 1, is taken as 0 so that the index stays defined.
inline float clamp01(float v) { return !(v >= 0.0f) ? 0.0f : v > 1.0f ? 1.0f : v; }

// The lattice cell and fraction of a clamped value along an axis of size points; the special case
// at 1.0 keeps i + 1 inside the lattice (i = size - 2, f = 1).
inline void cubeAxis(float v, unsigned size, size_t& i, float& f) {
  if (v == 1.0f) {
    i = size - 2;
    f = 1.0f;
  } else {
    float x = float(size - 1) * v;
    i = size_t(x);
    f = x - float(i);
  }
}

}  // namespace vora::lut
