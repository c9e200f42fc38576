// Foundation: Tstring, a small text class over std::string, and
// TstringArray.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <vora/export.h>

class VORA_API Tstring {
 public:
  Tstring() = default;
  Tstring(const char* s) : s_(s ? s : "") {}  // implicit, so that names pass as text
  Tstring(std::string s) : s_(std::move(s)) {}

  // printf-style formatting into a new string.
  static Tstring tFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

  const char* asChar() const { return s_.c_str(); }
  operator const char*() const { return s_.c_str(); }
  const std::string& str() const { return s_; }
  size_t length() const { return s_.size(); }
  bool isEmpty() const { return s_.empty(); }

  // The text with ASCII letters lower-cased (names and extensions compared without case).
  Tstring toLower() const;
  // Text after the last '.' of the last path component, or "".
  Tstring extension() const;
  // Pieces between separators (any character of seps); empty pieces are kept.
  std::vector<Tstring> split(const char* seps) const;
  // Every occurrence of from replaced by to; returns the number of replacements.
  int substitute(const char* from, const char* to);
  // True when the whole text is a decimal 32-bit integer (optional sign); value receives it.
  bool isInt32(int32_t* value = nullptr) const;
  // Matches the whole text against a regular expression (RE2 syntax: linear time, no backtracking,
  // so very long texts are safe). Returns the number of capture groups of the expression when it
  // matches (an expression without groups answers 1), 0 when it does not or is invalid. groups,
  // when given, receives up to maxGroups captured texts. Compiled expressions are cached per thread.
  int matchesRegexp(const Tstring& pattern, std::vector<Tstring>* groups = nullptr,
                    int maxGroups = 9) const;

  Tstring& operator+=(const Tstring& o) {
    s_ += o.s_;
    return *this;
  }
  friend Tstring operator+(Tstring a, const Tstring& b) { return a += b; }
  friend bool operator==(const Tstring& a, const Tstring& b) { return a.s_ == b.s_; }
  friend bool operator<(const Tstring& a, const Tstring& b) { return a.s_ < b.s_; }

 private:
  std::string s_;
};

using TstringArray = std::vector<Tstring>;
