// vimg movie: frames (files, or a numbered sequence such as shot.####.iff) written as an AVI movie.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <vora/movie.h>

#include "commands.h"
#include "image_io.h"
#include "seq_group.h"

namespace vimg {

namespace {

constexpr size_t kMostFrames = 9999;

struct MovieOptions {
  std::string out, compressor = "none";
  std::vector<std::string> frames;
  unsigned fps = 25, bits = 0;
  int quality = 75;
  bool codecs = false;
};

// The frame files of a pattern with '#' for the digits ("####": four, zero-padded; "#": any
// width), as they are on disk, in frame order.
bool expandPattern(const std::string& pattern, std::vector<std::string>& out) {
  namespace fs = std::filesystem;
  fs::path p(pattern);
  std::string dir = p.has_parent_path() ? p.parent_path().string() : ".";
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(dir, ec))
    if (e.is_regular_file(ec)) names.push_back(e.path().filename().string());
  if (ec) return false;
  Grouping g = groupSequences(names, defaultSequenceFormats());
  const std::string base = p.filename().string();
  size_t hash = base.find('#'), run = base.find_first_not_of('#', hash) - hash;
  for (const Sequence& s : g.sequences) {
    if (s.pattern != base) continue;
    for (int f : s.frames) {
      std::string digits = std::to_string(f);
      if (run > 1 && digits.size() < run) digits.insert(0, run - digits.size(), '0');
      out.push_back((p.has_parent_path() ? p.parent_path().string() + "/" : "") + base.substr(0, hash) + digits +
                    base.substr(hash + run));
    }
  }
  return true;
}

void listCodecs() {
  TstringArray names;
  TaviMovie::enumCodec(names);
  for (const Tstring& n : names) printf("%s\n", n.asChar());
}

void run(const MovieOptions& o) {
  if (o.codecs) return listCodecs();
  if (o.out.empty() || o.frames.empty()) return fail("movie: OUT.avi and at least one frame are needed", kStatusUsage);
  std::vector<std::string> files;
  for (const std::string& f : o.frames) {
    if (f.find('#') == std::string::npos) {
      files.push_back(f);
      continue;
    }
    size_t before = files.size();
    if (!expandPattern(f, files) || files.size() == before) return fail(f + ": no frames of this pattern");
  }
  if (files.size() > kMostFrames)
    return fail("movie: " + std::to_string(files.size()) + " frames; at most " + std::to_string(kMostFrames), kStatusUsage);
  TaviMovie movie;
  if (!movie.setCompression(o.compressor, o.quality))
    return fail("movie: no compressor named " + o.compressor + " (vimg movie --codecs lists them)", kStatusUsage);
  const std::string compressor = o.compressor;
  if (!movie.create(o.out, o.fps)) return fail(o.out + ": " + openProblem(o.out));
  movie.setFirstBitCount(o.bits);
  Image first;
  for (size_t i = 0; i < files.size(); ++i) {
    Image img;
    std::string error;
    if (!readImage(files[i], img, error)) return fail(files[i] + ": " + error);
    img = withBytes(img, 1);
    if (i == 0) {
      first = img;
      if (movie.createVideoTrack(unsigned(img.width), unsigned(img.height)) != 1) {
        std::string why = movie.lastError().isEmpty()
                              ? "the compressor " + compressor + " takes none of the frame formats at " +
                                    std::to_string(img.width) + " x " + std::to_string(img.height)
                              : movie.lastError().str();
        return fail(o.out + ": " + why);
      }
    } else if (img.width != first.width || img.height != first.height) {
      return fail(files[i] + ": " + std::to_string(img.width) + " x " + std::to_string(img.height) +
                  ", the movie's frames are " + std::to_string(first.width) + " x " + std::to_string(first.height));
    }
    if (!movie.writeFrame(img.pixels.data())) return fail(o.out + ": frame " + std::to_string(i + 1) + " could not be written");
  }
  unsigned bits = movie.bitCount();
  movie.closeTrack();
  if (!movie.close()) return fail(o.out + ": the file could not be completed");
  printf("%s: %zu frame%s, %d x %d, %u bits, %s, %u a second\n", o.out.c_str(), files.size(),
         files.size() == 1 ? "" : "s", first.width, first.height, bits, compressor.c_str(), o.fps);
}

}  // namespace

void registerMovie(CLI::App& app) {
  auto opt = std::make_shared<MovieOptions>();
  CLI::App* cmd = app.add_subcommand("movie", "write frames as an AVI movie (--codecs lists the compressors)");
  cmd->add_option("out", opt->out, "the AVI file to write");
  cmd->add_option("frames", opt->frames, "frame images in order, or a numbered pattern such as shot.####.iff");
  cmd->add_option("--fps", opt->fps, "frames a second (default 25)")->check(CLI::Range(1u, 1000u));
  cmd->add_option("--compressor", opt->compressor, "a compressor's name or four-character code; none (default)");
  cmd->add_option("--quality", opt->quality, "0 .. 100 (default 75)")->check(CLI::Range(0, 100));
  cmd->add_option("--bits", opt->bits, "the first bit count offered: 32, 24, 16 or 8")
      ->check(CLI::IsMember({0u, 8u, 16u, 24u, 32u}));
  cmd->add_flag("--codecs", opt->codecs, "list the compressors installed");
  cmd->callback([opt] { run(*opt); });
}

}  // namespace vimg
