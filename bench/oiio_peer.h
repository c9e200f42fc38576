// OpenImageIO as the peer of the image comparers: a whole RGBA 8-bit image (top line first,
// red green blue alpha) to and from a file, exiting on failure so a timing never counts an error.
#pragma once

#include <OpenImageIO/imageio.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace bench {

// compression: the "compression" attribute to ask for, or null for the format's default.
inline void peerWrite(const std::string& path, const std::vector<uint8_t>& px, int n,
                      const char* compression) {
  OIIO::ImageSpec spec(n, n, 4, OIIO::TypeDesc::UINT8);
  if (compression) spec.attribute("compression", compression);
  auto out = OIIO::ImageOutput::create(path);
  if (!out || !out->open(path, spec) || !out->write_image(OIIO::TypeDesc::UINT8, px.data())) {
    fprintf(stderr, "OIIO write failed: %s\n", OIIO::geterror().c_str());
    exit(1);
  }
  out->close();
}

inline void peerRead(const std::string& path, std::vector<uint8_t>& px) {
  auto in = OIIO::ImageInput::open(path);
  if (!in || !in->read_image(0, 0, 0, 4, OIIO::TypeDesc::UINT8, px.data())) {
    fprintf(stderr, "OIIO read failed: %s\n", OIIO::geterror().c_str());
    exit(1);
  }
  in->close();
}

}  // namespace bench
