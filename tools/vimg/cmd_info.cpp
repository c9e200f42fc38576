// vimg info: the header, fields, texts and (--chunks) chunk tree of native images; SGI images
// and AVI movies by their headers.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <vora/foundation/fl.h>
#include <vora/ilib.h>
#include <vora/movie.h>
#include <vora/sgi.h>

#include "commands.h"
#include "image_io.h"
#include "json.h"

namespace vimg {

namespace {

struct Options {
  std::vector<std::string> files;
  bool chunks = false;
  bool tiles = false;
  bool json = false;
};

std::string idText(uint32_t id) {
  std::string s;
  for (int shift = 24; shift >= 0; shift -= 8) {
    char c = char(id >> shift);
    s += isprint(static_cast<unsigned char>(c)) ? c : '?';
  }
  return s;
}

// A field's bytes as text when they are printable, else as hex (the first 32 bytes).
std::string preview(const unsigned char* d, int n) {
  bool text = n > 0;
  for (int i = 0; i < n; ++i)
    if (!isprint(d[i])) text = false;
  if (text) return std::string(reinterpret_cast<const char*>(d), size_t(n));
  std::string h;
  char b[4];
  for (int i = 0; i < n && i < 32; ++i) {
    snprintf(b, sizeof b, "%02x", d[i]);
    h += b;
  }
  return n > 32 ? h + "..." : h;
}

std::string compressText(int code) {
  const char* n = ILcompressname(code);
  return n ? n : "unknown (" + std::to_string(code) + ")";
}

// One chunk or group of the tree; pixel chunks (RGBA, ZBUF) also carry their tile rectangle.
struct Node {
  int64_t offset;
  std::string id, type;
  uint32_t size;
  std::vector<Node> children;
  int rect[4] = {-1, -1, -1, -1};
};

// Walks every chunk and group from the current position; stops quietly at a malformed item and
// reports it through problem.
void walk(FLfile* f, std::vector<Node>& out, std::string& problem, int depth) {
  for (;;) {
    int64_t at = FLtell(f);
    FLid id;
    uint32_t size;
    int r = FLbgnget(f, &id, &size);
    if (r == FL_END) return;
    if (r) {
      problem = "at offset " + std::to_string(at) + ": " + FLstrerror(r);
      return;
    }
    Node n{at, idText(id), "", size, {}};
    if (FLisgroup(id)) {
      FLid type;
      if (FLbgnrgroup(f, &type) != 0) {
        problem = "at offset " + std::to_string(at) + ": group without a type";
        out.push_back(n);
        return;
      }
      n.type = idText(type);
      walk(f, n.children, problem, depth + 1);
      out.push_back(n);
      if (!problem.empty() || FLendrgroup(f) != 0) return;
    } else {
      uint8_t r[8];
      if ((n.id == "RGBA" || n.id == "ZBUF") && size >= 8 && FLget(f, r, 8) == 8)
        for (int i = 0; i < 4; ++i) n.rect[i] = r[2 * i] << 8 | r[2 * i + 1];
      out.push_back(n);
      if (FLendget(f) != 0) {
        problem = "at offset " + std::to_string(at) + ": chunk runs past the data";
        return;
      }
    }
  }
}

void printTree(const std::vector<Node>& nodes, int depth) {
  for (const Node& n : nodes) {
    printf("  %*s%-4s %10lld  size %u%s%s\n", depth * 2, "", n.id.c_str(), (long long)n.offset,
           n.size, n.type.empty() ? "" : "  type ", n.type.c_str());
    printTree(n.children, depth + 1);
  }
}

// The pixel chunks of the tree in file order.
void collectTiles(const std::vector<Node>& nodes, std::vector<const Node*>& out) {
  for (const Node& n : nodes) {
    if (n.rect[0] >= 0) out.push_back(&n);
    collectTiles(n.children, out);
  }
}

void jsonTree(Json& j, const std::vector<Node>& nodes) {
  j.beginArray();
  for (const Node& n : nodes) {
    j.beginObject().field("id", n.id).field("offset", n.offset).field("size", n.size);
    if (!n.type.empty()) {
      j.field("type", n.type).key("children");
      jsonTree(j, n.children);
    }
    j.endObject();
  }
  j.endArray();
}

struct FieldInfo {
  std::string tag;
  uint32_t tagValue;
  int count;
  std::string value;
};

struct SgiInfo {
  bool is = false;
  IMAGE h{};
};

struct Report {
  std::string file;
  std::string error;
  int code = 0;
  SgiInfo sgi;
  bool avi = false;
  TaviFileInfo aviInfo;
  ILheader hdr{};
  uint32_t version = 0;
  float dpi = 0;
  std::vector<FieldInfo> fields;
  std::string auth, date;
  std::vector<Node> tree;
  std::string treeProblem;
};

Report inspect(const std::string& file, bool chunks) {  // chunks: walk the tree too
  Report rep;
  rep.file = file;
  if (isAviFile(file)) {
    Tstring why;
    rep.avi = true;
    if (!aviFileInfo(file, rep.aviInfo, why)) rep.error = why.str(), rep.code = -1;
    return rep;
  }
  if (isFileSgi(file.c_str())) {
    IMAGE* img = iopen(file.c_str(), "r", 0, 0, 0, 0, 0);
    if (!img) {
      rep.error = "not a readable SGI image";
      rep.code = -1;
      return rep;
    }
    rep.sgi.is = true;
    rep.sgi.h = *img;
    iclose(img);
    return rep;
  }
  ILimage* img = ILopen(file.c_str(), "r");
  const ILheader* hdr = img ? ILgetheader(img) : nullptr;
  if (!hdr) {
    rep.code = flerrno;
    rep.error = FLstrerror(rep.code) + stoppedAt(img);
    if (rep.code == FL_EOPEN) rep.error += std::string(": ") + strerror(FLoserror());
    if (rep.code == IL_ENOCONVERTER || rep.code == IL_ECONVERT)
      rep.error = "not a native image, and no conversion program turned it into one (set ILICVT "
                  "to a command that writes a native image to its standard output)";
    if (img) ILclose(img);
    return rep;
  }
  rep.hdr = *hdr;
  rep.version = ILgetversion(img);
  rep.dpi = ILgetresolution(img);
  for (int i = 0; uint32_t tag = ILfieldtag(img, i); ++i) {
    const void* d;
    int n = ILgetfield(img, tag, &d);
    rep.fields.push_back({idText(tag), tag, n, preview(static_cast<const unsigned char*>(d), n)});
  }
  const char* t;
  int n = ILgetchunktext(img, FL_ID('A', 'U', 'T', 'H'), &t);
  rep.auth.assign(t, size_t(n));
  n = ILgetchunktext(img, FL_ID('D', 'A', 'T', 'E'), &t);
  rep.date.assign(t, size_t(n));
  ILclose(img);
  if (chunks) {
    FLfile* f = FLopen(file.c_str(), "r");
    if (f) {
      walk(f, rep.tree, rep.treeProblem, 0);
      FLclose(f);
    }
  }
  return rep;
}

// Packed bytes of a tile: its chunk without the rectangle; "raw" when it is the raw size.
std::string tileText(const Node& n, const ILheader& h) {
  int w = n.rect[2] - n.rect[0] + 1, ht = n.rect[3] - n.rect[1] + 1;
  int slots = n.id == "ZBUF" ? 1 : ILtypechannels(h.type);
  uint64_t raw = uint64_t(w) * ht * slots * (n.id == "ZBUF" ? 4 : h.bytes);
  uint32_t packed = n.size - 8;
  return std::to_string(packed) + (packed >= raw ? " bytes (raw)" : " bytes");
}

std::string sgiName(const IMAGE& h) { return std::string(h.name, strnlen(h.name, sizeof h.name)); }

void printSgi(const Report& r) {
  const IMAGE& h = r.sgi.h;
  printf("%s\n", r.file.c_str());
  printf("  format       SGI image\n");
  printf("  size         %u x %u, %u channel%s\n", h.xsize, h.ysize, h.zsize, h.zsize == 1 ? "" : "s");
  printf("  bytes        %u per channel\n", SGI_BPC(&h));
  printf("  storage      %s\n", SGI_STORAGE(&h) == 1 ? "run-length" : SGI_STORAGE(&h) == 0 ? "verbatim" : "unknown");
  printf("  dim          %u\n", h.dim);
  printf("  min, max     %u, %u\n", h.min, h.max);
  printf("  name         %s\n", sgiName(h).c_str());
  if (SGI_STORAGE(&h) == 1) printf("  waste        %u bytes\n", h.wastebytes);
}

void printAvi(const Report& r) {
  const TaviFileInfo& a = r.aviInfo;
  printf("%s\n", r.file.c_str());
  printf("  format       AVI movie, %u RIFF form%s, %llu chunks, index%s%s\n", a.forms, a.forms == 1 ? "" : "s",
         (unsigned long long)a.chunks, a.oldIndex ? " idx1" : "", a.superIndex ? " indx" : "");
  for (const TaviStreamInfo& s : a.streams) {
    printf("  stream       %s '%s' \"%s\"\n", s.type.asChar(), s.handler.asChar(), s.name.asChar());
    if (s.type == Tstring("vids"))
      printf("    video      %u x %u, %u bits, codec %s\n", s.width, s.height, s.bitCount, s.codec.asChar());
    printf("    frames     %llu at %u/%u a second\n", (unsigned long long)s.frames, s.rate, s.scale);
  }
}

void printText(const Report& r, bool chunks, bool tiles) {
  if (!r.error.empty()) return;
  if (r.avi) return printAvi(r);
  if (r.sgi.is) return printSgi(r);
  char type[64];
  printf("%s\n", r.file.c_str());
  printf("  size         %u x %u\n", r.hdr.width, r.hdr.height);
  printf("  type         %s\n", ILdescribetype(int(r.hdr.type), type, sizeof type));
  printf("  bytes        %u per channel\n", r.hdr.bytes);
  printf("  tiles        %u\n", r.hdr.tiles);
  printf("  compression  %s\n", compressText(int(r.hdr.compress)).c_str());
  printf("  origin       %u, %u\n", r.hdr.orgx, r.hdr.orgy);
  printf("  ratio        %u:%u\n", r.hdr.aspnum, r.hdr.aspden);
  printf("  version      0x%08x\n", r.version);
  printf("  resolution   %g dpi\n", double(r.dpi));
  for (const FieldInfo& f : r.fields)
    printf("  field        '%s' (%d bytes%s): %s\n", idText(f.tagValue).c_str(), f.count,
           (f.tagValue & 0x10) ? ", copied" : "", f.value.c_str());
  if (!r.auth.empty()) printf("  author       %s\n", r.auth.c_str());
  if (!r.date.empty()) printf("  date         %s\n", r.date.c_str());
  if (tiles) {
    std::vector<const Node*> t;
    collectTiles(r.tree, t);
    printf("  tile chunks  %zu\n", t.size());
    for (const Node* n : t)
      printf("    %s (%d,%d)-(%d,%d)  %s\n", n->id.c_str(), n->rect[0], n->rect[1], n->rect[2], n->rect[3],
             tileText(*n, r.hdr).c_str());
  }
  if (chunks) {
    printf("  chunks\n");
    printTree(r.tree, 1);
    if (!r.treeProblem.empty()) printf("  (chunk walk stopped %s)\n", r.treeProblem.c_str());
  }
}

void addJson(Json& j, const Report& r, bool chunks, bool tiles) {
  j.beginObject().field("file", r.file);
  if (!r.error.empty()) {
    j.field("error", r.error).field("code", r.code).endObject();
    return;
  }
  if (r.avi) {
    const TaviFileInfo& a = r.aviInfo;
    j.field("format", "avi").field("forms", a.forms).field("chunks", int64_t(a.chunks));
    j.field("idx1", a.oldIndex).field("indx", a.superIndex).key("streams").beginArray();
    for (const TaviStreamInfo& s : a.streams)
      j.beginObject().field("type", s.type.str()).field("handler", s.handler.str()).field("name", s.name.str())
          .field("codec", s.codec.str()).field("width", s.width).field("height", s.height).field("bits", s.bitCount)
          .field("frames", int64_t(s.frames)).field("rate", s.rate).field("scale", s.scale).endObject();
    j.endArray().endObject();
    return;
  }
  if (r.sgi.is) {
    const IMAGE& h = r.sgi.h;
    j.field("format", "sgi")
        .field("width", uint32_t(h.xsize))
        .field("height", uint32_t(h.ysize))
        .field("channels", uint32_t(h.zsize))
        .field("bytes", uint32_t(SGI_BPC(&h)))
        .field("storage", SGI_STORAGE(&h) == 1 ? "rle" : "verbatim")
        .field("dim", uint32_t(h.dim))
        .field("min", h.min)
        .field("max", h.max)
        .field("name", sgiName(h))
        .field("wastebytes", h.wastebytes)
        .endObject();
    return;
  }
  char type[64];
  j.field("format", "iff")
      .field("width", r.hdr.width)
      .field("height", r.hdr.height)
      .field("type", r.hdr.type)
      .field("type_text", ILdescribetype(int(r.hdr.type), type, sizeof type))
      .field("bytes", uint32_t(r.hdr.bytes))
      .field("tiles", uint32_t(r.hdr.tiles))
      .field("compression", r.hdr.compress)
      .field("compression_text", compressText(int(r.hdr.compress)))
      .key("origin")
      .beginArray()
      .value(r.hdr.orgx)
      .value(r.hdr.orgy)
      .endArray()
      .key("ratio")
      .beginArray()
      .value(uint32_t(r.hdr.aspnum))
      .value(uint32_t(r.hdr.aspden))
      .endArray()
      .field("version", r.version)
      .field("resolution", double(r.dpi))
      .key("fields")
      .beginArray();
  for (const FieldInfo& f : r.fields)
    j.beginObject().field("tag", f.tag).field("count", f.count).field("value", f.value).endObject();
  j.endArray().field("author", r.auth).field("date", r.date);
  if (tiles) {
    std::vector<const Node*> t;
    collectTiles(r.tree, t);
    j.key("tile_chunks").beginArray();
    for (const Node* n : t)
      j.beginObject()
          .field("id", n->id)
          .key("rect")
          .beginArray()
          .value(n->rect[0])
          .value(n->rect[1])
          .value(n->rect[2])
          .value(n->rect[3])
          .endArray()
          .field("packed", n->size - 8)
          .endObject();
    j.endArray();
  }
  if (chunks) {
    j.key("chunks");
    jsonTree(j, r.tree);
    if (!r.treeProblem.empty()) j.field("chunk_problem", r.treeProblem);
  }
  j.endObject();
}

void run(const Options& o) {
  Json j;
  if (o.json) j.beginObject().key("files").beginArray();
  for (const std::string& file : o.files) {
    guarded(file, [&] {
      Report r = inspect(file, o.chunks || o.tiles);
      if (!r.error.empty()) fail(file + ": " + r.error + (r.code > 0 ? " (error " + std::to_string(r.code) + ")" : ""));
      if (o.json) addJson(j, r, o.chunks, o.tiles);
      else printText(r, o.chunks, o.tiles);
    });
  }
  if (o.json) {
    j.endArray().endObject();
    printf("%s\n", j.str().c_str());
  }
}

}  // namespace

void registerInfo(CLI::App& app) {
  auto opt = std::make_shared<Options>();
  CLI::App* cmd = app.add_subcommand("info", "describe images (native IFF, SGI) and AVI movies: header, fields, chunks, streams");
  cmd->add_option("files", opt->files, "image files")->required();
  cmd->add_flag("--chunks", opt->chunks, "also list the chunk tree with offsets and sizes");
  cmd->add_flag("--tiles", opt->tiles, "also list the tile rectangles with their packed sizes");
  cmd->add_flag("--json", opt->json, "print one JSON document");
  cmd->callback([opt] { run(*opt); });
}

}  // namespace vimg
