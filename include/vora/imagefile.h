// The image file classes: the native image file object (iff_image_file.h) and image sequences.
#pragma once

#include <vora/export.h>
#include <vora/iff_image_file.h>
#include <vora/foundation/tstring.h>

class TimageSequenceImpl;

// A numbered image sequence: one file plus a file-name format ("name.####.ext": the words "name"
// and "ext" and a run of '#', the frame number's zero-padded width) gives the name of any frame.
// The regular-expression algorithm is the default; VORA_USE_OLD_IMG_SEQ_ALG selects the older
// split-at-dots one. Failures throw the integer 1 (setFileNameAndFormat, convertToRegex).
class VORA_API TimageSequence {
 public:
  TimageSequence();
  ~TimageSequence();
  TimageSequence(const TimageSequence&) = delete;
  TimageSequence& operator=(const TimageSequence&) = delete;

  // The class-wide list of formats (the library supplies none).
  static void setFileNameFormats(const TstringArray& formats);
  static void getFileNameFormats(TstringArray& formats);

  unsigned setFileNameAndFormat(const Tstring& fileName, const Tstring& format);
  bool matchesFormat(const Tstring& fileName, unsigned& score);
  Tstring atFrame(int frame);
  Tstring nextFrame(int frame);
  Tstring paddedNum(int frame);
  void setOffset(int offset);

  static Tstring convertToRegex(const Tstring& format, int& padWidth);
  static bool initializeToBestMatch(const Tstring& fileName, TimageSequence& sequence, int offset);

  // For tools that group files into sequences: the bound file's frame number
  // and the sequence's pattern (its base name with the number as a run of '#', one '#' when
  // unpadded). False when nothing is bound.
  bool frameInfo(int& frame, Tstring& pattern) const;
  bool isRegexAlgorithm() const;

 private:
  // setFileNameAndFormat without the throw for a file that does not fit (0 then).
  unsigned bind(const Tstring& fileName, const Tstring& format);
  TimageSequenceImpl* impl_;
};
