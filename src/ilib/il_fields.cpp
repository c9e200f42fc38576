// The optional fields (FLDS chunk) and the text chunks read after the header.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "foundation/byteorder.h"
#include "ilib/il_handle.h"

using namespace vora::il;

namespace {

bool hostIsLittleEndian() {
  const uint16_t one = 1;
  return *reinterpret_cast<const uint8_t*>(&one) == 1;
}

// Elements of 2, 4 or 8 bytes (the tag's low four bits) are big-endian in the file; the tag word
// itself stays in the writing machine's order (deliberate).
void swapElements(uint32_t tag, unsigned char* data, uint32_t count) {
  uint32_t width = tag & 0xF;
  if ((width != 2 && width != 4 && width != 8) || !hostIsLittleEndian()) return;
  for (uint32_t i = 0; i + width <= count; i += width)
    for (uint32_t a = i, b = i + width - 1; a < b; ++a, --b) {
      unsigned char t = data[a];
      data[a] = data[b];
      data[b] = t;
    }
}

Field* findField(Handle* h, uint32_t tag) {
  for (FLnode* n = h->fields.head; n; n = n->next)
    if (reinterpret_cast<Field*>(n)->tag == tag) return reinterpret_cast<Field*>(n);
  return nullptr;
}

// Reads the rest of the current chunk, growing only as data actually arrives (a lying size in a
// pipe cannot make us allocate more than was sent).
bool readChunk(ILimage* handle, uint32_t size, std::vector<unsigned char>& out) {
  out.clear();
  while (out.size() < size) {
    size_t step = size - out.size() < (1u << 20) ? size - out.size() : (1u << 20);
    size_t at = out.size();
    out.resize(at + step);
    int64_t got = FLget(handle, out.data() + at, step);
    if (got != int64_t(step)) return false;
  }
  return true;
}

int parseFields(Handle* h, const std::vector<unsigned char>& d) {
  size_t o = 0;
  while (o + 8 <= d.size()) {
    uint32_t tag;
    memcpy(&tag, d.data() + o, 4);
    uint32_t count = vora::be32(&d[o + 4]);
    if (tag == 0) return 0;
    o += 8;
    if (count > d.size() - o) return IL_EDAMAGED;  // the field runs past its chunk
    std::vector<unsigned char> data(d.begin() + long(o), d.begin() + long(o + count));
    swapElements(tag, data.data(), count);
    if (putField(h, tag, count, data.data()) != 0) return flerrno;
    o += (uint64_t(count) + 3) & ~uint64_t(3);
  }
  return 0;
}

void keepText(char** text, uint32_t* len, const std::vector<unsigned char>& d) {
  free(*text);
  *text = static_cast<char*>(malloc(d.size() + 1));
  *len = 0;
  if (!*text) return;
  if (!d.empty()) memcpy(*text, d.data(), d.size());
  (*text)[d.size()] = 0;
  *len = uint32_t(d.size());
}

}  // namespace

namespace vora::il {

int putField(Handle* h, uint32_t tag, uint32_t count, const void* data) {
  if (Field* old = findField(h, tag)) {
    FLremove(&h->fields, &old->node);
    free(old);
  }
  if (count == 0 || !data) return 0;
  Field* f = static_cast<Field*>(malloc(offsetof(Field, data) + count));
  if (!f) return fail(FL_ENOMEM);
  f->tag = tag;
  f->count = count;
  memcpy(f->data, data, count);
  FLaddtail(&h->fields, &f->node);
  return 0;
}

void clearFields(Handle* h) {
  while (h->fields.head) {
    FLnode* n = h->fields.head;
    FLremove(&h->fields, n);
    free(n);
  }
}

}  // namespace vora::il

extern "C" {

void ILinitfields(ILimage* handle) {
  if (handle) clearFields(H(handle));
}

int ILsetfield(ILimage* handle, uint32_t tag, int count, const void* data) {
  if (!handle) return fail(FL_ESTATE);
  if (H(handle)->state & IL_ST_HEADER) return fail(IL_EHEADERDONE);
  return putField(H(handle), tag, count > 0 ? uint32_t(count) : 0, data);
}

int ILgetfield(ILimage* handle, uint32_t tag, const void** data) {
  static const unsigned char empty[1] = {0};
  Field* f = handle ? findField(H(handle), tag) : nullptr;
  if (data) *data = f ? f->data : empty;
  return f ? int(f->count) : 0;
}

uint32_t ILfieldtag(ILimage* handle, int index) {
  if (!handle || index < 0) return 0;
  for (FLnode* n = H(handle)->fields.head; n; n = n->next)
    if (index-- == 0) return reinterpret_cast<Field*>(n)->tag;
  return 0;
}

// Reads the chunks between the header and the pixel data: FLDS gives the fields, AUTH and DATE
// are kept as texts, others are skipped; stops before the first group (the pixel data).
int ILreadfields(ILimage* handle) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  clearFields(h);
  clearTexts(h);
  std::vector<unsigned char> d;
  FLid id;
  uint32_t size;
  for (;;) {
    int r = FLbgnget(handle, &id, &size);
    if (r == FL_END) return 0;
    if (r) return fail(IL_EDAMAGED);
    if (FLisgroup(id)) return FLunget(handle) ? fail(IL_EDAMAGED) : 0;
    if (id == kFLDS || id == kAUTH || id == kDATE) {
      if (!readChunk(handle, size, d)) return fail(IL_EDAMAGED);
      if (id == kFLDS && (r = parseFields(h, d)) != 0) return fail(r);
      if (id == kAUTH) keepText(&h->auth, &h->authlen, d);
      if (id == kDATE) keepText(&h->date, &h->datelen, d);
    }
    if (FLendget(handle) != 0) return fail(IL_EDAMAGED);
  }
}

int ILwritefields(ILimage* handle) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (!h->fields.head) return 0;
  if (int r = FLbgnwchunk(handle, kFLDS)) return r;
  static const unsigned char zeros[8] = {};
  std::vector<unsigned char> data;
  for (FLnode* n = h->fields.head; n; n = n->next) {
    Field* f = reinterpret_cast<Field*>(n);
    unsigned char word[8];
    memcpy(word, &f->tag, 4);
    vora::putBe32(word + 4, f->count);
    data.assign(f->data, f->data + f->count);
    swapElements(f->tag, data.data(), f->count);
    if (int r = FLput(handle, word, 8)) return r;
    if (int r = FLput(handle, data.data(), data.size())) return r;
    if (int r = FLput(handle, zeros, (4 - f->count % 4) % 4)) return r;
  }
  if (int r = FLput(handle, zeros, 8)) return r;
  return FLendput(handle);
}

int ILcopyfields(ILimage* to, ILimage* from) {
  if (!to || !from) return fail(FL_ESTATE);
  if (H(to)->state & IL_ST_HEADER) return fail(IL_EHEADERDONE);
  if (!ILgetheader(from)) return flerrno;
  for (FLnode* n = H(from)->fields.head; n; n = n->next) {
    Field* f = reinterpret_cast<Field*>(n);
    if (f->tag & 0x10)
      if (int r = putField(H(to), f->tag, f->count, f->data)) return r;
  }
  return 0;
}

int ILgetchunktext(ILimage* handle, FLid id, const char** text) {
  Handle* h = handle ? H(handle) : nullptr;
  const char* t = nullptr;
  uint32_t n = 0;
  if (h && id == kAUTH) t = h->auth, n = h->authlen;
  if (h && id == kDATE) t = h->date, n = h->datelen;
  if (text) *text = t ? t : "";
  return int(n);
}

}  // extern "C"
