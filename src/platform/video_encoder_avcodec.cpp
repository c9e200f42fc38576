// Platform layer: video compressors through FFmpeg's libavcodec. Only encoders that have an AVI
// four-character code and give one packet per frame (no delay) are offered, so that every frame
// written is one sample of the stream.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cstring>
#include <mutex>

#include "foundation/parallel.h"
#include "platform/avi_file.h"

namespace vora::platform {

namespace {

struct Known {
  const char* encoder;
  char handler[5];
  const char* description;
};
// In the order enumerated. The short name is the encoder's.
const Known kKnown[] = {
    {"msvideo1", "MSVC", "Microsoft Video 1"}, {"cinepak", "cvid", "Cinepak"},
    {"mjpeg", "MJPG", "Motion JPEG"},          {"huffyuv", "HFYU", "HuffYUV (lossless)"},
    {"png", "MPNG", "PNG (lossless)"},
};

const AVCodec* usable(const Known& k) {
  const AVCodec* c = avcodec_find_encoder_by_name(k.encoder);
  return c && !(c->capabilities & AV_CODEC_CAP_DELAY) && c->pix_fmts ? c : nullptr;
}

AVPixelFormat bitmapFormat(int bitCount) {
  switch (bitCount) {
    case 32: return AV_PIX_FMT_BGRA;
    case 24: return AV_PIX_FMT_BGR24;
    case 16: return AV_PIX_FMT_RGB555LE;
    case 8: return AV_PIX_FMT_PAL8;
    default: return AV_PIX_FMT_NONE;
  }
}

// What the encoder is given for frames of a bit count: the bitmap's own format, the same samples
// in another order (RGB for BGR), or, for 24-bit frames to an encoder that takes no RGB at all
// (Motion JPEG), its first format by conversion. NONE: the bit count is refused.
AVPixelFormat encoderFormat(const AVCodec* c, int bitCount) {
  const AVPixelFormat own = bitmapFormat(bitCount);
  bool anyRgb = false;
  for (const AVPixelFormat* p = c->pix_fmts; *p != AV_PIX_FMT_NONE; ++p) {
    if (*p == own || (bitCount == 24 && *p == AV_PIX_FMT_RGB24)) return *p;
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(*p);
    anyRgb = anyRgb || (d && (d->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)));
  }
  if (bitCount != 24 || anyRgb) return AV_PIX_FMT_NONE;
  // The format that loses least (4:4:4 where there is one), as ffmpeg chooses; full-range (JPEG)
  // YUV as the plain format with its range set, where the encoder takes it: swscale warns of the
  // other.
  AVPixelFormat best = avcodec_find_best_pix_fmt_of_list(c->pix_fmts, own, 0, nullptr);
  const std::pair<AVPixelFormat, AVPixelFormat> plain[] = {{AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUV420P},
                                                           {AV_PIX_FMT_YUVJ422P, AV_PIX_FMT_YUV422P},
                                                           {AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_YUV444P}};
  for (auto [j, p] : plain)
    for (const AVPixelFormat* q = c->pix_fmts; best == j && *q != AV_PIX_FMT_NONE; ++q)
      if (*q == p) return p;
  return best;
}

// Full range where the encoder wants it, told to the scaler before it is set up.
SwsContext* scaler(int width, int height, AVPixelFormat from, AVPixelFormat to, bool fullRange) {
  SwsContext* sws = sws_alloc_context();
  if (!sws) return nullptr;
  av_opt_set_int(sws, "srcw", width, 0), av_opt_set_int(sws, "srch", height, 0);
  av_opt_set_int(sws, "dstw", width, 0), av_opt_set_int(sws, "dsth", height, 0);
  av_opt_set_int(sws, "src_format", from, 0), av_opt_set_int(sws, "dst_format", to, 0);
  av_opt_set_int(sws, "src_range", 1, 0), av_opt_set_int(sws, "dst_range", fullRange ? 1 : 0, 0);
  av_opt_set_int(sws, "sws_flags", SWS_BICUBIC, 0);
  if (sws_init_context(sws, nullptr, nullptr) < 0) sws_freeContext(sws), sws = nullptr;
  return sws;
}

// The conversion in bands of rows, one a core, each with its own scaler (no scaling happens, so
// bands are independent; even heights keep 4:2:0 chroma rows whole).
struct Band {
  int y0, y1;
  SwsContext* sws;
};
bool makeBands(int width, int height, AVPixelFormat from, AVPixelFormat to, bool fullRange, std::vector<Band>& out) {
  const int n = int(std::min<unsigned>(vora::threadCount(0), unsigned(std::max(1, height / 64))));
  const int step = ((height + n - 1) / n + 1) & ~1;
  for (int y = 0; y < height; y += step) {
    out.push_back({y, std::min(height, y + step), scaler(width, std::min(height, y + step) - y, from, to, fullRange)});
    if (!out.back().sws) return false;
  }
  return true;
}

}  // namespace

bool videoCompressorInfo(int index, VideoCompressorInfo& info) {
  for (const Known& k : kKnown) {
    if (!usable(k) || index-- > 0) continue;
    info.handler = fourCC(k.handler), info.shortName = k.encoder, info.description = k.description;
    return true;
  }
  return false;
}

struct VideoEncoder::State {
  AVCodecContext* ctx = nullptr;
  AVFrame* frame = nullptr;
  AVPacket* packet = nullptr;
  std::vector<Band> bands, bgraBands;  // the latter made at the first frame given as 32-bit pixels
  AVPixelFormat from = AV_PIX_FMT_NONE;
  bool fullRange = false;
  int64_t pts = 0;
  ~State() {
    for (auto* b : {&bands, &bgraBands})
      for (Band& band : *b) sws_freeContext(band.sws);
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&ctx);
  }
};

VideoEncoder::VideoEncoder() = default;
VideoEncoder::~VideoEncoder() = default;
void VideoEncoder::close() { s_.reset(); }

bool VideoEncoder::open(uint32_t handler, int bitCount, int width, int height, unsigned rate, int keyFrameEvery,
                        int quality) {
  close();
  // A refused format or size is an answer here, reported through the movie's own results; the
  // encoders' notes on standard error would only confuse the caller's users.
  static std::once_flag quiet;
  std::call_once(quiet, [] { av_log_set_level(AV_LOG_FATAL); });
  const AVCodec* codec = nullptr;
  for (const Known& k : kKnown)
    if (fourCC(k.handler) == handler) codec = usable(k);
  if (!codec || width <= 0 || height <= 0) return false;
  const AVPixelFormat to = encoderFormat(codec, bitCount);
  if (to == AV_PIX_FMT_NONE) return false;
  auto s = std::make_unique<State>();
  s->from = bitmapFormat(bitCount);
  s->ctx = avcodec_alloc_context3(codec);
  s->frame = av_frame_alloc();
  s->packet = av_packet_alloc();
  if (!s->ctx || !s->frame || !s->packet) return false;
  AVCodecContext* c = s->ctx;
  c->width = width, c->height = height, c->pix_fmt = to;
  c->time_base = AVRational{1, int(rate ? rate : 1)}, c->framerate = AVRational{int(rate ? rate : 1), 1};
  c->gop_size = keyFrameEvery > 0 ? keyFrameEvery : 1;
  // 0 .. 10000 onto the quantiser scale 31 .. 1 (1 is best), for the encoders that use one.
  c->flags |= AV_CODEC_FLAG_QSCALE;
  c->global_quality = FF_QP2LAMBDA * (31 - std::clamp(quality, 0, 10000) * 30 / 10000);
  const bool fullRange = codec->id == AV_CODEC_ID_MJPEG;  // JPEG's YUV spans 0 .. 255
  if (fullRange) c->color_range = AVCOL_RANGE_JPEG;
  // Slices on every core where the encoder can; frame threads would hold frames back.
  c->thread_count = 0, c->thread_type = FF_THREAD_SLICE;
  if (avcodec_open2(c, codec, nullptr) < 0) return false;
  s->frame->format = to, s->frame->width = width, s->frame->height = height;
  if (av_frame_get_buffer(s->frame, 0) < 0) return false;
  if (to != s->from) {
    if (!makeBands(width, height, s->from, to, fullRange, s->bands)) return false;
  }
  s->fullRange = fullRange;
  s_ = std::move(s);
  return true;
}

std::vector<uint8_t> VideoEncoder::extraData() const {
  if (!s_ || !s_->ctx->extradata || s_->ctx->extradata_size <= 0) return {};
  return std::vector<uint8_t>(s_->ctx->extradata, s_->ctx->extradata + s_->ctx->extradata_size);
}

bool VideoEncoder::encode(const uint8_t* frame, size_t stride, const uint8_t* palette, std::vector<uint8_t>& out,
                          bool& key, bool bgra) {
  out.clear(), key = false;
  if (!s_ || av_frame_make_writable(s_->frame) < 0) return false;
  AVFrame* f = s_->frame;
  const int w = s_->ctx->width, h = s_->ctx->height;
  // Bitmaps stand bottom row first; encoders take the top row first.
  const uint8_t* top = frame + size_t(h - 1) * stride;
  if (bgra && s_->bgraBands.empty() &&
      !makeBands(w, h, AV_PIX_FMT_BGRA, AVPixelFormat(f->format), s_->fullRange, s_->bgraBands))
    return false;
  if (const std::vector<Band>& bands = bgra ? s_->bgraBands : s_->bands; !bands.empty()) {
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(AVPixelFormat(f->format));
    vora::parallelEach(bands.size(), 0, [&](size_t i) {
      const Band& b = bands[i];
      const uint8_t* src[4] = {top - size_t(b.y0) * stride, nullptr, nullptr, nullptr};
      const int strides[4] = {-int(stride), 0, 0, 0};
      uint8_t* dst[4] = {};
      for (int p = 0; p < 4 && f->data[p]; ++p)
        dst[p] = f->data[p] + size_t(p == 1 || p == 2 ? b.y0 >> d->log2_chroma_h : b.y0) * f->linesize[p];
      sws_scale(b.sws, src, strides, 0, b.y1 - b.y0, dst, f->linesize);
    });
  } else {
    const size_t rowBytes = size_t(av_image_get_linesize(AVPixelFormat(f->format), w, 0));
    const bool swap = f->format == AV_PIX_FMT_RGB24;  // BGR samples, in the order the encoder wants
    for (int y = 0; y < h; ++y) {
      const uint8_t* in = top - size_t(y) * stride;
      uint8_t* o = f->data[0] + size_t(y) * f->linesize[0];
      if (!swap) {
        memcpy(o, in, rowBytes);
      } else {
        for (int x = 0; x < w; ++x) o[3 * x] = in[3 * x + 2], o[3 * x + 1] = in[3 * x + 1], o[3 * x + 2] = in[3 * x];
      }
    }
    if (f->format == AV_PIX_FMT_PAL8 && palette) {
      for (int i = 0; i < 256; ++i)
        reinterpret_cast<uint32_t*>(f->data[1])[i] =
            0xFF000000u | uint32_t(palette[4 * i + 2]) << 16 | uint32_t(palette[4 * i + 1]) << 8 | palette[4 * i];
    }
  }
  f->pts = s_->pts++;
  f->quality = s_->ctx->global_quality;
  if (avcodec_send_frame(s_->ctx, f) < 0) return false;
  int r = avcodec_receive_packet(s_->ctx, s_->packet);
  if (r == AVERROR(EAGAIN)) return true;  // nothing this time: an empty sample
  if (r < 0) return false;
  out.assign(s_->packet->data, s_->packet->data + s_->packet->size);
  key = s_->packet->flags & AV_PKT_FLAG_KEY;
  av_packet_unref(s_->packet);
  return true;
}

}  // namespace vora::platform
