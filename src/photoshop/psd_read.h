// What the document reader's files share.
#pragma once

#include <cstdint>
#include <functional>

#include <vora/photoshop.h>

#include "psd_stream.h"

namespace ktPhotoshop {

template <typename R, typename F>
R TpsdFile::guard(R onMemory, R onCorrupt, F&& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    noMemory();
    return onMemory;
  } catch (const PsdReadError& e) {
    setError(e.status.code(), e.status.text());
    return onCorrupt;
  }
}

class PsdStream;

// Walks the image resource entries from the stream's position while the next 4 bytes are "8BIM"
// or "MeSa": reads signature, id, name (with the signed pad rule) and the size rounded up to even,
// then calls each with the entry and the position of its data; each leaves the stream where the
// entry's reading ends.
void psdReadResources(PsdStream& in, const std::function<void(TpsdImageResource&, uint64_t dataStart)>& each);

}  // namespace ktPhotoshop
