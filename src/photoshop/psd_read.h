// Part 3.1: what the document reader's files share.
#pragma once

#include <cstdint>
#include <functional>

#include <vora/photoshop.h>

namespace ktPhotoshop {

class PsdStream;

// Walks the image resource entries from the stream's position while the next 4 bytes are "8BIM"
// or "MeSa": reads signature, id, name (with the Part's pad rule) and the size rounded up to even,
// then calls each with the entry and the position of its data; each leaves the stream where the
// entry's reading ends.
void psdReadResources(PsdStream& in, const std::function<void(TpsdImageResource&, uint64_t dataStart)>& each);

}  // namespace ktPhotoshop
