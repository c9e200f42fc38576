// The HDR readers built beside the library (libvoraimage_hdr): OpenEXR files through the OpenEXR
// library and Radiance RGBE (.hdr) files, registered with ThdrTranslationManager from outside it.
//
// Each reader's ThdrImageFileInfo: values[0], [1] the display window's width and height,
// [2] the channels delivered, [3], [4] the data window's left and top in the display window,
// [5], [6] the data window's width and height; flags[0] tiled, flags[1] half floats.
// read() delivers the data window, rows bottom first (as the library's pictures stand), samples
// red, green, blue[, alpha], or grey alone; kHdrReadDisplayWindow places the data window in the
// display window instead (zero around it).
#pragma once

#include <vora/export.h>
#include <vora/hdr.h>

#include <cstdint>
#include <string>
#include <vector>

constexpr unsigned kHdrReadDisplayWindow = 1;

// Registers the OpenEXR ("exr", "sxr") and Radiance ("hdr", "rgbe", "pic") readers; once.
VORA_HDR_API void registerStandardHdrReaders();
// Reads an opened reader's picture and exposes it with hdrExposeGamma. Half-float EXR pictures
// are read as half and exposed through one 65536-entry table per curve: the same bytes, without
// a float picture in between. 0, or -1.
VORA_HDR_API int readExposedGamma(ThdrImageFile* file, TpixelMap& out, float exposure, float gamma);
// Radiance RGBE scan lines one at a time, as they are stored (top line first when topFirst()),
// from a file held whole. open parses the header and refuses a picture the file is too small to
// hold; next decodes the following line as red, green, blue floats, false at the end or on damage.
class VORA_HDR_API TradianceLines {
 public:
  bool open(std::vector<uint8_t> bytes);
  unsigned width() const { return width_; }
  unsigned height() const { return height_; }
  bool topFirst() const { return topFirst_; }
  bool next(float* rgb);

 private:
  bool nextLine(size_t& p, std::string& line) const;
  bool parseHeader();
  bool scanLine();
  std::vector<uint8_t> bytes_, encoded_;
  size_t at_ = 0;
  unsigned width_ = 0, height_ = 0, line_ = 0;
  bool topFirst_ = true;
};

// The readers themselves, for callers that do not go through the registry.
VORA_HDR_API ThdrImageFile* newOpenExrReader();
VORA_HDR_API ThdrImageFile* newRadianceReader();
// Why an OpenEXR file should not be handed to the OpenEXR library, or empty: its headers are walked
// first, and a file whose attributes run past its end, or whose data windows, channels and chunks
// cannot come from its size, is refused before the library allocates for them.
VORA_HDR_API std::string exrHeaderRefusal(const char* path);
