// Conversion: messages, plug-ins and records shared by both directions.
#include "convert/convert_report.h"

#include <cstdio>

#include <vora/convert.h>
#include <vora/foundation/messages.h>

namespace vora::convert {

void error(const std::string& text) {
  if (theErrorHandler) theErrorHandler->reportError(text.c_str());
  else fprintf(stderr, "%s\n", text.c_str());
}

IMF_info infoFor(const char* name, const char* key, const char* comment) {
  IMF_info info;
  IMF_info_init(&info);
  info.name = info.handle = name;
  info.key = key;
  info.count = 1;
  info.comment = comment;
  return info;
}

}  // namespace vora::convert

int imfOutputBits(const IMF_format* format, int bits) {
  auto takes = [format](int b) { return b >= 1 && b <= 32 && (format->bitsMask >> (b - 1) & 1); };
  if (takes(bits)) return bits;
  for (int b = bits + 1; b <= 32; ++b)
    if (takes(b)) return b;
  for (int b = bits - 1; b >= 1; --b)
    if (takes(b)) return b;
  return 0;
}
