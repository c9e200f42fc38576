// Foundation: TfileStream.
#include <sys/stat.h>

#include <vora/foundation/tfilestream.h>

int64_t TfileStream::modificationTime(const char* path) {
  struct stat st;
  return path && stat(path, &st) == 0 ? int64_t(st.st_mtime) : -1;
}
