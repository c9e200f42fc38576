// Foundation: Tstring::matchesRegexp on RE2, chosen for its
// linear-time matching without recursion (long file names cannot exhaust the stack or backtrack
// exponentially), with capture groups and bounded repetition as the sequence matcher needs.
#include <re2/re2.h>

#include <memory>
#include <string>
#include <unordered_map>

#include <vora/foundation/tstring.h>

namespace {

// Compiled expressions by pattern text; a few hundred distinct patterns at most in practice, so
// the cache is simply emptied when it grows past that.
const RE2* compiled(const std::string& pattern) {
  thread_local std::unordered_map<std::string, std::unique_ptr<RE2>> cache;
  auto it = cache.find(pattern);
  if (it != cache.end()) return it->second.get();
  if (cache.size() > 512) cache.clear();
  RE2::Options opt;
  opt.set_log_errors(false);
  auto re = std::make_unique<RE2>(pattern, opt);
  const RE2* r = re.get();
  cache.emplace(pattern, std::move(re));
  return r;
}

}  // namespace

int Tstring::matchesRegexp(const Tstring& pattern, std::vector<Tstring>* groups, int maxGroups) const {
  const RE2* re = compiled(pattern.str());
  if (!re->ok()) return 0;
  int n = re->NumberOfCapturingGroups();
  if (!groups) return RE2::FullMatch(s_, *re) ? (n > 0 ? n : 1) : 0;
  int want = n < maxGroups ? n : maxGroups;
  std::vector<re2::StringPiece> sub(size_t(want) + 1);
  if (!re->Match(s_, 0, s_.size(), RE2::ANCHOR_BOTH, sub.data(), want + 1)) return 0;
  groups->clear();
  for (int i = 1; i <= want; ++i) groups->emplace_back(std::string(sub[size_t(i)].data(), sub[size_t(i)].size()));
  return n > 0 ? n : 1;
}
