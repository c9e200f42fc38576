// Part 1.6: string utilities.
#include <gtest/gtest.h>
#include <vora/str.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

// STR_hash("a", 1023) is 97; STR_hash("ab", 1023) is (97 * 33 + 98) mod 1023 = 230.
TEST(Str, HashOfAIs97AndOfAbIs230) {
  EXPECT_EQ(STR_hash("a", 1023), 97u);
  EXPECT_EQ(STR_hash("ab", 1023), 230u);
}

TEST(Str, HashNullOrEmptyIsZero) {
  EXPECT_EQ(STR_hash(nullptr, 1023), 0u);
  EXPECT_EQ(STR_hash("", 1023), 0u);
}

TEST(Str, HashTakesBytesAsSignedChars) {
  // 0xE9 as a signed char is -23: h = 97 * 33 - 23 = 3178, 3178 mod 1023 = 109.
  EXPECT_EQ(STR_hash("a\xE9", 1023), 109u);
  // Wraps in 32-bit unsigned arithmetic: long texts stay well defined.
  std::string longText(1000, 'z');
  uint32_t h = 0;
  for (char c : longText) h = h * 33u + uint32_t(c);
  EXPECT_EQ(STR_hash(longText.c_str(), 1023), h % 1023);
}

// STR_define twice of the same text returns the same pointer; one STR_undefine leaves
// it alive, the second frees it.
TEST(Str, DefineTwiceSamePointerUndefineTwiceFrees) {
  std::string text = "shared-edge-case-text";
  char* a = STR_define(text.c_str());
  char* b = STR_define(text.c_str());
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a, b);
  EXPECT_NE(a, text.c_str());  // a copy is stored
  EXPECT_EQ(STR_undefine(text.c_str()), 0);
  EXPECT_STREQ(a, "shared-edge-case-text");  // still alive: one reference left
  // A define now finds the same live entry.
  char* c = STR_define(text.c_str());
  EXPECT_EQ(c, a);
  EXPECT_EQ(STR_undefine(text.c_str()), 0);
  EXPECT_EQ(STR_undefine(text.c_str()), 0);  // freed now
  // After freeing, a new define stores a new entry with count 1 (one undefine frees it).
  char* d = STR_define(text.c_str());
  ASSERT_NE(d, nullptr);
  EXPECT_STREQ(d, text.c_str());
  EXPECT_EQ(STR_undefine(text.c_str()), 0);
}

TEST(Str, UndefineUnknownIsIgnored) {
  EXPECT_EQ(STR_undefine("never-defined-here"), 0);
  EXPECT_EQ(STR_undefine(nullptr), 0);
}

TEST(Str, UndefineArrayUndefinesEachAndFreesArray) {
  char** arr = static_cast<char**>(malloc(3 * sizeof(char*)));
  arr[0] = STR_define("arr-one");
  arr[1] = STR_define("arr-two");
  arr[2] = nullptr;
  char* keep = STR_define("arr-one");  // second reference survives the array
  STR_undefine_array(arr);
  EXPECT_STREQ(keep, "arr-one");
  EXPECT_EQ(STR_define("arr-one"), keep);
  STR_undefine("arr-one");
  STR_undefine("arr-one");
  STR_undefine_array(nullptr);
}

TEST(Str, CompareSignedBytesAndNulls) {
  EXPECT_EQ(STR_compare("abc", "abc"), 0);
  EXPECT_EQ(STR_compare("abd", "abc"), 1);
  EXPECT_EQ(STR_compare("ab", "abc"), -'c');
  EXPECT_LT(STR_compare("a\xE9", "a"), 0);  // 0xE9 is negative as a signed char
  EXPECT_EQ(STR_compare(nullptr, nullptr), 0);
  const char* s = "x";
  EXPECT_EQ(STR_compare(s, nullptr), int(int32_t(intptr_t(s))));
  EXPECT_EQ(STR_compare(nullptr, s), int(int32_t(-intptr_t(s))));
}

TEST(Str, NCompareAlwaysComparesOneByte) {
  EXPECT_EQ(STR_n_compare("abc", "abd", 2), 0);
  EXPECT_EQ(STR_n_compare("abc", "abd", 3), -1);
  EXPECT_EQ(STR_n_compare("xbc", "abd", 0), 'x' - 'a');  // deliberate: n <= 1 compares one
  EXPECT_EQ(STR_n_compare("xbc", "abd", -5), 'x' - 'a');
  EXPECT_EQ(STR_n_compare("abc", "abd", 1), 0);
}

TEST(Str, LengthMoreSave) {
  EXPECT_EQ(STR_length(nullptr), 0);
  EXPECT_EQ(STR_length("four"), 4);
  char* e = STR_more(nullptr, 5);
  ASSERT_NE(e, nullptr);
  EXPECT_STREQ(e, "");
  char* s = STR_save("hello world");
  s = STR_more(s, 5);
  EXPECT_STREQ(s, "hello");
  free(s);
  free(e);
  char* n = STR_save_n(3, "a", "bc", "def");
  EXPECT_STREQ(n, "abcdef");
  free(n);
  char* z = STR_save_n(0);
  EXPECT_STREQ(z, "");
  free(z);
  char* neg = STR_save_n(-2);
  EXPECT_STREQ(neg, "");
  free(neg);
}

// STR_extension of a name without '.' is null, STR_tail of a name without '/' is the
// name.
TEST(Str, ExtensionWithoutDotIsNullTailWithoutSlashIsName) {
  EXPECT_EQ(STR_extension("name"), nullptr);
  const char* n = "name";
  EXPECT_EQ(STR_tail(n), n);
}

TEST(Str, ExtensionRootTailHead) {
  EXPECT_STREQ(STR_extension("a/b.c/file.iff"), "iff");
  EXPECT_STREQ(STR_extension("dir.d/file"), "d/file");  // a '.' in a directory counts too
  char root[] = "shot.0001.iff";
  EXPECT_STREQ(STR_root(root), "shot.0001");
  EXPECT_STREQ(STR_tail("/a/b/c.iff"), "c.iff");
  char head[] = "/a/b/c.iff";
  EXPECT_STREQ(STR_head(head), "/a/b");
  char none[] = "file";
  EXPECT_EQ(STR_head(none), nullptr);
  char runs[] = "a//b";  // implementer's choice: a run of '/' is cut at its first one
  EXPECT_STREQ(STR_head(runs), "a");
  char rooted[] = "/file";
  EXPECT_STREQ(STR_head(rooted), "/");
}

TEST(Str, SkipAndFindSpace) {
  EXPECT_STREQ(STR_skip_space("  \t x y"), "x y");
  EXPECT_STREQ(STR_find_space("abc def"), " def");
  EXPECT_STREQ(STR_find_space(" abc def"), " def");  // the search starts after the first byte
  EXPECT_STREQ(STR_find_space("abc"), "");
  EXPECT_EQ(STR_find_space(nullptr), nullptr);
  const char* empty = "";
  EXPECT_EQ(STR_find_space(empty), empty);
}

// STR_is_numeric of an empty text is false.
TEST(Str, IsNumericOfEmptyIsFalse) {
  EXPECT_FALSE(STR_is_numeric(""));
  EXPECT_FALSE(STR_is_numeric(nullptr));
  EXPECT_TRUE(STR_is_numeric("0123"));
  EXPECT_FALSE(STR_is_numeric("12a"));
  EXPECT_FALSE(STR_is_numeric("-1"));
}

TEST(Str, ParseSplitsInPlace) {
  char text[] = "  one two\tthree\n";
  char** words = STR_parse(text);
  ASSERT_NE(words, nullptr);
  ASSERT_STREQ(words[0], "one");
  EXPECT_STREQ(words[1], "two");
  EXPECT_STREQ(words[2], "three");
  EXPECT_EQ(words[3], nullptr);
  EXPECT_GE(words[0], text);  // pointers into the text
  EXPECT_LT(words[0], text + sizeof text);
  free(words);
  char empty[] = "";
  char** none = STR_parse(empty);
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(none[0], nullptr);
  free(none);
  std::string many;
  for (int i = 0; i < 1000; ++i) many += "w" + std::to_string(i) + " ";
  std::vector<char> buf(many.begin(), many.end());
  buf.push_back(0);
  char** lots = STR_parse(buf.data());
  int n = 0;
  while (lots[n]) ++n;
  EXPECT_EQ(n, 1000);
  EXPECT_STREQ(lots[999], "w999");
  free(lots);
}

TEST(Str, FindStringAndSort) {
  char a[] = "pear", b[] = "apple", c[] = "fig", d[] = "apple";
  char* arr[] = {a, b, c, d, nullptr};
  EXPECT_EQ(STR_find_string(arr, "apple"), &arr[1]);
  EXPECT_EQ(STR_find_string(arr, "kiwi"), nullptr);
  STR_sort(arr);
  EXPECT_STREQ(arr[0], "apple");
  EXPECT_STREQ(arr[1], "apple");
  EXPECT_STREQ(arr[2], "fig");
  EXPECT_STREQ(arr[3], "pear");
  EXPECT_EQ(arr[4], nullptr);
  char* one[] = {a, nullptr};
  STR_sort(one);
  EXPECT_EQ(one[0], a);
  // A larger random set sorts like std::sort with STR_compare.
  std::vector<std::string> src;
  for (int i = 0; i < 500; ++i) src.push_back(std::to_string((i * 7919) % 1000));
  std::vector<char*> ptrs;
  for (auto& s : src) ptrs.push_back(s.data());
  ptrs.push_back(nullptr);
  STR_sort(ptrs.data());
  for (size_t i = 1; i + 1 < ptrs.size(); ++i) EXPECT_LE(STR_compare(ptrs[i - 1], ptrs[i]), 0);
}
