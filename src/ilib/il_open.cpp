// Opening, reopening, next image and closing, with the input and output conversion
// programs.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <vora/foundation/env.h>

#include "ilib/il_handle.h"
#include "platform/platform.h"

namespace pf = vora::platform;

using namespace vora::il;

namespace {

constexpr const char* kDefaultConverter = "rastx -s";

// ILinfilter / ILoutfilter: private copies; "set" distinguishes "none given" from "".
struct Command {
  std::string text;
  bool set = false;
};
Command gInFilter, gOutFilter;

bool isPipeName(const char* name) { return name && strncmp(name, "pipe:", 5) == 0; }
bool isReadMode(const char* mode) { return mode && mode[0] == 'r'; }

ILimage* failClosed(Handle* h, int code) {
  FLclose(I(h));
  fail(code);
  return nullptr;
}

// Everything the parse consumed of the last group header goes back in file order.
void pushBackParsed(Handle* h) {
  const FLparsestate* ps = FLgetparsestate(I(h));
  if (!(ps->flags & FL_PS_HEADER)) return;
  uint8_t b[12];
  uint32_t words[3] = {ps->id, ps->size, ps->type};
  size_t n = (ps->flags & FL_PS_TYPE) ? 12 : 8;
  for (size_t w = 0; w < n / 4; ++w)
    for (int k = 0; k < 4; ++k) b[w * 4 + size_t(k)] = uint8_t(words[w] >> (24 - 8 * k));
  FLunread(I(h), b, n);
}

ILimage* inputConversion(Handle* h, const char* name, const char* mode);

ILimage* openProcedure(Handle* h, const char* name, const char* mode) {
  h->state &= ~0x7FFu;
  flerrno = 0;
  if (!isReadMode(mode)) {
    ILinitfields(I(h));
    if ((!isPipeName(name) || (ilconfig & IL_CFG_PIPEOUTCVT)) && !(ilconfig & IL_CFG_NOOUTCVT)) {
      const char* cmd = gOutFilter.set ? gOutFilter.text.c_str() : VoraGetEnv("ILOCVT");
      if (cmd && *cmd && !FLfilter(cmd, mode, I(h))) return failClosed(h, IL_ENOCONVERTER);
    }
    int r = FLbgnwgroup(I(h), kFOR4, kCIMG);
    if (r) return failClosed(h, r);
    h->hdr = ILheader{384, 288, 1, 1, IL_COLOR | IL_ALPHA, 1, 0, IL_RLE, 0, 0};
    h->version = kVersionWritten;
    h->resolution = 72.0f;
    h->state &= ~uint32_t(IL_ST_READ);
    // Streams of this kind (pipes that cannot seek) default to no compression.
    uint32_t k = h->fl.flags;
    if ((k & FL_PIPE) && !(k & FL_SEEKABLE) && !(ilconfig & IL_CFG_PIPERLE))
      h->hdr.compress = IL_NONE;
    return I(h);
  }
  FLsetform(I(h), formCheck);
  int r = FLparse(I(h));
  if (r == FL_ACCEPT) {
    accept(h);
    return I(h);
  }
  if (r == FL_NOTIFF || r == FL_NOFORM) return inputConversion(h, name, mode);
  return failClosed(h, flerrno ? IL_EDAMAGED : IL_ENOTIMAGE);
}

ILimage* inputConversion(Handle* h, const char* name, const char* mode) {
  for (int attempt = 1; attempt <= 2; ++attempt) {
    std::string cmd = kDefaultConverter;
    bool isDefault = true;
    if (attempt == 1) {
      const char* given = gInFilter.set ? gInFilter.text.c_str() : VoraGetEnv("ILICVT");
      if (given && *given) cmd = given, isDefault = false;
    }
    if (attempt == 1 && isDefault && !isPipeName(name)) {
      const char* dot = strchr(name, '.');
      if ((h->fl.flags & (FL_PIPE | FL_STDIO | FL_FILTER)) && dot) {
        cmd += "f ";
        cmd += dot + 1;  // deliberately everything after the first '.' (a.tif.gz: "tif.gz")
      } else {
        std::string pipe = "pipe:" + cmd + " " + name + " stdout";
        ILimage* r = ILreopen(pipe.c_str(), mode, I(h));
        if (!r) {
          if (flerrno == FL_ENOCMD) fail(IL_ENOCONVERTER);
          return nullptr;
        }
        H(r)->state = IL_ST_READ;
        return r;
      }
    }
    pushBackParsed(h);
    if (!FLfilter(cmd.c_str(), mode, I(h))) return failClosed(h, flerrno == FL_ENOCMD ? IL_ENOCONVERTER : IL_ECONVERT);
    if (attempt == 2) break;
    flerrno = 0;
    int r = FLparse(I(h));
    if (r == FL_ACCEPT) {
      accept(h);
      return I(h);
    }
    if (r != FL_NOTIFF && r != FL_NOFORM) return failClosed(h, flerrno ? IL_EDAMAGED : IL_ENOTIMAGE);
  }
  h->state = IL_ST_READ;
  return I(h);
}

}  // namespace

namespace vora::il {

int formCheck(FLfile* f, FLid group, FLid type) {
  if (type != kCIMG) return 0;
  if (group == kFORM) return FL_EFORM;
  return (FLgetparsestate(f)->flags & FL_PS_FORM) ? FL_ACCEPT : 1;
}

void accept(Handle* h) {
  FLsetform(I(h), nullptr);
  h->state = IL_ST_READ;
  h->cimgDepth = FLdepth(I(h));
  clearTexts(h);
  releasePixels(h);  // the pixel state of a previous image
  h->done = h->inband = 0;
}

void clearTexts(Handle* h) {
  free(h->auth);
  free(h->date);
  h->auth = h->date = nullptr;
  h->authlen = h->datelen = 0;
}

void releaseHandle(FLfile* f) {
  Handle* h = H(f);
  clearFields(h);
  clearTexts(h);
  releasePixels(h);
  dropZoom(h);
}

}  // namespace vora::il

extern "C" {

int isFileIff(const char* path) {
  char id[4];
  return pf::readStart(path, id, 4) && FLisgroup(FL_ID(id[0], id[1], id[2], id[3])) != 0;
}

ILimage* ILopen(const char* name, const char* mode) {
  if (!name || !mode) {
    fail(FL_ESTATE);
    return nullptr;
  }
  const char* previous = FLswappath(ILgetpath());
  FLfile* f = FLsopen(name, mode, sizeof(Handle));
  ILimage* result = nullptr;
  if (f) {
    f->release = releaseHandle;
    FLinitlist(&H(f)->fields);
    result = openProcedure(H(f), name, mode);
    if (result) FLinitlist(&H(result)->lines);
  }
  FLswappath(previous);
  return result;
}

ILimage* ILreopen(const char* name, const char* mode, ILimage* handle) {
  if (!handle) return ILopen(name, mode);
  if (!name || !mode) {
    ILclose(handle);
    fail(FL_ESTATE);
    return nullptr;
  }
  Handle* h = H(handle);
  dropZoom(h);
  const char* previous = FLswappath(ILgetpath());
  FLfile* f = FLreopen(name, mode, handle);
  ILimage* result = f ? openProcedure(H(f), name, mode) : nullptr;
  FLswappath(previous);
  return result;
}

int ILnext(ILimage* handle) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  flerrno = 0;
  h->state &= ~0x7FFu;
  dropZoom(h);
  if (!(h->fl.flags & FL_READ)) {
    // End whatever is open (chunks first), closing the current CIMG group.
    while (FLdepth(handle) > 0) {
      int r = FLendwgroup(handle);
      if (r == FL_ESTATE) r = FLendput(handle);
      if (r == FL_ESTATE) r = FLendwbchunk(handle, 0);
      if (r) return fail(r);
    }
    int r = FLbgnwgroup(handle, kFOR4, kCIMG);
    return r ? fail(r) : 0;
  }
  while (h->cimgDepth > 0 && FLdepth(handle) >= h->cimgDepth) {
    if (FLendrgroup(handle) != 0) break;
  }
  clearFields(h);
  clearTexts(h);
  FLsetform(handle, formCheck);
  int r = FLparse(handle);
  if (r == FL_ACCEPT) {
    accept(h);
    return 0;
  }
  FLsetform(handle, nullptr);
  h->cimgDepth = 0;
  return fail(FLdepth(handle) > 0 ? IL_EDAMAGED : IL_ENOTIMAGE);
}

int ILclose(ILimage* handle) {
  if (!handle) return 0;
  dropZoom(H(handle));
  bool filteredOutput = (handle->flags & FL_FILTER) && (handle->flags & FL_WRITE);
  int r = FLclose(handle);
  if (r == FL_ECHILD && filteredOutput) r = IL_ENOCONVERTER;
  return r ? fail(r) : 0;
}

void ILinfilter(const char* command) {
  gInFilter.set = command != nullptr;
  gInFilter.text = command ? command : "";
}

void ILoutfilter(const char* command) {
  gOutFilter.set = command != nullptr;
  gOutFilter.text = command ? command : "";
}

}  // extern "C"
