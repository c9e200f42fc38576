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

#include <string>

constexpr unsigned kHdrReadDisplayWindow = 1;

// Registers the OpenEXR ("exr", "sxr") and Radiance ("hdr", "rgbe", "pic") readers; once.
VORA_HDR_API void registerStandardHdrReaders();
// Reads an opened reader's picture and exposes it with hdrExposeGamma. Half-float EXR pictures
// are read as half and exposed through one 65536-entry table per curve: the same bytes, without
// a float picture in between. 0, or -1.
VORA_HDR_API int readExposedGamma(ThdrImageFile* file, TpixelMap& out, float exposure, float gamma);
// The readers themselves, for callers that do not go through the registry.
VORA_HDR_API ThdrImageFile* newOpenExrReader();
VORA_HDR_API ThdrImageFile* newRadianceReader();
// Why an OpenEXR file should not be handed to the OpenEXR library, or empty: its headers are walked
// first, and a file whose attributes run past its end, or whose data windows, channels and chunks
// cannot come from its size, is refused before the library allocates for them.
VORA_HDR_API std::string exrHeaderRefusal(const char* path);
