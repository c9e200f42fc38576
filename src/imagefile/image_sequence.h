// The two implementations behind TimageSequence.
#pragma once

#include <cstdint>

#include <vora/imagefile.h>

// The older split-at-dots algorithm, and the base of the regular-expression one.
class TimageSequenceImpl {
 public:
  virtual ~TimageSequenceImpl() = default;
  virtual bool matchesFormat(const Tstring& fileName, unsigned& score);
  virtual Tstring atFrame(int frame);
  // The bound file's frame number and pattern (see TimageSequence::frameInfo).
  virtual bool frameInfo(int& frame, Tstring& pattern) const;

  void reset();
  Tstring paddedNum(int frame) const;

  Tstring fileName;
  Tstring format;
  Tstring number;
  int32_t offset = 0;
  int32_t numberPart = -1;
  uint32_t padWidth = 0;
  bool matched = false;
};

class TimageSequenceRegexImpl : public TimageSequenceImpl {
 public:
  bool matchesFormat(const Tstring& fileName, unsigned& score) override;
  Tstring atFrame(int frame) override;
  bool frameInfo(int& frame, Tstring& pattern) const override;
};

namespace vora::seq {
// A file name's directory ("." for a bare name) and base name.
void splitPath(const Tstring& fileName, Tstring& dir, Tstring& base);
}  // namespace vora::seq
