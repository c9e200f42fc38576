// Foundation: chunks added to the stream of a TiffFile.
#include <vora/foundation/tiff_file.h>

int TiffFile::beginPut(TiffTag id) { return fp_ ? FLbgnwchunk(fp_, id.value()) : FL_ESTATE; }
int TiffFile::put(const void* data, size_t n) { return fp_ ? FLput(fp_, data, n) : FL_ESTATE; }
int TiffFile::endPut() { return fp_ ? FLendput(fp_) : FL_ESTATE; }
