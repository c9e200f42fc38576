// Conversion: where its messages go, and the pieces ifftoany and anytoiff share.
#pragma once

#include <string>

#include <vora/foundation/pixelmap.h>
#include <vora/imf.h>

namespace vora::convert {

// One line to the error handler when one is installed, else to standard error.
void error(const std::string& text);
// The information record of a plug-in file: both names, one frame, the key and a comment.
IMF_info infoFor(const char* name, const char* key, const char* comment);

// A plug-in file of 8-bit colour without depth straight into a map (bottom row first). 0 or -1.
int readPixelMap(const char* name, const char* key, TpixelMap& map);

// Finishes the multi-frame output ifftoany left open for this key, if any: 0, or -1.
int finishOutput(const char* key);

int ifftogif(const char* input, const char* output);
int ifftopsd(const char* input, const char* output);
int psdtoiff(const char* input, const char* output);

}  // namespace vora::convert
