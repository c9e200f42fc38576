// Platform layer: AVI files written as RIFF forms, the OpenDML way: readers that know only the
// first form and its 'idx1' still play the first gigabyte, the others follow the super index.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "foundation/byteorder.h"
#include "platform/avi_file.h"
#include "platform/platform.h"

namespace vora::platform {

namespace {

constexpr size_t kSuperEntries = 256;  // forms of 1 GB: 256 GB in one file
constexpr size_t kFlushAt = size_t(1) << 20;

void le16(std::vector<uint8_t>& b, uint32_t v) { b.push_back(uint8_t(v)), b.push_back(uint8_t(v >> 8)); }
void le32(std::vector<uint8_t>& b, uint32_t v) {
  for (int i = 0; i < 32; i += 8) b.push_back(uint8_t(v >> i));
}
void le64(std::vector<uint8_t>& b, uint64_t v) { le32(b, uint32_t(v)), le32(b, uint32_t(v >> 32)); }
void id(std::vector<uint8_t>& b, uint32_t fcc) { le32(b, fcc); }
void chunk(std::vector<uint8_t>& b, uint32_t fcc, const std::vector<uint8_t>& data) {
  id(b, fcc), le32(b, uint32_t(data.size()));
  b.insert(b.end(), data.begin(), data.end());
  if (data.size() & 1) b.push_back(0);
}
void list(std::vector<uint8_t>& b, uint32_t type, const std::vector<uint8_t>& body) {
  id(b, fourCC("LIST")), le32(b, uint32_t(body.size() + 4)), id(b, type);
  b.insert(b.end(), body.begin(), body.end());
}
size_t even(size_t n) { return n + (n & 1); }

}  // namespace

AviFileWriter::~AviFileWriter() {
  if (fd_ >= 0) closeFd(fd_);
}

bool AviFileWriter::create(const char* path) {
  fd_ = openWrite(path);
  return fd_ >= 0;
}

bool AviFileWriter::put(const void* data, size_t n) {
  if (!ok_) return false;
  if (buffer_.size() + n > kFlushAt) {
    ok_ = writeAt(fd_, buffer_.data(), buffer_.size(), int64_t(pos_ - buffer_.size()));
    buffer_.clear();
  }
  if (ok_ && n >= kFlushAt) {  // large samples go straight to the file
    ok_ = writeAt(fd_, data, n, int64_t(pos_));
  } else if (ok_) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    buffer_.insert(buffer_.end(), p, p + n);
  }
  pos_ += n;
  return ok_;
}

bool AviFileWriter::setVideoStream(const AviStreamHeader& header, const std::vector<uint8_t>& format,
                                   int width, int height) {
  if (fd_ < 0 || !forms_.empty()) return false;
  header_ = header, format_ = format, width_ = width, height_ = height;
  chunkId_ = header.handler == fourCC("DIB ") ? fourCC("00db") : fourCC("00dc");
  headerBytes_ = 12 + 12 + 8 + 56 + 12 + 8 + 56 + 8 + even(format.size()) + 8 + even(header.name.size() + 1) + 8 +
                 24 + 16 * kSuperEntries + 12 + 8 + 248;
  std::vector<uint8_t> b(headerBytes_, 0);  // the headers are written for real at the end
  id(b, fourCC("LIST")), le32(b, 0), id(b, fourCC("movi"));
  if (!put(b.data(), b.size())) return false;
  forms_.push_back({0, headerBytes_, 0});
  return true;
}

bool AviFileWriter::writeSample(const void* data, size_t size, bool keyFrame, bool compressed) {
  if (forms_.empty() || size > 0x7FFFFFF0u || !ok_) return false;
  if (compressed != (chunkId_ == fourCC("00dc"))) chunkId_ = compressed ? fourCC("00dc") : fourCC("00db");
  const Form& f = forms_.back();
  const size_t inForm = entries_.size() - f.first;
  const uint64_t indexes = 32 + 8 * (inForm + 1) + (forms_.size() == 1 ? 8 + 16 * (inForm + 1) : 0);
  if (inForm && pos_ - f.riff + 8 + even(size) + indexes > formLimit_) {
    if (forms_.size() == kSuperEntries) return ok_ = false;  // the super index is full
    if (!endForm()) return false;
    std::vector<uint8_t> b;
    id(b, fourCC("RIFF")), le32(b, 0), id(b, fourCC("AVIX"));
    id(b, fourCC("LIST")), le32(b, 0), id(b, fourCC("movi"));
    forms_.push_back({pos_, pos_ + 12, entries_.size()});
    if (!put(b.data(), b.size())) return false;
  }
  entries_.push_back({pos_, uint32_t(size), keyFrame});
  largest_ = std::max(largest_, uint32_t(size));
  uint8_t head[8];
  vora::setLe32(head, chunkId_), vora::setLe32(head + 4, uint32_t(size));
  static const uint8_t pad = 0;
  return put(head, 8) && (size == 0 || put(data, size)) && ((size & 1) == 0 || put(&pad, 1));
}

bool AviFileWriter::endForm() {
  Form& f = forms_.back();
  const size_t n = entries_.size() - f.first;
  std::vector<uint8_t> b;
  const uint64_t base = f.movi;
  id(b, fourCC("ix00")), le32(b, uint32_t(24 + 8 * n));
  le16(b, 2), b.push_back(0), b.push_back(1);  // two words an entry, an index of chunks
  le32(b, uint32_t(n)), id(b, chunkId_), le64(b, base), le32(b, 0);
  for (size_t i = f.first; i < entries_.size(); ++i) {
    le32(b, uint32_t(entries_[i].at + 8 - base));  // the data, past the chunk's header
    le32(b, entries_[i].size | (entries_[i].key ? 0 : 0x80000000u));
  }
  f.index = pos_, f.indexSize = uint32_t(b.size());
  if (!put(b.data(), b.size())) return false;
  const uint64_t moviEnd = pos_;
  if (forms_.size() == 1) {  // the first form: the old index too, offsets from the "movi" word
    b.clear();
    id(b, fourCC("idx1")), le32(b, uint32_t(16 * n));
    for (size_t i = f.first; i < entries_.size(); ++i) {
      id(b, chunkId_), le32(b, entries_[i].key ? 0x10 : 0);
      le32(b, uint32_t(entries_[i].at - (f.movi + 8))), le32(b, entries_[i].size);
    }
    if (!put(b.data(), b.size())) return false;
  }
  if (!buffer_.empty()) {
    ok_ = writeAt(fd_, buffer_.data(), buffer_.size(), int64_t(pos_ - buffer_.size()));
    buffer_.clear();
  }
  uint8_t size[4];
  vora::setLe32(size, uint32_t(moviEnd - f.movi - 8));
  ok_ = ok_ && writeAt(fd_, size, 4, int64_t(f.movi + 4));
  vora::setLe32(size, uint32_t(pos_ - f.riff - 8));
  ok_ = ok_ && writeAt(fd_, size, 4, int64_t(f.riff + 4));
  return ok_;
}

bool AviFileWriter::writeHeaders() {
  const uint32_t total = uint32_t(entries_.size());
  const uint32_t firstForm = uint32_t((forms_.size() > 1 ? forms_[1].first : entries_.size()));
  const uint32_t rate = header_.rate ? header_.rate : 1, scale = header_.scale ? header_.scale : 1;
  std::vector<uint8_t> avih, strh, strl, odml, hdrl, out;
  le32(avih, uint32_t(1000000.0 * scale / rate + 0.5));
  le32(avih, uint32_t(std::min<uint64_t>(uint64_t(largest_) * rate / scale, 0xFFFFFFFFu)));
  le32(avih, 0), le32(avih, 0x10), le32(avih, firstForm), le32(avih, 0), le32(avih, 1);
  le32(avih, largest_), le32(avih, uint32_t(width_)), le32(avih, uint32_t(height_));
  avih.resize(56, 0);
  id(strh, header_.type), id(strh, header_.handler), le32(strh, header_.flags), le32(strh, 0), le32(strh, 0);
  le32(strh, scale), le32(strh, rate), le32(strh, 0), le32(strh, total), le32(strh, largest_);
  le32(strh, header_.quality), le32(strh, header_.sampleSize);
  le16(strh, 0), le16(strh, 0), le16(strh, uint32_t(width_)), le16(strh, uint32_t(height_));
  chunk(strl, fourCC("strh"), strh);
  chunk(strl, fourCC("strf"), format_);
  std::vector<uint8_t> name(header_.name.begin(), header_.name.end());
  name.push_back(0);
  chunk(strl, fourCC("strn"), name);
  std::vector<uint8_t> indx;
  le16(indx, 4), indx.push_back(0), indx.push_back(0);  // four words an entry, an index of indexes
  le32(indx, uint32_t(forms_.size())), id(indx, chunkId_), le32(indx, 0), le32(indx, 0), le32(indx, 0);
  for (size_t i = 0; i < forms_.size(); ++i) {
    size_t end = i + 1 < forms_.size() ? forms_[i + 1].first : entries_.size();
    le64(indx, forms_[i].index), le32(indx, forms_[i].indexSize), le32(indx, uint32_t(end - forms_[i].first));
  }
  indx.resize(24 + 16 * kSuperEntries, 0);
  chunk(strl, fourCC("indx"), indx);
  std::vector<uint8_t> dmlh;
  le32(dmlh, total), dmlh.resize(248, 0);
  chunk(odml, fourCC("dmlh"), dmlh);
  chunk(hdrl, fourCC("avih"), avih);
  list(hdrl, fourCC("strl"), strl);
  list(hdrl, fourCC("odml"), odml);
  const Form& f = forms_.front();
  const uint64_t firstEnd = forms_.size() > 1 ? forms_[1].riff : pos_;
  id(out, fourCC("RIFF")), le32(out, uint32_t(firstEnd - 8)), id(out, fourCC("AVI "));
  list(out, fourCC("hdrl"), hdrl);
  if (out.size() != f.movi) return false;  // the space kept at the start
  return writeAt(fd_, out.data(), out.size(), 0);
}

bool AviFileWriter::close() {
  if (fd_ < 0) return false;
  bool good = ok_;
  if (!forms_.empty()) good = endForm() && writeHeaders();
  if (!buffer_.empty() && good) good = writeAt(fd_, buffer_.data(), buffer_.size(), int64_t(pos_ - buffer_.size()));
  buffer_.clear();
  good = closeFd(fd_) && good;
  fd_ = -1;
  return good;
}

}  // namespace vora::platform
