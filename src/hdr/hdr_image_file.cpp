// HDR pictures: the loading and resizing every reader shares, and the registry of readers by
// file extension.
#include <vora/hdr.h>

#include <algorithm>
#include <cmath>

ThdrImageFile::~ThdrImageFile() = default;

int ThdrImageFile::glLoad(ThdrHardwareType, ThdrImageType, ThdrExposure*, unsigned) { return -1; }

int ThdrImageFile::load(TpixelMap& out, ThdrExposure* exposure, unsigned flags) {
  if (!exposure) return -1;
  TgenericPixelMap<float> map;
  if (read(map, flags) != 0) return -1;
  return exposure->convert(map, out);
}

int ThdrImageFile::loadAndResize(TgenericPixelMap<float>& out, unsigned width, unsigned height, unsigned flags) {
  if (read(out, flags) != 0) return -1;
  return resize(out, width, height);
}

int ThdrImageFile::loadAndResize(TpixelMap& out, unsigned width, unsigned height, ThdrExposure* exposure,
                                 unsigned flags) {
  // Readers that make 8-bit pictures themselves override load; the base's fails without exposure.
  if (load(out, nullptr, flags) == 0) return out.zoom(TportRect{0, 0, uint16_t(width), uint16_t(height)}) ? 0 : -1;
  if (!exposure) return -1;
  TgenericPixelMap<float> map;
  if (loadAndResize(map, width, height, flags) != 0) return -1;
  return exposure->convert(map, out);
}

namespace {

// The overlap of source cell [i, i + 1) with the box [lo, hi] along one axis.
inline float cellWeight(int i, float lo, float hi) {
  if (float(i) >= lo && float(i + 1) <= hi) return 1.0f;
  if (lo >= float(i)) return std::min(float(i + 1), hi) - lo;  // the box starts inside the cell
  return hi - float(i);                                        // it ends inside
}

// The cells [first, last] a box covers: from floor(lo) (not below 0) to floor(hi) (not past the
// last cell).
inline void cells(float lo, float hi, unsigned n, int& first, int& last) {
  first = std::max(int(std::floor(lo)), 0);
  last = std::min(int(std::floor(hi)), int(n) - 1);
}

}  // namespace

int ThdrImageFile::resize(TgenericPixelMap<float>& map, unsigned width, unsigned height) {
  const unsigned W = map.width(), H = map.height(), C = map.channels();
  if (W == 0 || H == 0 || C == 0 || map.size() == 0 || width == 0 || height == 0) return -1;
  if (W == width && H == height) return 0;
  TgenericPixelMap<float> out;
  if (!out.create(width, height, C)) return -1;
  const float sx = float(W) / float(width), sy = float(H) / float(height);
  std::vector<float> sum(C);
  for (unsigned y = 0; y < height; ++y) {
    // The box is centred on y * sy, not (y + 0.5) * sy: half an output pixel off (kept).
    const float top = (float(y) - 0.5f) * sy, bottom = (float(y) + 0.5f) * sy;
    int y0, y1;
    cells(top, bottom, H, y0, y1);
    for (unsigned x = 0; x < width; ++x) {
      const float left = (float(x) - 0.5f) * sx, right = (float(x) + 0.5f) * sx;
      int x0, x1;
      cells(left, right, W, x0, x1);
      std::fill(sum.begin(), sum.end(), 0.0f);
      float total = 0.0f;
      for (int j = y0; j <= y1; ++j) {
        const float wy = cellWeight(j, top, bottom);
        for (int i = x0; i <= x1; ++i) {
          const float wgt = wy * cellWeight(i, left, right);
          const float* s = map.pixel(unsigned(i), unsigned(j));
          for (unsigned c = 0; c < C; ++c) sum[c] += s[c] * wgt;
          total += wgt;
        }
      }
      float* o = out.pixel(x, y);
      for (unsigned c = 0; c < C; ++c) o[c] = total > 1e-5f ? sum[c] / total : 0.0f;
    }
  }
  map.swap(out);
  return 0;
}

ThdrTranslationManager* ThdrTranslationManager::gInstance = nullptr;

ThdrTranslationManager& ThdrTranslationManager::instance() {
  if (!gInstance) gInstance = new ThdrTranslationManager();
  return *gInstance;
}

ThdrTranslationManager::~ThdrTranslationManager() {
  while (first_) {
    Record* r = first_;
    first_ = r->next;
    delete r;
  }
}

void ThdrTranslationManager::registerTranslator(ThdrFactory factory, const TstringArray& extensions, void* data) {
  first_ = new Record{extensions, factory, data, first_};
}

void ThdrTranslationManager::deregisterTranslator(ThdrFactory factory, void* data) {
  for (Record** at = &first_; *at;) {
    if ((*at)->factory == factory && (*at)->data == data) {
      Record* gone = *at;
      *at = gone->next;
      delete gone;
    } else {
      at = &(*at)->next;
    }
  }
}

ThdrImageFile* ThdrTranslationManager::createAndOpen(const Tstring& path) const {
  const Tstring ext = path.extension().toLower();
  for (const Record* r = first_; r; r = r->next)
    for (const Tstring& e : r->extensions) {
      if (e.toLower() != ext) continue;
      ThdrImageFile* file = r->factory(r->data);
      if (!file) continue;
      if (file->open(path, file->info_) == 0) return file;
      delete file;
    }
  return nullptr;
}

bool ThdrTranslationManager::isFileExtensionSupported(const Tstring& path) const {
  const Tstring ext = path.extension().toLower();
  for (const Record* r = first_; r; r = r->next)
    for (const Tstring& e : r->extensions)
      if (e.toLower() == ext) return true;
  return false;
}

void ThdrTranslationManager::getSupportedFileExtensions(TstringArray& out) const {
  for (const Record* r = first_; r; r = r->next)
    for (const Tstring& e : r->extensions)
      if (!e.isEmpty() && std::find(out.begin(), out.end(), e) == out.end()) out.push_back(e);
  std::sort(out.begin(), out.end());
}
