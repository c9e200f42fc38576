// Platform layer: the AVI file and video-compressor services a movie writer relies on. The RIFF
// writer is our own (with the OpenDML extensions that keep files past 1 GB readable); the
// compressors are FFmpeg's libavcodec encoders that have a place in an AVI file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vora::platform {

constexpr uint32_t fourCC(const char (&s)[5]) {
  return uint32_t(uint8_t(s[0])) | uint32_t(uint8_t(s[1])) << 8 | uint32_t(uint8_t(s[2])) << 16 |
         uint32_t(uint8_t(s[3])) << 24;  // as the bytes stand in the file
}

struct AviStreamHeader {
  uint32_t type = 0, handler = 0, flags = 0, scale = 1, rate = 25, quality = 0, sampleSize = 0;
  std::string name;
};

// One video stream in a new file. Samples go into 'movi' lists of RIFF forms of at most 1 GB
// each ("AVI " then "AVIX"), each list closed by a standard index ('ix00'); the first form also
// gets the old 'idx1' index, and the stream header a super index ('indx') over the lists.
class AviFileWriter {
 public:
  AviFileWriter() = default;
  AviFileWriter(const AviFileWriter&) = delete;
  AviFileWriter& operator=(const AviFileWriter&) = delete;
  ~AviFileWriter();

  bool create(const char* path);  // false with errno
  // The stream's header and format (a bitmap information header, its colour table after it).
  // Once, before the first sample.
  bool setVideoStream(const AviStreamHeader& header, const std::vector<uint8_t>& format, int width,
                      int height);
  // One sample, as '00dc' (compressed) or '00db'. False when the file cannot take it.
  bool writeSample(const void* data, size_t size, bool keyFrame, bool compressed);
  // Indexes and headers; false when a write failed on the way. The file is closed either way.
  bool close();
  uint32_t frames() const { return uint32_t(entries_.size()); }

  // The limit of one RIFF form; smaller values let tests reach the extension forms cheaply.
  void setFormLimit(uint64_t bytes) { formLimit_ = bytes; }

 private:
  struct Entry {
    uint64_t at;  // the chunk's header
    uint32_t size;
    bool key;
  };
  struct Form {
    uint64_t riff, movi;  // positions of the "RIFF" and the movi "LIST" headers
    size_t first;         // its first entry
    uint64_t index = 0;   // where its 'ix00' went, and the chunk's size
    uint32_t indexSize = 0;
  };
  bool put(const void* data, size_t n);
  bool endForm();
  bool writeHeaders();

  int fd_ = -1;
  bool ok_ = true;
  uint64_t pos_ = 0, formLimit_ = uint64_t(1) << 30;
  uint32_t chunkId_ = 0, largest_ = 0;
  AviStreamHeader header_;
  std::vector<uint8_t> format_;
  int width_ = 0, height_ = 0;
  size_t headerBytes_ = 0;
  std::vector<Entry> entries_;
  std::vector<Form> forms_;
  std::vector<uint8_t> buffer_;
};

struct VideoCompressorInfo {
  uint32_t handler = 0;  // the four-character code, as the bytes stand
  std::string shortName, description;
};

// The compressors installed, in a fixed order: false past the last.
bool videoCompressorInfo(int index, VideoCompressorInfo& info);

// One compressor opened for frames of one bitmap format.
class VideoEncoder {
 public:
  VideoEncoder();
  VideoEncoder(const VideoEncoder&) = delete;
  VideoEncoder& operator=(const VideoEncoder&) = delete;
  ~VideoEncoder();
  // False when the compressor of `handler` does not take frames of this bit count and size.
  // quality runs 0 .. 10000; a key frame comes every keyFrameEvery frames (0: every frame).
  bool open(uint32_t handler, int bitCount, int width, int height, unsigned rate, int keyFrameEvery,
            int quality);
  // One frame in its bitmap layout (rows bottom first, `stride` bytes apart; at 8 bits indexes
  // into `palette`, 256 entries blue, green, red, 0). With bgra, the frame is given as 32-bit
  // pixels instead, alpha unused: the same picture without a copy at the bitmap's bit count.
  // The compressed bytes go to `out`.
  bool encode(const uint8_t* frame, size_t stride, const uint8_t* palette, std::vector<uint8_t>& out,
              bool& key, bool bgra = false);
  // What the decoder needs besides the frames (Huffyuv's tables), to follow the bitmap header
  // in the stream's format; empty for most compressors.
  std::vector<uint8_t> extraData() const;
  void close();

 private:
  struct State;
  std::unique_ptr<State> s_;
};

}  // namespace vora::platform
