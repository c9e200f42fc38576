// The zoom: configuration, binding to a line source, and delivery of resampled lines.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "ilib/il_handle.h"
#include "ilib/il_zoom.h"

using namespace vora::il;

namespace {

std::string gDefaultName;  // ILdefaultzoom
bool gHaveDefault = false;

bool isPointName(const std::string& n) { return n == "impulse" || n == "dirac"; }

float clampOffset(float v) { return v <= 0 ? 0.000001f : v >= 1 ? 0.999999f : v; }
float clampMargin(float v) { return v < 0 ? 0.0f : v >= 1 ? 0.999999f : v; }

int lineWidthBytes(const ILzoom* z, bool out) {
  bool wide = z->depthmode == IL_ZOOM_16 || (out && z->depthmode == IL_ZOOM_8TO16);
  return wide ? 2 : 1;
}

// One source line into the ring: depth point sampled to the destination width; colour kept as it
// came (vertical pass first) or filtered horizontally.
template <typename S, typename T>
int readSource(ILzoom* z) {
  void *c = nullptr, *d = nullptr;
  if (int r = z->line(z->source, &c, &d)) return r;
  const int slot = z->nextSrc % z->ringCap;
  unsigned char* dest = z->ring.data() + size_t(slot) * z->ringLine;
  const size_t n = size_t(z->srcw) * 4;
  if (z->verticalFirst) {
    if (z->depthmode == IL_ZOOM_8TO16) {
      const uint8_t* s = static_cast<const uint8_t*>(c);
      uint16_t* o = reinterpret_cast<uint16_t*>(dest);
      for (size_t i = 0; i < n; ++i) o[i] = uint16_t(s[i] * 257);
    } else {
      memcpy(dest, c, n * sizeof(S));
    }
  } else if (z->depthmode == IL_ZOOM_8TO16) {
    // widened through the intermediate buffer, which is free in this order
    const uint8_t* s = static_cast<const uint8_t*>(c);
    uint16_t* o = reinterpret_cast<uint16_t*>(z->inter.data());
    for (size_t i = 0; i < n; ++i) o[i] = uint16_t(s[i] * 257);
    horizontalPass<S, T>(reinterpret_cast<const S*>(o), reinterpret_cast<T*>(dest), z->tx,
                         sizeof(S) == 1 ? 8 : 14, -1);
  } else {
    horizontalPass<S, T>(static_cast<const S*>(c), reinterpret_cast<T*>(dest), z->tx, sizeof(S) == 1 ? 8 : 14,
                         -1);
  }
  float* zd = z->zring.data() + size_t(slot) * z->dstw;
  if (d) {
    z->sourceDepth = true;
    const float* sd = static_cast<const float*>(d);
    for (int x = 0; x < z->dstw; ++x) zd[x] = sd[z->tx.nearest[x]];
  } else {
    std::fill(zd, zd + z->dstw, 0.0f);
  }
  ++z->nextSrc;
  return 0;
}

template <typename S, typename T>
int produce(ILzoom* z) {
  const int i = z->nextDst;
  const TapTable& ty = z->ty;
  const int first = ty.first[i], taps = ty.count[i];
  while (z->nextSrc < first + taps)
    if (int r = readSource<S, T>(z)) return r;
  const unsigned char** rp = z->rows.data();
  for (int k = 0; k < taps; ++k) rp[k] = z->ring.data() + size_t((first + k) % z->ringCap) * z->ringLine;
  const int32_t* w = ty.pool.data() + ty.offset[i];
  const int shift1 = sizeof(S) == 1 ? 8 : 14, shift2 = sizeof(S) == 1 ? 20 : 14;
  const int maxv = sizeof(S) == 1 ? 255 : 65535;
  S* out = reinterpret_cast<S*>(z->out.data());
  if (z->verticalFirst) {
    T* inter = reinterpret_cast<T*>(z->inter.data());
    verticalPass<S, T>(reinterpret_cast<const S* const*>(rp), w, taps, inter, size_t(z->srcw) * 4, shift1, -1);
    horizontalPass<T, S>(inter, out, z->tx, shift2, maxv);
  } else {
    verticalPass<T, S>(reinterpret_cast<const T* const*>(rp), w, taps, out, size_t(z->dstw) * 4, shift2, maxv);
  }
  const float* zd = z->zring.data() + size_t(ty.nearest[i] % z->ringCap) * z->dstw;
  std::copy(zd, zd + z->dstw, z->zout.begin());
  return 0;
}

int passThrough(ILzoom* z, void** colour, void** depth) {
  void *c = nullptr, *d = nullptr;
  if (int r = z->line(z->source, &c, &d)) return r;
  ++z->nextSrc;
  if (z->depthmode == IL_ZOOM_8TO16) {
    const uint8_t* s = static_cast<const uint8_t*>(c);
    uint16_t* o = reinterpret_cast<uint16_t*>(z->out.data());
    for (size_t i = 0; i < size_t(z->dstw) * 4; ++i) o[i] = uint16_t(s[i] * 257);
    c = o;
  }
  if (!d) {
    std::fill(z->zout.begin(), z->zout.end(), 0.0f);
    d = z->zout.data();
  }
  *colour = c;
  *depth = d;
  return 0;
}

// The filter of an axis for this binding: the zoom's own, or box/sinc when it is "auto".
bool chooseFilters(ILzoom* z) {
  z->usedx = z->fx.get();
  z->usedy = z->fy.get();
  if (z->name != "auto") return true;
  const char* want = (z->dstw < z->srcw || z->dsth < z->srch) ? "box" : "sinc";
  if (!z->autoFilter || z->autoFilter->name != want) {
    std::string why;
    z->autoFilter = loadFilter(want, &why);
    if (!z->autoFilter) {
      setWhy(why);
      return false;
    }
  }
  z->usedx = z->usedy = z->autoFilter.get();
  return true;
}

}  // namespace

extern "C" {

void ILdefaultzoom(const char* name) {
  gHaveDefault = name != nullptr;
  gDefaultName = name ? name : "";
}

ILzoom* ILnewzoom(const char* name) {
  ILzoom* z = new (std::nothrow) ILzoom;
  if (!z) {
    fail(FL_ENOMEM);
    return nullptr;
  }
  z->name = name ? name : gHaveDefault ? gDefaultName : "auto";
  if (z->name != "auto" && !isPointName(z->name)) {
    std::string why;
    z->fx = loadFilter(z->name, &why);
    z->fy = z->fx ? loadFilter(z->name, &why) : nullptr;
    if (!z->fx || !z->fy) {  // point sampling; the caller learns why from flerrno 112
      z->fx = z->fy = nullptr;
      setWhy(why);
      fail(IL_ENOFILTER);
    }
  }
  return z;
}

void ILsetzoomblur(ILzoom* z, float bx, float by) {
  if (!z) return;
  if (bx != z->blurx || by != z->blury) z->stale = true;
  z->blurx = bx;
  z->blury = by;
}

void ILsetzoomoffset(ILzoom* z, float ox, float oy) {
  if (!z) return;
  ox = clampOffset(ox);
  oy = clampOffset(oy);
  if (ox != z->offx || oy != z->offy) z->stale = true;
  z->offx = ox;
  z->offy = oy;
}

void ILsetzoommargin(ILzoom* z, float m1, float m2, float m3, float m4) {
  if (!z) return;
  float m[4] = {clampMargin(m1), clampMargin(m2), clampMargin(m3), clampMargin(m4)};
  if (memcmp(m, z->margin, sizeof m) != 0) z->stale = true;
  memcpy(z->margin, m, sizeof m);
}

int ILbindzoom(ILzoom* z, void* source, ILlinefunc line, int depthmode, int dstw, int dsth, int srcw,
               int srch) {
  if (!z || !line) return fail(FL_ESTATE);
  auto inRange = [](int v) { return v >= 1 && v <= IL_MAXSIZE; };
  if (!inRange(dstw) || !inRange(dsth) || !inRange(srcw) || !inRange(srch)) return fail(IL_ESIZE);
  if (depthmode != IL_ZOOM_8 && depthmode != IL_ZOOM_8TO16 && depthmode != IL_ZOOM_16) return fail(FL_ESTATE);
  const bool same = z->bound && !z->stale && z->depthmode == depthmode && z->dstw == dstw && z->dsth == dsth &&
                    z->srcw == srcw && z->srch == srch;
  z->source = source;
  z->line = line;
  z->nextDst = z->nextSrc = 0;
  if (same) return 0;
  z->bound = false;
  z->depthmode = depthmode;
  z->dstw = dstw, z->dsth = dsth, z->srcw = srcw, z->srch = srch;
  if (!chooseFilters(z)) return fail(IL_ENOFILTER);
  const bool noMargins = !z->margin[0] && !z->margin[1] && !z->margin[2] && !z->margin[3];
  // At its own size, unblurred and centred, every filter gives the source back.
  z->identity = dstw == srcw && dsth == srch && z->blurx == 0 && z->blury == 0 && z->offx == 0.5f &&
                z->offy == 0.5f && noMargins;
  const size_t outBytes = size_t(dstw) * 4 * lineWidthBytes(z, true);
  z->out.assign(outBytes, 0);
  z->zout.assign(dstw, 0.0f);
  if (z->identity) {
    z->bound = true;
    z->stale = false;
    return 0;
  }
  AxisSpec ax{srcw, dstw, z->margin[0], z->margin[2], z->offx, z->blurx, z->usedx};
  AxisSpec ay{srch, dsth, z->margin[1], z->margin[3], z->offy, z->blury, z->usedy};
  if (!buildTaps(ax, z->tx) || !buildTaps(ay, z->ty)) return flerrno;
  // Filter first along the axis that shrinks more: fewer samples reach the other pass.
  z->verticalFirst = int64_t(dsth) * srcw <= int64_t(srch) * dstw;
  z->narrow = depthmode == IL_ZOOM_8 && z->tx.maxAbsSum < 32768 && z->ty.maxAbsSum < 32768;
  const int sampleBytes = depthmode == IL_ZOOM_8 ? 1 : 2;
  const int interBytes = z->narrow ? 2 : 4;
  z->ringCap = z->ty.maxTaps;
  z->ringLine = z->verticalFirst ? size_t(srcw) * 4 * sampleBytes : size_t(dstw) * 4 * interBytes;
  const uint64_t need = uint64_t(z->ringCap) * (z->ringLine + uint64_t(dstw) * 4) +
                        uint64_t(std::max(srcw, dstw)) * 4 * 4;
  if (!FLallocok(need)) return fail(IL_ETOOLARGE);
  try {
    z->ring.assign(size_t(z->ringCap) * z->ringLine, 0);
    z->zring.assign(size_t(z->ringCap) * dstw, 0.0f);
    z->rows.assign(size_t(z->ringCap), nullptr);
    // the intermediate line, which also widens 8-bit lines filtered horizontally first
    z->inter.assign(size_t(std::max(srcw, dstw)) * 4 * 4, 0);
  } catch (const std::bad_alloc&) {
    return fail(FL_ENOMEM);
  }
  z->bound = true;
  z->stale = false;
  return 0;
}

int ILgetzoom(ILzoom* z, void** colour, void** depth) {
  if (!z || !z->bound) return fail(FL_ESTATE);
  if (z->nextDst >= z->dsth) return fail(IL_EFINISHED);
  void *c = z->out.data(), *d = z->zout.data();
  int r;
  if (z->identity) r = passThrough(z, &c, &d);
  else if (z->depthmode != IL_ZOOM_8) r = produce<uint16_t, int32_t>(z);
  else if (z->narrow) r = produce<uint8_t, int16_t>(z);
  else r = produce<uint8_t, int32_t>(z);
  if (r) return fail(r);
  ++z->nextDst;
  if (colour) *colour = c;
  if (depth) *depth = d;
  return 0;
}

int ILreadzoom(ILzoom* z, void* colour, void* depth) {
  void *c, *d;
  if (int r = ILgetzoom(z, &c, &d)) return r;
  if (colour) memcpy(colour, c, size_t(z->dstw) * 4 * lineWidthBytes(z, true));
  if (depth) memcpy(depth, d, size_t(z->dstw) * 4);
  return 0;
}

void ILdelzoom(ILzoom* z) { delete z; }

void ILgetzoomsize(ILzoom* z, int* width, int* height) {
  if (width) *width = z && z->bound ? z->dstw : 0;
  if (height) *height = z && z->bound ? z->dsth : 0;
}

}  // extern "C"
