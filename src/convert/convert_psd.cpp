// Conversion to and from Photoshop documents: a document's composited layers written as a native
// file, and any picture the front end reads written as a one-layer document.
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include <vora/convert.h>
#include <vora/foundation/fl.h>
#include <vora/iff_image_file.h>
#include <vora/image_file.h>
#include <vora/psd_texture.h>

#include "convert/convert_report.h"

using namespace ktPhotoshop;

namespace vora::convert {

namespace {

// The document classes throw on what they cannot read or write (TpsdException, memory): a
// conversion answers -1 instead, as its callers expect of a C call.
template <class Work>
int caught(const char* caller, const char* file, Work&& work) {
  try {
    return work();
  } catch (const std::exception& e) {
    error(std::string(caller) + ": " + file + ": " + e.what());
    return -1;
  }
}

int psdtoiffUnguarded(const char* input, const char* output) {
  TpsdTextureFile psd;
  TrgbaData data;
  if (psd.openWithoutCache(TfilePath(input), false) != 0 || psd.readPixels(data) != 0) {
    const TpsdFile* doc = dynamic_cast<const TpsdFile*>(psd.document());
    return error(std::string("anytoiff: ") + input + ": " + (doc ? doc->lastReadError().str() : "not a readable document")), -1;
  }
  TpixelData16& px = data.pixelData();
  const uint32_t w = data.width(), h = data.height();
  const int bytes = int(px.bytesPerChannel());
  // Elements blue, green, red, alpha; a grey document has its grey in the red channel.
  const bool grey = !px.channel(GREEN);
  const PHOTOSHOP_CHANNEL ids[4] = {grey ? RED : BLUE, grey ? RED : GREEN, RED, TRANSPARENCY};
  const uint8_t* planes[4];
  for (int e = 0; e < 4; ++e) {
    const Tchannel* c = px.channel(ids[e]);
    planes[e] = c && c->width == w && c->height == h ? px.getChannelPixPtr(ids[e]) : nullptr;
  }
  TiffImageFile out;
  if (!planes[2] || !out.open(output, "w")) return error("Failed to open output file."), -1;
  // Lines are sized here from the document: the file must take exactly that size.
  if (out.setSize(int(w), int(h)) != 0 || out.setType(IL_COLOR | (planes[3] ? IL_ALPHA : 0)) != 0 ||
      out.setBytesPerPixel(bytes) != 0)
    return error(std::string("anytoiff: ") + input + ": " + FLstrerror(flerrno)), -1;
  std::vector<uint8_t> line(size_t(w) * 4 * bytes);
  out.modifyControlFlags(IL_ST_TOPDOWN, true);  // the document's rows run top first
  for (uint32_t y = 0; y < h; ++y) {
    for (uint32_t x = 0; x < w; ++x)
      for (int e = 0; e < 4; ++e) {
        const size_t at = size_t(y) * w + x;
        const uint8_t* s = planes[e] ? planes[e] + at * bytes : nullptr;
        uint8_t* d = &line[(size_t(x) * 4 + e) * bytes];
        if (s) memcpy(d, s, size_t(bytes));
        else memset(d, 0xFF, size_t(bytes));
      }
    if (out.writeLine(line.data(), nullptr) != 0) return error(std::string("anytoiff: cannot write ") + output), -1;
  }
  return out.close() == 0 ? 0 : -1;
}

int ifftopsdUnguarded(const char* input, const char* output) {
  TimageFile in;
  TpixelMap map;
  if (in.identifyAndOpen(input) != 0 || in.readPixelMap(map) != 0) return error(std::string("Failed to open input file: ") + input), -1;
  in.close();
  unsigned short w = uint16_t(map.width()), h = uint16_t(map.height());
  TpsdFile doc;
  doc.setColorMode(3);
  if (doc.create(TfilePath(output), w, h) != 0) return error(std::string("Failed to open output file: ") + output), -1;
  std::vector<uint8_t> planes[4];
  for (auto& p : planes) p.resize(size_t(w) * h);
  for (unsigned y = 0; y < h; ++y) {
    const Tpixel32* row = map.row(h - 1u - y);  // the document's rows run top first
    for (unsigned x = 0; x < w; ++x) {
      const size_t at = size_t(y) * w + x;
      planes[0][at] = row[x].r, planes[1][at] = row[x].g, planes[2][at] = row[x].b, planes[3][at] = row[x].a;
    }
  }
  TpixelData16 px(k8Bits, w, h, true);
  const PHOTOSHOP_CHANNEL ids[4] = {RED, GREEN, BLUE, TRANSPARENCY};
  for (int c = 0; c < 4; ++c) px.setChannelRawPixels(ids[c], std::move(planes[c]));
  doc.addLayer("Background", 0, 0, std::move(px));
  if (doc.save(TfilePath(std::string()), RLE) != 0) return error(output + std::string(": ") + doc.lastReadError().str()), -1;
  return 0;
}

}  // namespace

int psdtoiff(const char* input, const char* output) {
  return caught("anytoiff", input, [&] { return psdtoiffUnguarded(input, output); });
}

int ifftopsd(const char* input, const char* output) {
  return caught("ifftoany", output, [&] { return ifftopsdUnguarded(input, output); });
}

}  // namespace vora::convert
