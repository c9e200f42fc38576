// Image sequences: the front, the class-wide format list, the best match.
#include <cstdio>

#include <vora/foundation/env.h>

#include "imagefile/image_sequence.h"

namespace {
TstringArray& formatList() {
  static TstringArray list;
  return list;
}
}  // namespace

namespace vora::seq {
void splitPath(const Tstring& fileName, Tstring& dir, Tstring& base) {
  const std::string& s = fileName.str();
  size_t slash = s.rfind('/');
  if (slash == std::string::npos) {
    dir = ".";
    base = fileName;
  } else {
    dir = Tstring(s.substr(0, slash));
    base = Tstring(s.substr(slash + 1));
  }
}
}  // namespace vora::seq

void TimageSequenceImpl::reset() {
  fileName = format = number = Tstring();
  offset = 0;
  numberPart = -1;
  padWidth = 0;
  matched = false;
}

Tstring TimageSequenceImpl::paddedNum(int frame) const {
  long long n = (long long)frame + offset;
  if (padWidth < 2) return Tstring::tFormat("%lld", n);
  return Tstring::tFormat("%0*lld", int(padWidth), n);  // a wider number is not cut
}

TimageSequence::TimageSequence()
    : impl_(VoraGetEnv("VORA_USE_OLD_IMG_SEQ_ALG") ? new TimageSequenceImpl
                                                   : new TimageSequenceRegexImpl) {}

TimageSequence::~TimageSequence() { delete impl_; }

void TimageSequence::setFileNameFormats(const TstringArray& formats) { formatList() = formats; }
void TimageSequence::getFileNameFormats(TstringArray& formats) { formats = formatList(); }

unsigned TimageSequence::bind(const Tstring& fileName, const Tstring& format) {
  impl_->reset();
  if (fileName.isEmpty() || format.isEmpty()) return 0;
  impl_->fileName = fileName;
  impl_->format = format;
  unsigned score = 0;
  if (!impl_->matchesFormat(fileName, score)) return 0;
  impl_->matched = true;
  return score;
}

unsigned TimageSequence::setFileNameAndFormat(const Tstring& fileName, const Tstring& format) {
  unsigned score = bind(fileName, format);
  if (score == 0) throw 1;
  return score;
}

bool TimageSequence::matchesFormat(const Tstring& fileName, unsigned& score) {
  return impl_->matchesFormat(fileName, score);
}

Tstring TimageSequence::atFrame(int frame) { return impl_->atFrame(frame); }
Tstring TimageSequence::nextFrame(int frame) { return atFrame(frame + 1); }
Tstring TimageSequence::paddedNum(int frame) { return impl_->paddedNum(frame); }
void TimageSequence::setOffset(int offset) { impl_->offset = offset; }

bool TimageSequence::frameInfo(int& frame, Tstring& pattern) const {
  return impl_->matched && impl_->frameInfo(frame, pattern);
}

bool TimageSequence::isRegexAlgorithm() const {
  return dynamic_cast<TimageSequenceRegexImpl*>(impl_) != nullptr;
}

bool TimageSequence::initializeToBestMatch(const Tstring& fileName, TimageSequence& sequence,
                                           int offset) {
  TstringArray formats = formatList();
  unsigned best = 0;
  const Tstring* bestFormat = nullptr;
  for (const Tstring& f : formats) {
    // As setFileNameAndFormat, whose thrown integer counts as 0; the bind is asked directly so
    // that a file tried against many formats does not throw for each (anything else passes out).
    unsigned score = 0;
    try {
      score = sequence.bind(fileName, f);
    } catch (int) {
      score = 0;
    }
    if (score > best) {  // strictly greater: on a tie the earlier format wins
      best = score;
      bestFormat = &f;
    }
  }
  if (best == 0) return false;
  sequence.setFileNameAndFormat(fileName, *bestFormat);
  sequence.setOffset(offset);
  return true;
}
