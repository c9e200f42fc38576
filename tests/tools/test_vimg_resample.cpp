// vimg resize, blur and filters against the peers a pipeline would otherwise use: ImageMagick's
// -sample and -scale, and libvips' lanczos3 resize.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "support/test_support.h"

namespace {

using vt::vimg;

// 8-bit RGB samples of an image, top row first, read by ImageMagick.
vt::Bytes rgb(const std::string& path) {
  vt::Bytes b = vt::readFile(path + ".rgb");
  if (b.empty() && vt::run("/usr/bin/convert '" + path + "' -depth 8 rgb:'" + path + ".rgb'") == 0)
    b = vt::readFile(path + ".rgb");
  return b;
}

}  // namespace

TEST(VimgResize, AgreesWithImageMagickAndVips) {
  vt::TempDir d;
  const std::string src = d.path("src.png");
  // a picture with smooth and sharp parts, as photographs have
  ASSERT_EQ(vt::run("/usr/bin/convert -size 256x192 gradient:'#203040-#e0c080' -fill '#c02020' -draw "
                    "'circle 90,80 130,110' -fill '#20a0f0' -draw 'rectangle 150,30 230,160' -blur 0x1.5 '" +
                    src + "'"),
            0);

  // impulse: the source pixel of each output pixel. Rows count from the bottom in the library, and
  // ImageMagick rounds a position that falls exactly on a pixel edge down: only the pixels whose
  // source both define alike are compared.
  ASSERT_EQ(vimg("resize " + src + " " + d.path("s.png") + " --size 100x70 --filter impulse"), 0);
  ASSERT_EQ(vt::run("/usr/bin/convert '" + src + "' -sample 100x70! '" + d.path("im_s.png") + "'"), 0);
  vt::Bytes ours = rgb(d.path("s.png")), theirs = rgb(d.path("im_s.png"));
  ASSERT_EQ(ours.size(), 100u * 70 * 3);
  int rows = 0;
  for (int t = 0; t < 70; ++t) {
    int top = int((t + 0.5) * 192 / 70), bottom = 191 - int((69 - t + 0.5) * 192 / 70);
    if (top != bottom || (2 * t + 1) * 192 % 140 == 0) continue;
    ++rows;
    for (int i = 0; i < 300; ++i)
      if ((2 * (i / 3) + 1) * 256 % 200 != 0) {
        ASSERT_EQ(ours[t * 300 + i], theirs[t * 300 + i]) << t << " " << i;
      }
  }
  EXPECT_GT(rows, 20);

  // box at an integer factor: the mean of each 4 x 4 block, as -scale makes it
  ASSERT_EQ(vimg("resize " + src + " " + d.path("b.png") + " --size 64x48 --filter box"), 0);
  ASSERT_EQ(vt::run("/usr/bin/convert '" + src + "' -scale 64x48! '" + d.path("im_b.png") + "'"), 0);
  ours = rgb(d.path("b.png"));
  theirs = rgb(d.path("im_b.png"));
  ASSERT_EQ(ours.size(), theirs.size());
  for (size_t i = 0; i < ours.size(); ++i) ASSERT_LE(std::abs(ours[i] - theirs[i]), 1) << i;

  // lanczos3 and the windowed sinc against vips (which samples the kernel at pixel centres where
  // the library integrates it over each source pixel, and may shrink by a box first)
  ASSERT_EQ(vt::run("vips resize '" + src + "' '" + d.path("v.png") + "' 0.390625 --kernel lanczos3"), 0);
  theirs = rgb(d.path("v.png"));
  for (const char* filter : {"lanczos3", "sinc"}) {
    const std::string out = d.path(std::string(filter) + ".png");
    ASSERT_EQ(vimg("resize " + src + " " + out + " --size 100x75 --filter " + filter), 0);
    ours = rgb(out);
    ASSERT_EQ(ours.size(), theirs.size());
    EXPECT_GT(vt::psnr(ours, theirs, 255.0), 40) << filter;
  }
}

TEST(VimgResize, FiltersBlurAndRefusals) {
  vt::TempDir d;
  vt::writeFile(d.path("soft.filter"), {'r', 'a', 'd', 'i', 'u', 's', '=', '1', '\n', 'f', '=', '1', '\n'});
  vt::writeFile(d.path("bad.filter"), {'r', 'a', 'd', 'i', 'u', 's', '=', '0', '\n'});
  vt::ScopedEnv path("VORA_FILTER_PATH", d.dir().c_str());
  std::string out;
  ASSERT_EQ(vimg("filters", &out), 0);
  EXPECT_NE(out.find("soft           radius 1"), std::string::npos) << out;
  EXPECT_NE(out.find("bad            cannot be loaded"), std::string::npos) << out;
  EXPECT_NE(out.find("lanczos3       radius 3             built-in"), std::string::npos) << out;
  const std::string png = d.path("in.png");
  ASSERT_EQ(vt::run("/usr/bin/convert -size 40x30 xc:'#808080' -fill white -draw 'point 20,15' '" + png + "'"), 0);
  ASSERT_EQ(vimg("resize " + png + " " + d.path("o.png") + " --size 20x15 --filter soft --blur 5,5"), 0);
  ASSERT_EQ(vimg("blur " + png + " " + d.path("b.png") + " --percent 10"), 0);
  vt::Bytes b = rgb(d.path("b.png"));
  EXPECT_GT(b[(15 * 40 + 22) * 3], 0x80);  // the white point spread
  EXPECT_EQ(vimg("resize " + png + " " + d.path("x.png") + " --size 20x15 --filter bad", &out), 1);
  EXPECT_NE(out.find("radius 0 is outside"), std::string::npos) << out;
  EXPECT_EQ(vimg("resize " + png + " " + d.path("x.png") + " --size 0x15", &out), 1);
  EXPECT_NE(out.find("size"), std::string::npos) << out;
  EXPECT_EQ(vimg("resize " + png + " " + d.path("x.png") + " --size big"), 2);
}
