// ifftoany's GIF path: the picture dithered onto a 6 x 6 x 6 colour cube, so that the GIF writer
// keeps every colour exactly (216 entries fit its palette) and a file looks the same whatever the
// picture.
#include <algorithm>
#include <string>
#include <vector>

#include <vora/convert.h>
#include <vora/foundation/fl.h>
#include <vora/iff_image_file.h>
#include <vora/plugins.h>

#include "convert/convert_report.h"

namespace {

void fail(const std::string& text) { vora::convert::error("ifftogif: " + text); }

// Floyd-Steinberg error diffusion onto levels 51 apart, the top line first. The error carried
// into a sample is clamped to +-100 so that a run of out-of-cube colour does not build up.
void quantise(uint8_t* pixels, int width, int height) {
  std::vector<int> cur(size_t(width + 2) * 3), next(cur.size());
  for (int y = height - 1; y >= 0; --y) {
    std::fill(next.begin(), next.end(), 0);
    uint8_t* row = pixels + size_t(y) * width * 4;
    for (int x = 0; x < width; ++x)
      for (int c = 0; c < 3; ++c) {
        const size_t k = size_t(x + 1) * 3 + c;
        const int v = std::clamp(row[x * 4 + c] + std::clamp(cur[k] / 16, -100, 100), 0, 255);
        const int q = (v + 25) / 51 * 51;
        row[x * 4 + c] = uint8_t(q);
        const int e = v - q;
        cur[k + 3] += e * 7, next[k - 3] += e * 3, next[k] += e * 5, next[k + 3] += e;
      }
    cur.swap(next);
  }
}

}  // namespace

namespace vora::convert {

int ifftogif(const char* input, const char* output) {
  TiffImageFile in;
  if (!in.open(input, "r") || !ILgetheader(in.handle())) return fail(std::string("Failed to open input file ") + input), -1;
  const int w = int(in.width()), h = int(in.height());
  if (in.bytesPerPixel() != 1)
    return fail("input image has an unsupported number of bytes per pixel channel - " + std::to_string(in.bytesPerPixel())), -1;
  if (!(in.type() & IL_COLOR)) return fail("image does not contain rgb data."), -1;
  if (in.type() & IL_ZBUFFER) fail("ignoring z buffer.");
  if (in.type() & IL_ALPHA) fail("ignoring alpha mask.");
  std::vector<uint8_t> px;
  if (ILcanload(in.handle()) != 0 || !FLallocok(uint64_t(w) * h * 4)) return fail("Couldn't allocate space for bitmap."), -1;
  px.resize(size_t(w) * h * 4);
  if (in.load(px.data(), nullptr) != 0) return fail("failed to read in image bitmap."), -1;
  quantise(px.data(), w, h);

  loadImfPlugins();
  const IMF_format* gif = IMF_find("gif");
  if (!gif || !(gif->flags & IMF_CAN_WRITE)) return fail("could not find gif plugin."), -1;
  IMF_info info = infoFor(output, "gif", "Image converted using ifftoany");
  info.program = "Vora";
  info.image.xMax = w - 1, info.image.yMax = h - 1;
  info.image.colorChannels = 3;
  info.image.topDown = (gif->scanOrders & IMF_ORDER_BOTTOM_UP) ? 0 : 1;
  IMF_object* out = IMF_open(&info, "w");
  if (!out) return error(std::string("Failed to open output file: ") + output), -1;
  int result = 0;
  for (int l = 0; l < h && result == 0; ++l) {
    const int y = info.image.topDown ? h - 1 - l : l;
    if (IMF_scan_write_pixels(out, l, IMF_PIXELS_BGRA8, px.data() + size_t(y) * w * 4) != 0) {
      error("scanline write failed");
      result = -1;
    }
  }
  if (IMF_close(out) != 0 && result == 0) fail("IMF_close failed."), result = -1;
  return result;
}

}  // namespace vora::convert
