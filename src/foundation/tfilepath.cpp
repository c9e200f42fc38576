// Foundation: TfilePath and TmemoryException.
#include <vora/foundation/fl.h>
#include <vora/foundation/tfilepath.h>

Tstring TfilePath::baseName() const {
  size_t slash = path_.find_last_of("/\\");
  return Tstring(slash == std::string::npos ? path_ : path_.substr(slash + 1));
}

const char* TmemoryException::what() const noexcept { return "out of memory"; }

void TmemoryException::checkAllocation(unsigned long long bytes) {
  if (!FLallocok(bytes)) throw TmemoryException();
}
