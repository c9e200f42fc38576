// Foundation: Tstring and the message catalogue.
#include <gtest/gtest.h>
#include <vora/foundation/messages.h>
#include <vora/foundation/tstring.h>

TEST(Tstring, FormatSplitExtensionSubstitute) {
  EXPECT_EQ(Tstring::tFormat("%s/vora%d.iff", "/tmp", 42), Tstring("/tmp/vora42.iff"));
  auto parts = Tstring("a.b..c").split(".");
  ASSERT_EQ(parts.size(), 4u);
  EXPECT_EQ(parts[2], Tstring(""));
  EXPECT_EQ(Tstring("dir.d/file.tif").extension(), Tstring("tif"));
  EXPECT_EQ(Tstring("dir.d/file").extension(), Tstring(""));
  Tstring s = "a-b-c";
  EXPECT_EQ(s.substitute("-", "::"), 2);
  EXPECT_EQ(s, Tstring("a::b::c"));
  int32_t v;
  EXPECT_TRUE(Tstring("-2147483648").isInt32(&v));
  EXPECT_EQ(v, INT32_MIN);
  EXPECT_FALSE(Tstring("2147483648").isInt32());
  EXPECT_FALSE(Tstring("12x").isInt32());
  EXPECT_FALSE(Tstring(" 1").isInt32());
  EXPECT_FALSE(Tstring("").isInt32());
}

namespace {
struct Collect : TerrorHandler {
  std::string last;
  void reportError(const char* m) override { last = m; }
};
}  // namespace

TEST(Messages, CatalogueAndErrorHandler) {
  EXPECT_STREQ(TstringId("s_FLStrings.rError104").text(),
               "no image header before the end of the image");
  EXPECT_STREQ(TstringId("s_Unknown.rKey").text(), "s_Unknown.rKey");  // unknown: the key itself
  Collect c;
  TerrorHandler* old = theErrorHandler;
  theErrorHandler = &c;
  reportErrorf("SGI image: %s", "bad magic");
  theErrorHandler = old;
  EXPECT_EQ(c.last, "SGI image: bad magic");
  reportErrorf("nobody listens");  // no handler: nothing happens
}
