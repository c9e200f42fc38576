// The zoom record and its tap tables (resampling while reading).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <vora/ilib.h>

#include "ilib/il_filter.h"

namespace vora::il {

// For every destination index of one axis: the first source index, the tap count and where
// its 14-bit weights start in the pool.
struct TapTable {
  std::vector<int32_t> first, count, offset;
  std::vector<int32_t> pool;
  int maxTaps = 0;      // the most source lines the vertical pass needs at once
  int64_t maxAbsSum = 0;  // the largest sum of weight magnitudes of one index
  std::vector<int32_t> nearest;  // the source index depth is point sampled from
};

// Axis parameters of one tap table.
struct AxisSpec {
  int src = 1, dst = 1;
  double m0 = 0, m1 = 0;  // margins in source pixels
  double offset = 0.5, blur = 0;
  const Filter* filter = nullptr;  // null: point sampling
};

// Builds the tap table of an axis; false (flerrno 110) when it would exceed the allocation limit.
bool buildTaps(const AxisSpec& a, TapTable& t);

// The passes over lines of 4 elements per pixel (il_zoom_pass.cpp). Sample types: uint8_t and
// uint16_t; intermediate lines are int16_t (8-bit samples, narrow weights) or int32_t.
template <typename In, typename Out>
void horizontalPass(const In* in, Out* out, const TapTable& t, int shift, int maxv);
template <typename In, typename Out>
void verticalPass(const In* const* rows, const int32_t* weights, int taps, Out* out, size_t n, int shift,
                  int maxv);

}  // namespace vora::il

struct ILzoom {
  std::string name;
  std::shared_ptr<const vora::il::Filter> fx, fy;
  float blurx = 0, blury = 0, offx = 0.5f, offy = 0.5f;
  float margin[4] = {0, 0, 0, 0};  // left, bottom, right, top
  bool stale = true;

  // binding
  void* source = nullptr;
  ILlinefunc line = nullptr;
  int depthmode = 0, dstw = 0, dsth = 0, srcw = 0, srch = 0;
  bool bound = false, identity = false, verticalFirst = true, narrow = true;
  const vora::il::Filter* usedx = nullptr;  // the filters chosen at binding ("auto")
  const vora::il::Filter* usedy = nullptr;
  std::shared_ptr<const vora::il::Filter> autoFilter;
  vora::il::TapTable tx, ty;

  // reading state
  int nextDst = 0;    // destination lines delivered
  int nextSrc = 0;    // source lines read
  int ringCap = 0;
  size_t ringLine = 0;                // bytes of one ring line
  std::vector<unsigned char> ring;    // colour: raw source lines or horizontally filtered ones
  std::vector<float> zring;           // depth lines, already point sampled to dstw
  std::vector<unsigned char> inter;   // the intermediate line (vertical first)
  std::vector<unsigned char> out;     // the delivered colour line
  std::vector<float> zout;            // the delivered depth line
  std::vector<const unsigned char*> rows;  // the ring lines of one vertical pass
  bool sourceDepth = false;           // the source gave depth lines
};
