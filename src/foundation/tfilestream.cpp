// Foundation: TfileStream.
#include <vora/foundation/tfilestream.h>

#include "platform/platform.h"

int64_t TfileStream::modificationTime(const char* path) { return vora::platform::modificationTime(path); }
