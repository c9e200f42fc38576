// Foundation: opening, wrapping and closing FL stream records.
#include <cstdlib>
#include <cstring>
#include <new>

#include "foundation/fl_impl.h"
#include "foundation/status.h"

using vora::fl::Stream;

namespace {

bool endsWith(const std::string& s, const char* suffix) {
  size_t n = strlen(suffix);
  return s.size() > n && s.compare(s.size() - n, n, suffix) == 0;
}

// Opens the stream a name stands for. Compressed files (".gz") are read and written through
// gzip as filters, so that compressed images are transparent to every reader.
std::unique_ptr<Stream> openByName(const char* name, bool writing, int& err) {
  std::string n = name;
  if (n == "-") return vora::fl::openStdio(writing);
  if (n.rfind("pipe:", 0) == 0) return vora::fl::openPipe(n.substr(5), writing, err);
  std::string path = n;
  if (!writing) {
    const char* found = FLfindfile(name);
    if (found) path = found;
  }
  std::unique_ptr<Stream> s = vora::fl::openFile(path.c_str(), writing, err);
  if (s && endsWith(n, ".gz"))
    return vora::fl::wrapFilter(writing ? "gzip -c" : "gzip -dc", writing, s, {}, err);
  return s;
}

bool isWriteMode(const char* mode) { return mode && (strchr(mode, 'w') || strchr(mode, 'a')); }

void attach(FLfile* f, std::unique_ptr<Stream> s, const char* name, bool writing) {
  FLstreamImpl* impl = f->impl;
  impl->stream = std::move(s);
  impl->name = name ? name : "";
  impl->writing = writing;
  impl->pos = 0;
  impl->rpos = impl->rlen = 0;
  impl->readError = false;
  impl->ps = {};
  impl->lastid = 0;
  impl->wbuf.clear();
  impl->wbase = 0;
  impl->ctx.clear();
  f->flags = impl->stream->kind() | (writing ? FL_WRITE : FL_READ);
}

}  // namespace

extern "C" {

FLfile* FLsopen(const char* name, const char* mode, size_t recsize) {
  if (!name || recsize < sizeof(FLfile)) {
    vora::toFlerrno(FL_ESTATE);
    return nullptr;
  }
  bool writing = isWriteMode(mode);
  int err = 0;
  std::unique_ptr<Stream> s = openByName(name, writing, err);
  if (!s) {
    vora::toFlerrno(err);
    return nullptr;
  }
  FLfile* f = static_cast<FLfile*>(calloc(1, recsize));
  FLstreamImpl* impl = f ? new (std::nothrow) FLstreamImpl : nullptr;
  if (!impl) {
    free(f);
    vora::toFlerrno(FL_ENOMEM);
    return nullptr;
  }
  f->impl = impl;
  f->recsize = unsigned(recsize);
  attach(f, std::move(s), name, writing);
  return f;
}

FLfile* FLopen(const char* name, const char* mode) { return FLsopen(name, mode, sizeof(FLfile)); }

FLfile* FLreopen(const char* name, const char* mode, FLfile* f) {
  if (!f) return FLopen(name, mode);
  bool writing = isWriteMode(mode);
  if (f->impl->stream) {
    if (f->impl->writing) FLflushBuffer(f);
    f->impl->stream->close();
    f->impl->stream.reset();
  }
  int err = 0;
  std::unique_ptr<Stream> s = name ? openByName(name, writing, err) : nullptr;
  if (!s) {
    FLclose(f);
    vora::toFlerrno(name ? err : FL_ESTATE);
    return nullptr;
  }
  attach(f, std::move(s), name, writing);
  return f;
}

FLfile* FLfilter(const char* command, const char* mode, FLfile* f) {
  if (!f || !command || !f->impl->stream) {
    vora::toFlerrno(FL_ESTATE);
    return nullptr;
  }
  FLstreamImpl* impl = f->impl;
  bool writing = isWriteMode(mode);
  std::vector<uint8_t> leftover;
  if (!writing)  // bytes buffered or pushed back are the command's first input
    leftover.assign(impl->rbuf.begin() + long(impl->rpos), impl->rbuf.begin() + long(impl->rlen));
  else if (FLflushBuffer(f) != 0)
    return nullptr;
  int err = 0;
  std::unique_ptr<Stream> s =
      vora::fl::wrapFilter(command, writing, impl->stream, std::move(leftover), err);
  if (!s) {
    vora::toFlerrno(err);
    return nullptr;
  }
  std::string name = impl->name;
  attach(f, std::move(s), name.c_str(), writing);
  impl->filteredOutput = writing;
  return f;
}

int FLclose(FLfile* f) {
  if (!f) return 0;
  FLstreamImpl* impl = f->impl;
  int rc = 0;
  if (impl->stream && impl->writing) {
    // Complete whatever is still open, innermost first, so the file is well formed.
    while (!impl->ctx.empty()) {
      const FLstreamImpl::Ctx& c = impl->ctx.back();
      int r = c.group ? FLendwgroup(f) : c.bchunk ? FLendwbchunk(f, 0) : FLendput(f);
      if (r && !rc) rc = r;
      if (r) impl->ctx.clear();
    }
    int r = FLflushBuffer(f);
    if (r && !rc) rc = r;
  }
  if (impl->stream) {
    int r = impl->stream->close();
    if (r && !rc) rc = r;
  }
  if (f->release) f->release(f);
  delete impl;
  free(f);
  if (rc) vora::toFlerrno(rc);
  return rc;
}

const char* FLname(FLfile* f) { return f ? f->impl->name.c_str() : ""; }

}  // extern "C"
