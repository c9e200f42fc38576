// Foundation: TfileStream.
#include <vora/foundation/tfilestream.h>

#include "platform/platform.h"

Ttime TfileStream::modificationTime(const char* path) {
  Ttime t;
  if (!vora::platform::modificationTime(path, &t.seconds, &t.nanoseconds)) t = Ttime{};
  return t;
}
