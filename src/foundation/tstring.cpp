// Foundation: Tstring.
#include <vora/foundation/tstring.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cctype>
#include <climits>
#include <cstring>

Tstring Tstring::tFormat(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  va_list copy;
  va_copy(copy, ap);
  int n = vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string out(n > 0 ? size_t(n) : 0, '\0');
  if (n > 0) vsnprintf(out.data(), size_t(n) + 1, format, ap);
  va_end(ap);
  return Tstring(std::move(out));
}

Tstring Tstring::toLower() const {
  std::string t = s_;
  for (char& c : t)
    if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
  return t;
}

Tstring Tstring::extension() const {
  size_t slash = s_.rfind('/');
  size_t dot = s_.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return Tstring();
  return Tstring(s_.substr(dot + 1));
}

std::vector<Tstring> Tstring::split(const char* seps) const {
  std::vector<Tstring> out;
  size_t start = 0;
  for (;;) {
    size_t end = s_.find_first_of(seps ? seps : "", start);
    out.emplace_back(s_.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) return out;
    start = end + 1;
  }
}

int Tstring::substitute(const char* from, const char* to) {
  if (!from || !*from) return 0;
  std::string repl = to ? to : "";
  size_t n = strlen(from), pos = 0;
  int count = 0;
  while ((pos = s_.find(from, pos)) != std::string::npos) {
    s_.replace(pos, n, repl);
    pos += repl.size();
    ++count;
  }
  return count;
}

bool Tstring::isInt32(int32_t* value) const {
  if (s_.empty()) return false;
  const char* b = s_.c_str();
  char* end = nullptr;
  errno = 0;
  long long v = strtoll(b, &end, 10);
  if (errno || *end || end == b || isspace(static_cast<unsigned char>(*b)) || v < INT32_MIN ||
      v > INT32_MAX)
    return false;
  if (value) *value = int32_t(v);
  return true;
}
