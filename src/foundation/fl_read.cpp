// Foundation: reading FL streams: buffering, push-back, chunks,
// groups and the form parse. Every size read is checked against its group and the file.
#include <algorithm>
#include <cstring>

#include "foundation/byteorder.h"
#include "foundation/fl_impl.h"
#include "foundation/status.h"

using vora::be32;

using Ctx = FLstreamImpl::Ctx;

namespace {

constexpr size_t kBufSize = 1 << 16;
constexpr size_t kViewMax = 1 << 20;  // FLgetview: larger reads are copied (FLget)
constexpr uint32_t kTopAlign = 2;

bool isUnknownSize(uint32_t size) { return size >= 0x80000000u && size <= 0x80000002u; }

// Reads up to n bytes from the buffer and the stream; short only at the end of data or on error
// (impl->readError then says which).
int64_t rawRead(FLstreamImpl* impl, void* out, size_t n) {
  uint8_t* dst = static_cast<uint8_t*>(out);
  size_t done = 0;
  size_t buffered = impl->rlen - impl->rpos;
  if (buffered) {
    size_t k = std::min(buffered, n);
    memcpy(dst, impl->rbuf.data() + impl->rpos, k);
    impl->rpos += k;
    done = k;
  }
  while (done < n && impl->stream) {
    size_t want = n - done;
    if (want >= kBufSize) {  // large reads go straight to the caller's memory
      long r = impl->stream->read(dst + done, want);
      if (r < 0) impl->readError = true;
      if (r <= 0) break;
      done += size_t(r);
      continue;
    }
    if (impl->rbuf.size() < kBufSize) impl->rbuf.resize(kBufSize);
    long r = impl->stream->read(impl->rbuf.data(), kBufSize);
    if (r < 0) impl->readError = true;
    if (r <= 0) {
      impl->rpos = impl->rlen = 0;
      break;
    }
    impl->rpos = 0;
    impl->rlen = size_t(r);
    size_t k = std::min(size_t(r), want);
    memcpy(dst + done, impl->rbuf.data(), k);
    impl->rpos = k;
    done += k;
  }
  impl->pos += int64_t(done);
  return int64_t(done);
}

// Moves n bytes on; false when the data ends first.
bool skip(FLstreamImpl* impl, int64_t n) {
  if (n <= 0) return true;
  size_t buffered = impl->rlen - impl->rpos;
  size_t k = size_t(std::min<int64_t>(int64_t(buffered), n));
  impl->rpos += k;
  impl->pos += int64_t(k);
  n -= int64_t(k);
  if (n == 0) return true;
  int64_t total = impl->stream ? impl->stream->size() : -1;
  if (impl->seekable() && total >= 0) {
    // For seekable files the logical position is the file offset (nothing is pushed back
    // before a filter takes the stream over).
    if (impl->pos + n > total) return false;
    if (!impl->stream->seek(impl->pos + n)) return false;
    impl->pos += n;
    return true;
  }
  uint8_t scratch[4096];
  while (n > 0) {
    int64_t r = rawRead(impl, scratch, size_t(std::min<int64_t>(n, sizeof scratch)));
    if (r <= 0) return false;
    n -= r;
  }
  return true;
}

uint32_t padOf(int64_t size, uint32_t align) {
  return align > 1 ? uint32_t((align - uint64_t(size) % align) % align) : 0;
}

// The innermost entered group, or null at the top level.
Ctx* openGroup(FLstreamImpl* impl) {
  return impl->ctx.empty() ? nullptr : &impl->ctx.back();
}

void pushBack(FLstreamImpl* impl, const void* data, size_t n) {
  if (n == 0) return;
  if (impl->rpos >= n) {
    impl->rpos -= n;
  } else {
    size_t left = impl->rlen - impl->rpos;
    std::vector<uint8_t> nb(std::max(n + left, kBufSize));
    memcpy(nb.data() + n, impl->rbuf.data() + impl->rpos, left);
    impl->rbuf.swap(nb);
    impl->rpos = 0;
    impl->rlen = n + left;
  }
  memcpy(impl->rbuf.data() + impl->rpos, data, n);
  impl->pos -= int64_t(n);
  if (impl->pos < 0) impl->pos = 0;
}

// Skips the padding after an item that ended at impl->pos, without passing the end of the
// enclosing group; a missing pad byte at the end of data is tolerated. Pad bytes are zero and ids
// are printable, so non-zero "padding" is the next header of a writer that left the padding out
// (OpenImageIO does after raw tiles): those bytes are put back.
void skipPad(FLstreamImpl* impl, int64_t size, uint32_t align) {
  int64_t pad = padOf(size, align);
  const Ctx* g = openGroup(impl);
  if (g && g->end >= 0) pad = std::min(pad, g->end - impl->pos);
  if (pad <= 0) return;
  uint8_t b[8];
  int64_t got = rawRead(impl, b, size_t(pad));
  for (int64_t i = 0; i < got; ++i) {
    if (b[i] != 0) {
      pushBack(impl, b, size_t(got));
      return;
    }
  }
}

// Reads the next item header inside the open group (or at the top level) and validates it.
// On success pushes an unentered context. Structural failures do not touch flerrno.
int beginItem(FLfile* f, FLid* idOut, uint32_t* sizeOut) {
  FLstreamImpl* impl = f->impl;
  Ctx* g = openGroup(impl);
  if (g && !(g->group && g->entered)) return FL_ESTATE;
  if (g && g->end >= 0 && impl->pos >= g->end) return FL_END;
  if (impl->ctx.size() >= FL_MAXDEPTH) return FL_EDEPTH;
  uint8_t hdr[8];
  int64_t got = rawRead(impl, hdr, 8);
  if (impl->readError) {
    vora::toFlerrno(FL_EREAD);
    return FL_EREAD;
  }
  if (got >= 4) impl->lastid = be32(hdr);
  if (got == 0 && (!g || g->end < 0)) return FL_END;  // end of data: top level or streamed group
  if (got < 8) return FL_ESIZE;
  FLid id = be32(hdr);
  uint32_t size = be32(hdr + 4);
  if (g && g->end >= 0 && impl->pos > g->end) return FL_ESIZE;
  uint32_t align = vora::fl::alignOf(id);
  if (g && g->end < 0 && id == FL_ID('G', 'E', 'N', 'D')) {
    // End of a group of unknown size; older writers give GEND the size 0x80000000.
    if (!isUnknownSize(size) && !skip(impl, size)) return FL_ESIZE;
    g->end = impl->pos;
    return FL_END;
  }
  Ctx c;
  c.id = id;
  c.start = impl->pos;
  c.group = align != 0;
  c.align = c.group ? align : (g ? g->align : kTopAlign);
  if (isUnknownSize(size)) {
    if (!c.group) return FL_ESIZE;
    c.end = -1;
  } else {
    c.end = impl->pos + int64_t(size);
    if (c.group && size < 4) return FL_ESIZE;
    // A chunk whose size counts padding its writer left out (OpenImageIO's last raw tile) runs
    // past its group by less than the group's alignment: it holds what is there.
    if (!c.group && g && g->end >= 0 && c.end > g->end && c.end - g->end < int64_t(g->align))
      c.end = g->end;
    if (g && g->end >= 0 && c.end > g->end) return FL_ESIZE;
    int64_t total = impl->stream ? impl->stream->size() : -1;
    if (total >= 0 && c.end > total) return FL_ESIZE;
  }
  if (c.group && g && c.align < g->align) return FL_EALIGN;
  impl->ctx.push_back(c);
  *idOut = id;
  *sizeOut = size;
  return 0;
}

// Enters the group just begun: reads its type word.
int enterGroup(FLfile* f, FLid* type) {
  FLstreamImpl* impl = f->impl;
  Ctx& c = impl->ctx.back();
  uint8_t t[4];
  if (rawRead(impl, t, 4) != 4) return impl->readError ? FL_EREAD : FL_ESIZE;
  c.type = be32(t);
  c.entered = true;
  if (type) *type = c.type;
  return 0;
}

// Skips the rest of the innermost context (chunk, unentered or entered group) and pops it.
int leaveItem(FLfile* f) {
  FLstreamImpl* impl = f->impl;
  Ctx c = impl->ctx.back();
  if (c.group && c.end < 0) {
    // Unknown size: walk the children up to GEND.
    if (!c.entered && enterGroup(f, nullptr) != 0) {
      impl->ctx.pop_back();
      return FL_ESIZE;
    }
    FLid id;
    uint32_t size;
    int r;
    while ((r = beginItem(f, &id, &size)) == 0) {
      if ((r = leaveItem(f)) != 0) break;
    }
    impl->ctx.pop_back();
    return r == FL_END ? 0 : r;
  }
  impl->ctx.pop_back();
  if (!skip(impl, c.end - impl->pos)) return impl->readError ? FL_EREAD : FL_ESIZE;
  skipPad(impl, c.end - c.start, c.group ? (openGroup(impl) ? openGroup(impl)->align : kTopAlign)
                                         : c.align);
  return 0;
}

}  // namespace

namespace vora::fl {
uint32_t alignOf(FLid id) {
  char a = char(id >> 24), b = char(id >> 16), c = char(id >> 8), d = char(id);
  bool group = (a == 'F' && b == 'O' && c == 'R') || (a == 'C' && b == 'A' && c == 'T') ||
               (a == 'L' && b == 'I' && c == 'S') || (a == 'P' && b == 'R' && c == 'O');
  if (!group) return 0;
  return d == '4' ? 4 : d == '8' ? 8 : 2;
}
}  // namespace vora::fl

extern "C" {

int FLisgroup(FLid id) { return int(vora::fl::alignOf(id)); }

void FLsetform(FLfile* f, FLformcheck check) {
  if (f) f->impl->form = check;
}

const FLparsestate* FLgetparsestate(FLfile* f) { return f ? &f->impl->ps : nullptr; }

int FLparse(FLfile* f) {
  if (!f || f->impl->writing) return vora::toFlerrno(FL_EMODE);
  FLstreamImpl* impl = f->impl;
  impl->ps = {};
  for (;;) {
    Ctx* g = openGroup(impl);
    if (g && !(g->group && g->entered)) return vora::toFlerrno(FL_ESTATE);
    if (g && g->end >= 0 && impl->pos >= g->end) {
      int r = leaveItem(f);  // this group is done: carry on in its parent
      if (r) return vora::toFlerrno(r);
      continue;
    }
    if (impl->ctx.size() >= FL_MAXDEPTH) return vora::toFlerrno(FL_EDEPTH);
    uint8_t hdr[8];
    int64_t got = rawRead(impl, hdr, 8);
    if (impl->readError) return vora::toFlerrno(FL_EREAD);
    if (got < 8) {
      if (!g) {
        // Not even one header: hand back what there was, untouched.
        FLunread(f, hdr, size_t(got));
        return got == 0 ? FL_NOFORM : FL_NOTIFF;
      }
      if (got == 0 && g->end < 0) {  // a streamed group cut short: treat as ended
        impl->ctx.pop_back();
        continue;
      }
      return vora::toFlerrno(FL_ESIZE);
    }
    FLid id = be32(hdr);
    uint32_t size = be32(hdr + 4);
    impl->ps.flags = FL_PS_HEADER;
    impl->ps.id = id;
    impl->ps.size = size;
    impl->lastid = id;
    uint32_t align = vora::fl::alignOf(id);
    if (!align) {
      if (!g) return FL_NOTIFF;
      if (g->end < 0 && id == FL_ID('G', 'E', 'N', 'D')) {
        if (!isUnknownSize(size) && !skip(impl, size)) return vora::toFlerrno(FL_ESIZE);
        impl->ctx.pop_back();
        continue;
      }
      // A chunk between groups (a PROP's or a foreign form's): skip it.
      FLunread(f, hdr, 8);
      FLid cid;
      uint32_t csize;
      int r = beginItem(f, &cid, &csize);
      if (r == 0) r = leaveItem(f);
      if (r) return vora::toFlerrno((r == FL_END ? FL_ESIZE : r));
      continue;
    }
    // A group: validate it like any item, then read its type and ask the form check.
    FLunread(f, hdr, 8);
    FLid gid;
    uint32_t gsize;
    int r = beginItem(f, &gid, &gsize);
    if (r == 0) r = enterGroup(f, &impl->ps.type);
    if (r) return vora::toFlerrno((r == FL_END ? FL_ESIZE : r));
    bool form = hdr[0] == 'F';
    impl->ps.flags = FL_PS_HEADER | FL_PS_TYPE | (form ? FL_PS_FORM : 0u);
    int verdict = impl->form ? impl->form(f, id, impl->ps.type) : (form ? FL_ACCEPT : 1);
    if (verdict == 1) continue;
    if (verdict == 0) {
      if (form || hdr[0] == 'P') {
        if ((r = leaveItem(f)) != 0) return vora::toFlerrno(r);
      }
      continue;
    }
    return verdict;
  }
}

int FLbgnget(FLfile* f, FLid* id, uint32_t* size) {
  if (!f || f->impl->writing) return vora::toFlerrno(FL_EMODE);
  FLid i = 0;
  uint32_t s = 0;
  int r = beginItem(f, &i, &s);
  if (r == 0) {
    if (id) *id = i;
    if (size) *size = s;
  }
  return r;
}

FLid FLlastid(FLfile* f) { return f ? f->impl->lastid : 0; }

int FLunget(FLfile* f) {
  FLstreamImpl* impl = f ? f->impl : nullptr;
  if (!impl || impl->ctx.empty()) return FL_ESTATE;
  Ctx c = impl->ctx.back();
  if (c.entered || impl->pos != c.start) return FL_ESTATE;
  uint32_t size = c.end < 0 ? 0x80000000u : uint32_t(c.end - c.start);
  uint8_t hdr[8] = {uint8_t(c.id >> 24), uint8_t(c.id >> 16), uint8_t(c.id >> 8), uint8_t(c.id),
                    uint8_t(size >> 24), uint8_t(size >> 16), uint8_t(size >> 8), uint8_t(size)};
  impl->ctx.pop_back();
  return FLunread(f, hdr, 8);
}

int64_t FLget(FLfile* f, void* buf, size_t n) {
  FLstreamImpl* impl = f ? f->impl : nullptr;
  if (!impl || impl->writing || impl->ctx.empty() || impl->ctx.back().entered) {
    vora::toFlerrno(FL_ESTATE);
    return -1;
  }
  const Ctx& c = impl->ctx.back();
  if (c.end >= 0) n = size_t(std::min<int64_t>(int64_t(n), std::max<int64_t>(0, c.end - impl->pos)));
  int64_t got = rawRead(impl, buf, n);
  if (impl->readError) {
    vora::toFlerrno(FL_EREAD);
    return -1;
  }
  return got;
}

const void* FLgetview(FLfile* f, size_t n) {
  FLstreamImpl* impl = f ? f->impl : nullptr;
  if (!impl || impl->writing || impl->ctx.empty() || impl->ctx.back().entered) {
    vora::toFlerrno(FL_ESTATE);
    return nullptr;
  }
  flerrno = 0;
  const Ctx& c = impl->ctx.back();
  if (n > kViewMax || (c.end >= 0 && int64_t(n) > c.end - impl->pos)) return nullptr;
  if (impl->rlen - impl->rpos < n) {  // what is buffered moves to the front; reads fill the rest
    const size_t want = std::max(kBufSize, 4 * n);  // a few views a fill: little is moved
    if (impl->rbuf.size() < want) impl->rbuf.resize(want);
    memmove(impl->rbuf.data(), impl->rbuf.data() + impl->rpos, impl->rlen - impl->rpos);
    impl->rlen -= impl->rpos, impl->rpos = 0;
    while (impl->rlen < n && impl->stream) {
      const long r = impl->stream->read(impl->rbuf.data() + impl->rlen, impl->rbuf.size() - impl->rlen);
      if (r < 0) impl->readError = true, vora::toFlerrno(FL_EREAD);
      if (r <= 0) return nullptr;
      impl->rlen += size_t(r);
    }
    if (impl->rlen < n) return nullptr;
  }
  const uint8_t* p = impl->rbuf.data() + impl->rpos;
  impl->rpos += n;
  impl->pos += int64_t(n);
  return p;
}

uint32_t FLgetleft(FLfile* f) {
  FLstreamImpl* impl = f ? f->impl : nullptr;
  if (!impl || impl->ctx.empty() || impl->ctx.back().end < 0) return 0;
  return uint32_t(std::max<int64_t>(0, impl->ctx.back().end - impl->pos));
}

int FLendget(FLfile* f) {
  FLstreamImpl* impl = f ? f->impl : nullptr;
  if (!impl || impl->writing || impl->ctx.empty() || impl->ctx.back().entered) return FL_ESTATE;
  return leaveItem(f);
}

int FLbgnrgroup(FLfile* f, FLid* type) {
  FLstreamImpl* impl = f ? f->impl : nullptr;
  if (!impl || impl->writing || impl->ctx.empty()) return FL_ESTATE;
  Ctx& c = impl->ctx.back();
  if (!c.group || c.entered || impl->pos != c.start) return FL_ESTATE;
  return enterGroup(f, type);
}

int FLendrgroup(FLfile* f) {
  FLstreamImpl* impl = f ? f->impl : nullptr;
  if (!impl || impl->writing) return FL_ESTATE;
  while (!impl->ctx.empty() && !impl->ctx.back().entered) {
    int r = leaveItem(f);
    if (r) return r;
  }
  if (impl->ctx.empty()) return FL_ESTATE;
  return leaveItem(f);
}

int FLunread(FLfile* f, const void* data, size_t n) {
  if (!f) return FL_ESTATE;
  pushBack(f->impl, data, n);
  return 0;
}

int64_t FLread(FLfile* f, void* buf, size_t n) {
  if (!f || f->impl->writing) {
    vora::toFlerrno(FL_EMODE);
    return -1;
  }
  int64_t got = rawRead(f->impl, buf, n);
  if (f->impl->readError) {
    vora::toFlerrno(FL_EREAD);
    return -1;
  }
  return got;
}

int64_t FLfilesize(FLfile* f) {
  return f && f->impl->stream && f->impl->seekable() ? f->impl->stream->size() : -1;
}

int FLdepth(FLfile* f) { return f ? int(f->impl->ctx.size()) : 0; }

}  // extern "C"
