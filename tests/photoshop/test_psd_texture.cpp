// The texture facade and its document cache: one read per unchanged file, a fresh read after the
// file changes (to the nanosecond), documents kept alive for the facades that hold them.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <vora/psd_texture.h>

#include "support/psd_builder.h"
#include "support/test_support.h"

using namespace ktPhotoshop;
namespace psd = vt::psd;

namespace {
// Moves the file's modification time by one nanosecond: a change within the same second.
void touchNanosecond(const std::string& path) {
  struct stat st;
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  timespec times[2] = {st.st_atim, st.st_mtim};
  times[1].tv_nsec = (times[1].tv_nsec + 1) % 1000000000;
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}
}  // namespace

TEST(PsdTexture, CacheReadsOnceUntilTheFileChanges) {
  vt::TempDir d;
  psd::Document doc;
  doc.width = 7, doc.height = 3;
  const std::string path = d.path("t.psd");
  vt::writeFile(path, psd::build(doc));
  TpsdFileCache& cache = TpsdFileCache::theCache();
  cache.clear();
  TpsdTextureFile a, b, c;
  ASSERT_EQ(a.open(path.c_str(), true), 0);
  EXPECT_EQ(a.resolutionX() * 100 + a.resolutionY(), 703);
  ASSERT_EQ(b.open((d.dir() + "/./t.psd").c_str(), false), 0);  // the same full path
  EXPECT_EQ(b.document(), a.document());
  EXPECT_EQ(b.resolutionX(), 7);
  EXPECT_EQ(cache.size(), 1u);
  TphotoshopFile* other = nullptr;
  EXPECT_EQ(cache.addFile(Tstring(std::string(d.dir()) + "/t.psd"), other), -1);
  touchNanosecond(path);
  ASSERT_EQ(c.open(path.c_str(), true), 0);
  EXPECT_NE(c.document(), a.document());  // read again
  EXPECT_EQ(a.document()->imageWidth(), 7u);  // the stale document lives on for its holders
  EXPECT_EQ(a.close(), 0);
  EXPECT_EQ(b.close(), 0);
  EXPECT_EQ(c.close(), 0);
  TpsdTextureFile u;
  ASSERT_EQ(u.openWithoutCache(path.c_str(), true), 0);
  EXPECT_EQ(u.resolutionX(), 0);  // not copied
  ASSERT_EQ(u.saveAs(d.path("copy.psd").c_str()), 0);
  EXPECT_TRUE(TpsdTextureFile::isFilePsd(Tstring(d.path("copy.psd"))));
  EXPECT_EQ(cache.size(), 1u);
  vt::writeFile(d.path("x.psd"), {'n', 'o'});
  TpsdTextureFile x;
  EXPECT_EQ(x.open(d.path("x.psd").c_str(), true), -1);
  EXPECT_EQ(cache.size(), 1u);
  EXPECT_EQ(x.close(), -1);
  cache.clear();
}
