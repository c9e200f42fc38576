// TpixelMap::zoom: the map resampled through the image library's zoom, its "auto" filter (box to
// shrink, sinc to enlarge). Depth is not resampled: a zoomed map has none.
#include <vora/foundation/pixelmap.h>
#include <vora/ilib.h>

namespace {

struct Source {
  Tpixel32* base;
  unsigned width, next;
};

int nextLine(void* s, void** colour, void** depth) {
  Source* src = static_cast<Source*>(s);
  *colour = src->base + size_t(src->width) * src->next++;
  *depth = nullptr;
  return 0;
}

}  // namespace

bool TpixelMap::zoom(const TportRect& rect) {
  const unsigned w = rect.width(), h = rect.height();
  if (w == 0 || h == 0 || width_ == 0 || height_ == 0) return false;
  TpixelMap out;
  if (!out.create(w, h)) return false;
  ILzoom* z = ILnewzoom("auto");
  Source src{pixels(), width_, 0};
  bool ok = z && ILbindzoom(z, &src, nextLine, IL_ZOOM_8, int(w), int(h), int(width_), int(height_)) == 0;
  for (unsigned y = 0; ok && y < h; ++y) ok = ILreadzoom(z, out.row(y), nullptr) == 0;
  if (z) ILdelzoom(z);
  if (!ok) return false;
  owned_ = std::move(out.owned_);
  borrowed_ = nullptr, width_ = w, height_ = h, depth_ = TdepthBuffer();
  return true;
}
