// vimg seq: frame sequences: group files into sequences with their ranges and missing frames
// (like lsseq), and give the name of any frame.
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <vora/imagefile.h>

#include "commands.h"
#include "json.h"
#include "seq_group.h"

namespace vimg {

namespace {

struct ListOptions {
  std::vector<std::string> paths{"."};
  std::vector<std::string> formats;
  bool json = false;
};

struct FrameOptions {
  std::string file;
  int frame = 0;
  std::vector<std::string> formats;
};

// Names to group: the entries of each directory (not recursive), or the files given.
std::vector<std::string> collect(const std::vector<std::string>& paths) {
  std::vector<std::string> names;
  namespace fs = std::filesystem;
  for (const std::string& p : paths) {
    std::error_code ec;
    if (!fs::is_directory(p, ec)) {
      names.push_back(p);
      continue;
    }
    std::string prefix = p == "." ? "" : (p.back() == '/' ? p : p + "/");
    for (const fs::directory_entry& e : fs::directory_iterator(p, ec)) names.push_back(prefix + e.path().filename().string());
  }
  return names;
}

std::string shown(const Sequence& s) { return s.dir.empty() ? s.pattern : s.dir + "/" + s.pattern; }

void list(const ListOptions& o) {
  TstringArray formats = defaultSequenceFormats();
  for (const std::string& f : o.formats) formats.push_back(f);
  Grouping g = groupSequences(collect(o.paths), formats);
  if (o.json) {
    Json j;
    j.beginObject().key("sequences").beginArray();
    for (const Sequence& s : g.sequences) {
      std::vector<int> missing = missingFrames(s.frames);
      j.beginObject()
          .field("dir", s.dir)
          .field("pattern", s.pattern)
          .field("first", s.frames.front())
          .field("last", s.frames.back())
          .field("count", int(s.frames.size()))
          .field("frames", frameRanges(s.frames))
          .field("missing", frameRanges(missing))
          .endObject();
    }
    j.endArray().key("files").beginArray();
    for (const std::string& f : g.singles) j.value(f);
    j.endArray().endObject();
    printf("%s\n", j.str().c_str());
    return;
  }
  for (const Sequence& s : g.sequences) {
    std::vector<int> missing = missingFrames(s.frames);
    printf("%s  %s  (%zu frame%s", shown(s).c_str(), frameRanges(s.frames).c_str(), s.frames.size(),
           s.frames.size() == 1 ? "" : "s");
    if (!missing.empty()) printf("; missing %s", frameRanges(missing).c_str());
    printf(")\n");
  }
  for (const std::string& f : g.singles) printf("%s\n", f.c_str());
}

void frame(const FrameOptions& o) {
  TstringArray saved, formats;
  for (const std::string& f : o.formats) formats.push_back(f);
  if (formats.empty()) formats = defaultSequenceFormats();
  TimageSequence::getFileNameFormats(saved);
  TimageSequence::setFileNameFormats(formats);
  TimageSequence seq;
  bool ok = TimageSequence::initializeToBestMatch(o.file, seq, 0);
  TimageSequence::setFileNameFormats(saved);
  if (!ok) return fail(o.file + ": fits none of the formats");
  std::string name = seq.atFrame(o.frame).str();
  if (o.file.find('/') == std::string::npos && name.rfind("./", 0) == 0) name = name.substr(2);
  printf("%s\n", name.c_str());
}

}  // namespace

void registerSeq(CLI::App& app) {
  auto lo = std::make_shared<ListOptions>();
  auto fo = std::make_shared<FrameOptions>();
  CLI::App* cmd = app.add_subcommand("seq", "frame sequences: list them, or name any frame");
  cmd->add_option("paths", lo->paths, "files or directories (default: .)");
  cmd->add_option("--format", lo->formats,
                  "a further file-name format such as name.####.ext (after the default list)");
  cmd->add_flag("--json", lo->json, "print one JSON document");
  CLI::App* fr = cmd->add_subcommand("frame", "the name of frame N of FILE's sequence");
  fr->add_option("file", fo->file, "a file of the sequence")->required();
  fr->add_option("n", fo->frame, "the frame number")->required();
  fr->add_option("--format", fo->formats, "formats to try, in order (they replace the defaults)");
  fr->callback([fo] { guarded(fo->file, [&] { frame(*fo); }); });
  cmd->callback([cmd, lo] {
    if (cmd->got_subcommand("frame")) return;
    guarded(lo->paths.empty() ? "." : lo->paths[0], [&] { list(*lo); });
  });
}

}  // namespace vimg
