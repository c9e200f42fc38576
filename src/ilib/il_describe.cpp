// The type of an image in words.
#include <cstdio>

#include <vora/ilib.h>

extern "C" {

const char* ILdescribetype(int type, char* buf, int size) {
  if (!buf || size <= 0) return buf;
  const char* colour = (type & IL_MATTE) ? "Black" : (type & IL_COLOR) ? "RGB" : "BW";
  snprintf(buf, size_t(size), "%s %s Alpha%s", colour, (type & IL_ALPHA) ? "with" : "without",
           (type & IL_ZBUFFER) ? ", ZBuffer" : "");
  return buf;
}

}  // extern "C"
