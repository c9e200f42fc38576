// vimg: a minimal JSON writer for --json reports (one document per command).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace vimg {

class Json {
 public:
  Json& beginObject() { return open('{'); }
  Json& endObject() { return close('}'); }
  Json& beginArray() { return open('['); }
  Json& endArray() { return close(']'); }
  Json& key(const std::string& k) {
    comma();
    string(k);
    out_ += ':';
    afterKey_ = true;
    return *this;
  }
  Json& value(const std::string& s) { return raw(quoted(s)); }
  Json& value(const char* s) { return s ? value(std::string(s)) : raw("null"); }
  Json& value(int64_t v) { return raw(std::to_string(v)); }
  Json& value(uint32_t v) { return raw(std::to_string(v)); }
  Json& value(int v) { return raw(std::to_string(v)); }
  Json& value(bool v) { return raw(v ? "true" : "false"); }
  Json& value(double v) {
    char b[64];
    snprintf(b, sizeof b, "%.9g", v);
    return raw(b);
  }
  template <typename T>
  Json& field(const std::string& k, const T& v) {
    key(k);
    return value(v);
  }
  const std::string& str() const { return out_; }

  static std::string quoted(const std::string& s) {
    std::string o = "\"";
    for (unsigned char c : s) {
      switch (c) {
        case '"': o += "\\\""; break;
        case '\\': o += "\\\\"; break;
        case '\n': o += "\\n"; break;
        case '\r': o += "\\r"; break;
        case '\t': o += "\\t"; break;
        default:
          if (c < 0x20 || c >= 0x7f) {  // keep the document ASCII whatever the bytes are
            char b[8];
            snprintf(b, sizeof b, "\\u%04x", c);
            o += b;
          } else {
            o += char(c);
          }
      }
    }
    return o + "\"";
  }

 private:
  Json& open(char c) {
    comma();
    out_ += c;
    first_.push_back(true);
    return *this;
  }
  Json& close(char c) {
    out_ += c;
    first_.pop_back();
    return *this;
  }
  Json& raw(const std::string& s) {
    comma();
    out_ += s;
    return *this;
  }
  void string(const std::string& s) { out_ += quoted(s); }
  void comma() {
    if (afterKey_) {
      afterKey_ = false;
      return;
    }
    if (!first_.empty()) {
      if (!first_.back()) out_ += ',';
      first_.back() = false;
    }
  }
  std::string out_;
  std::vector<bool> first_;
  bool afterKey_ = false;
};

}  // namespace vimg
