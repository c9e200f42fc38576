// Pixel maps: borrowed pixels, the zoom, the byte-order switch and flip; 16-bit pictures.
#include <gtest/gtest.h>
#include <vora/foundation/pixelmap.h>

#include <cstring>
#include <vector>

TEST(PixelMap, BorrowedPixelsZoomSwitchAndFlip) {
  std::vector<Tpixel32> mine(6 * 4);
  for (size_t i = 0; i < mine.size(); ++i) mine[i] = {uint8_t(i), uint8_t(100 + i), uint8_t(200 + i), 255};
  TpixelMap m;
  m.setPixelPtr(mine.data(), TportRect{0, 0, 6, 4});
  EXPECT_TRUE(m.borrowed());
  m.rgbaSwitch();  // in the caller's memory
  EXPECT_EQ(mine[5], (Tpixel32{205, 105, 5, 255}));
  m.flipVertical();
  EXPECT_EQ(mine[0].r, 18);  // the top row came down
  TpixelMap copy = m;
  EXPECT_FALSE(copy.borrowed());
  ASSERT_TRUE(copy.zoom(TportRect{0, 0, 3, 2}));
  EXPECT_EQ(copy.width() * 10 + copy.height(), 32u);
  EXPECT_EQ(m.width(), 6u);  // the borrowed map is untouched
  TpixelMap flat;
  ASSERT_TRUE(flat.create(9, 7));
  for (unsigned y = 0; y < 7; ++y)
    for (unsigned x = 0; x < 9; ++x) flat.setPixel(x, y, {10, 20, 30, 40});
  ASSERT_TRUE(flat.zoom(TportRect{0, 0, 20, 3}));  // a flat picture stays flat either way
  EXPECT_EQ(flat.pixel(19, 2), (Tpixel32{10, 20, 30, 40}));
  EXPECT_FALSE(flat.zoom(TportRect{5, 0, 5, 3}));
  EXPECT_FALSE(flat.create(40000, 1));
  // A 16-bit picture keeps its channels whole; as a pixel map, the high bytes and the depth.
  Timage wide;
  ASSERT_TRUE(wide.create(3, 2, 2, true));
  EXPECT_FALSE(wide.create(3, 2, 3));
  const uint16_t v[4] = {0x1234, 0xABCD, 0x00FF, 0xFFFF};
  memcpy(wide.row(1) + 2 * wide.rowBytes() / 3, v, 8);  // pixel (2, 1)
  wide.depthRow(1)[2] = 7.5f;
  TpixelMap eight;
  ASSERT_TRUE(wide.toPixelMap(eight));
  EXPECT_EQ(eight.pixel(2, 1), (Tpixel32{0x12, 0xAB, 0x00, 0xFF}));
  EXPECT_EQ(eight.depth()->values[5], 7.5f);
}
