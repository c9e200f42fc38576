// Foundation: private state of an FL stream record.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <vora/foundation/kt.h>

#include "foundation/fl_stream.h"

struct FLstreamImpl {
  // One open group or chunk. Positions are stream offsets; end is -1 for a group of unknown
  // size (streamed writers), which ends at a GEND chunk.
  struct Ctx {
    FLid id = 0;
    FLid type = 0;
    int64_t start = 0;  // first byte after the size word
    int64_t end = -1;   // first byte after the data (padding excluded)
    uint32_t align = 2; // alignment of what is nested (groups) or of the enclosing group (chunks)
    uint32_t reserved = 0;  // FLbgnwbchunk: bytes reserved
    bool group = false;
    bool entered = false;   // a group whose type word was read or written
    bool bchunk = false;    // reserved with FLbgnwbchunk
  };

  std::unique_ptr<vora::fl::Stream> stream;
  std::string name;
  bool writing = false;
  int64_t pos = 0;  // logical position of the next byte read or written

  // reading: bytes [rpos, rlen) of rbuf are buffered ahead; FLunread puts bytes in front of them
  std::vector<uint8_t> rbuf;
  size_t rpos = 0, rlen = 0;
  bool readError = false;
  FLformcheck form = nullptr;
  FLparsestate ps{};
  FLid lastid = 0;

  // writing: wbuf holds the bytes from stream offset wbase on, not yet sent; bytes reserved by
  // FLbgnwbchunk are not zeroed (the caller writes those it keeps)
  kt::ByteBuffer wbuf;
  int64_t wbase = 0;

  std::vector<Ctx> ctx;
  bool filteredOutput = false;

  bool seekable() const { return stream && (stream->kind() & FL_SEEKABLE); }
};

namespace vora::fl {
uint32_t alignOf(FLid id);  // 2, 4 or 8 for group ids, 0 for anything else
inline bool isGroupId(FLid id) { return alignOf(id) != 0; }
}  // namespace vora::fl
