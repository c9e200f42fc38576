// Movies: rendered frames written as the video track of an AVI file (TaviMovie), and what an AVI
// file holds, read back without decoding anything (aviFileInfo).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <vora/export.h>
#include <vora/foundation/tfilepath.h>
#include <vora/foundation/tstring.h>

namespace vora::platform {
class AviFileWriter;
class VideoEncoder;
}  // namespace vora::platform

// The options a video track is compressed with.
struct TaviCompressOptions {
  uint32_t type = 0, handler = 0;  // four-character codes as the bytes stand ("vids", "DIB ")
  uint32_t keyFrameEvery = 0, quality = 0, bytesPerSecond = 0, flags = 0;
};

// Calling order: create, setCompression, createVideoTrack, writeFrame once per frame, closeTrack,
// close. Failures answer false (or 0xFFFFFFFF) and leave a text in lastError().
class VORA_API TaviMovie {
 public:
  TaviMovie();
  TaviMovie(const TaviMovie&) = delete;
  TaviMovie& operator=(const TaviMovie&) = delete;
  ~TaviMovie();  // closes what is still open

  // A new AVI file whose video plays frameRate frames a second.
  bool create(const TfilePath& path, unsigned frameRate);
  // Writes the headers and indexes; false when the file could not be completed.
  bool close();

  // The short name of every installed compressor, each handler once, then "none".
  static void enumCodec(TstringArray& names);
  // By short name or four-character handler, in any case; "none" for uncompressed frames. There
  // is no dialog to ask the user on this platform: the empty name is "none". quality 0 .. 100.
  bool setCompression(const Tstring& name, int quality);
  // 1, or 0xFFFFFFFF when no stream could be made or the compressor takes no frame format.
  unsigned createVideoTrack(unsigned width, unsigned height);
  // One frame of width x height pixels, 4 bytes each (blue, green, red, alpha), rows in the order
  // they are to stand in the file (bottom row first, as bitmaps are).
  bool writeFrame(unsigned char* pixels);
  bool closeTrack();

  // Where the walk over bit counts starts (32, 24, 16 or 8); 0, the default, starts at 24 (32 for
  // Microsoft Video 1), as players expect of the usual compressors.
  void setFirstBitCount(unsigned bits) { firstBitCount_ = bits; }

  const TaviCompressOptions& compressOptions() const { return options_; }
  const std::vector<uint8_t>& frameFormat() const { return format_; }  // the track's bitmap header
  unsigned bitCount() const;
  unsigned frameCount() const { return frame_; }
  bool trackOpen() const { return trackOpen_; }
  const Tstring& lastError() const { return error_; }

 private:
  void setError(const char* key);
  bool convert(const unsigned char* pixels);

  std::unique_ptr<vora::platform::AviFileWriter> file_;
  std::unique_ptr<vora::platform::VideoEncoder> encoder_;
  unsigned rate_ = 25, width_ = 0, height_ = 0, frame_ = 0, firstBitCount_ = 0;
  bool streamMade_ = false, trackOpen_ = false;
  TaviCompressOptions options_;
  std::vector<uint8_t> format_, buffer_, packet_;
  Tstring error_;
};

// What an AVI file holds, as its headers and indexes tell it.
struct TaviStreamInfo {
  Tstring type, handler;  // "vids", "MJPG"
  Tstring codec;          // the format's compression code, or "RGB" for uncompressed bitmaps
  Tstring name;           // the stream's name ('strn')
  unsigned width = 0, height = 0, bitCount = 0;
  unsigned rate = 0, scale = 0;
  uint64_t frames = 0;  // the header's length (the OpenDML total where there is one)
};
struct TaviFileInfo {
  unsigned forms = 0;        // RIFF forms ("AVI " and each "AVIX")
  uint64_t chunks = 0;       // data chunks found in the movi lists
  bool oldIndex = false;     // 'idx1'
  bool superIndex = false;   // OpenDML 'indx'
  std::vector<TaviStreamInfo> streams;
};
// False with the reason in why when the file is no AVI file or its structure is damaged (a size
// running past the end, an index entry pointing outside the file).
VORA_API bool aviFileInfo(const TfilePath& path, TaviFileInfo& info, Tstring& why);
