// String utilities and the shared-string table.
#include <vora/str.h>

#include <cctype>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// Shared-string table: 1023 buckets of singly linked entries, new entries at the head.
constexpr unsigned kBuckets = 1023;
struct Shared {
  Shared* next;
  int32_t count;
  char* text;
};
Shared* gTable[kBuckets];  // zero-initialised before first use

bool isSpace(char c) { return isspace(static_cast<unsigned char>(c)) != 0; }

}  // namespace

extern "C" {

unsigned int STR_hash(const char* text, unsigned int m) {
  if (!text || !*text || m == 0) return 0;
  uint32_t h = 0;
  for (const char* p = text; *p; ++p) h = h * 33u + uint32_t(int32_t(static_cast<signed char>(*p)));
  return h % m;
}

char* STR_define(const char* text) {
  if (!text) return nullptr;
  unsigned b = STR_hash(text, kBuckets);
  for (Shared* e = gTable[b]; e; e = e->next) {
    if (strcmp(e->text, text) == 0) {
      ++e->count;
      return e->text;
    }
  }
  Shared* e = static_cast<Shared*>(malloc(sizeof(Shared)));
  char* copy = e ? strdup(text) : nullptr;
  if (!copy) {
    free(e);
    return nullptr;
  }
  *e = {gTable[b], 1, copy};
  gTable[b] = e;
  return copy;
}

int STR_undefine(const char* text) {
  if (!text) return 0;
  unsigned b = STR_hash(text, kBuckets);
  for (Shared** link = &gTable[b]; *link; link = &(*link)->next) {
    Shared* e = *link;
    if (strcmp(e->text, text) == 0) {
      if (--e->count <= 0) {
        *link = e->next;
        free(e->text);
        free(e);
      }
      break;
    }
  }
  return 0;
}

void STR_undefine_array(char** array) {
  if (!array) return;
  for (char** p = array; *p; ++p) STR_undefine(*p);
  free(array);
}

int STR_compare(const char* a, const char* b) {
  if (!a || !b) return int(int32_t(intptr_t(a) - intptr_t(b)));
  const signed char* x = reinterpret_cast<const signed char*>(a);
  const signed char* y = reinterpret_cast<const signed char*>(b);
  while (*x && *x == *y) ++x, ++y;
  return int(*x) - int(*y);
}

int STR_n_compare(const char* a, const char* b, int n) {
  if (!a || !b) return int(int32_t(intptr_t(a) - intptr_t(b)));
  const signed char* x = reinterpret_cast<const signed char*>(a);
  const signed char* y = reinterpret_cast<const signed char*>(b);
  // Deliberate: for n of 1 or less the first bytes are still compared.
  for (int i = 1; i < n && *x && *x == *y; ++i) ++x, ++y;
  return int(*x) - int(*y);
}

int STR_length(const char* text) { return text ? int(strlen(text)) : 0; }

char* STR_more(char* text, int n) {
  if (n < 0) n = 0;
  if (!text) {
    char* p = static_cast<char*>(malloc(size_t(n) + 1));
    if (p) p[0] = p[n] = 0;
    return p;
  }
  char* p = static_cast<char*>(realloc(text, size_t(n) + 1));
  if (p) p[n] = 0;
  return p;
}

char* STR_save(const char* text) { return strdup(text ? text : ""); }

char* STR_save_n(int count, ...) {
  va_list ap;
  size_t total = 0;
  va_start(ap, count);
  for (int i = 0; i < count; ++i) {
    const char* s = va_arg(ap, const char*);
    if (s) total += strlen(s);
  }
  va_end(ap);
  char* out = static_cast<char*>(malloc(total + 1));
  if (!out) return nullptr;
  char* p = out;
  va_start(ap, count);
  for (int i = 0; i < count; ++i) {
    const char* s = va_arg(ap, const char*);
    if (!s) continue;
    size_t n = strlen(s);
    memcpy(p, s, n);
    p += n;
  }
  va_end(ap);
  *p = 0;
  return out;
}

char* STR_extension(const char* text) {
  const char* dot = text ? strrchr(text, '.') : nullptr;
  return dot ? const_cast<char*>(dot + 1) : nullptr;
}

char* STR_root(char* text) {
  char* dot = text ? strrchr(text, '.') : nullptr;
  if (dot) *dot = 0;
  return text;
}

char* STR_tail(const char* text) {
  if (!text) return nullptr;
  const char* slash = strrchr(text, '/');
  return const_cast<char*>(slash ? slash + 1 : text);
}

char* STR_head(char* text) {
  char* slash = text ? strrchr(text, '/') : nullptr;
  if (!slash) return nullptr;
  while (slash > text && slash[-1] == '/') --slash;  // a run of '/' is cut at its first one
  if (slash == text) ++slash;                        // keep the root "/"
  *slash = 0;
  return text;
}

char* STR_skip_space(const char* text) {
  if (!text) return nullptr;
  while (*text && isSpace(*text)) ++text;
  return const_cast<char*>(text);
}

char* STR_find_space(const char* text) {
  if (!text || !*text) return const_cast<char*>(text);
  const char* p = text + 1;
  while (*p && !isSpace(*p)) ++p;
  return const_cast<char*>(p);
}

int STR_is_numeric(const char* text) {
  if (!text || !*text) return 0;
  for (; *text; ++text)
    if (*text < '0' || *text > '9') return 0;
  return 1;
}

char** STR_parse(char* text) {
  size_t cap = 8, n = 0;  // grows by doubling
  char** arr = static_cast<char**>(malloc(cap * sizeof(char*)));
  if (!arr) return nullptr;
  char* p = text;
  while (p && *p) {
    while (*p && isSpace(*p)) ++p;
    if (!*p) break;
    if (n + 2 > cap) {
      char** bigger = static_cast<char**>(realloc(arr, cap * 2 * sizeof(char*)));
      if (!bigger) {
        free(arr);
        return nullptr;
      }
      arr = bigger;
      cap *= 2;
    }
    arr[n++] = p;
    while (*p && !isSpace(*p)) ++p;
    if (*p) *p++ = 0;
  }
  arr[n] = nullptr;
  return arr;
}

char** STR_find_string(char** array, const char* text) {
  if (!array) return nullptr;
  for (char** p = array; *p; ++p)
    if (STR_compare(*p, text) == 0) return p;
  return nullptr;
}

void STR_sort(char** array) {
  if (!array) return;
  size_t n = 0;
  while (array[n]) ++n;
  if (n < 2) return;
  auto sift = [array](size_t root, size_t end) {
    while (2 * root + 1 < end) {
      size_t child = 2 * root + 1;
      if (child + 1 < end && STR_compare(array[child], array[child + 1]) < 0) ++child;
      if (STR_compare(array[root], array[child]) >= 0) return;
      char* t = array[root];
      array[root] = array[child];
      array[child] = t;
      root = child;
    }
  };
  for (size_t start = n / 2; start-- > 0;) sift(start, n);
  for (size_t end = n - 1; end > 0; --end) {
    char* t = array[0];
    array[0] = array[end];
    array[end] = t;
    sift(0, end);
  }
}

}  // extern "C"
