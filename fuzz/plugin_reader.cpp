// Fuzz target, built once per bundled plug-in (fuzz_plugin_KEY): the plug-in's reader on
// arbitrary bytes through the IMF library, every frame and line of pictures small enough to
// keep the run quick; larger ones are opened (sizes checked) but not decoded.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "fuzz_file.h"
#include <vora/foundation/dynamic_load.h>
#include <vora/foundation/fl.h>
#include <vora/imf.h>

namespace {
TdynamicLoad plugin;
std::string pluginPath = VORA_FUZZ_PLUGIN;
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ERR_mask_s(0);
  FLsetalloclimit(uint64_t(256) << 20);  // whole-picture codecs decode at open: keep within the RSS limit
  IMF_init(0, [](void** library, char** name) -> int {
    if (plugin.handle()) return 0;
    *library = plugin.open(pluginPath.c_str(), 0) ? plugin.handle() : nullptr;
    *name = pluginPath.data();
    return 1;
  });
  return IMF_format_at(0) ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string suffix = std::string(".") + IMF_format_at(0)->extension;
  if (!fuzz::writeInput(data, size, suffix)) return 0;
  const std::string path = fuzz::tempPath() + suffix;
  IMF_info info;
  IMF_info_init(&info);
  info.name = path.c_str(), info.key = IMF_format_at(0)->key;
  if (IMF_object* o = IMF_open(&info, "r")) {
    for (int frame = 0; frame < 3 && (frame == 0 || IMF_set_frame(o, frame) == frame); ++frame) {
      const IMF_image& r = o->image;
      const int64_t w = int64_t(r.xMax) - r.xMin + 1, h = int64_t(r.yMax) - r.yMin + 1;
      if (w * h > 1 << 16) break;
      // Lines as planes or as pixels (record order, BGRA8), chosen by the input's length.
      const int layout = int(size % 3);
      void** planes = IMF_chan_alloc(&r, int(w), nullptr);
      std::vector<uint8_t> pixels(size_t(w) * 16);
      for (int y = 0; planes && y < h; ++y)
        if ((layout ? IMF_scan_read_pixels(o, y, layout, pixels.data()) : IMF_scan_read(o, y, planes)) != 0) break;
      IMF_chan_free(planes);
    }
    IMF_close(o);
  }
  remove(path.c_str());
  return 0;
}
