// STR_ string utilities: the hash, comparisons that take bytes as signed chars, the shared-string
// table's reference counts, and the name and word helpers.
#include <gtest/gtest.h>
#include <vora/str.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

TEST(Str, HashAndComparisonsTakeBytesAsSignedChars) {
  std::string longText(1000, 'z');
  uint32_t h = 0;
  for (char c : longText) h = h * 33u + uint32_t(c);  // wraps in 32-bit arithmetic
  const std::pair<const char*, uint32_t> hashes[] = {{"a", 97}, {"ab", 230}, {"a\xE9", 109}, {"", 0}, {nullptr, 0},
                                                     {longText.c_str(), h % 1023}};
  for (auto [s, want] : hashes) EXPECT_EQ(STR_hash(s, 1023), want) << (s ? s : "null");
  const char* x = "x";
  EXPECT_EQ(STR_compare("abc", "abc"), 0);
  EXPECT_EQ(STR_compare("abd", "abc"), 1);
  EXPECT_EQ(STR_compare("ab", "abc"), -'c');
  EXPECT_LT(STR_compare("a\xE9", "a"), 0);  // 0xE9 is negative as a signed char
  EXPECT_EQ(STR_compare(nullptr, nullptr), 0);
  EXPECT_EQ(STR_compare(x, nullptr), int(int32_t(intptr_t(x))));
  EXPECT_EQ(STR_compare(nullptr, x), int(int32_t(-intptr_t(x))));
  const std::pair<int, int> nCompares[] = {{2, 0}, {3, -1}, {1, 0}};
  for (auto [n, want] : nCompares) EXPECT_EQ(STR_n_compare("abc", "abd", n), want) << n;
  EXPECT_EQ(STR_n_compare("xbc", "abd", 0), 'x' - 'a');  // deliberate: n <= 1 compares one byte
  EXPECT_EQ(STR_n_compare("xbc", "abd", -5), 'x' - 'a');
}

TEST(Str, NamesWordsAndCopies) {
  char root[] = "shot.0001.iff", head[] = "/a/b/c.iff", none[] = "file", runs[] = "a//b", rooted[] = "/file";
  EXPECT_STREQ(STR_extension("a/b.c/file.iff"), "iff");
  EXPECT_STREQ(STR_extension("dir.d/file"), "d/file");  // a '.' in a directory counts too
  EXPECT_EQ(STR_extension("name"), nullptr);
  EXPECT_STREQ(STR_root(root), "shot.0001");
  EXPECT_STREQ(STR_tail("/a/b/c.iff"), "c.iff");
  EXPECT_EQ(STR_tail(none), none);
  EXPECT_STREQ(STR_head(head), "/a/b");
  EXPECT_EQ(STR_head(none), nullptr);
  EXPECT_STREQ(STR_head(runs), "a");  // a run of '/' is cut at its first one
  EXPECT_STREQ(STR_head(rooted), "/");
  EXPECT_STREQ(STR_skip_space("  \t x y"), "x y");
  EXPECT_STREQ(STR_find_space(" abc def"), " def");  // the search starts after the first byte
  EXPECT_STREQ(STR_find_space("abc"), "");
  EXPECT_EQ(STR_find_space(nullptr), nullptr);
  for (const char* s : {"", "12a", "-1"}) EXPECT_FALSE(STR_is_numeric(s)) << s;
  EXPECT_FALSE(STR_is_numeric(nullptr));
  EXPECT_TRUE(STR_is_numeric("0123"));
  EXPECT_EQ(STR_length(nullptr) + STR_length("four"), 4);
  char* s = STR_more(STR_save("hello world"), 5);
  char* n = STR_save_n(3, "a", "bc", "def");
  char* z = STR_save_n(-2);
  EXPECT_EQ(std::string(s) + "|" + n + "|" + z, "hello|abcdef|");
  free(s), free(n), free(z);
}

TEST(Str, ParseFindAndSort) {
  std::string many;
  for (int i = 0; i < 1000; ++i) many += "w" + std::to_string(i) + (i % 2 ? " " : "\t");
  std::vector<char> buf(many.begin(), many.end());
  buf.push_back(0);
  char** words = STR_parse(buf.data());
  int n = 0;
  while (words[n]) ++n;
  EXPECT_EQ(n, 1000);
  EXPECT_STREQ(words[999], "w999");
  EXPECT_GE(words[0], buf.data());  // pointers into the text
  free(words);
  char empty[] = "";
  char** none = STR_parse(empty);
  EXPECT_EQ(none[0], nullptr);
  free(none);
  std::vector<std::string> src;
  for (int i = 0; i < 500; ++i) src.push_back(std::to_string((i * 7919) % 1000));
  std::vector<char*> ptrs;
  for (auto& s : src) ptrs.push_back(s.data());
  ptrs.push_back(nullptr);
  EXPECT_EQ(STR_find_string(ptrs.data(), src[3].c_str()), &ptrs[3]);
  EXPECT_EQ(STR_find_string(ptrs.data(), "kiwi"), nullptr);
  STR_sort(ptrs.data());
  std::vector<std::string> sorted = src;
  std::sort(sorted.begin(), sorted.end());
  for (size_t i = 0; i < sorted.size(); ++i) ASSERT_EQ(std::string(ptrs[i]), sorted[i]) << i;
  EXPECT_EQ(ptrs[500], nullptr);
}
