// Movies: what an AVI file holds, from its RIFF structure alone. Every size is checked against
// the list that holds it and every index entry against the file before it is believed.
#include <vora/movie.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include <vora/foundation/fl.h>
#include <vora/ilib.h>

#include "foundation/byteorder.h"
#include "foundation/status.h"
#include "platform/platform.h"

namespace {

using vora::le32;

std::string fcc(const uint8_t* p) {
  std::string s;
  for (int i = 0; i < 4; ++i) s += (p[i] >= 32 && p[i] < 127) ? char(p[i]) : '?';
  return s;
}

struct Reader {
  int fd = -1;
  uint64_t size = 0;
  TaviFileInfo& info;
  vora::Status status;  // the first failure
  uint64_t firstMovi = 0;

  bool read(uint64_t at, void* buf, size_t n) {
    return at + n <= size && vora::platform::readAt(fd, buf, n, int64_t(at)) == long(n);
  }
  bool fail(const std::string& w, int code = IL_EDAMAGED) {
    if (status.ok()) status = vora::Status(code, w);
    return false;
  }
  // The chunks of [from, end): for each, its id, where its data starts and its size.
  template <class F>
  bool chunks(uint64_t from, uint64_t end, const char* what, F&& each) {
    for (uint64_t at = from; at + 8 <= end;) {
      uint8_t h[8];
      if (!read(at, h, 8)) return fail("cannot read at offset " + std::to_string(at));
      uint64_t n = le32(h + 4);
      if (at + 8 + n > end)
        return fail("chunk '" + fcc(h) + "' at offset " + std::to_string(at) + " runs past the end of " + what);
      if (!each(h, at + 8, n)) return false;
      at += 8 + n + (n & 1);
    }
    return true;
  }
  std::vector<uint8_t> data(uint64_t at, uint64_t n, size_t most) {
    std::vector<uint8_t> b(size_t(std::min<uint64_t>(n, most)));
    if (!read(at, b.data(), b.size())) b.clear();
    return b;
  }

  bool streamList(uint64_t from, uint64_t end) {
    if (info.streams.size() == 100) return fail("more than 100 stream lists");
    TaviStreamInfo s;
    bool ok = chunks(from, end, "its stream list", [&](const uint8_t* h, uint64_t at, uint64_t n) {
      std::vector<uint8_t> b = data(at, n, 4096);
      if (!memcmp(h, "strh", 4) && b.size() >= 36) {
        s.type = fcc(b.data()), s.handler = fcc(b.data() + 4);
        s.scale = le32(b.data() + 20), s.rate = le32(b.data() + 24);
        if (s.frames == 0) s.frames = le32(b.data() + 32);
      } else if (!memcmp(h, "strf", 4) && b.size() >= 20 && s.type == Tstring("vids")) {
        s.width = le32(b.data() + 4), s.height = uint32_t(std::abs(int32_t(le32(b.data() + 8))));
        s.bitCount = vora::le16(b.data() + 14);
        uint32_t c = le32(b.data() + 16);
        s.codec = c == 0 ? Tstring("RGB") : Tstring(fcc(b.data() + 16));
      } else if (!memcmp(h, "strn", 4)) {
        std::string name(b.begin(), b.end());
        s.name = name.substr(0, name.find('\0'));
      } else if (!memcmp(h, "indx", 4) && b.size() >= 24) {
        info.superIndex = true;
        uint32_t entries = le32(b.data() + 4), perEntry = vora::le16(b.data()) * 4u;
        if (perEntry < 16 || 24 + uint64_t(entries) * perEntry > n)
          return fail("the super index holds more entries than it has room for");
        uint8_t e[16];
        for (uint32_t i = 0; i < entries && b[3] == 0; ++i) {  // an index of indexes
          if (!read(at + 24 + uint64_t(i) * perEntry, e, 16)) return fail("cannot read the super index");
          if (vora::le64(e) + le32(e + 8) > size)
            return fail("super index entry " + std::to_string(i) + " points past the end of the file");
        }
      }
      return true;
    });
    info.streams.push_back(s);
    return ok;
  }

  bool headerList(uint64_t from, uint64_t end) {
    return chunks(from, end, "the header list", [&](const uint8_t* h, uint64_t at, uint64_t n) {
      uint8_t type[4];
      if (!memcmp(h, "LIST", 4) && n >= 4 && read(at, type, 4)) {
        if (!memcmp(type, "strl", 4)) return streamList(at + 4, at + n);
        if (!memcmp(type, "odml", 4))
          return chunks(at + 4, at + n, "the OpenDML list", [&](const uint8_t* c, uint64_t p, uint64_t m) {
            uint8_t t[4];
            if (!memcmp(c, "dmlh", 4) && m >= 4 && read(p, t, 4) && !info.streams.empty()) info.streams[0].frames = le32(t);
            return true;
          });
      }
      return true;
    });
  }

  // 'rec ' lists group a moment's chunks; they are not nested in files, so deeper ones are
  // passed over rather than followed (a file of nested lists must not exhaust the stack).
  bool movi(uint64_t from, uint64_t end, int depth = 0) {
    return chunks(from, end, "its movi list", [&](const uint8_t* h, uint64_t at, uint64_t n) {
      uint8_t type[4];
      if (!memcmp(h, "LIST", 4) && n >= 4 && depth < 2 && read(at, type, 4) && !memcmp(type, "rec ", 4))
        return movi(at + 4, at + n, depth + 1);
      if (isdigit(h[0]) && isdigit(h[1])) ++info.chunks;
      return true;
    });
  }

  bool oldIndex(uint64_t at, uint64_t n) {
    info.oldIndex = true;
    std::vector<uint8_t> e(16);
    for (uint64_t i = 0; i + 16 <= n; i += 16) {
      if (!read(at + i, e.data(), 16)) return fail("cannot read the index");
      uint64_t off = le32(e.data() + 8), len = le32(e.data() + 12);
      bool relative = firstMovi + off + 8 + len <= size, absolute = off + 8 + len <= size;
      if (!relative && !absolute) return fail("index entry " + std::to_string(i / 16) + " points past the end of the file");
    }
    return true;
  }

  bool form(uint64_t from, uint64_t end) {
    return chunks(from, end, "its RIFF form", [&](const uint8_t* h, uint64_t at, uint64_t n) {
      uint8_t type[4] = {};
      if (!memcmp(h, "LIST", 4) && n >= 4 && read(at, type, 4)) {
        if (!memcmp(type, "hdrl", 4)) return headerList(at + 4, at + n);
        if (!memcmp(type, "movi", 4)) {
          if (!firstMovi) firstMovi = at;
          return movi(at + 4, at + n);
        }
      }
      if (!memcmp(h, "idx1", 4)) return oldIndex(at, n);
      return true;
    });
  }
};

}  // namespace

bool aviFileInfo(const TfilePath& path, TaviFileInfo& info, Tstring& why) {
  info = TaviFileInfo();
  int fd = vora::platform::openRead(path.asChar());
  if (fd < 0) {
    const vora::Status s(FL_EOPEN, std::string("cannot be opened: ") + strerror(errno));
    why = s.text();
    vora::keepStatus(s);
    return false;
  }
  int64_t size = vora::platform::fileSize(fd);
  Reader r{fd, uint64_t(size > 0 ? size : 0), info, {}, 0};
  uint8_t h[12];
  bool ok = r.read(0, h, 12) && !memcmp(h, "RIFF", 4) && !memcmp(h + 8, "AVI ", 4);
  if (!ok) r.fail("not an AVI file", IL_ENOTIMAGE);
  // The forms one after another: "AVI " first, then "AVIX" extensions.
  for (uint64_t at = 0; ok && at + 12 <= r.size;) {
    if (!r.read(at, h, 12)) break;
    uint64_t n = le32(h + 4);
    if (memcmp(h, "RIFF", 4) != 0 || (at > 0 && memcmp(h + 8, "AVIX", 4) != 0)) break;  // trailing bytes
    if (at + 8 + n > r.size) {
      ok = r.fail("the RIFF form at offset " + std::to_string(at) + " runs past the end of the file (truncated?)");
      break;
    }
    ++info.forms;
    ok = r.form(at + 12, at + 8 + n);
    at += 8 + n + (n & 1);
  }
  if (ok && info.streams.empty()) ok = r.fail("no stream header");
  vora::platform::closeFd(fd);
  why = ok ? "" : r.status.text();
  if (!ok) vora::keepStatus(r.status);
  return ok;
}
