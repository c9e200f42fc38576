// Foundation: writing FL streams. Sizes are back-patched in the
// buffer or, for seekable files, in the file; streams that cannot seek keep the outermost open
// group in memory until it ends.
#include <cstring>

#include "foundation/byteorder.h"
#include "foundation/fl_impl.h"
#include "foundation/status.h"

using Ctx = FLstreamImpl::Ctx;

namespace {

constexpr size_t kFlushAt = 1 << 20;
constexpr uint32_t kTopAlign = 2;

bool writable(FLfile* f) {
  if (f && f->impl->writing && f->impl->stream) return true;
  vora::toFlerrno(FL_EMODE);
  return false;
}

// A write may only go where a group is open (or at the top level), not into a reserved chunk.
bool canNest(FLstreamImpl* impl) { return impl->ctx.empty() || impl->ctx.back().entered; }

void emit(FLstreamImpl* impl, const void* data, size_t n) {
  const uint8_t* p = static_cast<const uint8_t*>(data);
  impl->wbuf.insert(impl->wbuf.end(), p, p + n);
  impl->pos += int64_t(n);
}

void emit32(FLstreamImpl* impl, uint32_t v) {
  uint8_t b[4];
  vora::putBe32(b, v);
  emit(impl, b, 4);
}

void emitPad(FLstreamImpl* impl, int64_t size, uint32_t align) {
  static const uint8_t zeros[8] = {};
  uint32_t pad = align > 1 ? uint32_t((align - uint64_t(size) % align) % align) : 0;
  emit(impl, zeros, pad);
}

// Writes the 32-bit size word at stream offset at.
int patch32(FLstreamImpl* impl, int64_t at, uint32_t v) {
  uint8_t b[4];
  vora::putBe32(b, v);
  if (at >= impl->wbase && at + 4 <= impl->wbase + int64_t(impl->wbuf.size())) {
    memcpy(impl->wbuf.data() + (at - impl->wbase), b, 4);
    return 0;
  }
  if (impl->seekable() && impl->stream->writeAt(b, 4, at)) return 0;
  return vora::toFlerrno(FL_EWRITE);
}

// Sends the buffer when allowed: seekable streams any time, others only outside every group.
int send(FLstreamImpl* impl, bool force) {
  if (impl->wbuf.empty()) return 0;
  if (!impl->ctx.empty() && impl->ctx.back().bchunk) return 0;
  if (!force && impl->wbuf.size() < kFlushAt) return 0;
  if (!impl->seekable() && !impl->ctx.empty()) return 0;
  if (!impl->stream->write(impl->wbuf.data(), impl->wbuf.size())) {
    vora::fl::setOsError(errno);
    return vora::toFlerrno(FL_EWRITE);
  }
  impl->wbase += int64_t(impl->wbuf.size());
  impl->wbuf.clear();
  return 0;
}

uint32_t enclosingAlign(FLstreamImpl* impl) {
  return impl->ctx.empty() ? kTopAlign : impl->ctx.back().align;
}

}  // namespace

extern "C" {

int FLbgnwgroup(FLfile* f, FLid id, FLid type) {
  if (!writable(f)) return flerrno;
  FLstreamImpl* impl = f->impl;
  uint32_t align = vora::fl::alignOf(id);
  if (!align || !canNest(impl)) return vora::toFlerrno(FL_ESTATE);
  emit32(impl, id);
  emit32(impl, 0);
  Ctx c;
  c.id = id;
  c.type = type;
  c.start = impl->pos;
  c.align = align;
  c.group = c.entered = true;
  emit32(impl, type);
  impl->ctx.push_back(c);
  return send(impl, false);
}

int FLendwgroup(FLfile* f) {
  if (!writable(f)) return flerrno;
  FLstreamImpl* impl = f->impl;
  if (impl->ctx.empty() || !impl->ctx.back().entered) return vora::toFlerrno(FL_ESTATE);
  Ctx c = impl->ctx.back();
  int64_t size = impl->pos - c.start;
  int r = patch32(impl, c.start - 4, uint32_t(size));
  if (r) return r;
  impl->ctx.pop_back();
  emitPad(impl, size, enclosingAlign(impl));
  return send(impl, impl->ctx.empty());
}

int FLbgnwchunk(FLfile* f, FLid id) {
  if (!writable(f)) return flerrno;
  FLstreamImpl* impl = f->impl;
  if (!canNest(impl)) return vora::toFlerrno(FL_ESTATE);
  emit32(impl, id);
  emit32(impl, 0);
  Ctx c;
  c.id = id;
  c.start = impl->pos;
  c.align = enclosingAlign(impl);
  impl->ctx.push_back(c);
  return 0;
}

int FLput(FLfile* f, const void* data, size_t n) {
  if (!writable(f)) return flerrno;
  FLstreamImpl* impl = f->impl;
  if (impl->ctx.empty() || impl->ctx.back().group || impl->ctx.back().bchunk)
    return vora::toFlerrno(FL_ESTATE);
  if (uint64_t(impl->pos - impl->ctx.back().start) + n > 0x7fffffffu) return vora::toFlerrno(FL_ESIZE);
  emit(impl, data, n);
  return send(impl, false);
}

int FLendput(FLfile* f) {
  if (!writable(f)) return flerrno;
  FLstreamImpl* impl = f->impl;
  if (impl->ctx.empty() || impl->ctx.back().group || impl->ctx.back().bchunk)
    return vora::toFlerrno(FL_ESTATE);
  Ctx c = impl->ctx.back();
  int64_t size = impl->pos - c.start;
  int r = patch32(impl, c.start - 4, uint32_t(size));
  if (r) return r;
  impl->ctx.pop_back();
  emitPad(impl, size, c.align);
  return send(impl, false);
}

void* FLbgnwbchunk(FLfile* f, FLid id, uint32_t size) {
  if (!writable(f)) return nullptr;
  FLstreamImpl* impl = f->impl;
  if (!canNest(impl) || size > 0x7fffffffu) {
    vora::toFlerrno(FL_ESTATE);
    return nullptr;
  }
  emit32(impl, id);
  emit32(impl, size);
  Ctx c;
  c.id = id;
  c.start = impl->pos;
  c.align = enclosingAlign(impl);
  c.bchunk = true;
  c.reserved = size;
  size_t at = impl->wbuf.size();
  try {
    impl->wbuf.resize(at + size);
  } catch (...) {
    vora::toFlerrno(FL_ENOMEM);
    return nullptr;
  }
  impl->ctx.push_back(c);
  return impl->wbuf.data() + at;
}

int FLendwbchunk(FLfile* f, uint32_t n) {
  if (!writable(f)) return flerrno;
  FLstreamImpl* impl = f->impl;
  if (impl->ctx.empty() || !impl->ctx.back().bchunk) return vora::toFlerrno(FL_ESTATE);
  Ctx c = impl->ctx.back();
  if (n > c.reserved) return vora::toFlerrno(FL_ESIZE);
  // The reserved bytes sit at the end of the buffer, right after the chunk header.
  size_t at = impl->wbuf.size() - c.reserved;
  impl->wbuf.resize(at + n);
  impl->pos += n;
  impl->ctx.pop_back();
  int r = patch32(impl, c.start - 4, n);
  if (r) return r;
  emitPad(impl, n, c.align);
  return send(impl, false);
}

int FLputchunk(FLfile* f, FLid id, uint32_t size, const void* data) {
  int r = FLbgnwchunk(f, id);
  if (!r && size) r = FLput(f, data, size);
  if (!r) r = FLendput(f);
  return r;
}

int FLflush(FLfile* f) {
  if (!f) return FL_ESTATE;
  if (!f->impl->writing) return 0;
  return send(f->impl, true);
}

int FLflushBuffer(FLfile* f) { return FLflush(f); }

int64_t FLtell(FLfile* f) { return f ? f->impl->pos : -1; }

int FLseek(FLfile* f, int64_t pos) {
  if (!f || pos < 0) return FL_ESTATE;
  FLstreamImpl* impl = f->impl;
  if (!impl->seekable()) return vora::toFlerrno(FL_ESEEK);
  if (impl->writing) {
    int r = send(impl, true);
    if (r) return r;
    if (!impl->stream->seek(pos)) return vora::toFlerrno(FL_ESEEK);
    impl->wbase = impl->pos = pos;
    return 0;
  }
  if (!impl->stream->seek(pos)) return vora::toFlerrno(FL_ESEEK);
  impl->rpos = impl->rlen = 0;
  impl->pos = pos;
  return 0;
}

}  // extern "C"
