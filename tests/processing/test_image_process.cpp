// The background loader: answers in request order, scaled where a rectangle is given, an
// unreadable file answered empty and reported, a shutdown that drops what is queued; and the
// tile list's copies of itself.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include <vora/image_process.h>

#include "support/test_support.h"

namespace {

const std::string kData = VORA_TEST_DATA;

TEST(ImageProcess, AnswersInOrderScaledAndReported) {
  TmpImageProcess::flushRequestQueue();  // nothing to flush: no instance made
  EXPECT_FALSE(TmpImageProcess::isImageProcess());
  vt::Messages said;
  std::atomic<int> called{0};
  TmpImageProcess* p = TmpImageProcess::imageProcess();
  TimageLoadRequest r;
  r.fileName = (kData + "/iff/rgba8_70x66_rle.iff").c_str();
  r.rect = {4, 4, 14, 9};  // 10 x 5
  r.callback = [](void* n) { ++*static_cast<std::atomic<int>*>(n); };
  r.data = &called;
  p->request(r);
  p->request((kData + "/missing.iff").c_str(), {});
  p->request((kData + "/sgi/im_gray8_50x20_rle.sgi").c_str(), {9, 9, 9, 20});  // no width: file size
  const unsigned want[3][2] = {{10, 5}, {0, 0}, {50, 20}};
  for (const auto& w : want) {
    std::unique_ptr<TpixelMap> m(p->answer().pixelMap);
    EXPECT_EQ(m->width(), w[0]);
    EXPECT_EQ(m->height(), w[1]);
  }
  EXPECT_EQ(p->answers(), 0);
  EXPECT_EQ(called, 1);
  ASSERT_EQ(said.lines().size(), 1u);
  EXPECT_NE(said.lines()[0].find("missing.iff"), std::string::npos);
  // Stopped with work queued: it returns, the rest is dropped, and the next use starts afresh.
  for (int i = 0; i < 50; ++i) p->request((kData + "/iff/rgba8_70x66_rle.iff").c_str(), {});
  TmpImageProcess::shutdownImageProcess();
  EXPECT_FALSE(TmpImageProcess::isImageProcess());
  p = TmpImageProcess::imageProcess();
  p->request((kData + "/iff/rgb8_40x30_rle.iff").c_str(), {});
  std::unique_ptr<TpixelMap> m(p->answer().pixelMap);
  EXPECT_EQ(m->width(), 40u);
  TmpImageProcess::shutdownImageProcess();
}

TEST(TileList, CopiesClampedAndOfItself) {
  const TportRect a{0, 0, 1, 1}, b{1, 1, 2, 2}, c{2, 2, 3, 3};
  TtileList l, empty;
  ASSERT_EQ(l.addLast(a), 0);
  const TportRect bc[2] = {b, c};
  ASSERT_EQ(l.addLast(bc, 2), 0);
  EXPECT_EQ(l.insert(a, 9), -1);
  EXPECT_EQ(l.catenate(l, 1, 99), 0);  // b, c appended from itself
  ASSERT_EQ(l.count(), 5u);
  EXPECT_EQ(l[4], c);
  unsigned at = 0;
  EXPECT_TRUE(l.find(c, at));
  EXPECT_EQ(at, 2u);
  EXPECT_EQ(l.remove(a), 0);
  EXPECT_EQ(l.remove(a), -1);
  EXPECT_EQ(l.copy(l, 2, 2), 0);  // its own middle
  ASSERT_EQ(l.count(), 2u);
  EXPECT_EQ(l[0], b);
  EXPECT_EQ(l.catenate(empty), 0);
  EXPECT_EQ(l.count(), 2u);
  EXPECT_EQ(l.copy(empty), 0);
  EXPECT_EQ(l.count(), 0u);
  empty.createAndSet(c, 3, 1);
  l.swap(empty);
  EXPECT_EQ(l.count(), 3u);
  EXPECT_EQ(empty.count(), 0u);
}

}  // namespace
